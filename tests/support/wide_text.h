/// \file The library's 16-bit strings (zero-terminated unsigned short units) in tests.
#ifndef NUV_TESTS_SUPPORT_WIDE_TEXT_H
#define NUV_TESTS_SUPPORT_WIDE_TEXT_H

#include <string>
#include <string_view>
#include <vector>

namespace nuv::test {

/// text as zero-terminated units, ready to pass where the library takes a 16-bit string.
inline std::vector<unsigned short> Wide(std::u16string_view text) {
  std::vector<unsigned short> units(text.begin(), text.end());
  units.push_back(0);
  return units;
}

/// The units of s before its zero unit, printable in test failures.
inline std::u16string UnitsOf(const unsigned short* s) {
  std::u16string units;
  for (; *s != 0; ++s) {
    units.push_back(static_cast<char16_t>(*s));
  }
  return units;
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_WIDE_TEXT_H
