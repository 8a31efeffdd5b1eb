/// \file The store's lines: read through a buffer of 8,192 bytes, matched, and copied byte for
/// byte; and the heap texts made from them.
#ifndef NUV_CONFIG_LINES_H
#define NUV_CONFIG_LINES_H

#include <regex.h>
#include <cstddef>
#include <cstdio>

namespace nuv::config {

/// The line buffer of the file format: a longer line is read, and counted, as several lines.
constexpr std::size_t kLineBufferBytes = 8192;

/// One line as read: at most kLineBufferBytes - 1 bytes, up to and including a newline, then a
/// terminating NUL. length counts every byte read, NUL bytes of the file included.
struct Line {
  char text[kLineBufferBytes];
  std::size_t length;
};

/// The two groups of a match: [1] the header text or the key, [2] the value.
using Groups = regmatch_t[3];

/// Reads the next line; false at the end of the file (or on a read error) with nothing read.
bool ReadLine(FILE* stream, Line* line);
/// Writes the line's bytes exactly as read.
void WriteLine(FILE* stream, const Line& line);
/// A comment (first byte '#') or a blank line (exactly a newline): ignored by the parser.
bool FIgnored(const Line& line);
/// Whether the line's text, up to its first NUL byte, matches pattern.
bool FMatches(const regex_t* pattern, const Line& line, Groups groups);
/// A heap copy of group number `group` of a match.
char* CopyGroup(const Line& line, const Groups groups, int group);
/// A heap copy of first + second + third.
char* Concat(const char* first, const char* second, const char* third);

}  // namespace nuv::config

#endif  // NUV_CONFIG_LINES_H
