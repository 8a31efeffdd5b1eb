/// \file The 16-bit string helpers: UCS-2 strings of unsigned short units, zero-terminated, and
/// their conversion to and from UTF-8.
#ifndef NUV_UNISTRING_H
#define NUV_UNISTRING_H

extern "C" {

/// Number of units before the zero unit.
unsigned unistrlen(const unsigned short* s);
/// Copies s with its zero unit into d; returns d.
unsigned short* unistrcpy(unsigned short* d, const unsigned short* s);
/// Copies at most n units of s into d, padding with zero units up to n when s is shorter, like
/// strncpy: d is not terminated when s has n units or more. Returns d.
unsigned short* unistrncpy(unsigned short* d, const unsigned short* s, unsigned n);
/// Appends s with its zero unit to d; returns d.
unsigned short* unistrcat(unsigned short* d, const unsigned short* s);
/// Three-way comparison by unsigned unit value, like strcmp.
int unistrcmp(const unsigned short* a, const unsigned short* b);
/// Decodes zero-terminated UTF-8 s into d and terminates d; returns the units written before the
/// zero unit. Never writes more units than s has bytes, plus the zero unit. Whatever is not a
/// well-formed character of the 16-bit range decodes to U+FFFD (see docs/design.md).
unsigned unicode_from_utf8(unsigned short* d, const char* s);
/// Encodes zero-terminated UCS-2 s as UTF-8 into d and terminates d; returns the bytes written
/// before the NUL. Never needs more than 3 bytes per unit, plus the NUL. Surrogate units encode
/// as U+FFFD.
unsigned utf8_from_unicode(char* d, const unsigned short* s);

}  // extern "C"

#endif  // NUV_UNISTRING_H
