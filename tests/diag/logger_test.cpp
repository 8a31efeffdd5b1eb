/// \file Tests of the logger's static entry forms: the line, the socket, its fallbacks and forks.
#include <nuv/logger.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "core/log_socket.h"
#include "support/child_process.h"

namespace {

using nuv::test::ChildOutcome;

// The logger uses at most this many bytes of a socket path.
constexpr size_t kSocketPathLimit = 14;
// How long a reader waits for a connection or for bytes that should already be there.
constexpr int kWaitMs = 2000;
constexpr auto kChildDeadline = std::chrono::seconds(6);
constexpr auto kGrandchildDeadline = std::chrono::seconds(4);
// A path that can never be a socket.
constexpr const char* kNotASocket = "/dev/null/log";
constexpr const char* kName = "logtest";
constexpr size_t kStampLength = 15;
constexpr const char* kStampShape = "[A-Z][a-z]{2} [ 1-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]";
// Values between the angle brackets for facnuv, whose facility on the wire is local0 (16).
constexpr int kErr = 131;
constexpr int kWarn = 132;
constexpr int kInfo = 134;
constexpr int kDebug = 135;

// "/tmp/n" + tag + pid: short enough for the logger and unique to this test process.
std::string ShortSocketPath(char tag) {
  return std::string("/tmp/n") + tag + std::to_string(getpid());
}

bool WaitReadable(int fd, int timeoutMs) {
  pollfd waiting{fd, POLLIN, 0};
  return poll(&waiting, 1, timeoutMs) == 1;
}

enum class Until { kClosed, kNul };

// Reads a connection until its peer closes it, or up to and including the first NUL; false when
// that did not happen in time.
bool Receive(int connection, Until until, std::string* bytes) {
  char buffer[256];
  const size_t want = until == Until::kNul ? 1 : sizeof buffer;
  while (WaitReadable(connection, kWaitMs)) {
    const ssize_t count = read(connection, buffer, want);
    if (count <= 0) {
      return count == 0 && until == Until::kClosed;
    }
    bytes->append(buffer, static_cast<size_t>(count));
    if (until == Until::kNul && buffer[0] == '\0') {
      return true;
    }
  }
  return false;
}

// The log daemon's side: a listening local stream socket at a short path of its own. A child of
// the test inherits the socket, so the test can read after the child has ended what the child's
// entries left on it.
class LogDaemon {
 public:
  enum class Start { kListening, kLater };

  explicit LogDaemon(char tag = 'l', Start start = Start::kListening)
      : pathM(ShortSocketPath(tag)), fdM(socket(AF_UNIX, SOCK_STREAM, 0)) {
    EXPECT_LE(pathM.size(), kSocketPathLimit) << pathM;
    EXPECT_GE(fdM, 0) << strerror(errno);
    unlink(pathM.c_str());
    if (start == Start::kListening) {
      Listen();
    }
  }
  ~LogDaemon() {
    close(fdM);
    unlink(pathM.c_str());
  }
  LogDaemon(const LogDaemon&) = delete;
  LogDaemon& operator=(const LogDaemon&) = delete;
  LogDaemon(LogDaemon&&) = delete;
  LogDaemon& operator=(LogDaemon&&) = delete;

  const char* Path() const { return pathM.c_str(); }

  // Binds the socket to its path and listens: from now on the logger can connect.
  void Listen() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, pathM.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fdM, reinterpret_cast<sockaddr*>(&address), sizeof address), 0)
        << pathM << ": " << strerror(errno);
    EXPECT_EQ(listen(fdM, 8), 0) << strerror(errno);
  }

  // The next connection, or -1 when none comes in time.
  int Accept() const { return WaitReadable(fdM, kWaitMs) ? accept(fdM, nullptr, nullptr) : -1; }

  bool HasPendingConnection() const { return WaitReadable(fdM, 0); }

  // Everything that the next connection carried until the logger's side closed it.
  std::string NextConnection() const {
    std::string bytes;
    const int connection = Accept();
    if (connection < 0) {
      ADD_FAILURE() << "no connection on " << pathM;
      return bytes;
    }
    EXPECT_TRUE(Receive(connection, Until::kClosed, &bytes)) << "still open: " << bytes;
    close(connection);
    return bytes;
  }

 private:
  std::string pathM;
  int fdM;
};

// A child tells the test a number through its standard error, one "key=value" line each.
void Tell(const char* key, long value) { fprintf(stderr, "%s=%ld\n", key, value); }

long Told(const ChildOutcome& outcome, const std::string& key) {
  const std::string start = key + "=";
  size_t at = 0;
  while (at < outcome.err.size()) {
    const size_t end = std::min(outcome.err.find('\n', at), outcome.err.size());
    const std::string line = outcome.err.substr(at, end - at);
    if (line.compare(0, start.size(), start) == 0) {
      return strtol(line.c_str() + start.size(), nullptr, 10);
    }
    at = end + 1;
  }
  ADD_FAILURE() << "the child did not tell " << key << "; it wrote: " << outcome.err;
  return -1;
}

// One child's entries, with the times taken just before and after it ran and its pid.
struct LoggingRun {
  ChildOutcome outcome;
  time_t before = 0;
  time_t after = 0;
  long pid = 0;
};

// Runs entries in a child whose logger tries the given socket paths; NUV_LOGMIN is unset there.
LoggingRun LogInChild(const char* primary, const char* secondary,
                      const std::function<void()>& entries) {
  LoggingRun run;
  run.before = time(nullptr);
  run.outcome = nuv::test::RunInChild(
      [&] {
        Tell("pid", getpid());
        unsetenv("NUV_LOGMIN");
        nuv::SetLogSocketPathsForTesting(primary, secondary);
        entries();
      },
      kChildDeadline);
  run.after = time(nullptr);
  EXPECT_TRUE(run.outcome.Exited() && run.outcome.ExitCode() == 0)
      << "status " << run.outcome.status << (run.outcome.timedOut ? ", timed out" : "")
      << "; standard error: " << run.outcome.err;
  run.pid = Told(run.outcome, "pid");
  return run;
}

void Entry(NuvLogger::iPriority pri, const char* text) {
  NuvLogger::Log(NuvLogger::facnuv, pri, kName, "%s", text);
}

// Forks a grandchild with NUV_LOGMIN set to logMin (unset when null) that makes the given
// entries; waits for it and tells its pid as "grandchild".
void InGrandchild(const char* logMin, const std::function<void()>& entries) {
  if (logMin != nullptr) {
    setenv("NUV_LOGMIN", logMin, 1);
  } else {
    unsetenv("NUV_LOGMIN");
  }
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    entries();
    _exit(0);
  }
  const ChildOutcome outcome = nuv::test::WaitWithDeadline(pid, kGrandchildDeadline);
  Tell("grandchild", pid);
  Tell("grandchild-ended", static_cast<long>(outcome.Exited() && outcome.ExitCode() == 0));
}

std::string CtimeStamp(time_t when) {
  char text[32] = {};
  ctime_r(&when, text);
  return {text + 4, kStampLength};
}

// The stamp has the shape "Mmm dd hh:mm:ss" and is the ctime text of a second of the run.
void ExpectStampOfRun(const std::string& stamp, const LoggingRun& run) {
  EXPECT_TRUE(std::regex_match(stamp, std::regex(kStampShape))) << '"' << stamp << '"';
  bool found = false;
  for (time_t when = run.before; when <= run.after && !found; ++when) {
    found = stamp == CtimeStamp(when);
  }
  EXPECT_TRUE(found) << '"' << stamp << "\" is not between \"" << CtimeStamp(run.before)
                     << "\" and \"" << CtimeStamp(run.after) << '"';
}

struct Expected {
  int value;
  long pid;
  std::string text;
  std::string name = kName;
};

std::string Header(int value, const std::string& stamp, const std::string& name, long pid) {
  return "<" + std::to_string(value) + ">" + stamp + " " + name + "[" + std::to_string(pid) + "]: ";
}

// received holds exactly these entries, each ended by the terminator, stamped during the run.
void ExpectEntries(const std::string& received, const LoggingRun& run,
                   const std::vector<Expected>& entries, char terminator) {
  std::string expected;
  for (const Expected& entry : entries) {
    const size_t stampAt = expected.size() + std::to_string(entry.value).size() + 2;
    const std::string stamp = received.substr(std::min(stampAt, received.size()), kStampLength);
    ExpectStampOfRun(stamp, run);
    expected += Header(entry.value, stamp, entry.name, entry.pid) + entry.text + terminator;
  }
  EXPECT_EQ(received, expected);
}

void ExpectNothingOnStandardOutput(const LoggingRun& run) { EXPECT_EQ(run.outcome.out, ""); }

TEST(LoggerLine, PoolEntryIsValueStampNamePidTextAndNul) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, "pool", "x %d", 5);
  });
  const std::string line = daemon.NextConnection();
  const std::string pid = std::to_string(run.pid);
  ASSERT_EQ(line.size(), 5 + kStampLength + 1 + 4 + 1 + pid.size() + 3 + 3 + 1) << line;
  EXPECT_EQ(line.substr(0, 5), "<134>");
  ExpectStampOfRun(line.substr(5, kStampLength), run);
  EXPECT_EQ(line.substr(5 + kStampLength), " pool[" + pid + "]: x 5" + std::string(1, '\0'));
  ExpectNothingOnStandardOutput(run);
}

TEST(LoggerLine, StampIsMonthDayAndTimeOfCtime) {
  LogDaemon daemon;
  const LoggingRun run =
      LogInChild(daemon.Path(), daemon.Path(), [] { Entry(NuvLogger::priinfo, "stamp"); });
  const std::string line = daemon.NextConnection();
  ASSERT_GT(line.size(), 5 + kStampLength);
  ExpectStampOfRun(line.substr(5, kStampLength), run);
  EXPECT_EQ(line[5 + kStampLength], ' ');
}

TEST(LoggerLine, ValueIsLocalFacilityTimesEightOrPriority) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priemerg, kName, "nuv");
    NuvLogger::Log(NuvLogger::facorb, NuvLogger::prialert, kName, "orb");
    NuvLogger::Log(NuvLogger::facvault, NuvLogger::pricrit, kName, "vault");
    NuvLogger::Log(NuvLogger::facrec, NuvLogger::prierr, kName, "rec");
    NuvLogger::Log(NuvLogger::facrun, NuvLogger::priwarn, kName, "run");
    NuvLogger::Log(NuvLogger::fachost, NuvLogger::prinotice, kName, "host");
  });
  ExpectEntries(daemon.NextConnection(), run,
                {{128, run.pid, "nuv"},
                 {137, run.pid, "orb"},
                 {146, run.pid, "vault"},
                 {155, run.pid, "rec"},
                 {164, run.pid, "run"},
                 {173, run.pid, "host"}},
                '\0');
}

TEST(LoggerLine, NameLongerThan32IsCutTo32) {
  LogDaemon daemon;
  const std::string name = "abcdefghijklmnopqrstuvwxyz0123456789";
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [&name] {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, name.c_str(), "long name");
  });
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "long name", name.substr(0, 32)}},
                '\0');
}

TEST(LoggerLine, LineLongerThan511IsCutTo511AndNul) {
  LogDaemon daemon;
  const std::string text(600, 'a');
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(),
                                    [&text] { Entry(NuvLogger::priinfo, text.c_str()); });
  const std::string line = daemon.NextConnection();
  ASSERT_EQ(line.size(), 512U);
  EXPECT_EQ(line.back(), '\0');
  const size_t headerLength = Header(kInfo, CtimeStamp(run.before), kName, run.pid).size();
  ExpectEntries(line, run, {{kInfo, run.pid, text.substr(0, 511 - headerLength)}}, '\0');
}

TEST(LoggerLine, NullNameLogsUnderAnEmptyName) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, nullptr, "nameless");
  });
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "nameless", ""}}, '\0');
}

// Through a variable, as a caller's null format arrives.
void NoFormatEntry(const char* format) {
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kName, format);
}

TEST(LoggerLine, NullFormatGivesAnEntryWithNoText) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] { NoFormatEntry(nullptr); });
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, ""}}, '\0');
}

void VEntry(const char* format, ...) __attribute__((format(printf, 1, 2)));
void VEntry(const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  NuvLogger::VLog(NuvLogger::facnuv, NuvLogger::priinfo, kName, format, args);
  va_end(args);
}

TEST(LoggerLine, VLogFormatsItsArgumentList) {
  LogDaemon daemon;
  const LoggingRun run =
      LogInChild(daemon.Path(), daemon.Path(), [] { VEntry("%s-%d-%x", "list", 12, 255); });
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "list-12-ff"}}, '\0');
}

TEST(LoggerLine, EntriesShareOneConnectionEachEndedByNul) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    Entry(NuvLogger::priinfo, "one");
    Entry(NuvLogger::priwarn, "two");
    Entry(NuvLogger::prierr, "three");
  });
  ExpectEntries(daemon.NextConnection(), run,
                {{kInfo, run.pid, "one"}, {kWarn, run.pid, "two"}, {kErr, run.pid, "three"}}, '\0');
  EXPECT_FALSE(daemon.HasPendingConnection());
}

TEST(LoggerFallback, WithoutSocketEveryEntryGoesToStandardOutputEndingInNewline) {
  const std::string missing = ShortSocketPath('m');
  const LoggingRun run = LogInChild(missing.c_str(), missing.c_str(), [] {
    Entry(NuvLogger::priinfo, "one");
    Entry(NuvLogger::priwarn, "two");
  });
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "one"}, {kWarn, run.pid, "two"}}, '\n');
}

TEST(LoggerFallback, LaterEntryConnectsOnceSocketExists) {
  // The child binds the socket that it shares with the test between its two entries.
  LogDaemon daemon('l', LogDaemon::Start::kLater);
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [&daemon] {
    Entry(NuvLogger::priinfo, "before");
    daemon.Listen();
    Entry(NuvLogger::priinfo, "after");
  });
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "before"}}, '\n');
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "after"}}, '\0');
}

TEST(LoggerSocketPaths, SecondaryPathIsTriedWhenPrimaryFails) {
  LogDaemon daemon;
  const LoggingRun run =
      LogInChild(kNotASocket, daemon.Path(), [] { Entry(NuvLogger::priinfo, "secondary"); });
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "secondary"}}, '\0');
  ExpectNothingOnStandardOutput(run);
}

TEST(LoggerSocketPaths, PrimaryPathIsUsedWhenItAnswers) {
  LogDaemon primary('l');
  LogDaemon secondary('k');
  const LoggingRun run =
      LogInChild(primary.Path(), secondary.Path(), [] { Entry(NuvLogger::priinfo, "primary"); });
  ExpectEntries(primary.NextConnection(), run, {{kInfo, run.pid, "primary"}}, '\0');
  EXPECT_FALSE(secondary.HasPendingConnection());
}

volatile sig_atomic_t ownPipeSignals = 0;

void CountPipeSignal(int /*signal*/) { ownPipeSignals = ownPipeSignals + 1; }

void InstallOwnPipeHandler() {
  struct sigaction own {};
  own.sa_handler = CountPipeSignal;
  sigemptyset(&own.sa_mask);
  sigaction(SIGPIPE, &own, nullptr);
}

long OwnPipeHandlerInstalled() {
  struct sigaction current {};
  sigaction(SIGPIPE, nullptr, &current);
  return current.sa_handler == CountPipeSignal ? 1 : 0;
}

// The daemon takes one entry and hangs up; tells whether that entry was the one expected.
void TakeOneEntryAndHangUp(const LogDaemon& daemon, const char* text) {
  const int connection = daemon.Accept();
  std::string entry;
  const bool received = connection >= 0 && Receive(connection, Until::kNul, &entry);
  const std::string ending = std::string(": ") + text + '\0';
  Tell("first-entry-on-socket",
       static_cast<long>(received && entry.size() > ending.size() &&
                         entry.compare(entry.size() - ending.size(), ending.size(), ending) == 0));
  close(connection);
}

// "one" reaches the daemon, which then hangs up; "two" meets the broken pipe; "three" connects
// again. The child has a SIGPIPE handler of its own throughout.
LoggingRun RunBrokenPipe(const LogDaemon& daemon) {
  return LogInChild(daemon.Path(), daemon.Path(), [&daemon] {
    InstallOwnPipeHandler();
    Entry(NuvLogger::priinfo, "one");
    Tell("own-action-after-write", OwnPipeHandlerInstalled());
    TakeOneEntryAndHangUp(daemon, "one");
    Entry(NuvLogger::priinfo, "two");
    Tell("own-action-after-broken-pipe", OwnPipeHandlerInstalled());
    Entry(NuvLogger::priinfo, "three");
    Tell("own-handler-calls", ownPipeSignals);
  });
}

TEST(LoggerBrokenPipe, EntryMeetingBrokenPipeGoesToStandardOutput) {
  LogDaemon daemon;
  const LoggingRun run = RunBrokenPipe(daemon);
  EXPECT_EQ(Told(run.outcome, "first-entry-on-socket"), 1);
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "two"}}, '\n');
}

TEST(LoggerBrokenPipe, ProcessSurvivesAndItsOwnHandlerIsNotCalled) {
  LogDaemon daemon;
  const LoggingRun run = RunBrokenPipe(daemon);
  EXPECT_TRUE(run.outcome.Exited() && run.outcome.ExitCode() == 0);
  EXPECT_EQ(Told(run.outcome, "own-handler-calls"), 0);
}

TEST(LoggerBrokenPipe, PreviousSigpipeActionIsRestored) {
  LogDaemon daemon;
  const LoggingRun run = RunBrokenPipe(daemon);
  EXPECT_EQ(Told(run.outcome, "own-action-after-write"), 1);
  EXPECT_EQ(Told(run.outcome, "own-action-after-broken-pipe"), 1);
}

TEST(LoggerBrokenPipe, EntryAfterBrokenPipeConnectsAgain) {
  LogDaemon daemon;
  const LoggingRun run = RunBrokenPipe(daemon);
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "three"}}, '\0');
}

TEST(LoggerBrokenPipe, SecondBrokenPipeAlsoGoesToStandardOutput) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [&daemon] {
    Entry(NuvLogger::priinfo, "one");
    TakeOneEntryAndHangUp(daemon, "one");
    Entry(NuvLogger::priinfo, "two");
    Entry(NuvLogger::priinfo, "three");
    TakeOneEntryAndHangUp(daemon, "three");
    Entry(NuvLogger::priinfo, "four");
  });
  EXPECT_TRUE(run.outcome.Exited() && run.outcome.ExitCode() == 0);
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "two"}, {kInfo, run.pid, "four"}}, '\n');
}

TEST(LoggerTty, TtyOnSendsEntriesToStandardOutput) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    NuvLogger::LogTty(true);
    Entry(NuvLogger::priinfo, "one");
    Entry(NuvLogger::priwarn, "two");
  });
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "one"}, {kWarn, run.pid, "two"}}, '\n');
  EXPECT_FALSE(daemon.HasPendingConnection());
}

TEST(LoggerTty, TtyOnClosesOpenConnection) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [&daemon] {
    Entry(NuvLogger::priinfo, "socket");
    const int connection = daemon.Accept();
    NuvLogger::LogTty(true);
    std::string bytes;
    Tell("closed",
         static_cast<long>(connection >= 0 && Receive(connection, Until::kClosed, &bytes)));
    close(connection);
    Entry(NuvLogger::priinfo, "tty");
  });
  EXPECT_EQ(Told(run.outcome, "closed"), 1);
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "tty"}}, '\n');
}

TEST(LoggerTty, TtyOffMakesNextEntryUseSocketAgain) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    NuvLogger::LogTty(true);
    Entry(NuvLogger::priinfo, "tty");
    NuvLogger::LogTty(false);
    Entry(NuvLogger::priinfo, "socket");
  });
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "tty"}}, '\n');
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "socket"}}, '\0');
}

TEST(LoggerMinimum, DebugEntryIsDroppedUnderInitialMinimum) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    Entry(NuvLogger::pridebug, "dropped");
    Entry(NuvLogger::priinfo, "sent");
  });
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, run.pid, "sent"}}, '\0');
  ExpectNothingOnStandardOutput(run);
}

TEST(LoggerMinimum, DebugEntryIsSentAfterMinLogSeven) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    NuvLogger::MinLog(NuvLogger::pridebug);
    Entry(NuvLogger::pridebug, "debug");
  });
  ExpectEntries(daemon.NextConnection(), run, {{kDebug, run.pid, "debug"}}, '\0');
}

TEST(LoggerMinimum, EntriesAboveRaisedMinimumAreDropped) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    NuvLogger::MinLog(NuvLogger::prierr);
    Entry(NuvLogger::priinfo, "info");
    Entry(NuvLogger::priwarn, "warn");
    Entry(NuvLogger::prierr, "err");
  });
  ExpectEntries(daemon.NextConnection(), run, {{kErr, run.pid, "err"}}, '\0');
}

// The test's child opens a connection with an entry, then a grandchild with NUV_LOGMIN as given
// makes its entries, then the child makes one more entry.
LoggingRun ForkAfterConnecting(const LogDaemon& daemon, const char* logMin,
                               const std::function<void()>& grandchildEntries) {
  return LogInChild(daemon.Path(), daemon.Path(), [&] {
    Entry(NuvLogger::priinfo, "parent before");
    InGrandchild(logMin, grandchildEntries);
    Entry(NuvLogger::priinfo, "parent after");
  });
}

// The child's own connection carried both of its entries.
void ExpectParentConnection(const LogDaemon& daemon, const LoggingRun& run) {
  ExpectEntries(daemon.NextConnection(), run,
                {{kInfo, run.pid, "parent before"}, {kInfo, run.pid, "parent after"}}, '\0');
}

TEST(LoggerFork, ChildEntryCarriesChildPid) {
  LogDaemon daemon;
  const LoggingRun run =
      ForkAfterConnecting(daemon, nullptr, [] { Entry(NuvLogger::priinfo, "child"); });
  const long child = Told(run.outcome, "grandchild");
  EXPECT_NE(child, run.pid);
  EXPECT_EQ(Told(run.outcome, "grandchild-ended"), 1);
  ExpectParentConnection(daemon, run);
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, child, "child"}}, '\0');
}

TEST(LoggerFork, ChildWithInheritedConnectionAppliesNuvLogMinAfterItsFirstEntry) {
  LogDaemon daemon;
  const LoggingRun run = ForkAfterConnecting(daemon, "prierr", [] {
    Entry(NuvLogger::priwarn, "first");
    Entry(NuvLogger::priwarn, "dropped");
    Entry(NuvLogger::prierr, "err");
  });
  const long child = Told(run.outcome, "grandchild");
  EXPECT_EQ(Told(run.outcome, "grandchild-ended"), 1);
  ExpectParentConnection(daemon, run);
  ExpectEntries(daemon.NextConnection(), run, {{kWarn, child, "first"}, {kErr, child, "err"}},
                '\0');
}

TEST(LoggerFork, ChildWithoutNuvLogMinKeepsInheritedMinimum) {
  LogDaemon daemon;
  const LoggingRun run = ForkAfterConnecting(daemon, nullptr, [] {
    Entry(NuvLogger::priwarn, "first");
    Entry(NuvLogger::priinfo, "info");
    Entry(NuvLogger::pridebug, "dropped");
  });
  const long child = Told(run.outcome, "grandchild");
  ExpectParentConnection(daemon, run);
  ExpectEntries(daemon.NextConnection(), run, {{kWarn, child, "first"}, {kInfo, child, "info"}},
                '\0');
}

TEST(LoggerFork, UnknownNuvLogMinValueGivesMinimumSeven) {
  LogDaemon daemon;
  const LoggingRun run = ForkAfterConnecting(daemon, "verbose", [] {
    Entry(NuvLogger::priinfo, "first");
    Entry(NuvLogger::pridebug, "debug");
  });
  const long child = Told(run.outcome, "grandchild");
  ExpectParentConnection(daemon, run);
  ExpectEntries(daemon.NextConnection(), run, {{kInfo, child, "first"}, {kDebug, child, "debug"}},
                '\0');
}

TEST(LoggerFork, ChildOfProcessWithoutConnectionIgnoresNuvLogMin) {
  LogDaemon daemon;
  const LoggingRun run = LogInChild(daemon.Path(), daemon.Path(), [] {
    // This process owns its logger state but no connection: its one entry went to standard
    // output and LogTty(false) forgot even that.
    NuvLogger::LogTty(true);
    Entry(NuvLogger::priinfo, "tty");
    NuvLogger::LogTty(false);
    InGrandchild("prierr", [] {
      Entry(NuvLogger::priwarn, "first");
      Entry(NuvLogger::priwarn, "second");
    });
  });
  const long child = Told(run.outcome, "grandchild");
  ExpectEntries(run.outcome.out, run, {{kInfo, run.pid, "tty"}}, '\n');
  ExpectEntries(daemon.NextConnection(), run, {{kWarn, child, "first"}, {kWarn, child, "second"}},
                '\0');
}

}  // namespace
