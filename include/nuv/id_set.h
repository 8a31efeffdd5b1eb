/// \file NuvIdSet: a set of unsigned long identifiers, newest first.
#ifndef NUV_ID_SET_H
#define NUV_ID_SET_H

#include <nuv/seed.h>

/// One identifier of a set (user "nuv"), allocated in the set's pool.
class NuvIdSetElem : public NuvCore {
 public:
  explicit NuvIdSetElem(unsigned long id);
  /// Drops next.
  ~NuvIdSetElem() override = default;
  NuvIdSetElem(const NuvIdSetElem&) = delete;
  NuvIdSetElem& operator=(const NuvIdSetElem&) = delete;
  NuvIdSetElem(NuvIdSetElem&&) = delete;
  NuvIdSetElem& operator=(NuvIdSetElem&&) = delete;

 private:
  friend class NuvIdSet;
  friend struct NuvBaseLayout;

  unsigned long idM;
  ref<NuvIdSetElem> nextM;
};

/// A reference-counted set of identifiers (user "nuv") kept as a list, most recently added
/// first; lookups are linear. The cursor is left alone by Add and Remove: a cursor standing on a
/// removed identifier keeps it and can still step on from it.
class NuvIdSet : public NuvCore {
 public:
  NuvIdSet();
  /// Drops the cursor, then the elements.
  ~NuvIdSet() override;
  NuvIdSet(const NuvIdSet&) = delete;
  NuvIdSet& operator=(const NuvIdSet&) = delete;
  NuvIdSet(NuvIdSet&&) = delete;
  NuvIdSet& operator=(NuvIdSet&&) = delete;

  /// Puts id at the front unless it is present.
  void Add(unsigned long id);
  /// Removes id; nothing happens when it is absent (an empty set included).
  void Remove(unsigned long id);
  bool FPresent(unsigned long id) const;
  bool FEmpty() const;

  void Start();
  bool FCurrent() const;
  /// The identifier at the cursor; assertion 320 of "Current" without a cursor.
  unsigned long Current() const;
  /// Assertion 321 of "Next" without a cursor.
  void Next();
  /// The identifier i steps from the front (0 is the newest; a negative i counts as 0);
  /// assertion 322 of "Index" when the set has no element i.
  unsigned long Index(int i) const;

 private:
  friend struct NuvBaseLayout;

  ref<NuvIdSetElem> headM;
  ref<NuvIdSetElem> cursorM;
};

#endif  // NUV_ID_SET_H
