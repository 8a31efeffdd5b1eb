/// \file Native 32-bit words at any address of a pool, as another process would read them.
#ifndef NUV_TESTS_SUPPORT_RAW_WORDS_H
#define NUV_TESTS_SUPPORT_RAW_WORDS_H

#include <cstring>

namespace nuv::test {

/// The word at address (which need not be a multiple of 4).
inline unsigned WordAt(const void* address) {
  unsigned word = 0;
  memcpy(&word, address, sizeof word);
  return word;
}

/// Writes a word at address (which need not be a multiple of 4).
inline void SetWordAt(void* address, unsigned word) { memcpy(address, &word, sizeof word); }

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_RAW_WORDS_H
