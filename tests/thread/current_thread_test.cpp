/// \file NuvCurrentThreadId: the id that waits queue and the fatal report names.
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <chrono>

#include "support/child_process.h"
#include "support/shared_memory.h"

namespace {

using nuv::test::ChildProcess;
using nuv::test::SharedObject;

constexpr std::chrono::milliseconds kChildDeadline{5000};

struct Ids {
  volatile int reported;
  volatile int own;
};

TEST(CurrentThreadId, IsTheProcessIdWhereNoThreadWasAdopted) {
  EXPECT_EQ(NuvCurrentThreadId(), getpid());
}

TEST(CurrentThreadId, ForkedChildReportsItsOwnPidAfterItsParentAskedForIts) {
  ASSERT_EQ(NuvCurrentThreadId(), getpid());
  const SharedObject<Ids> ids;
  Ids* shared = &*ids;
  ChildProcess child([shared] {
    shared->reported = NuvCurrentThreadId();
    shared->own = getpid();
  });
  ASSERT_TRUE(child.Finish(kChildDeadline).Exited());
  EXPECT_EQ(ids->reported, ids->own);
  EXPECT_NE(ids->reported, getpid());
}

}  // namespace
