/// \file The store's pair records on the process heap.
#include "config/pair.h"

#include <cstdlib>
#include <new>

namespace nuv::config {

NuvConfigPair* NewPair(char* key, char* value) {
  auto* pair = new (std::nothrow) NuvConfigPair{key, value, nullptr};
  if (pair == nullptr) {
    free(key);
    free(value);
  }
  return pair;
}

void FreePairs(NuvConfigPair* first) {
  while (first != nullptr) {
    NuvConfigPair* next = first->next;
    free(first->key);
    free(first->value);
    delete first;
    first = next;
  }
}

}  // namespace nuv::config
