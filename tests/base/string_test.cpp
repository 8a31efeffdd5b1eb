/// \file NuvString: its constructors, which forms it holds and when it converts, concatenation,
/// equality, its assertions, and the pool blocks it gives back.
#include <nuv/string.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "support/fatal_report.h"
#include "support/private_pool.h"
#include "support/raw_words.h"
#include "support/wide_text.h"

namespace {

using nuv::test::BlockPayload;
using nuv::test::ExpectLibraryAssertion;
using nuv::test::InUse;
using nuv::test::RunToFatalReport;
using nuv::test::UnitsOf;
using nuv::test::Wide;
using nuv::test::WordAt;

// Where the string keeps its forms, as every process that maps the pool reads them.
constexpr unsigned kWideOffset = 12;
constexpr unsigned kUtf8Offset = 16;

bool HasWide(const NuvString* s) {
  return WordAt(reinterpret_cast<const char*>(s) + kWideOffset) != 0;
}
bool HasUtf8(const NuvString* s) {
  return WordAt(reinterpret_cast<const char*>(s) + kUtf8Offset) != 0;
}

class String : public nuv::test::PrivatePoolTest {
 protected:
  ref<NuvString> Utf8String(const char* text) const { return new (Pool()) NuvString(text); }
  ref<NuvString> WideString(std::u16string_view text) const {
    const std::vector<unsigned short> units = Wide(text);
    return new (Pool()) NuvString(static_cast<const unsigned short*>(units.data()));
  }
  char* PoolCopy(const char* text) const {
    auto* copy = static_cast<char*>(Pool()->Malloc(strlen(text) + 1, NuvMempool::nuv));
    strcpy(copy, text);  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): sized above
    return copy;
  }
  unsigned short* PoolCopy(std::u16string_view text) const {
    const std::vector<unsigned short> units = Wide(text);
    auto* copy = static_cast<unsigned short*>(
        Pool()->Malloc(units.size() * sizeof(unsigned short), NuvMempool::nuv));
    memcpy(copy, units.data(), units.size() * sizeof(unsigned short));
    return copy;
  }
};

TEST_F(String, FromUtf8CopiesTheTextIntoItsOnlyForm) {
  char text[] = "caf\xc3\xa9";
  const unsigned before = NuvBytes();
  const ref<NuvString> s = Utf8String(text);
  text[0] = 'C';
  EXPECT_STREQ(s->Utf8(), "caf\xc3\xa9");
  EXPECT_TRUE(HasUtf8(s.get()));
  EXPECT_FALSE(HasWide(s.get()));
  EXPECT_EQ(NuvBytes() - before, sizeof(NuvString) + BlockPayload(sizeof text));
  EXPECT_EQ(s->GetRefCount(), 1U);
}

TEST_F(String, AdoptingUtf8KeepsTheBufferItselfAndFreesItWithTheString) {
  {
    char* buffer = PoolCopy("adopted");
    const ref<NuvString> s = new (Pool()) NuvString(buffer, true);
    EXPECT_EQ(s->Utf8(), buffer);
    EXPECT_FALSE(HasWide(s.get()));
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(String, FromWideCopiesTheUnitsIntoItsOnlyForm) {
  std::vector<unsigned short> units = Wide(u"a\u20ac");
  const unsigned before = NuvBytes();
  const ref<NuvString> s = new (Pool()) NuvString(static_cast<const unsigned short*>(units.data()));
  units[0] = 'b';
  EXPECT_EQ(UnitsOf(s->String()), u"a\u20ac");
  EXPECT_TRUE(HasWide(s.get()));
  EXPECT_FALSE(HasUtf8(s.get()));
  EXPECT_EQ(NuvBytes() - before, sizeof(NuvString) + BlockPayload(3 * sizeof(unsigned short)));
}

TEST_F(String, AdoptingWideKeepsTheBufferItselfAndFreesItWithTheString) {
  {
    unsigned short* buffer = PoolCopy(u"\u00e9t\u00e9");
    const ref<NuvString> s = new (Pool()) NuvString(buffer, true);
    EXPECT_EQ(s->String(), buffer);
    EXPECT_FALSE(HasUtf8(s.get()));
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(String, FromWidePrefixCopiesAtMostNUnits) {
  const std::vector<unsigned short> units = Wide(u"abcdef");
  const ref<NuvString> s = new (Pool()) NuvString(units.data(), 3U);
  EXPECT_EQ(UnitsOf(s->String()), u"abc");
  EXPECT_FALSE(HasUtf8(s.get()));
}

TEST_F(String, FromWidePrefixLongerThanTheTextPadsAndTerminatesAtN) {
  const std::vector<unsigned short> units = Wide(u"ab");
  const ref<NuvString> s = new (Pool()) NuvString(units.data(), 6U);
  const unsigned short* wide = s->String();
  EXPECT_EQ(std::vector<unsigned short>(wide, wide + 7),
            (std::vector<unsigned short>{'a', 'b', 0, 0, 0, 0, 0}));
  EXPECT_EQ(s->Length(), 2U);
}

TEST_F(String, CopyOfAWideOnlyStringCreatesTheOthersUtf8Form) {
  const ref<NuvString> other = WideString(u"x\u00e9");
  const ref<NuvString> copy = new (Pool()) NuvString(other.get());
  EXPECT_TRUE(HasUtf8(other.get()));
  EXPECT_TRUE(HasWide(other.get()));
  EXPECT_STREQ(copy->Utf8(), "x\xc3\xa9");
  EXPECT_NE(copy->Utf8(), other->Utf8());
  EXPECT_FALSE(HasWide(copy.get()));
}

TEST_F(String, LengthThenUtf8KeepsTheSameUtf8Form) {
  const ref<NuvString> s = Utf8String("na\xc3\xafve");
  const char* utf8 = s->Utf8();
  EXPECT_EQ(s->Length(), 5U);
  EXPECT_TRUE(HasWide(s.get()));
  EXPECT_EQ(s->Utf8(), utf8);
}

TEST_F(String, Utf8OfAWideOnlyStringKeepsTheWideForm) {
  const ref<NuvString> s = WideString(u"\u20ac1");
  const unsigned short* wide = s->String();
  EXPECT_STREQ(s->Utf8(),
               "\xe2\x82\xac"
               "1");
  EXPECT_EQ(s->String(), wide);
}

TEST_F(String, ConversionsHappenOnceAndOnlyWhenAsked) {
  const ref<NuvString> s = Utf8String("abc");
  const unsigned blocks = NuvBlocks();
  s->Utf8();
  EXPECT_EQ(NuvBlocks(), blocks);
  s->Length();
  s->String();
  s->Utf8Length();
  EXPECT_EQ(NuvBlocks(), blocks + 1);
}

TEST_F(String, LengthCountsUnitsAndUtf8LengthCountsBytes) {
  const ref<NuvString> s = Utf8String("a\xc3\xa9\xe2\x82\xac");
  EXPECT_EQ(s->Length(), 3U);
  EXPECT_EQ(s->Utf8Length(), 6U);
  const ref<NuvString> w = WideString(u"\u00e9\u00e9");
  EXPECT_EQ(w->Utf8Length(), 4U);
  EXPECT_EQ(w->Length(), 2U);
}

TEST_F(String, MalformedUtf8ReadsAsReplacementCharacters) {
  const ref<NuvString> s = Utf8String(
      "a\xff"
      "b");
  EXPECT_EQ(UnitsOf(s->String()), u"a\ufffdb");
}

TEST_F(String, AppendingAStringLeavesOnlyTheUtf8Form) {
  const ref<NuvString> s = WideString(u"ab");
  const ref<NuvString> tail = WideString(u"\u00e9");
  s->Append(tail.get());
  EXPECT_FALSE(HasWide(s.get()));
  EXPECT_STREQ(s->Utf8(), "ab\xc3\xa9");
  EXPECT_STREQ(tail->Utf8(), "\xc3\xa9");
}

TEST_F(String, AppendingAStringToItselfDoublesIt) {
  const ref<NuvString> s = Utf8String("ab");
  s->Append(s.get());
  EXPECT_STREQ(s->Utf8(), "abab");
}

TEST_F(String, AppendingUtf8TextLeavesOnlyTheUtf8Form) {
  const ref<NuvString> s = Utf8String("x");
  s->String();
  s->Append("y\xc3\xa9");
  EXPECT_FALSE(HasWide(s.get()));
  EXPECT_STREQ(s->Utf8(), "xy\xc3\xa9");
}

TEST_F(String, AppendingEmptyUtf8TextToAWideOnlyStringLeavesOnlyAUtf8Form) {
  const ref<NuvString> s = WideString(u"w\u00e9");
  const unsigned blocks = NuvBlocks();
  s->Append("");
  EXPECT_EQ(NuvBlocks(), blocks);
  EXPECT_FALSE(HasWide(s.get()));
  EXPECT_STREQ(s->Utf8(), "w\xc3\xa9");
  s->String();
  EXPECT_EQ(NuvBlocks(), blocks + 1);
}

TEST_F(String, AppendingWideTextLeavesOnlyTheWideForm) {
  const ref<NuvString> s = Utf8String("\xc3\xa9");
  s->Utf8();
  s->Append(Wide(u"\u20ac!").data());
  EXPECT_FALSE(HasUtf8(s.get()));
  EXPECT_EQ(UnitsOf(s->String()), u"\u00e9\u20ac!");
  EXPECT_STREQ(s->Utf8(), "\xc3\xa9\xe2\x82\xac!");
}

TEST_F(String, EqualityComparesTheUtf8BytesWhateverTheForms) {
  const ref<NuvString> utf8 = Utf8String("\xc3\xa9t\xc3\xa9");
  EXPECT_TRUE(utf8->FEqual(WideString(u"\u00e9t\u00e9").get()));
  EXPECT_TRUE(utf8->FEqual(utf8.get()));
  EXPECT_FALSE(utf8->FEqual(Utf8String("\xc3\xa9t").get()));
  // The same letter, decomposed: other bytes, so not equal.
  EXPECT_FALSE(utf8->FEqual(WideString(u"e\u0301t\u00e9").get()));
}

TEST_F(String, ReleasingGivesBackEveryFormAndAppendedBuffer) {
  {
    const ref<NuvString> s = Utf8String("one");
    const ref<NuvString> w = WideString(u"two");
    s->Length();
    w->Utf8();
    s->Append(w.get());
    s->Append(Wide(u"three").data());
    s->Utf8();
    w->Append("four");
    const ref<NuvString> copy = new (Pool()) NuvString(s.get());
    EXPECT_STREQ(copy->Utf8(), "onetwothree");
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(String, AdoptingUtf8WithoutAdoptFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvString> s = new (Pool()) NuvString(PoolCopy("x"), false);
                         }),
                         "NuvString", 101);
}

TEST_F(String, AdoptingWideWithoutAdoptFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvString> s = new (Pool()) NuvString(PoolCopy(u"x"), false);
                         }),
                         "NuvString", 102);
}

TEST_F(String, WideFormOfAStringWithNoFormFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvString> s =
                               new (Pool()) NuvString(static_cast<char*>(nullptr), true);
                           s->String();
                         }),
                         "String", 120);
}

TEST_F(String, Utf8FormOfAStringWithNoFormFailsItsAssertion) {
  ExpectLibraryAssertion(RunToFatalReport([&] {
                           const ref<NuvString> s =
                               new (Pool()) NuvString(static_cast<unsigned short*>(nullptr), true);
                           s->Utf8();
                         }),
                         "Utf8", 121);
}

TEST_F(String, NullUtf8TextMakesAnEmptyString) {
  const ref<NuvString> s = new (Pool()) NuvString(static_cast<const char*>(nullptr));
  EXPECT_STREQ(s->Utf8(), "");
  EXPECT_EQ(s->Length(), 0U);
}

TEST_F(String, NullWideTextMakesAnEmptyString) {
  const ref<NuvString> s = new (Pool()) NuvString(static_cast<const unsigned short*>(nullptr));
  EXPECT_EQ(UnitsOf(s->String()), u"");
  EXPECT_STREQ(s->Utf8(), "");
}

TEST_F(String, NullWidePrefixGivesZeroUnitsUpToN) {
  const ref<NuvString> s = new (Pool()) NuvString(static_cast<const unsigned short*>(nullptr), 3U);
  EXPECT_EQ(s->Length(), 0U);
}

TEST_F(String, CopyOfANullStringIsEmpty) {
  const ref<NuvString> s = new (Pool()) NuvString(static_cast<NuvString*>(nullptr));
  EXPECT_STREQ(s->Utf8(), "");
}

TEST_F(String, AppendingNullChangesNoText) {
  const ref<NuvString> s = Utf8String("kept");
  s->Append(static_cast<const char*>(nullptr));
  s->Append(static_cast<NuvString*>(nullptr));
  EXPECT_STREQ(s->Utf8(), "kept");
  s->Append(static_cast<const unsigned short*>(nullptr));
  EXPECT_STREQ(s->Utf8(), "kept");
}

TEST_F(String, EqualityWithANullStringHoldsForTheEmptyStringOnly) {
  EXPECT_TRUE(Utf8String("")->FEqual(nullptr));
  EXPECT_FALSE(Utf8String("text")->FEqual(nullptr));
}

}  // namespace
