/// \file The in-place route of external names: the argument area the process started with,
/// captured before main, and its rewrite.
#include "thread/external_name.h"

#include <cstdlib>
#include <cstring>

namespace {

// The arguments and the first environment string that the process started with. Later
// changes to argv or environ do not move the area: its bytes are where they always were.
struct StartupArguments {
  int argc;
  char** argv;
  char* areaStart;  // argv[0]
  char* areaEnd;    // envp[0]: the environment's strings follow the arguments'
};
StartupArguments startup{};

// The start of the rewritten argument text, and whether the arguments were moved aside.
char* osname = nullptr;
int moved = 0;

void CaptureStartup(int argc, char** argv, char** envp) {
  startup.argc = argc;
  startup.argv = argv;
  startup.areaStart = argc > 0 ? argv[0] : nullptr;
  startup.areaEnd = envp != nullptr ? envp[0] : nullptr;
}

// glibc calls every function of .init_array with argc, argv and envp before main.
__attribute__((used, section(".init_array"))) void (*captureStartup)(int, char**,
                                                                     char**) = CaptureStartup;

// A program may have shortened its vector: only the arguments before its first null count.
int ArgumentsLeft() {
  int count = 0;
  while (count < startup.argc && startup.argv[count] != nullptr) {
    ++count;
  }
  return count;
}

// Points every argument at a copy of its own, so that the program still reads its arguments
// once the area is rewritten. All or nothing: false, nothing changed, when memory runs out.
bool MoveArgumentsAside() {
  const int count = ArgumentsLeft();
  auto** copies = static_cast<char**>(calloc(static_cast<size_t>(count) + 1, sizeof(char*)));
  if (copies == nullptr) {
    return false;
  }
  int copied = 0;
  while (copied < count && (copies[copied] = strdup(startup.argv[copied])) != nullptr) {
    ++copied;
  }
  if (copied < count) {
    for (int i = 0; i < copied; ++i) {
      free(copies[i]);
    }
  } else {
    memcpy(startup.argv, copies, sizeof(char*) * static_cast<size_t>(count));
  }
  free(copies);
  return copied == count;
}

// The name cut to the area's length minus one, and zeros from there to the environment. Moved
// rather than copied: a name taken from the program's own arguments lies inside the area.
void WriteName(char* start, const char* name) {
  const auto room = static_cast<size_t>(startup.areaEnd - start);
  const size_t length = strnlen(name, room - 1);
  memmove(start, name, length);
  memset(start + length, 0, room - length);
}

}  // namespace

namespace nuv {

void RenameInPlace(const char* name) {
  if (moved != 0) {
    WriteName(osname, name);
    return;
  }
  if (startup.areaStart == nullptr || startup.areaEnd == nullptr ||
      startup.areaEnd <= startup.areaStart || !MoveArgumentsAside()) {
    return;
  }
  WriteName(startup.areaStart, name);
  osname = startup.areaStart;
  moved = 1;
}

}  // namespace nuv
