/// \file NuvLogger: per-process connection to the log socket, line building and fallbacks.
#include <nuv/logger.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "diag/log_socket.h"
#include "sync/signal_entry_arch.h"

namespace {

constexpr size_t kLineSize = 512;
constexpr size_t kSocketPathLimit = 14;
constexpr int kStandardOutput = 1;
constexpr int kNoDescriptor = -1;
constexpr int kSyslogLocal0 = 16;

// One copy per process; a forked child inherits the parent's and notices it in GetState().
struct LogState {
  int tty;       // non-zero: entries go to standard output and the socket is never opened
  int ownerPid;  // the process that owns this copy, -1 before the first entry
  int fd;        // -1 none, 1 standard output, otherwise the connected socket
};

LogState state = {0, kNoDescriptor, kNoDescriptor};
int currentpid = 0;
NuvLogger::iPriority iMinPriM = NuvLogger::priinfo;
sigjmp_buf piperecover;

const char* primaryPath = "/dev/log";
const char* secondaryPath = "/var/dev/log";

// A forked child forgets the connection it inherited (without closing the parent's socket) and
// only then consults NUV_LOGMIN.
LogState& GetState() {
  const int pid = getpid();
  if (state.ownerPid == kNoDescriptor) {
    state.ownerPid = pid;
    currentpid = pid;
  } else if (pid != state.ownerPid) {
    if (state.fd != kNoDescriptor) {
      state.fd = kNoDescriptor;
      state.tty = 0;
      if (const char* minimum = getenv("NUV_LOGMIN")) {
        const NuvLogger::iPriority pri = NuvLogger::StringToPri(minimum);
        iMinPriM = pri == -1 ? NuvLogger::pridebug : pri;
      }
    }
    state.ownerPid = pid;
    currentpid = pid;
  }
  return state;
}

int ConnectTo(int socketFd, sockaddr_un* address, const char* path) {
  memset(address->sun_path, 0, sizeof address->sun_path);
  strncpy(address->sun_path, path, kSocketPathLimit);
  return connect(socketFd, reinterpret_cast<sockaddr*>(address),
                 static_cast<socklen_t>(strlen(address->sun_path) + 2));
}

// Standard output (1) is a fallback, not a connection: each entry tries the socket again.
int OpenLog() {
  LogState& current = GetState();
  if (current.fd != kNoDescriptor && current.fd != kStandardOutput) {
    return current.fd;
  }
  if (current.tty != 0) {
    current.fd = kStandardOutput;
    return current.fd;
  }
  current.fd = kNoDescriptor;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  int socketFd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (socketFd < 0) {
    current.fd = kStandardOutput;
    return current.fd;
  }
  if (ConnectTo(socketFd, &address, primaryPath) != 0 &&
      ConnectTo(socketFd, &address, secondaryPath) != 0) {
    close(socketFd);
    socketFd = kStandardOutput;
  }
  current.fd = socketFd;
  return current.fd;
}

void DropConnection() {
  close(state.fd);
  state.fd = kNoDescriptor;
}

// SIGPIPE during the socket write: drop the connection and go back to write on standard output.
NUV_SIGNAL_ENTRY void LogRecover(int /*signal*/) {
  DropConnection();
  siglongjmp(piperecover, 1);
}

// The NUL that ends the line on the socket becomes "\n" on standard output, same length.
void WriteToStandardOutput(char* line, size_t length) {
  line[length - 1] = '\n';
  write(kStandardOutput, line, length);
}

// Kept out of line so that the jump back from LogRecover clobbers nothing of its callers. The
// jump restores the signal mask, so SIGPIPE is not left blocked and the next broken connection
// is caught the same way; a process that blocks SIGPIPE itself sees EPIPE, handled alike.
__attribute__((noinline)) void WriteCatchingBrokenPipe(int fd, char* line, size_t length) {
  struct sigaction recover {};
  struct sigaction previous {};
  recover.sa_handler = LogRecover;
  sigemptyset(&recover.sa_mask);
  sigaction(SIGPIPE, &recover, &previous);
  if (sigsetjmp(piperecover, 1) == 0) {
    if (write(fd, line, length) < 0 && errno == EPIPE) {
      DropConnection();
      WriteToStandardOutput(line, length);
    }
  } else {
    WriteToStandardOutput(line, length);
  }
  sigaction(SIGPIPE, &previous, nullptr);
}

void SendLine(char* line, size_t length) {
  const int fd = OpenLog();
  if (fd == kStandardOutput) {
    WriteToStandardOutput(line, length);
  } else {
    WriteCatchingBrokenPipe(fd, line, length);
  }
}

// Builds "<value>Mmm dd hh:mm:ss name[pid]: text" bounded by the 512-byte buffer: a line that
// fits is exactly the device's line; a longer one is cut at 511 characters.
void DoEntry(int fac, int pri, const char* name, const char* format, va_list args) {
  const time_t now = time(nullptr);
  char stamp[32] = {};
  ctime_r(&now, stamp);
  GetState();
  char line[kLineSize];
  int used = snprintf(line, sizeof line, "<%d>%.15s %.32s[%d]: ", ((fac + kSyslogLocal0) * 8) | pri,
                      stamp + 4, name, currentpid);
  if (used >= 0 && static_cast<size_t>(used) < sizeof line) {
    vsnprintf(line + used, sizeof line - static_cast<size_t>(used), format, args);
  }
  SendLine(line, strlen(line) + 1);
}

}  // namespace

namespace nuv {

void SetLogSocketPathsForTesting(const char* primary, const char* secondary) {
  primaryPath = primary != nullptr ? primary : "/dev/log";
  secondaryPath = secondary != nullptr ? secondary : "/var/dev/log";
}

}  // namespace nuv

void NuvLogger::Log(iFacility fac, iPriority pri, const char* name, const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  VLog(fac, pri, name, format, args);
  va_end(args);
}

void NuvLogger::VLog(iFacility fac, iPriority pri, const char* name, const char* format,
                     va_list args) {
  if (pri > iMinPriM) {
    return;
  }
  DoEntry(fac, pri, name, format, args);
}

void NuvLogger::MinLog(iPriority pri) { iMinPriM = pri; }

void NuvLogger::LogTty(bool on) {
  if (state.fd != kNoDescriptor && state.fd != kStandardOutput) {
    close(state.fd);
  }
  state.tty = on ? 1 : 0;
  state.fd = kNoDescriptor;
}
