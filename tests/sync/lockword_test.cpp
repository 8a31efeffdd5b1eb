/// \file Lock words and the atomic add, in one process and across processes.
#include <nuv/lockword.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <chrono>
#include <csignal>
#include <string>

#include "support/child_process.h"
#include "support/polling.h"
#include "support/process_state.h"
#include "support/shared_memory.h"

namespace {

using nuv::test::ProcessState;

using nuv::test::ChildProcess;
using nuv::test::SharedObject;
using nuv::test::WaitUntil;

struct Contended {
  volatile NuvLock lock;
  volatile unsigned counter;
  volatile unsigned entered;
  volatile unsigned trying;
};

TEST(LockWord, UptrylockOnFreeWordAcquiresAndLeavesOne) {
  volatile NuvLock word = 0;
  EXPECT_EQ(uptrylock(&word), 1);
  EXPECT_EQ(word, 1U);
}

TEST(LockWord, UptrylockOnHeldWordFailsAndLeavesOne) {
  volatile NuvLock word = 1;
  EXPECT_EQ(uptrylock(&word), 0);
  EXPECT_EQ(word, 1U);
}

TEST(LockWord, UpunlockOnFreeWordLeavesZero) {
  volatile NuvLock word = 0;
  upunlock(&word);
  EXPECT_EQ(word, 0U);
}

TEST(LockWord, UpunlockReleasesHeldWordForTheNextTry) {
  volatile NuvLock word = 0;
  ASSERT_EQ(uptrylock(&word), 1);
  upunlock(&word);
  EXPECT_EQ(word, 0U);
  EXPECT_EQ(uptrylock(&word), 1);
}

TEST(LockWord, UplockTakesFreeWord) {
  volatile NuvLock word = 0;
  uplock(&word);
  EXPECT_EQ(word, 1U);
}

TEST(LockWord, UpsleeplockTakesFreeWordWithoutSleeping) {
  volatile NuvLock word = 0;
  upsleeplock(&word);
  EXPECT_EQ(word, 1U);
}

TEST(Fadd, MinusOneOnZeroReturnsZeroAndWrapsToAllOnes) {
  volatile unsigned word = 0;
  EXPECT_EQ(fadd(&word, -1), 0);
  EXPECT_EQ(word, 0xFFFFFFFFU);
}

TEST(Fadd, ReturnsTheValueBeforeTheAddition) {
  volatile unsigned word = 41;
  EXPECT_EQ(fadd(&word, 1), 41);
  EXPECT_EQ(fadd(&word, 100), 42);
  EXPECT_EQ(word, 142U);
}

TEST(Fadd, AllOnesPlusOneWrapsToZero) {
  volatile unsigned word = 0xFFFFFFFFU;
  EXPECT_EQ(fadd(&word, 1), -1);
  EXPECT_EQ(word, 0U);
}

TEST(LockWord, SecondProcessEntersOnlyAfterTheHolderUnlocks) {
  SharedObject<Contended> shared;
  ASSERT_EQ(uptrylock(&shared->lock), 1);
  ChildProcess child([&shared] {
    shared->trying = 1;
    upsleeplock(&shared->lock);
    shared->entered = 1;
    upunlock(&shared->lock);
  });
  // Once it tries, the waiter sleeps only in the pause after finding the word held.
  ASSERT_TRUE(WaitUntil([&shared, &child] {
    return shared->entered != 0 || (shared->trying != 0 && ProcessState(child.Pid()) == 'S');
  })) << "the waiter neither slept nor entered";
  EXPECT_EQ(shared->entered, 0U) << "the waiter entered while the word was held";
  upunlock(&shared->lock);
  const auto outcome = child.Finish();
  ASSERT_TRUE(outcome.Exited()) << "waiter did not finish";
  EXPECT_EQ(shared->entered, 1U);
}

TEST(LockWord, TwoProcessesNeverHoldTheWordAtOnce) {
  constexpr unsigned kRounds = 20000;
  SharedObject<Contended> shared;
  auto work = [&shared] {
    for (unsigned i = 0; i < kRounds; ++i) {
      uplock(&shared->lock);
      shared->counter = shared->counter + 1;
      upunlock(&shared->lock);
    }
  };
  ChildProcess child(work);
  work();
  ASSERT_TRUE(child.Finish().Exited());
  EXPECT_EQ(shared->counter, 2 * kRounds);
}

TEST(Fadd, TwoProcessesAddingConcurrentlyLoseNoIncrement) {
  constexpr int kRounds = 100000;
  SharedObject<Contended> shared;
  auto work = [&shared] {
    for (int i = 0; i < kRounds; ++i) {
      fadd(&shared->counter, 1);
    }
  };
  ChildProcess child(work);
  work();
  ASSERT_TRUE(child.Finish().Exited());
  EXPECT_EQ(shared->counter, static_cast<unsigned>(2 * kRounds));
}

}  // namespace
