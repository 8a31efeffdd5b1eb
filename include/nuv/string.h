/// \file NuvString and NuvStringList: pool strings with lazily converted UCS-2 and UTF-8 forms.
#ifndef NUV_STRING_H
#define NUV_STRING_H

#include <nuv/seed.h>

/// A reference-counted string (user "nuv") holding its text as UCS-2, UTF-8, or both. Both forms
/// live in the string's own pool and are freed with it. Not guarded: a string shared between
/// processes must not be appended to, or have a missing form created, while another reads it.
/// Wherever a text or another string is taken to be copied, appended or compared, a null one
/// reads as the empty text.
class NuvString : public NuvCore {
 public:
  /// Copies s as the UTF-8 form.
  explicit NuvString(const char* s);
  /// Adopts s, a block of the string's own pool, as the UTF-8 form; adopt must be true
  /// (assertion 101 of "NuvString").
  NuvString(char* s, bool adopt);
  /// Copies s as the wide form.
  explicit NuvString(const unsigned short* s);
  /// Adopts s, a block of the string's own pool, as the wide form; adopt must be true
  /// (assertion 102 of "NuvString").
  NuvString(unsigned short* s, bool adopt);
  /// Copies at most n units of s into n + 1 units, the last always a zero unit.
  NuvString(const unsigned short* s, unsigned n);
  /// Copies the UTF-8 form of other (creating it in other first when absent).
  explicit NuvString(NuvString* other);
  /// Frees the wide form, then the UTF-8 form.
  ~NuvString() override;
  NuvString(const NuvString&) = delete;
  NuvString& operator=(const NuvString&) = delete;
  NuvString(NuvString&&) = delete;
  NuvString& operator=(NuvString&&) = delete;

  /// printf-style formatting into a new string of pool, sized by the library's own estimate of
  /// the format (see docs/design.md). A result that does not fit the estimate stops at
  /// assertion 110 of "Format". The estimate counts the arguments of %d, %i, %x and %s only:
  /// keep %s arguments ahead of every other conversion that takes one (%c, %u, %f, ...).
  static ref<NuvString> Format(NuvMempool* pool, const char* fmt, ...)
      __attribute__((format(printf, 2, 3)));

  /// UTF-8 concatenation; afterwards the UTF-8 form is the only one.
  void Append(NuvString* other);
  void Append(const char* s);
  /// Wide concatenation; afterwards the wide form is the only one.
  void Append(const unsigned short* s);

  /// Byte-wise equality of the UTF-8 forms.
  bool FEqual(NuvString* other);

  /// The wide form, created from the UTF-8 form when absent (which is kept).
  const unsigned short* String();
  /// Length in 16-bit units (creates the wide form).
  unsigned Length();
  /// The UTF-8 form, created from the wide form when absent (which is kept).
  const char* Utf8();
  /// Length in bytes of the UTF-8 form (creates it).
  unsigned Utf8Length();

 private:
  friend struct NuvBaseLayout;

  unsigned short* wideM = nullptr;
  char* utf8M = nullptr;
};

/// An ordered list of counted string references (user "nuv"), growing by doubling from 10 slots.
/// Duplicates are allowed. Iteration: Start / FCurrent / Current / Next over one cursor.
class NuvStringList : public NuvCore {
 public:
  NuvStringList();
  /// Drops every element's reference, then frees the slots.
  ~NuvStringList() override;
  NuvStringList(const NuvStringList&) = delete;
  NuvStringList& operator=(const NuvStringList&) = delete;
  NuvStringList(NuvStringList&&) = delete;
  NuvStringList& operator=(NuvStringList&&) = delete;

  /// Appends s, taking one reference; null stops at assertion 130 of "Add".
  void Add(NuvString* s);
  /// Whether an element is FEqual to s.
  bool FContains(NuvString* s);
  /// Removes the elements FEqual to s, scanning from the front. An element that slides into the
  /// index just freed is not examined, so of two equal neighbours one call removes the first.
  /// The cursor is not adjusted.
  void Remove(NuvString* s);

  void Start();
  bool FCurrent() const;
  /// Stops at assertion 131 of "Next" at the end.
  void Next();
  /// The element at the cursor with a new reference; stops at assertion 132 of "Current" when
  /// the cursor is outside the list (before Start, or at the end).
  ref<NuvString> Current();

  /// Sorts by 16-bit unit order (creates wide forms); not stable.
  void Sort();
  int Length() const;
  /// Element i with a new reference; stops at assertion 133 of "Index" outside 0 <= i < Length().
  ref<NuvString> Index(int i);

 private:
  friend struct NuvBaseLayout;

  NuvString** itemsM;
  int countM = 0;
  int capacityM;
  int cursorM = -1;
};

#endif  // NUV_STRING_H
