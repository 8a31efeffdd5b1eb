/// \file nuvpool on pools that processes use now or left behind: waiting receivers and
/// semaphore waiters, a lock word held by a process killed on purpose, a damaged block, and the
/// list of pools.
#include <nuv/lockword.h>
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/semaphore.h>
#include <nuv/status.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>

#include "support/child_process.h"
#include "support/polling.h"
#include "support/pool_prefix.h"
#include "tools/nuvpool_run.h"

namespace nuv::test {
namespace {

constexpr unsigned kPoolSize = 64 * 1024 - 8;  // a file of 16 whole pages
constexpr unsigned kPoolLockOffset = 112;

class NuvpoolLiveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate("live", kPoolSize, false, nullptr, true, poolM), kNuvOk);
  }
  void TearDown() override { delete poolM; }

  NuvMempool* Pool() const { return poolM; }
  std::string Path() const { return prefixM.PathOf("live"); }
  const ScopedPoolPrefix& Prefix() const { return prefixM; }
  static uint32_t Address(const void* p) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p));
  }

  /// Runs show until pred holds for its JSON, or the polling deadline passes.
  Json ShowWhen(const std::function<bool(const Json&)>& pred) const {
    Json show;
    WaitUntil([&] {
      show = Nuvpool({"show", Path()}).json;
      return pred(show);
    });
    return show;
  }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempool* poolM = nullptr;
};

TEST_F(NuvpoolLiveTest, AnAttachedPoolIsActiveWithThisProcessAttached) {
  const Json show = Nuvpool({"show", "live"}).json;
  EXPECT_EQ(show["state"].String(), "active");
  ASSERT_EQ(show["attached"].Size(), 1U);
  EXPECT_EQ(show["attached"][0]["pid"].Int(), getpid());
  EXPECT_TRUE(show["attached"][0]["alive"].Bool());
}

TEST_F(NuvpoolLiveTest, AReceiverWaitingIsNamedOnItsQueuesSemaphore) {
  NuvMessenger* messenger = Pool()->GetMessenger();
  const int number = messenger->CreateQueue(5);
  ChildProcess receiver([&] {
    NuvMessage message{};
    messenger->irecv(number, message, 0, nullptr);
  });
  const Json show = ShowWhen([](const Json& s) { return s["queueBlocks"]["free"].Int() == 49; });
  const Json& receive = show["semaphores"][0];
  EXPECT_EQ(receive["role"].String(), "receive of queue " + std::to_string(number));
  EXPECT_EQ(receive["count"].Int(), -1);
  ASSERT_EQ(receive["waiters"].Size(), 1U);
  EXPECT_EQ(receive["waiters"][0]["pid"].Int(), receiver.Pid());
  EXPECT_TRUE(receive["waiters"][0]["alive"].Bool());
  const Json& waiting = show["queueBlocks"]["waiters"];
  ASSERT_EQ(waiting.Size(), 1U);
  EXPECT_EQ(waiting[0]["pid"].Int(), receiver.Pid());
  EXPECT_EQ(waiting[0]["semaphore"].Int(), receive["address"].Int());
  ASSERT_EQ(show["queues"][0]["waitingReceivers"].Size(), 1U);
  EXPECT_EQ(show["queues"][0]["waitingReceivers"][0].Int(), receiver.Pid());
  NuvMessage wake{1, {}};
  messenger->isend(number, wake, 0, nullptr);
  EXPECT_TRUE(receiver.Finish().Exited());
}

TEST_F(NuvpoolLiveTest, ASemaphoreWithWaitersListsEveryWaitingProcess) {
  auto* sema = new (Pool()) NuvSema(NuvMempool::catalog);
  sema->init(0, false);
  ChildProcess first([&] { sema->psema(nullptr); });
  ChildProcess second([&] { sema->psema(nullptr); });
  const Json show = ShowWhen([](const Json& s) { return s["queueBlocks"]["free"].Int() == 48; });
  ASSERT_EQ(show["semaphores"].Size(), 1U);
  const Json& found = show["semaphores"][0];
  EXPECT_EQ(found["address"].Int(), Address(sema));
  EXPECT_EQ(found["owner"].String(), "catalog");
  EXPECT_EQ(found["count"].Int(), -2);
  ASSERT_EQ(found["waiters"].Size(), 2U);
  const int64_t pids[] = {found["waiters"][0]["pid"].Int(), found["waiters"][1]["pid"].Int()};
  EXPECT_TRUE((pids[0] == first.Pid() && pids[1] == second.Pid()) ||
              (pids[0] == second.Pid() && pids[1] == first.Pid()));
  sema->vsema();
  sema->vsema();
  EXPECT_TRUE(first.Finish().Exited());
  EXPECT_TRUE(second.Finish().Exited());
  sema->DeleteThis();
}

TEST_F(NuvpoolLiveTest, AHeldLockWordIsListedAndNotOrphanedWhileItsHolderLives) {
  volatile NuvLock* lock =
      reinterpret_cast<NuvLock*>(reinterpret_cast<char*>(Pool()) + kPoolLockOffset);
  uplock(lock);
  const Json show = Nuvpool({"show", "live"}).json;
  upunlock(lock);
  ASSERT_EQ(show["heldLocks"].Size(), 1U);
  EXPECT_EQ(show["heldLocks"][0]["lock"].String(), "pool");
  EXPECT_EQ(show["heldLocks"][0]["address"].Int(), Address(Pool()) + kPoolLockOffset);
  EXPECT_FALSE(show["heldLocks"][0]["orphaned"].Bool());
}

TEST_F(NuvpoolLiveTest, ALockWordLeftHeldByAKilledProcessIsFlaggedLoudly) {
  const ChildOutcome killed = RunInChild([] {
    NuvMempool* pool = nullptr;
    if (NuvMempool::Allocate("orphan", kPoolSize, false, nullptr, true, pool) == kNuvOk) {
      uplock(reinterpret_cast<NuvLock*>(reinterpret_cast<char*>(pool) + kPoolLockOffset));
      raise(SIGKILL);
    }
  });
  ASSERT_TRUE(killed.Signalled() && killed.Signal() == SIGKILL);
  const NuvpoolRun json = Nuvpool({"show", "orphan"});
  EXPECT_EQ(json.json["state"].String(), "stale");
  ASSERT_EQ(json.json["heldLocks"].Size(), 1U);
  EXPECT_EQ(json.json["heldLocks"][0]["lock"].String(), "pool");
  EXPECT_TRUE(json.json["heldLocks"][0]["orphaned"].Bool());
  const NuvpoolRun text = Nuvpool({"show", "orphan"}, false);
  EXPECT_NE(text.outcome.out.find("NOBODY WILL RELEASE IT"), std::string::npos) << text.outcome.out;
}

TEST_F(NuvpoolLiveTest, AStrayWriteIntoAFreeBlockIsFoundAtItsOffset) {
  auto* words = static_cast<uint32_t*>(Pool()->Malloc(64, NuvMempool::catalog));
  Pool()->Malloc(16, NuvMempool::catalog);  // keeps the freed block off the top of the heap
  Pool()->Free(words);
  words[3] = 0x12345678;
  const NuvpoolRun run = Nuvpool({"check", "live"});
  words[3] = 0xdeadbeef;
  EXPECT_EQ(run.outcome.ExitCode(), 1);
  EXPECT_EQ(run.outcome.err, "");
  EXPECT_FALSE(run.json["sound"].Bool());
  ASSERT_EQ(run.json["findings"].Size(), 1U);
  const Json& finding = run.json["findings"][0];
  EXPECT_EQ(finding["address"].Int(), Address(&words[3]));
  EXPECT_EQ(finding["offset"].Int(), Address(&words[3]) - Address(Pool()) + 8);
  EXPECT_NE(finding["what"].String().find("0x12345678"), std::string::npos);
}

TEST_F(NuvpoolLiveTest, ABlockSizeOverwrittenStopsTheWalkWithAFinding) {
  auto* words = static_cast<uint32_t*>(Pool()->Malloc(64, NuvMempool::catalog));
  const uint32_t header = words[-2];
  words[-2] = (header & 0xff000000) | 0x00fffff0;
  const NuvpoolRun run = Nuvpool({"check", "live"});
  words[-2] = header;
  EXPECT_EQ(run.outcome.ExitCode(), 1);
  EXPECT_EQ(run.outcome.err, "");
  ASSERT_GE(run.json["findings"].Size(), 1U);
  EXPECT_NE(run.json["findings"][0]["what"].String().find("runs past the top sentinel"),
            std::string::npos);
  Pool()->Free(words);
}

TEST_F(NuvpoolLiveTest, ListGivesActiveAndStalePoolsAndLeavesOtherFilesOut) {
  const ChildOutcome made = RunProgram(HelperPath("pool_fixture_helper"), {"fixture"});
  ASSERT_EQ(made.ExitCode(), 0);
  std::ofstream(Prefix().PathOf("notes")) << "not a pool\n";
  const Json list = Nuvpool({"list", "--prefix", Prefix().Prefix()}).json;
  EXPECT_EQ(list["prefix"].String(), Prefix().Prefix());
  ASSERT_EQ(list["pools"].Size(), 2U);
  EXPECT_EQ(list["pools"][0]["name"].String(), "fixture");
  EXPECT_EQ(list["pools"][0]["state"].String(), "stale");
  EXPECT_EQ(list["pools"][0]["attached"].Size(), 0U);
  EXPECT_EQ(list["pools"][0]["base"].Int(), 0x5a000000);
  EXPECT_EQ(list["pools"][1]["name"].String(), "live");
  EXPECT_EQ(list["pools"][1]["state"].String(), "active");
  ASSERT_EQ(list["pools"][1]["attached"].Size(), 1U);
  EXPECT_EQ(list["pools"][1]["attached"][0].Int(), getpid());
  EXPECT_EQ(list["pools"][1]["size"].Int(), 64 * 1024);
}

TEST_F(NuvpoolLiveTest, ListTakesThePrefixFromTheEnvironment) {
  const NuvpoolRun run = Nuvpool({"list"}, false);
  EXPECT_NE(run.outcome.out.find("live"), std::string::npos) << run.outcome.out;
  EXPECT_NE(run.outcome.out.find("active"), std::string::npos);
}

TEST_F(NuvpoolLiveTest, NuvpoolLeavesThePoolFileAsItWas) {
  struct stat before {};
  ASSERT_EQ(stat(Path().c_str(), &before), 0);
  std::ifstream file(Path(), std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  for (const char* command : {"show", "check", "blocks"}) {
    EXPECT_EQ(Nuvpool({command, "live"}).outcome.ExitCode(), 0) << command;
  }
  struct stat after {};
  ASSERT_EQ(stat(Path().c_str(), &after), 0);
  EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  std::ifstream again(Path(), std::ios::binary);
  EXPECT_TRUE(std::string((std::istreambuf_iterator<char>(again)),
                          std::istreambuf_iterator<char>()) == bytes);
}

}  // namespace
}  // namespace nuv::test
