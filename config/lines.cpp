/// \file The store's lines: bounded reading, exact copying, matching; and joined heap texts.
#include "config/lines.h"

#include <cstdlib>
#include <cstring>

namespace nuv::config {

// Byte by byte rather than with fgets, so that the length of a line holding NUL bytes is known
// and the line is copied whole; the split into lines is the one fgets makes.
bool ReadLine(FILE* stream, Line* line) {
  std::size_t length = 0;
  while (length < kLineBufferBytes - 1) {
    const int byte = getc(stream);
    if (byte == EOF) {
      break;
    }
    line->text[length++] = static_cast<char>(byte);
    if (byte == '\n') {
      break;
    }
  }
  line->text[length] = '\0';
  line->length = length;
  return length > 0;
}

void WriteLine(FILE* stream, const Line& line) { fwrite(line.text, 1, line.length, stream); }

bool FIgnored(const Line& line) { return line.text[0] == '#' || strcmp(line.text, "\n") == 0; }

bool FMatches(const regex_t* pattern, const Line& line, Groups groups) {
  return regexec(pattern, line.text, 3, groups, 0) == 0;
}

char* CopyGroup(const Line& line, const Groups groups, int group) {
  const regmatch_t& match = groups[group];
  return strndup(line.text + match.rm_so, static_cast<std::size_t>(match.rm_eo - match.rm_so));
}

char* Concat(const char* first, const char* second, const char* third) {
  const std::size_t size = strlen(first) + strlen(second) + strlen(third) + 1;
  char* joined = static_cast<char*>(malloc(size));
  if (joined != nullptr) {
    snprintf(joined, size, "%s%s%s", first, second, third);
  }
  return joined;
}

}  // namespace nuv::config
