/// \file A fixture with a private pool of its own and its usage at the start of the test.
#ifndef NUV_TESTS_SUPPORT_PRIVATE_POOL_H
#define NUV_TESTS_SUPPORT_PRIVATE_POOL_H

#include <nuv/mempool.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <vector>

#include "support/pool_usage.h"

namespace nuv::test {

/// Allocates an anonymous pool before each test and detaches it afterwards. The usage counters
/// read at the start let a test check that it gave back all it took.
class PrivatePoolTest : public ::testing::Test {
 protected:
  static constexpr unsigned kPoolSize = 64 * 1024;

  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate("private", kPoolSize, false, nullptr, false, poolM), kNuvOk);
    startM = InUse(poolM);
  }
  void TearDown() override { delete poolM; }

  NuvMempool* Pool() const { return poolM; }
  /// InUse(Pool()) when the test began.
  const std::vector<unsigned>& Start() const { return startM; }
  /// Blocks and their payload bytes held by the library (user "nuv").
  unsigned NuvBlocks() const {
    return InfoWord(poolM, NuvMempoolInfo::kUserBlocks + NuvMempool::nuv);
  }
  unsigned NuvBytes() const {
    return InfoWord(poolM, NuvMempoolInfo::kUserBlockBytes + NuvMempool::nuv);
  }

 private:
  NuvMempool* poolM = nullptr;
  std::vector<unsigned> startM;
};

/// The payload bytes of the block that Malloc(size) gives: size rounded up to 4.
constexpr unsigned BlockPayload(unsigned size) { return (size + 3) & ~3U; }

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_PRIVATE_POOL_H
