/// \file Reading a pool's usage counters in tests.
#ifndef NUV_TESTS_SUPPORT_POOL_USAGE_H
#define NUV_TESTS_SUPPORT_POOL_USAGE_H

#include <nuv/mempool.h>

#include <vector>

namespace nuv::test {

/// Word index of the pool's statistics record.
inline unsigned InfoWord(const NuvMempool* pool, unsigned index) {
  return pool->GetInfo().Word(index);
}

/// Every in-use block counter of the pool, totals and per user: equal before and after an
/// operation that gives back all it took.
inline std::vector<unsigned> InUse(const NuvMempool* pool) {
  std::vector<unsigned> words = {InfoWord(pool, NuvMempoolInfo::kBlocks),
                                 InfoWord(pool, NuvMempoolInfo::kBlockBytes)};
  for (unsigned user = 0; user < NuvMempoolInfo::kUsers; ++user) {
    words.push_back(InfoWord(pool, NuvMempoolInfo::kUserBlocks + user));
    words.push_back(InfoWord(pool, NuvMempoolInfo::kUserBlockBytes + user));
  }
  return words;
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_POOL_USAGE_H
