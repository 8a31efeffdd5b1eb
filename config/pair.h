/// \file The store's pair records on the process heap.
#ifndef NUV_CONFIG_PAIR_H
#define NUV_CONFIG_PAIR_H

#include <nuv/configbase.h>

namespace nuv::config {

/// A new record adopting key and value (heap texts); null, with both freed, when memory is out.
NuvConfigPair* NewPair(char* key, char* value);
/// Frees every record of the list from first on, texts included.
void FreePairs(NuvConfigPair* first);

}  // namespace nuv::config

#endif  // NUV_CONFIG_PAIR_H
