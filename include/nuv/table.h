/// \file NuvGenericTable: unsigned long keys to counted NuvCore references, in insertion order.
#ifndef NUV_TABLE_H
#define NUV_TABLE_H

#include <nuv/seed.h>

/// One entry of a table (user "nuv"), allocated in the pool of the item it carries.
class NuvTableElem : public NuvCore {
 public:
  NuvTableElem(unsigned long key, NuvCore* item);
  /// Drops next, then item.
  ~NuvTableElem() override;
  NuvTableElem(const NuvTableElem&) = delete;
  NuvTableElem& operator=(const NuvTableElem&) = delete;
  NuvTableElem(NuvTableElem&&) = delete;
  NuvTableElem& operator=(NuvTableElem&&) = delete;

 private:
  friend class NuvGenericTable;
  friend struct NuvBaseLayout;

  unsigned long keyM;
  ref<NuvCore> itemM;
  ref<NuvTableElem> nextM;
};

/// A table embedded by value in its owner; its references are dropped with the owner. Keys need
/// not be unique: lookups find the oldest entry of a key. Add and the removals end an iteration
/// under way. Lookups are linear.
class NuvGenericTable {
 public:
  /// Appends an entry holding one reference to item, allocated in item's pool; null stops at
  /// assertion 301 of "Add", a head without a tail at assertion 302.
  void Add(unsigned long key, NuvCore* item);
  bool FHasKey(unsigned long key) const;
  /// The item of the oldest entry with key, with a new reference; null when there is none.
  ref<NuvCore> Lookup(unsigned long key) const;
  bool FEmpty() const;
  /// Unlinks the first entry carrying item (the same object). An empty table stops at
  /// assertion 303 of "Remove", an item not in it at assertion 304.
  void Remove(NuvCore* item);
  /// Unlinks the oldest entry with key. An empty table stops at assertion 305 of "RemoveKey", a
  /// key not in it at assertion 306.
  void RemoveKey(unsigned long key);

  void Start();
  bool FCurrent() const;
  /// The item at the cursor with a new reference; assertion 307 of "Current" without a cursor.
  ref<NuvCore> Current();
  /// The key at the cursor; assertion 308 of "CurrentKey" without a cursor.
  unsigned long CurrentKey();
  /// Assertion 309 of "Next" without a cursor.
  void Next();

 private:
  friend struct NuvBaseLayout;

  ref<NuvTableElem> headM;
  ref<NuvTableElem> tailM;
  ref<NuvTableElem> cursorM;
};

#endif  // NUV_TABLE_H
