/// \file Test pool prefixes, and the removal of test pool files on every path.
#include "support/pool_prefix.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace nuv::test {
namespace {

constexpr const char* kPoolDirectory = "/var/tmp";
constexpr const char* kDefaultLead = "nuvtest_";

// What the crash handler needs, set up front: it may not allocate or open a directory stream.
struct CrashCleanup {
  pid_t programPid = 0;
  int directoryFd = -1;
  char prefix[256] = {};
  size_t prefixLength = 0;
};
CrashCleanup crashCleanup;

constexpr int kCrashSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTERM, SIGINT, SIGHUP};
struct sigaction previousActions[sizeof kCrashSignals / sizeof kCrashSignals[0]];

std::string Lead() {
  const char* lead = getenv("NUV_TEST_POOL_PREFIX");
  return lead != nullptr ? lead : kDefaultLead;
}

// Calls visit with the name of every /var/tmp file.
template <typename Visit>
void ForEachPoolDirectoryName(Visit visit) {
  if (DIR* directory = opendir(kPoolDirectory)) {
    while (const dirent* entry = readdir(directory)) {
      visit(std::string(entry->d_name));
    }
    closedir(directory);
  }
}

bool Unlink(const std::string& name) {
  return unlink((std::string(kPoolDirectory) + "/" + name).c_str()) == 0;
}

// The process id in "<lead><pid>_...", or 0 when the name has no such form.
pid_t ProgramPidOf(const std::string& name, const std::string& lead) {
  if (name.rfind(lead, 0) != 0) {
    return 0;
  }
  char* end = nullptr;
  const long pid = strtol(name.c_str() + lead.size(), &end, 10);
  return *end == '_' && pid > 0 ? static_cast<pid_t>(pid) : 0;
}

// The entries of getdents64, which, unlike readdir, is safe in a signal handler.
struct DirectoryEntry64 {
  uint64_t inode;
  int64_t offset;
  unsigned short length;
  unsigned char type;
  char name[1];
};

// Runs in a signal handler: system calls on the directory opened up front, nothing else.
void RemoveProgramFilesInHandler() {
  alignas(8) char buffer[4096];
  lseek(crashCleanup.directoryFd, 0, SEEK_SET);
  long filled = 0;
  while ((filled = syscall(SYS_getdents64, crashCleanup.directoryFd, buffer, sizeof buffer)) > 0) {
    for (long at = 0; at < filled;) {
      const auto* entry = reinterpret_cast<const DirectoryEntry64*>(buffer + at);
      if (strncmp(entry->name, crashCleanup.prefix, crashCleanup.prefixLength) == 0) {
        unlinkat(crashCleanup.directoryFd, entry->name, 0);
      }
      at += entry->length;
    }
  }
}

// Runs in a signal handler. A child that a test forked leaves the files to the program. Then
// the signal goes where it went before: a fault raised by the processor happens again on return,
// a sent signal is sent again (and waits, blocked, until the return).
void RemoveFilesThenCrash(int signal, siginfo_t* info, void* /*context*/) {
  const int saved = errno;
  if (getpid() == crashCleanup.programPid) {
    RemoveProgramFilesInHandler();
  }
  for (size_t i = 0; i < sizeof kCrashSignals / sizeof kCrashSignals[0]; ++i) {
    if (kCrashSignals[i] == signal) {
      sigaction(signal, &previousActions[i], nullptr);
    }
  }
  if (info->si_code <= 0) {
    raise(signal);
  }
  errno = saved;
}

void RemoveFilesOnCrash() {
  struct sigaction action {};
  action.sa_sigaction = RemoveFilesThenCrash;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  for (size_t i = 0; i < sizeof kCrashSignals / sizeof kCrashSignals[0]; ++i) {
    sigaction(kCrashSignals[i], nullptr, &previousActions[i]);
    if (previousActions[i].sa_handler != SIG_IGN) {
      sigaction(kCrashSignals[i], &action, nullptr);
    }
  }
}

}  // namespace

std::string ProgramPoolPrefix(int pid) { return Lead() + std::to_string(pid) + "_"; }

int RemovePoolFiles(const std::string& prefix) {
  int removed = 0;
  ForEachPoolDirectoryName([&prefix, &removed](const std::string& name) {
    if (name.rfind(prefix, 0) == 0 && Unlink(name)) {
      ++removed;
    }
  });
  return removed;
}

void RemoveFilesOfEndedPrograms() {
  const std::string lead = Lead();
  ForEachPoolDirectoryName([&lead](const std::string& name) {
    const pid_t pid = ProgramPidOf(name, lead);
    if (pid != 0 && kill(pid, 0) != 0 && errno == ESRCH && Unlink(name)) {
      fprintf(stderr, "removed %s/%s, left by test program %d that has ended\n", kPoolDirectory,
              name.c_str(), pid);
    }
  });
}

void UseProgramPoolPrefix() {
  crashCleanup.programPid = getpid();
  const std::string prefix = ProgramPoolPrefix(crashCleanup.programPid);
  snprintf(crashCleanup.prefix, sizeof crashCleanup.prefix, "%s", prefix.c_str());
  crashCleanup.prefixLength = strlen(crashCleanup.prefix);
  crashCleanup.directoryFd = open(kPoolDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  setenv("NUV_POOL_PREFIX", (prefix + "main_").c_str(), 1);
  RemoveFilesOnCrash();
}

void RemoveProgramPoolFiles() { RemovePoolFiles(ProgramPoolPrefix(getpid())); }

ScopedPoolPrefix::ScopedPoolPrefix() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  prefixM = ProgramPoolPrefix(getpid()) +
            (info != nullptr ? std::string(info->name()) : std::string("notest")) + "_";
  if (const char* previous = getenv("NUV_POOL_PREFIX")) {
    previousM = previous;
    hadPreviousM = true;
  }
  setenv("NUV_POOL_PREFIX", prefixM.c_str(), 1);
}

ScopedPoolPrefix::~ScopedPoolPrefix() {
  RemovePoolFiles(prefixM);
  if (hadPreviousM) {
    setenv("NUV_POOL_PREFIX", previousM.c_str(), 1);
  } else {
    unsetenv("NUV_POOL_PREFIX");
  }
}

std::string ScopedPoolPrefix::PathOf(const std::string& name) const {
  return std::string(kPoolDirectory) + "/" + prefixM + name;
}

}  // namespace nuv::test
