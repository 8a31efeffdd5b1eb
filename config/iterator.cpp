/// \file NuvConfigIterator: a cursor over the pairs of the section in memory.
#include <nuv/configbase.h>

int NuvConfigIterator::Current(char** key, char** value) const {
  if (pairM == nullptr) {
    return 0;
  }
  // A null output is not written; the pair still counts as delivered.
  if (key != nullptr) {
    *key = pairM->key;
  }
  if (value != nullptr) {
    *value = pairM->value;
  }
  return 1;
}

void NuvConfigIterator::Next() {
  if (pairM != nullptr) {
    pairM = pairM->next;
  }
}
