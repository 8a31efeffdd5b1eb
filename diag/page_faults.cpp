/// \file NPageFaults: a process's count of major page faults, from "/proc/<pid>/stat".
#include <nuv/tracing.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>

#include "core/assert_at.h"
#include "core/kernel.h"

namespace {

using nuv::kernel::Call;
using nuv::kernel::Make;
using nuv::kernel::Result;

constexpr Call kOpen{"open", -1, 0, false};
constexpr Call kRead{"read", -1, 0, false};

constexpr int kPathSize = 32;
constexpr int kStatSize = 255;
// Field 12, majflt, follows the eleventh blank.
constexpr int kBlanksBeforeMajorFaults = 11;

// Stops at the end of the text when it holds fewer blanks: the count then reads as 0.
unsigned MajorFaults(const char* text) {
  int blanks = 0;
  while (blanks < kBlanksBeforeMajorFaults && *text != '\0') {
    if (*text == ' ') {
      ++blanks;
    }
    ++text;
  }
  return static_cast<unsigned>(strtoul(text, nullptr, 10));
}

}  // namespace

unsigned NPageFaults(int pid) {
  char path[kPathSize];
  snprintf(path, sizeof path, "/proc/%d/stat", pid);
  const Result opened = Make(kOpen, [&path] { return open(path, O_RDONLY); });
  NUV_ASSERT_AT(!opened.Failed(), 337, "NPageFaults");
  const auto fd = static_cast<int>(opened.value);
  char text[kStatSize] = {};
  const Result count = Make(kRead, [fd, &text] { return read(fd, text, kStatSize - 1); });
  nuv::kernel::Ignore(nuv::kernel::Close(fd),
                      "a file that was only read; the descriptor is given up either way");
  // A failed read is an empty text.
  text[count.Failed() ? 0 : count.value] = '\0';
  return MajorFaults(text);
}
