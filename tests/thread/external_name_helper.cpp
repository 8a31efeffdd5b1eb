/// \file Second program of the external-name tests: renames itself, then prints what its
/// argument area, its own argument vector and "/proc" hold.
///
/// usage: external_name_helper MODE TEXT TIMES [SECOND]
///   once       the name is TEXT repeated TIMES times
///   twice      as once, then a second rename to SECOND
///   shortened  as once, after making argv[1] null as a program that shortens its vector does
///   own        the name is argv[2] itself, a string inside the argument area
/// Lines printed:
///   seen_before=  the first argument of this process as another process reads it, beforehand
///   area=         the first string of the argument area; area_length= its length in bytes;
///                 zeros_after= 1 when every byte after that string up to the environment is 0
///   layout=       per start-up argument: c moved to a copy, a still in the area, n null
///   argv=         the program's own arguments up to the first null, joined by '|'
///   own_cmdline=  the first argument of "/proc/<own pid>/cmdline"
///   seen_after=   as seen_before, after the rename
#include <nuv/os_thread.h>

#include <sys/wait.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int kNameLength = 255;

struct Area {
  char* start;
  char* end;  // null without an environment
};

std::string ExternalNameOf(int pid) {
  char name[kNameLength + 1] = {};
  NuvOsThread::GetExternalName(pid, name, kNameLength);
  return name;
}

// Another process reads this one's name: how process listings see it.
std::string NameSeenByAnotherProcess() {
  fflush(stdout);
  int channel[2];
  if (pipe(channel) != 0) {
    return "(no pipe)";
  }
  const pid_t reader = fork();
  if (reader == 0) {
    const std::string seen = ExternalNameOf(getppid());
    const ssize_t written = write(channel[1], seen.data(), seen.size());
    _exit(written == static_cast<ssize_t>(seen.size()) ? 0 : 1);
  }
  close(channel[1]);
  std::string seen;
  char buffer[kNameLength];
  ssize_t count = 0;
  while ((count = read(channel[0], buffer, sizeof buffer)) > 0) {
    seen.append(buffer, static_cast<size_t>(count));
  }
  close(channel[0]);
  waitpid(reader, nullptr, 0);
  return seen;
}

void PrintArea(const Area& area) {
  printf("area=%s\n", area.start);
  if (area.end == nullptr) {
    return;
  }
  const size_t length = strlen(area.start);
  bool zeros = true;
  for (const char* at = area.start + length; at < area.end; ++at) {
    zeros = zeros && *at == '\0';
  }
  printf("area_length=%d\nzeros_after=%d\n", static_cast<int>(area.end - area.start),
         zeros ? 1 : 0);
}

void PrintArguments(int argc, char** argv, const Area& area) {
  std::string layout;
  for (int i = 0; i < argc; ++i) {
    const bool inArea = argv[i] >= area.start && (area.end == nullptr || argv[i] < area.end);
    layout += argv[i] == nullptr ? 'n' : inArea ? 'a' : 'c';
  }
  std::string joined;
  for (int i = 0; i < argc && argv[i] != nullptr; ++i) {
    joined += (i == 0 ? "" : "|") + std::string(argv[i]);
  }
  printf("layout=%s\nargv=%s\n", layout.c_str(), joined.c_str());
}

}  // namespace

int main(int argc, char** argv, char** envp) {
  if (argc < 4) {
    fprintf(stderr, "usage: external_name_helper MODE TEXT TIMES [SECOND]\n");
    return 2;
  }
  const Area area{argv[0], envp[0]};
  const std::string mode = argv[1];
  std::string name;
  for (int i = atoi(argv[3]); i > 0; --i) {
    name += argv[2];
  }
  printf("seen_before=%s\n", NameSeenByAnotherProcess().c_str());
  if (mode == "shortened") {
    argv[1] = nullptr;
  }
  NuvOsThread::ExternalizeName(mode == "own" ? argv[2] : name.c_str());
  if (mode == "twice" && argc > 4) {
    NuvOsThread::ExternalizeName(argv[4]);
  }
  PrintArea(area);
  PrintArguments(argc, argv, area);
  printf("own_cmdline=%s\n", ExternalNameOf(getpid()).c_str());
  printf("seen_after=%s\n", NameSeenByAnotherProcess().c_str());
  return 0;
}
