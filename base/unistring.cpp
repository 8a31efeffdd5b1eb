/// \file The 16-bit string helpers: UCS-2 copies and comparison, and UTF-8 conversion both ways.
#include <nuv/unistring.h>

namespace {

constexpr unsigned short kReplacement = 0xfffd;

// Byte classes of UTF-8.
constexpr unsigned kContinuationMask = 0xc0;
constexpr unsigned kContinuationTag = 0x80;
constexpr unsigned kPayloadMask = 0x3f;

bool IsContinuation(unsigned byte) { return (byte & kContinuationMask) == kContinuationTag; }

bool InRange(unsigned byte, unsigned low, unsigned high) { return low <= byte && byte <= high; }

// The range of the second byte of a well-formed sequence led by lead, which rules out overlong
// forms (E0, F0), encoded surrogates (ED) and characters beyond U+10FFFF (F4).
void SecondByteRange(unsigned lead, unsigned& low, unsigned& high) {
  low = 0x80;
  high = 0xbf;
  if (lead == 0xe0) {
    low = 0xa0;
  } else if (lead == 0xed) {
    high = 0x9f;
  } else if (lead == 0xf0) {
    low = 0x90;
  } else if (lead == 0xf4) {
    high = 0x8f;
  }
}

// Length of the sequence that lead starts, 0 when lead cannot start one (a continuation byte,
// C0, C1, F5 to FF).
unsigned SequenceLength(unsigned lead) {
  if (lead < 0x80) {
    return 1;
  }
  if (InRange(lead, 0xc2, 0xdf)) {
    return 2;
  }
  if (InRange(lead, 0xe0, 0xef)) {
    return 3;
  }
  if (InRange(lead, 0xf0, 0xf4)) {
    return 4;
  }
  return 0;
}

// Whether the length bytes at s form a well-formed sequence. The bytes are checked in order and
// the first one that is not a continuation stops the check, so the terminating NUL is never
// passed.
bool WellFormed(const unsigned char* s, unsigned length) {
  if (length > 1) {
    unsigned low = 0;
    unsigned high = 0;
    SecondByteRange(s[0], low, high);
    if (!InRange(s[1], low, high)) {
      return false;
    }
  }
  for (unsigned i = 2; i < length; ++i) {
    if (!IsContinuation(s[i])) {
      return false;
    }
  }
  return true;
}

// The unit of a well-formed sequence of 1 to 3 bytes.
unsigned short DecodeSequence(const unsigned char* s, unsigned length) {
  static constexpr unsigned kLeadMask[] = {0, 0x7f, 0x1f, 0x0f};
  unsigned unit = s[0] & kLeadMask[length];
  for (unsigned i = 1; i < length; ++i) {
    unit = (unit << 6) | (s[i] & kPayloadMask);
  }
  return static_cast<unsigned short>(unit);
}

bool IsSurrogate(unsigned unit) { return InRange(unit, 0xd800, 0xdfff); }

}  // namespace

unsigned unistrlen(const unsigned short* s) {
  unsigned n = 0;
  while (s[n] != 0) {
    ++n;
  }
  return n;
}

unsigned short* unistrcpy(unsigned short* d, const unsigned short* s) {
  unsigned i = 0;
  do {
    d[i] = s[i];
  } while (s[i++] != 0);
  return d;
}

unsigned short* unistrncpy(unsigned short* d, const unsigned short* s, unsigned n) {
  unsigned i = 0;
  for (; i < n && s[i] != 0; ++i) {
    d[i] = s[i];
  }
  for (; i < n; ++i) {
    d[i] = 0;
  }
  return d;
}

unsigned short* unistrcat(unsigned short* d, const unsigned short* s) {
  unistrcpy(d + unistrlen(d), s);
  return d;
}

int unistrcmp(const unsigned short* a, const unsigned short* b) {
  unsigned i = 0;
  while (a[i] != 0 && a[i] == b[i]) {
    ++i;
  }
  return static_cast<int>(a[i]) - static_cast<int>(b[i]);
}

unsigned unicode_from_utf8(unsigned short* d, const char* s) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(s);
  unsigned n = 0;
  while (*bytes != 0) {
    const unsigned length = SequenceLength(*bytes);
    if (length == 0 || !WellFormed(bytes, length)) {
      // Each byte that starts no well-formed sequence stands for one replacement character.
      d[n++] = kReplacement;
      ++bytes;
    } else {
      // Characters beyond the 16-bit range are not represented: one replacement for all four.
      d[n++] = length == 4 ? kReplacement : DecodeSequence(bytes, length);
      bytes += length;
    }
  }
  d[n] = 0;
  return n;
}

unsigned utf8_from_unicode(char* d, const unsigned short* s) {
  auto* bytes = reinterpret_cast<unsigned char*>(d);
  unsigned n = 0;
  for (; *s != 0; ++s) {
    const unsigned unit = IsSurrogate(*s) ? kReplacement : *s;
    if (unit < 0x80) {
      bytes[n++] = static_cast<unsigned char>(unit);
    } else if (unit < 0x800) {
      bytes[n++] = static_cast<unsigned char>(0xc0 | (unit >> 6));
      bytes[n++] = static_cast<unsigned char>(kContinuationTag | (unit & kPayloadMask));
    } else {
      bytes[n++] = static_cast<unsigned char>(0xe0 | (unit >> 12));
      bytes[n++] = static_cast<unsigned char>(kContinuationTag | ((unit >> 6) & kPayloadMask));
      bytes[n++] = static_cast<unsigned char>(kContinuationTag | (unit & kPayloadMask));
    }
  }
  bytes[n] = 0;
  return n;
}
