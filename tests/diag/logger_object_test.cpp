/// \file Logger objects: the member forms over the object's facility, priority and name.
#include <nuv/logger.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/log_lines.h"
#include "support/pool_usage.h"
#include "support/private_pool.h"

namespace {

using nuv::test::ChildProcess;
using nuv::test::InUse;
using nuv::test::LogRecords;

// Values between the angle brackets: (local facility) * 8 | priority.
constexpr int kOrbWarn = (17 * 8) | 4;
constexpr int kOrbErr = (17 * 8) | 3;
constexpr int kNuvInfo = (16 * 8) | 6;
constexpr int kNuvDebug = (16 * 8) | 7;

// Entries made in a child whose logger writes to standard output, and the child's pid.
struct Entries {
  std::string out;
  int pid = 0;
};

class LoggerObject : public nuv::test::PrivatePoolTest {
 protected:
  static Entries Run(const std::function<void()>& body) {
    ChildProcess child([&body] {
      NuvLogger::LogTty(true);
      body();
    });
    Entries entries;
    entries.pid = child.Pid();
    const nuv::test::ChildOutcome outcome = child.Finish();
    EXPECT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.err;
    entries.out = outcome.out;
    return entries;
  }
};

TEST_F(LoggerObject, LogUsesTheObjectsFacilityPriorityAndName) {
  const Entries entries = Run([this] {
    ref<NuvLogger> logger = new (Pool()) NuvLogger(NuvLogger::facorb, NuvLogger::priwarn, "orbit");
    logger->Log("x %d", 5);
  });
  EXPECT_EQ(LogRecords(entries.out, kOrbWarn, "orbit", entries.pid),
            std::vector<std::string>{"x 5"});
}

TEST_F(LoggerObject, LogWithPriorityUsesThatPriorityAndTheObjectsFacilityAndName) {
  const Entries entries = Run([this] {
    ref<NuvLogger> logger = new (Pool()) NuvLogger(NuvLogger::facorb, NuvLogger::priwarn, "orbit");
    logger->Log(NuvLogger::prierr, "failed %s", "twice");
  });
  EXPECT_EQ(LogRecords(entries.out, kOrbErr, "orbit", entries.pid),
            std::vector<std::string>{"failed twice"});
  EXPECT_TRUE(LogRecords(entries.out, kOrbWarn, "orbit", entries.pid).empty());
}

TEST_F(LoggerObject, NameLogUsesTheGivenNameAndTheObjectsFacilityAndPriority) {
  const Entries entries = Run([this] {
    ref<NuvLogger> logger = new (Pool()) NuvLogger(NuvLogger::facorb, NuvLogger::priwarn, "orbit");
    logger->NameLog("relay", "hop %d", 3);
  });
  EXPECT_EQ(LogRecords(entries.out, kOrbWarn, "relay", entries.pid),
            std::vector<std::string>{"hop 3"});
  EXPECT_TRUE(LogRecords(entries.out, kOrbWarn, "orbit", entries.pid).empty());
}

TEST_F(LoggerObject, EntriesAboveTheMinimumAreDroppedUntilMinLogAdmitsThem) {
  const Entries entries = Run([this] {
    ref<NuvLogger> logger = new (Pool()) NuvLogger(NuvLogger::facnuv, NuvLogger::pridebug, "dbg");
    logger->Log("dropped");
    logger->NameLog("dbg", "dropped too");
    logger->Log(NuvLogger::priinfo, "kept");
    NuvLogger::MinLog(NuvLogger::pridebug);
    logger->Log("admitted");
  });
  EXPECT_EQ(LogRecords(entries.out, kNuvDebug, "dbg", entries.pid),
            std::vector<std::string>{"admitted"});
  EXPECT_EQ(LogRecords(entries.out, kNuvInfo, "dbg", entries.pid),
            std::vector<std::string>{"kept"});
}

TEST_F(LoggerObject, NameIsACopyTakenAtConstruction) {
  const Entries entries = Run([this] {
    std::string name = "first";
    ref<NuvLogger> logger =
        new (Pool()) NuvLogger(NuvLogger::facnuv, NuvLogger::priinfo, name.c_str());
    name = "other";
    logger->Log("named");
  });
  EXPECT_EQ(LogRecords(entries.out, kNuvInfo, "first", entries.pid),
            std::vector<std::string>{"named"});
}

TEST_F(LoggerObject, ReleasingTheLoggerGivesBackItsNameAndItself) {
  const std::vector<unsigned> start = InUse(Pool());
  {
    ref<NuvLogger> logger = new (Pool()) NuvLogger(NuvLogger::facnuv, NuvLogger::priinfo, "gone");
    EXPECT_NE(InUse(Pool()), start);
  }
  EXPECT_EQ(InUse(Pool()), start);
}

TEST_F(LoggerObject, NullNameLogsUnderAnEmptyName) {
  const Entries entries = Run([this] {
    ref<NuvLogger> logger = new (Pool()) NuvLogger(NuvLogger::facnuv, NuvLogger::priinfo, nullptr);
    logger->Log("anonymous");
  });
  EXPECT_NE(entries.out.find(" [" + std::to_string(entries.pid) + "]: anonymous\n"),
            std::string::npos)
      << entries.out;
}

}  // namespace
