/// \file The checks that only a failed system call, an exhausted heap or a misplaced pool can
/// fail, raised in children.
#include <nuv/mempool.h>
#include <nuv/os_mempool.h>
#include <nuv/registry.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <cerrno>

#include "core/kernel.h"
#include "failing_new.h"
#include "support/fatal_report.h"
#include "support/pool_prefix.h"

namespace {

using nuv::test::ExpectLibraryAssertion;
using nuv::test::FatalReport;
using nuv::test::RunToFatalReport;
using nuv::test::ScopedPoolPrefix;

// Maps a pool file, then frees it with the named call failing.
void FreeWithFailing(const char* call) {
  char* base = nullptr;
  unsigned length = 0;
  int fd = -1;
  if (NuvOsMempool::Allocate("pool", 1, false, base, length, fd, true) == kNuvOk) {
    nuv::kernel::FailNextForTesting(call, EIO);
    NuvOsMempool::Free(base, length, fd);
  }
}

// A pool laid two bytes past a word boundary. The sanitizers would end the call itself; the
// check in it is what is tested.
__attribute__((no_sanitize("alignment"))) void InitArenaOffTheWordBoundary() {
  alignas(8) static char storage[sizeof(NuvMempool) + 8];
  auto* pool = reinterpret_cast<NuvMempool*>(storage + 2);
  pool->InitArena(sizeof storage - 2);
}

TEST(FailedCall, FreeFailsItsCheckWhenTheMappingCannotBeSynced) {
  ScopedPoolPrefix prefix;
  const FatalReport report = RunToFatalReport([] { FreeWithFailing("msync"); });
  ExpectLibraryAssertion(report, "Free", 594);
}

TEST(FailedCall, FreeFailsItsCheckWhenTheMappingCannotBeUnmapped) {
  ScopedPoolPrefix prefix;
  const FatalReport report = RunToFatalReport([] { FreeWithFailing("munmap"); });
  ExpectLibraryAssertion(report, "Free", 597);
}

TEST(FailedCall, AddMempoolLocalFailsItsCheckWhenTheHeapIsExhausted) {
  const FatalReport report = RunToFatalReport([] {
    nuv::test::FailNextNothrowNew();
    AddMempoolLocal(nullptr, -1);
  });
  ExpectLibraryAssertion(report, "AddMempoolLocal", 283);
}

TEST(FailedCall, InitArenaFailsItsCheckOnAPoolOffTheWordBoundary) {
  const FatalReport report = RunToFatalReport(InitArenaOffTheWordBoundary);
  ExpectLibraryAssertion(report, "InitArena", 1492);
}

}  // namespace
