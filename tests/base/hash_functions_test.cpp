/// \file The table's hash functions: lookup2 against its published values and an independent
/// form, the rotate-and-xor byte hash, and the hashes and comparison of string keys.
#include <nuv/hash_table.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/private_pool.h"

namespace {

// lookup2 written apart from the library's form, so that one mistake is unlikely to be made
// twice: the mix as nine turns of one step over the rotating triple (a, b, c), and the tail
// copied into a zeroed block whose byte 8 is left free for the length.
constexpr int kMixTurns = 9;
// Positive: shift right; negative: shift left.
constexpr int kMixShifts[kMixTurns] = {13, -8, 13, 12, -16, 5, 3, -10, 15};
constexpr size_t kBlock = 12;
constexpr uint32_t kInitial = 0x9e3779b9U;

void ReferenceMix(uint32_t (&abc)[3]) {
  for (int turn = 0; turn < kMixTurns; ++turn) {
    uint32_t& x = abc[turn % 3];
    const uint32_t y = abc[(turn + 1) % 3];
    const uint32_t z = abc[(turn + 2) % 3];
    const int shift = kMixShifts[turn];
    x = x - y - z;
    x ^= shift > 0 ? z >> shift : z << -shift;
  }
}

uint32_t WordAt(const unsigned char* p) {
  uint32_t word = 0;
  for (int i = 3; i >= 0; --i) {
    word = (word << 8U) | p[i];
  }
  return word;
}

void AddBlock(uint32_t (&abc)[3], const unsigned char* block) {
  for (int w = 0; w < 3; ++w) {
    abc[w] += WordAt(block + 4 * w);
  }
}

uint32_t ReferenceLookup2(const std::string& text) {
  std::vector<unsigned char> bytes(text.begin(), text.end());
  const size_t full = bytes.size() - bytes.size() % kBlock;
  uint32_t abc[3] = {kInitial, kInitial, 0};
  for (size_t at = 0; at < full; at += kBlock) {
    AddBlock(abc, &bytes[at]);
    ReferenceMix(abc);
  }
  unsigned char tail[kBlock] = {};
  for (size_t j = full; j < bytes.size(); ++j) {
    const size_t place = j - full;
    tail[place < 8 ? place : place + 1] = bytes[j];
  }
  abc[2] += static_cast<uint32_t>(bytes.size());
  AddBlock(abc, tail);
  ReferenceMix(abc);
  return abc[2];
}

// Text of the given length whose bytes run through the whole range 0x01 to 0xff.
std::string PatternText(size_t length) {
  std::string text;
  for (size_t j = 0; j < length; ++j) {
    const auto byte = static_cast<unsigned char>((j * 37 + length * 11 + 0x81) % 255 + 1);
    text.push_back(static_cast<char>(byte));
  }
  return text;
}

unsigned long FastHash(const std::vector<unsigned char>& bytes, unsigned long h) {
  NuvGenericHashTable::FastHashBytes(bytes.data(), static_cast<unsigned>(bytes.size()), h);
  return h;
}

TEST(HashString, EmptyStringHashesToTheMixOfTheInitialState) {
  EXPECT_EQ(NuvGenericHashTable::HashString(""), 0xbd49d10dUL);
}

TEST(HashString, NullPointerHashesLikeTheEmptyString) {
  EXPECT_EQ(NuvGenericHashTable::HashString(nullptr), 0xbd49d10dUL);
}

TEST(HashString, OneFullBlockWithoutTail) {
  EXPECT_EQ(NuvGenericHashTable::HashString("abcdefghijkl"), 0x0b1b3ea5UL);
}

TEST(HashString, ShortTextIsOnlyTail) {
  EXPECT_EQ(NuvGenericHashTable::HashString("abc"), 0x251e4793UL);
}

TEST(HashString, IndependentFormAgreesWithThePublishedValues) {
  EXPECT_EQ(ReferenceLookup2(""), 0xbd49d10dU);
  EXPECT_EQ(ReferenceLookup2("abcdefghijkl"), 0x0b1b3ea5U);
  EXPECT_EQ(ReferenceLookup2("abc"), 0x251e4793U);
}

TEST(HashString, AgreesWithTheIndependentFormAcrossBlockBoundariesAndHighBytes) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string text = PatternText(length);
    EXPECT_EQ(NuvGenericHashTable::HashString(text.c_str()), ReferenceLookup2(text))
        << "length " << length;
  }
}

TEST(HashString, TextsDifferingInOneTailByteHashApart) {
  const std::string text = PatternText(23);
  for (size_t at = 12; at < text.size(); ++at) {
    std::string changed = text;
    changed[at] = static_cast<char>(changed[at] ^ 0x40);
    EXPECT_NE(NuvGenericHashTable::HashString(changed.c_str()),
              NuvGenericHashTable::HashString(text.c_str()))
        << "byte " << at;
    EXPECT_EQ(NuvGenericHashTable::HashString(changed.c_str()), ReferenceLookup2(changed))
        << "byte " << at;
  }
}

TEST(FastHashBytes, TwoBytesFromZeroGive0x22) { EXPECT_EQ(FastHash({0x01, 0x02}, 0), 0x22UL); }

TEST(FastHashBytes, NoBytesLeaveTheValueAlone) {
  EXPECT_EQ(FastHash({}, 0x12345678UL), 0x12345678UL);
}

TEST(FastHashBytes, RotationCarriesTheTopBitsRoundToTheBottom) {
  EXPECT_EQ(FastHash({0x00}, 0xf8000001UL), 0x0000003fUL);
}

TEST(FastHashBytes, HighBytesAreTakenAsUnsigned) { EXPECT_EQ(FastHash({0xff}, 0), 0xffUL); }

TEST(FastHashBytes, ContinuesFromTheValueGiven) {
  EXPECT_EQ(FastHash({0x01, 0x02}, 0), FastHash({0x02}, FastHash({0x01}, 0)));
}

class StringKeys : public nuv::test::PrivatePoolTest {
 protected:
  ref<NuvString> Text(const char* s) const { return new (Pool()) NuvString(s); }
  unsigned long Atoi(const char* s) const {
    return NuvGenericHashTable::HashNuvStringAtoi(Text(s));
  }
};

TEST_F(StringKeys, HashNuvStringIsTheLookup2HashOfTheUtf8Form) {
  EXPECT_EQ(NuvGenericHashTable::HashNuvString(Text("abc")), 0x251e4793UL);
  const std::string text = PatternText(29);
  EXPECT_EQ(NuvGenericHashTable::HashNuvString(Text(text.c_str())), ReferenceLookup2(text));
}

TEST_F(StringKeys, HashNuvStringOfAWideStringHashesItsUtf8Form) {
  const unsigned short wide[] = {'a', 'b', 'c', 0};
  const ref<NuvString> s = new (Pool()) NuvString(wide);
  EXPECT_EQ(NuvGenericHashTable::HashNuvString(s), 0x251e4793UL);
}

TEST_F(StringKeys, HashNuvStringAtoiIsFiveTimesTheNumeral) { EXPECT_EQ(Atoi("12"), 60UL); }

TEST_F(StringKeys, HashNuvStringAtoiOfANonNumeralIsZero) { EXPECT_EQ(Atoi("x"), 0UL); }

TEST_F(StringKeys, HashNuvStringAtoiReadsTheLeadingNumeralOnly) { EXPECT_EQ(Atoi("7 up"), 35UL); }

TEST_F(StringKeys, HashNuvStringAtoiWrapsAsUnsigned32Bit) {
  EXPECT_EQ(Atoi("-1"), 0xfffffffbUL);
  EXPECT_EQ(Atoi("1000000000"), 705032704UL);
}

TEST_F(StringKeys, CmpNuvStringPutsANullStringAfterAnyOther) {
  EXPECT_EQ(NuvGenericHashTable::CmpNuvString(nullptr, Text("a")), 1);
  EXPECT_EQ(NuvGenericHashTable::CmpNuvString(Text("a"), nullptr), -1);
}

TEST_F(StringKeys, CmpNuvStringOfTwoNullStringsIsZero) {
  EXPECT_EQ(NuvGenericHashTable::CmpNuvString(nullptr, nullptr), 0);
}

TEST_F(StringKeys, CmpNuvStringOrdersByTheUtf8Bytes) {
  EXPECT_LT(NuvGenericHashTable::CmpNuvString(Text("a"), Text("b")), 0);
  EXPECT_GT(NuvGenericHashTable::CmpNuvString(Text("b"), Text("a")), 0);
  EXPECT_EQ(NuvGenericHashTable::CmpNuvString(Text("abc"), Text("abc")), 0);
  EXPECT_LT(NuvGenericHashTable::CmpNuvString(Text("ab"), Text("abc")), 0);
}

TEST_F(StringKeys, CoreFormsGiveTheSameResultsOverNuvCoreReferences) {
  const ref<NuvCore> numeral = Text("12");
  const ref<NuvCore> word = Text("abc");
  EXPECT_EQ(NuvGenericHashTable::HashNuvStringCore(word, nullptr), 0x251e4793UL);
  EXPECT_EQ(NuvGenericHashTable::HashNuvStringAtoiCore(numeral, nullptr), 60UL);
  EXPECT_EQ(NuvGenericHashTable::CmpNuvStringCore(nullptr, word, nullptr), 1);
  EXPECT_EQ(NuvGenericHashTable::CmpNuvStringCore(word, nullptr, nullptr), -1);
  EXPECT_LT(NuvGenericHashTable::CmpNuvStringCore(numeral, word, nullptr), 0);
  EXPECT_EQ(NuvGenericHashTable::CmpNuvStringCore(word, Text("abc"), nullptr), 0);
}

}  // namespace
