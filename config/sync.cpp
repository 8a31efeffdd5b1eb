/// \file NuvConfigbase::Sync: rewriting the file through path + ".cbup" with the section in
/// memory in place of its old lines.
#include <nuv/configbase.h>

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "config/lines.h"
#include "core/kernel.h"

namespace {

using nuv::config::Line;
using nuv::config::ReadLine;
using nuv::config::WriteLine;
using nuv::kernel::Call;
using nuv::kernel::Ignore;
using nuv::kernel::Make;

constexpr Call kUnlink{"unlink", -1, ENOENT, false};
constexpr Call kLink{"link", -1, 0, false};

// Everything went into the temporary: flushed without a write error.
bool FWritten(FILE* temporary) { return fflush(temporary) == 0 && ferror(temporary) == 0; }

// Puts the temporary in the file's place. Between the two calls the file is absent under its
// name, as it always has been; two processes syncing one file race here.
void Replace(const char* path, const char* temporary) {
  Ignore(Make(kUnlink, [path] { return unlink(path); }), "a file that vanished is made again");
  if (!Make(kLink, [temporary, path] { return link(temporary, path); }).Failed()) {
    Ignore(Make(kUnlink, [temporary] { return unlink(temporary); }),
           "the file is in place; a temporary left behind is rewritten by the next Sync");
  }
  // When the link fails the temporary is kept: it is then the only copy of the file.
}

}  // namespace

void NuvConfigbase::Sync(bool close) {
  if (keyPathM == nullptr || pairsM == nullptr || dirtyM == 0) {
    return;
  }
  char* temporaryPath = nuv::config::Concat(pathM, ".cbup", "");
  FILE* temporary = temporaryPath == nullptr ? nullptr : fopen(temporaryPath, "w+");
  if (temporary == nullptr) {
    free(temporaryPath);  // given up silently; nothing has changed
    return;
  }
  const int32_t copied = CopyLinesBeforeSection(temporary);
  const int32_t pairs = WriteSection(temporary);
  CopyRemainingLines(temporary);
  if (!FWritten(temporary)) {
    // The file keeps its old contents and the store its state; only the temporary goes.
    fclose(temporary);
    Ignore(Make(kUnlink, [temporaryPath] { return unlink(temporaryPath); }), "nothing to clean");
    free(temporaryPath);
    return;
  }
  headerLineM = copied;
  endLineM = copied + 1 + pairs;
  if (streamM != nullptr) {
    fclose(streamM);
  }
  streamM = temporary;
  // Deliberate: the section is not read again after a closing Sync, so a further change to it
  // finds no open file and the next Sync writes a file holding this section alone.
  if (close) {
    fclose(streamM);
    streamM = nullptr;
  }
  dirtyM = 0;
  Replace(pathM, temporaryPath);
  free(temporaryPath);
}

// Reads at most endLine lines and copies those before headerLine; returns how many it copied.
int32_t NuvConfigbase::CopyLinesBeforeSection(FILE* out) {
  if (streamM == nullptr) {
    return 0;
  }
  rewind(streamM);
  Line line{};
  int32_t read = 0;
  while (read < endLineM && ReadLine(streamM, &line)) {
    if (read < headerLineM) {
      WriteLine(out, line);
    }
    ++read;
  }
  return std::min(read, headerLineM);
}

int32_t NuvConfigbase::WriteSection(FILE* out) const {
  fprintf(out, "%s\n", keyPathM);
  int32_t pairs = 0;
  for (const NuvConfigPair* pair = pairsM; pair != nullptr; pair = pair->next) {
    fprintf(out, "%s %s\n", pair->key, pair->value);
    ++pairs;
  }
  return pairs;
}

// endLine counts only the pair lines read, not the comment or blank lines among them: when a
// section holds such lines, that many of its last lines are copied again after it. Kept: the
// copies are pair lines of the same section, and the first of a key wins in lookups.
void NuvConfigbase::CopyRemainingLines(FILE* out) {
  if (streamM == nullptr) {
    return;
  }
  Line line{};
  while (ReadLine(streamM, &line)) {
    WriteLine(out, line);
  }
}
