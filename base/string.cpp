/// \file NuvString: its constructors, concatenation, comparison and lazy conversion of its forms.
#include <nuv/string.h>
#include <nuv/unistring.h>

#include <cstring>

#include "core/assert_at.h"

namespace {

constexpr unsigned kUnitBytes = sizeof(unsigned short);
// A unit never needs more than three bytes of UTF-8.
constexpr unsigned kMaxBytesPerUnit = 3;

char* NewUtf8(NuvMempool* pool, unsigned bytes) {
  return static_cast<char*>(pool->Malloc(bytes, NuvMempool::nuv));
}

unsigned short* NewWide(NuvMempool* pool, unsigned units) {
  return static_cast<unsigned short*>(pool->Malloc(units * kUnitBytes, NuvMempool::nuv));
}

// A null text reads as the empty text, in every form.
const char* TextOf(const char* s) { return s != nullptr ? s : ""; }

const unsigned short* TextOf(const unsigned short* s) {
  static const unsigned short kNoUnits[1] = {0};
  return s != nullptr ? s : kNoUnits;
}

const char* TextOf(NuvString* s) { return s != nullptr ? s->Utf8() : ""; }

char* CopyUtf8(NuvMempool* pool, const char* s) {
  const size_t bytes = strlen(s) + 1;
  char* copy = NewUtf8(pool, static_cast<unsigned>(bytes));
  memcpy(copy, s, bytes);
  return copy;
}

// Frees form, when present, and forgets it.
template <typename Unit>
void DropForm(NuvMempool* pool, Unit*& form) {
  if (form != nullptr) {
    pool->Free(form);
    form = nullptr;
  }
}

}  // namespace

NuvString::NuvString(const char* s)
    : NuvCore(NuvMempool::nuv), utf8M(CopyUtf8(GetPool(), TextOf(s))) {}

NuvString::NuvString(char* s, bool adopt) : NuvCore(NuvMempool::nuv) {
  NUV_ASSERT_AT(adopt, 101, "NuvString");
  utf8M = s;
}

NuvString::NuvString(const unsigned short* s)
    : NuvCore(NuvMempool::nuv),
      wideM(unistrcpy(NewWide(GetPool(), unistrlen(TextOf(s)) + 1), TextOf(s))) {}

NuvString::NuvString(unsigned short* s, bool adopt) : NuvCore(NuvMempool::nuv) {
  NUV_ASSERT_AT(adopt, 102, "NuvString");
  wideM = s;
}

NuvString::NuvString(const unsigned short* s, unsigned n)
    : NuvCore(NuvMempool::nuv), wideM(unistrncpy(NewWide(GetPool(), n + 1), TextOf(s), n)) {
  wideM[n] = 0;
}

NuvString::NuvString(NuvString* other)
    : NuvCore(NuvMempool::nuv), utf8M(CopyUtf8(GetPool(), TextOf(other))) {}

NuvString::~NuvString() {
  DropForm(GetPool(), wideM);
  DropForm(GetPool(), utf8M);
}

void NuvString::Append(NuvString* other) { Append(TextOf(other)); }

void NuvString::Append(const char* s) {
  const char* text = TextOf(s);
  const unsigned bytes = Utf8Length() + static_cast<unsigned>(strlen(text)) + 1;
  // text is copied before any form is freed, so it may be this string's own text.
  char* joined = NewUtf8(GetPool(), bytes);
  strcpy(joined, Utf8());  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): sized above
  strcat(joined, text);    // NOLINT(clang-analyzer-security.insecureAPI.strcpy): sized above
  DropForm(GetPool(), utf8M);
  DropForm(GetPool(), wideM);
  utf8M = joined;
}

void NuvString::Append(const unsigned short* s) {
  const unsigned short* units = TextOf(s);
  unsigned short* joined = NewWide(GetPool(), Length() + unistrlen(units) + 1);
  unistrcat(unistrcpy(joined, String()), units);
  DropForm(GetPool(), utf8M);
  DropForm(GetPool(), wideM);
  wideM = joined;
}

bool NuvString::FEqual(NuvString* other) { return strcmp(Utf8(), TextOf(other)) == 0; }

const unsigned short* NuvString::String() {
  if (wideM == nullptr) {
    NUV_ASSERT_AT(utf8M != nullptr, 120, "String");
    // unicode_from_utf8 never writes more units than the text has bytes.
    wideM = NewWide(GetPool(), static_cast<unsigned>(strlen(utf8M)) + 1);
    unicode_from_utf8(wideM, utf8M);
  }
  return wideM;
}

unsigned NuvString::Length() { return unistrlen(String()); }

const char* NuvString::Utf8() {
  if (utf8M == nullptr) {
    NUV_ASSERT_AT(wideM != nullptr, 121, "Utf8");
    utf8M = NewUtf8(GetPool(), unistrlen(wideM) * kMaxBytesPerUnit + 1);
    utf8_from_unicode(utf8M, wideM);
  }
  return utf8M;
}

unsigned NuvString::Utf8Length() { return static_cast<unsigned>(strlen(Utf8())); }
