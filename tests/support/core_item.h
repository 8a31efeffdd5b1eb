/// \file A counted pool object carrying a number, for filling containers in tests.
#ifndef NUV_TESTS_SUPPORT_CORE_ITEM_H
#define NUV_TESTS_SUPPORT_CORE_ITEM_H

#include <nuv/seed.h>

namespace nuv::test {

/// A NuvCore of user "catalog" (so that its blocks are told apart from the containers' own
/// "nuv" blocks in the pool statistics) holding a value.
class CoreItem : public NuvCore {
 public:
  explicit CoreItem(int value) : NuvCore(NuvMempool::catalog), valueM(value) {}
  int Value() const { return valueM; }

 private:
  int valueM;
};

/// The value of a CoreItem held through a reference to its base.
inline int ValueOf(const ref<NuvCore>& item) {
  return dynamic_cast<const CoreItem&>(*item).Value();
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_CORE_ITEM_H
