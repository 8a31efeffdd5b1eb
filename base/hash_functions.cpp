/// \file The hash and comparison functions of NuvGenericHashTable: lookup2, the rotate-and-xor
/// byte hash, and their forms for NuvString keys.
#include <nuv/hash_table.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kGoldenRatio = 0x9e3779b9U;
constexpr unsigned kBlockBytes = 12;

// Inline: it is the whole cost of the hash, and a call would keep a, b and c in memory.
inline void Mix(uint32_t& a, uint32_t& b, uint32_t& c) {
  a -= b;
  a -= c;
  a ^= c >> 13;
  b -= c;
  b -= a;
  b ^= a << 8;
  c -= a;
  c -= b;
  c ^= b >> 13;
  a -= b;
  a -= c;
  a ^= c >> 12;
  b -= c;
  b -= a;
  b ^= a << 16;
  c -= a;
  c -= b;
  c ^= b >> 5;
  a -= b;
  a -= c;
  a ^= c >> 3;
  b -= c;
  b -= a;
  b ^= a << 10;
  c -= a;
  c -= b;
  c ^= b >> 15;
}

// Groups are little-endian whatever the processor's byte order, so the hash of a text is the same
// on the device and on the host: bytes are combined by shifts, never loaded as words.
uint32_t LittleEndianWord(const unsigned char* k) {
  return static_cast<uint32_t>(k[0]) | static_cast<uint32_t>(k[1]) << 8U |
         static_cast<uint32_t>(k[2]) << 16U | static_cast<uint32_t>(k[3]) << 24U;
}

// The last 0 to 11 bytes; the low byte of c already holds the length, so c's bytes start one
// place up.
void AddTail(const unsigned char* k, unsigned n, uint32_t& a, uint32_t& b, uint32_t& c) {
  for (unsigned j = 0; j < n; ++j) {
    const uint32_t byte = k[j];
    if (j < 4) {
      a += byte << (8 * j);
    } else if (j < 8) {
      b += byte << (8 * (j - 4));
    } else {
      c += byte << (8 * (j - 7));
    }
  }
}

ref<NuvString> AsString(const ref<NuvCore>& core) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): a string table holds strings
  return static_cast<NuvString*>(core.get());
}

}  // namespace

unsigned long NuvGenericHashTable::HashString(const char* s) {
  const unsigned length = s == nullptr ? 0 : static_cast<unsigned>(strlen(s));
  const auto* k = reinterpret_cast<const unsigned char*>(s);
  uint32_t a = kGoldenRatio;
  uint32_t b = kGoldenRatio;
  uint32_t c = 0;
  unsigned remaining = length;
  for (; remaining >= kBlockBytes; remaining -= kBlockBytes, k += kBlockBytes) {
    a += LittleEndianWord(k);
    b += LittleEndianWord(k + 4);
    c += LittleEndianWord(k + 8);
    Mix(a, b, c);
  }
  c += length;
  AddTail(k, remaining, a, b, c);
  Mix(a, b, c);
  return c;
}

void NuvGenericHashTable::FastHashBytes(const void* p, unsigned n, unsigned long& h) {
  const auto* bytes = static_cast<const unsigned char*>(p);
  auto value = static_cast<uint32_t>(h);
  for (unsigned i = 0; i < n; ++i) {
    value = ((value << 5U) | (value >> 27U)) ^ bytes[i];
  }
  h = value;
}

// NOLINTBEGIN(performance-unnecessary-value-param): the table's function types take references
// by value.
unsigned long NuvGenericHashTable::HashNuvString(ref<NuvString> s) { return HashString(s->Utf8()); }

// Multiplied as unsigned, so that large and negative numerals wrap rather than overflow.
unsigned long NuvGenericHashTable::HashNuvStringAtoi(ref<NuvString> s) {
  const auto value = static_cast<uint32_t>(strtol(s->Utf8(), nullptr, 10));
  return value * 5U;
}

int NuvGenericHashTable::CmpNuvString(ref<NuvString> a, ref<NuvString> b) {
  // A null string sorts after every other.
  if (!a) {
    return b ? 1 : 0;
  }
  if (!b) {
    return -1;
  }
  return strcmp(a->Utf8(), b->Utf8());
}

unsigned long NuvGenericHashTable::HashNuvStringCore(ref<NuvCore> k,
                                                     NuvGenericHashTable* /*context*/) {
  return HashNuvString(AsString(k));
}

unsigned long NuvGenericHashTable::HashNuvStringAtoiCore(ref<NuvCore> k,
                                                         NuvGenericHashTable* /*context*/) {
  return HashNuvStringAtoi(AsString(k));
}

int NuvGenericHashTable::CmpNuvStringCore(ref<NuvCore> a, ref<NuvCore> b,
                                          NuvGenericHashTable* /*context*/) {
  return CmpNuvString(AsString(a), AsString(b));
}
// NOLINTEND(performance-unnecessary-value-param)
