/// \file The 16-bit string helpers: copies, comparison, and UTF-8 conversion checked against the
/// C library's iconv and against malformed input in buffers of exactly the contracted size.
#include <nuv/unistring.h>

#include <gtest/gtest.h>

#include <iconv.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/wide_text.h"

namespace {

using nuv::test::UnitsOf;
using nuv::test::Wide;

constexpr unsigned short kFill = 0xaaaa;
constexpr char16_t kReplacement = 0xfffd;

// s copied into a heap block of exactly strlen(s) + 1 bytes, so that reading past its NUL is
// an overrun that AddressSanitizer reports.
std::unique_ptr<char[]> ExactBytes(const std::string& s) {
  auto copy = std::make_unique<char[]>(s.size() + 1);
  memcpy(copy.get(), s.c_str(), s.size() + 1);
  return copy;
}

// Decodes s into a heap block of exactly strlen(s) + 1 units, the size NuvString gives it.
std::u16string Decode(const std::string& s, unsigned* written = nullptr) {
  const std::unique_ptr<char[]> source = ExactBytes(s);
  auto units = std::make_unique<unsigned short[]>(s.size() + 1);
  const unsigned n = unicode_from_utf8(units.get(), source.get());
  if (written != nullptr) {
    *written = n;
  }
  EXPECT_EQ(units[n], 0U);
  return UnitsOf(units.get());
}

// Encodes text into a heap block of exactly 3 bytes per unit plus the NUL, the size NuvString
// gives it.
std::string Encode(std::u16string_view text, unsigned* written = nullptr) {
  const std::vector<unsigned short> units = Wide(text);
  auto bytes = std::make_unique<char[]>(3 * text.size() + 1);
  const unsigned n = utf8_from_unicode(bytes.get(), units.data());
  if (written != nullptr) {
    *written = n;
  }
  EXPECT_EQ(bytes[n], '\0');
  return {bytes.get()};
}

TEST(Unistring, LengthCountsUnitsBeforeTheZeroUnit) {
  EXPECT_EQ(unistrlen(Wide(u"").data()), 0U);
  EXPECT_EQ(unistrlen(Wide(u"a\u00e9\u20ac").data()), 3U);
}

TEST(Unistring, CopyTakesTheZeroUnitAndReturnsTheDestination) {
  const std::vector<unsigned short> source = Wide(u"ab\u20ac");
  std::vector<unsigned short> d(6, kFill);
  EXPECT_EQ(unistrcpy(d.data(), source.data()), d.data());
  EXPECT_EQ(d, (std::vector<unsigned short>{'a', 'b', 0x20ac, 0, kFill, kFill}));
}

TEST(Unistring, BoundedCopyPadsWithZeroUnitsUpToTheBound) {
  const std::vector<unsigned short> source = Wide(u"ab");
  std::vector<unsigned short> d(6, kFill);
  EXPECT_EQ(unistrncpy(d.data(), source.data(), 5), d.data());
  EXPECT_EQ(d, (std::vector<unsigned short>{'a', 'b', 0, 0, 0, kFill}));
}

TEST(Unistring, BoundedCopyOfALongerTextLeavesTheDestinationUnterminated) {
  const std::vector<unsigned short> source = Wide(u"abcdef");
  std::vector<unsigned short> d(5, kFill);
  unistrncpy(d.data(), source.data(), 3);
  EXPECT_EQ(d, (std::vector<unsigned short>{'a', 'b', 'c', kFill, kFill}));
  unistrncpy(d.data(), source.data(), 0);
  EXPECT_EQ(d[0], 'a');
}

TEST(Unistring, ConcatenationAppendsWithTheZeroUnit) {
  std::vector<unsigned short> d(7, kFill);
  unistrcpy(d.data(), Wide(u"ab").data());
  EXPECT_EQ(unistrcat(d.data(), Wide(u"\u00e9c").data()), d.data());
  EXPECT_EQ(d, (std::vector<unsigned short>{'a', 'b', 0xe9, 'c', 0, kFill, kFill}));
  unistrcat(d.data(), Wide(u"").data());
  EXPECT_EQ(UnitsOf(d.data()), u"ab\u00e9c");
}

TEST(Unistring, ComparisonOrdersByUnsignedUnitValue) {
  EXPECT_GT(unistrcmp(Wide(u"\u8000").data(), Wide(u"A").data()), 0);
  EXPECT_LT(unistrcmp(Wide(u"A").data(), Wide(u"\u8000").data()), 0);
  EXPECT_GT(unistrcmp(Wide(u"\uffff").data(), Wide(u"\u7fff").data()), 0);
  EXPECT_EQ(unistrcmp(Wide(u"abc").data(), Wide(u"abc").data()), 0);
  EXPECT_LT(unistrcmp(Wide(u"ab").data(), Wide(u"abc").data()), 0);
  EXPECT_GT(unistrcmp(Wide(u"abc").data(), Wide(u"ab").data()), 0);
  EXPECT_EQ(unistrcmp(Wide(u"").data(), Wide(u"").data()), 0);
}

TEST(Utf8Decoding, WellFormedOneTwoAndThreeByteSequencesGiveTheirUnits) {
  unsigned written = 0;
  EXPECT_EQ(Decode("A\xc3\xa9\xe2\x82\xac", &written), u"A\u00e9\u20ac");
  EXPECT_EQ(written, 3U);
  EXPECT_EQ(Decode("\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf"),
            u"\u007f\u0080\u07ff\u0800\ud7ff\ue000\uffff");
  EXPECT_EQ(Decode("", &written), u"");
  EXPECT_EQ(written, 0U);
}

struct Malformed {
  const char* name;
  std::string bytes;
  std::u16string units;
};

TEST(Utf8Decoding, EachByteThatStartsNoWellFormedSequenceGivesOneReplacement) {
  const std::u16string r(1, kReplacement);
  const std::vector<Malformed> cases = {
      {"truncated two-byte at the end", "a\xc3", u"a" + r},
      {"truncated three-byte at the end", "\xe2\x82", r + r},
      {"truncated three-byte before text", "\xe2\x82z", r + r + u"z"},
      {"truncated four-byte", "\xf0\x9f\x98", r + r + r},
      {"stray continuation bytes", "\x80x\xbf", r + u"x" + r},
      {"overlong two-byte", "\xc0\xaf\xc1\xbf", r + r + r + r},
      {"overlong three-byte", "\xe0\x80\xaf\xe0\x9f\xbf", r + r + r + r + r + r},
      {"overlong four-byte", "\xf0\x80\x80\x80", r + r + r + r},
      {"encoded high surrogate", "\xed\xa0\x80", r + r + r},
      {"encoded low surrogate", "\xed\xbf\xbf", r + r + r},
      {"bytes F5 to FF", "\xf5\xf8\xfe\xff", r + r + r + r},
      {"four-byte beyond U+10FFFF", "\xf4\x90\x80\x80", r + r + r + r},
      {"lead byte before a lead byte", "\xc3\xc3\xa9", r + u"\u00e9"},
  };
  for (const Malformed& c : cases) {
    EXPECT_EQ(Decode(c.bytes), c.units) << c.name;
  }
}

TEST(Utf8Decoding, AWellFormedFourByteSequenceGivesOneReplacementForAllItsBytes) {
  const std::u16string r(1, kReplacement);
  unsigned written = 0;
  EXPECT_EQ(Decode("\xf0\x9f\x98\x80", &written), r);
  EXPECT_EQ(written, 1U);
  EXPECT_EQ(Decode("a\xf4\x8f\xbf\xbf"
                   "b\xf0\x90\x80\x80"),
            u"a" + r + u"b" + r);
}

TEST(Utf8Decoding, RandomBytesNeverNeedMoreUnitsThanBytes) {
  std::mt19937 generator(20240611);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes(generator() % 16, '\0');
    for (char& byte : bytes) {
      // Bytes 1 to 255, weighted towards the lead and continuation bytes of UTF-8.
      const unsigned draw = generator() % 4 == 0 ? 1 + generator() % 127 : 0x80 + generator() % 128;
      byte = static_cast<char>(draw);
    }
    unsigned written = 0;
    Decode(bytes, &written);
    EXPECT_LE(written, bytes.size()) << "round " << round;
  }
}

TEST(Utf8Encoding, UnitsTakeOneTwoOrThreeBytes) {
  unsigned written = 0;
  EXPECT_EQ(Encode(u"\u0001\u007f", &written), "\x01\x7f");
  EXPECT_EQ(written, 2U);
  EXPECT_EQ(Encode(u"\u0080\u07ff", &written), "\xc2\x80\xdf\xbf");
  EXPECT_EQ(written, 4U);
  EXPECT_EQ(Encode(u"\u0800\u20ac\uffff", &written), "\xe0\xa0\x80\xe2\x82\xac\xef\xbf\xbf");
  EXPECT_EQ(written, 9U);
  EXPECT_EQ(Encode(u"", &written), "");
  EXPECT_EQ(written, 0U);
}

TEST(Utf8Encoding, SurrogateUnitsLoneOrPairedEncodeAsReplacement) {
  const std::string r = "\xef\xbf\xbd";
  const std::u16string lone = {0xd800, 'a', 0xdfff};
  const std::u16string pair = {0xd83d, 0xde00};
  const std::u16string highEnd = {0xdbff, 0xdc00, 'z'};
  unsigned written = 0;
  EXPECT_EQ(Encode(lone, &written), r + "a" + r);
  EXPECT_EQ(written, 7U);
  EXPECT_EQ(Encode(pair, &written), r + r);
  EXPECT_EQ(written, 6U);
  EXPECT_EQ(Encode(highEnd), r + r + "z");
}

// Converts with the C library's iconv from one encoding to another; fails the test when iconv
// refuses.
std::string Iconv(const char* to, const char* from, const std::string& input) {
  iconv_t converter = iconv_open(to, from);
  EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1))
      << from << " to " << to << ": " << strerror(errno);
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    return "";
  }
  std::string in = input;
  std::string out(3 * input.size() + 4, '\0');
  char* inPointer = in.data();
  size_t inLeft = in.size();
  char* outPointer = out.data();
  size_t outLeft = out.size();
  const size_t result = iconv(converter, &inPointer, &inLeft, &outPointer, &outLeft);
  EXPECT_NE(result, static_cast<size_t>(-1)) << strerror(errno);
  EXPECT_EQ(inLeft, 0U);
  iconv_close(converter);
  out.resize(out.size() - outLeft);
  return out;
}

// UCS-2 in this target's byte order, named explicitly so that iconv writes no byte-order mark.
constexpr const char* kNativeUcs2 = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? "UCS-2BE" : "UCS-2LE";

std::string NativeBytes(const std::u16string& units) {
  std::string bytes(2 * units.size(), '\0');
  memcpy(bytes.data(), units.data(), bytes.size());
  return bytes;
}

std::u16string NativeUnits(const std::string& bytes) {
  std::u16string units(bytes.size() / 2, u'\0');
  memcpy(units.data(), bytes.data(), 2 * units.size());
  return units;
}

// A character of the Basic Multilingual Plane, no surrogate, none zero; lengths 1, 2 and 3 in
// UTF-8 about equally often.
char16_t RandomUnit(std::mt19937& generator) {
  switch (generator() % 3) {
    case 0:
      return static_cast<char16_t>(1 + generator() % 0x7f);
    case 1:
      return static_cast<char16_t>(0x80 + generator() % (0x800 - 0x80));
    default: {
      const unsigned unit = 0x800 + generator() % (0x10000 - 0x800 - 0x800);
      return static_cast<char16_t>(unit < 0xd800 ? unit : unit + 0x800);
    }
  }
}

TEST(Utf8Conversion, AgreesWithIconvOnGeneratedTextOfTheBasicPlane) {
  std::mt19937 generator(5150);
  for (int round = 0; round < 400; ++round) {
    std::u16string text(generator() % 40, u'\0');
    for (char16_t& unit : text) {
      unit = RandomUnit(generator);
    }
    const std::string utf8 = Iconv("UTF-8", kNativeUcs2, NativeBytes(text));
    EXPECT_EQ(Encode(text), utf8) << "round " << round;
    EXPECT_EQ(Decode(utf8), text) << "round " << round;
    EXPECT_EQ(NativeUnits(Iconv(kNativeUcs2, "UTF-8", Encode(text))), text) << "round " << round;
  }
}

}  // namespace
