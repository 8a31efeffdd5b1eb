/// \file Log records: the process's connection to the log socket, line building and fallbacks.
#include "core/log.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/kernel.h"
#include "core/log_socket.h"
#include "core/signals.h"

namespace {

constexpr size_t kLineSize = 512;
constexpr size_t kSocketPathLimit = 14;
constexpr int kStandardOutput = 1;
constexpr int kNoDescriptor = -1;
constexpr int kSyslogLocal0 = 16;

// Failures of the log's own calls fall back to standard output: a log never reports.
constexpr nuv::kernel::Call kSocket{"socket", -1, 0, false};
constexpr nuv::kernel::Call kConnect{"connect", -1, 0, false};
constexpr nuv::kernel::Call kWrite{"write", -1, 0, false};

// One copy per process; a forked child inherits the parent's and notices it in GetState().
struct LogState {
  int tty;       // non-zero: records go to standard output and the socket is never opened
  int ownerPid;  // the process that owns this copy, -1 before the first record
  int fd;        // -1 none, 1 standard output, otherwise the connected socket
};

LogState state = {0, kNoDescriptor, kNoDescriptor};
int currentpid = 0;
int minimumPriority = nuv::log::kPriorityInfo;

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
        const int pri = nuv::log::PriorityNamed(minimum);
        minimumPriority = pri == -1 ? nuv::log::kPriorityDebug : pri;
      }
    }
    state.ownerPid = pid;
    currentpid = pid;
  }
  return state;
}

void Close(int fd) {
  nuv::kernel::Ignore(nuv::kernel::Close(fd), "the log connection is dropped whatever close says");
}

bool ConnectTo(int socketFd, sockaddr_un* address, const char* path) {
  memset(address->sun_path, 0, sizeof address->sun_path);
  strncpy(address->sun_path, path, kSocketPathLimit);
  const auto length = static_cast<socklen_t>(strlen(address->sun_path) + 2);
  return !nuv::kernel::Make(kConnect, [&] {
            return connect(socketFd, reinterpret_cast<sockaddr*>(address), length);
          }).Failed();
}

// Standard output (1) is a fallback, not a connection: each record tries the socket again.
int OpenLog() {
  LogState& current = GetState();
  if (current.fd != kNoDescriptor && current.fd != kStandardOutput) {
    return current.fd;
  }
  current.fd = kStandardOutput;
  if (current.tty != 0) {
    return current.fd;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const nuv::kernel::Result opened =
      nuv::kernel::Make(kSocket, [] { return socket(AF_UNIX, SOCK_STREAM, 0); });
  if (opened.Failed()) {
    return current.fd;
  }
  const auto socketFd = static_cast<int>(opened.value);
  if (ConnectTo(socketFd, &address, primaryPath) || ConnectTo(socketFd, &address, secondaryPath)) {
    current.fd = socketFd;
  } else {
    Close(socketFd);
  }
  return current.fd;
}

void DropConnection() {
  Close(state.fd);
  state.fd = kNoDescriptor;
}

nuv::kernel::Result Write(int fd, const char* line, size_t length) {
  return nuv::kernel::Make(kWrite, [=] { return write(fd, line, length); });
}

// The NUL that ends the line on the socket becomes "\n" on standard output, same length.
void WriteToStandardOutput(char* line, size_t length) {
  line[length - 1] = '\n';
  nuv::kernel::Ignore(Write(kStandardOutput, line, length), "standard output is the last resort");
}

// A broken connection (SIGPIPE, or EPIPE where SIGPIPE is blocked) is dropped and the line goes
// to standard output; the next record connects again.
void WriteToSocket(int fd, char* line, size_t length) {
  int error = 0;
  const bool completed = nuv::signals::GuardBrokenPipe(
      [fd, line, length, &error] { error = Write(fd, line, length).error; });
  if (!completed || error == EPIPE) {
    DropConnection();
    WriteToStandardOutput(line, length);
  }
}

void SendLine(char* line, size_t length) {
  const int fd = OpenLog();
  if (fd == kStandardOutput) {
    WriteToStandardOutput(line, length);
  } else {
    WriteToSocket(fd, line, length);
  }
}

}  // namespace

namespace nuv {

void SetLogSocketPathsForTesting(const char* primary, const char* secondary) {
  primaryPath = primary != nullptr ? primary : "/dev/log";
  secondaryPath = secondary != nullptr ? secondary : "/var/dev/log";
}

// Builds "<value>Mmm dd hh:mm:ss name[pid]: text" bounded by the 512-byte buffer: a line that
// fits is exactly the device's line; a longer one is cut at 511 characters.
void log::Record(int fac, int pri, const char* name, const char* format, va_list args) {
  if (pri > minimumPriority) {
    return;
  }
  const time_t now = time(nullptr);
  char stamp[32] = {};
  ctime_r(&now, stamp);
  GetState();
  char line[kLineSize];
  const int used =
      snprintf(line, sizeof line, "<%d>%.15s %.32s[%d]: ", ((fac + kSyslogLocal0) * 8) | pri,
               stamp + 4, name != nullptr ? name : "", currentpid);
  // A null format is an entry with no text.
  if (format != nullptr && used >= 0 && static_cast<size_t>(used) < sizeof line) {
    vsnprintf(line + used, sizeof line - static_cast<size_t>(used), format, args);
  }
  SendLine(line, strlen(line) + 1);
}

void log::Entry(int fac, int pri, const char* name, const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  Record(fac, pri, name, format, args);
  va_end(args);
}

void log::SetMinimum(int pri) { minimumPriority = pri; }

void log::ToTty(bool on) {
  if (state.fd != kNoDescriptor && state.fd != kStandardOutput) {
    Close(state.fd);
  }
  state.tty = on ? 1 : 0;
  state.fd = kNoDescriptor;
}

}  // namespace nuv
