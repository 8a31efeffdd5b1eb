/// \file NuvIdArray: identifiers in zero-filled pool storage, growing 8, 16, 32, ...
#include <nuv/array.h>

#include <cstring>

#include "core/assert_at.h"

namespace {

constexpr int kFirstCapacity = 8;

}  // namespace

NuvIdArray::NuvIdArray(NuvMempool* pool) : poolM(pool) {}

NuvIdArray::~NuvIdArray() {
  if (idsM != nullptr) {
    poolM->Free(idsM);
  }
}

unsigned long& NuvIdArray::operator[](int i) {
  NUV_ASSERT_AT(i >= 0 && i < countM, 210, "__vc");
  return idsM[i];
}

unsigned long NuvIdArray::operator[](int i) const {
  NUV_ASSERT_AT(i >= 0 && i < countM, 210, "__vc");
  return idsM[i];
}

void NuvIdArray::Add(unsigned long id) {
  if (countM == capacityM) {
    Expand();
  }
  idsM[countM++] = id;
}

void NuvIdArray::Extend(int n) {
  while (countM < n) {
    Add(0);
  }
}

void NuvIdArray::Remove(int i, int n) {
  NUV_ASSERT_AT(i >= 0 && i <= countM - n, 211, "Remove");
  for (int j = i; j + n < countM; ++j) {
    idsM[j] = idsM[j + n];
  }
  countM -= n;
}

void NuvIdArray::Expand() {
  const int capacity = capacityM == 0 ? kFirstCapacity : 2 * capacityM;
  auto* ids = static_cast<unsigned long*>(
      poolM->Calloc(static_cast<unsigned>(capacity) * sizeof(unsigned long), NuvMempool::nuv));
  if (idsM != nullptr) {
    memcpy(ids, idsM, static_cast<size_t>(countM) * sizeof(unsigned long));
    poolM->Free(idsM);
  }
  idsM = ids;
  capacityM = capacity;
}
