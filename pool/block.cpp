/// \file Fill patterns of blocks and their check.
#include "pool/block.h"

#include "core/assert_at.h"

void NuvMempoolBlock::Init() {
  const unsigned words = (Size() - kHeaderBytes) / 4;
  for (unsigned i = 0; i < words; ++i) {
    SetWord(2 + i, kDeadBeef);
  }
}

void NuvMempoolBlock::UnInit() { Init(); }

void NuvMempoolBlock::InitTail(unsigned oldSize) {
  const unsigned end = Size();
  const unsigned words = (end - oldSize) / 4;
  for (unsigned k = 1; k <= words; ++k) {
    memcpy(Address() + end - 4 * k, &kDeadBeef, sizeof kDeadBeef);
  }
}

void NuvMempoolBlock::Bury() {
  for (unsigned i = 0; i < 4; ++i) {
    SetWord(i, kDeadBeef);
  }
}

void NuvMempoolBlock::AssertDeadBeef() const {
  NUV_ASSERT_AT(Size() >= kMinimumSize, 751, "AssertDeadBeef");
  const unsigned words = Size() / 4;
  for (unsigned i = 4; i < words; ++i) {
    NUV_ASSERT_AT(Word(i) == kDeadBeef, 764, "AssertDeadBeef");
  }
}
