/// \file NuvGenericList: a singly linked list of counted NuvCore references with one cursor.
#ifndef NUV_LIST_H
#define NUV_LIST_H

#include <nuv/seed.h>

/// One link of a list (user "nuv"), allocated in the pool of the item it carries.
class NuvListElem : public NuvCore {
 public:
  explicit NuvListElem(NuvCore* item);
  /// Drops next, then item.
  ~NuvListElem() override;
  NuvListElem(const NuvListElem&) = delete;
  NuvListElem& operator=(const NuvListElem&) = delete;
  NuvListElem(NuvListElem&&) = delete;
  NuvListElem& operator=(NuvListElem&&) = delete;

 private:
  friend class NuvGenericList;
  friend struct NuvBaseLayout;

  ref<NuvCore> itemM;
  ref<NuvListElem> nextM;
};

/// A list embedded by value in its owner; its references are dropped with the owner. Append and
/// Remove end an iteration under way (FCurrent() is false afterwards).
class NuvGenericList {
 public:
  /// Appends item, taking one reference; the element is allocated in item's pool. A null item
  /// stops at assertion 200 of "Append", a head without a tail at assertion 201.
  void Append(NuvCore* item);
  /// Unlinks the first element carrying item (the same object). An empty list stops at
  /// assertion 202 of "Remove", an item not in the list at assertion 203.
  void Remove(NuvCore* item);
  /// Drops head only: the list reads as empty, while tail and cursor keep what they held. An
  /// Append after Clear links behind the stale tail and the list still reads as empty, so
  /// owners that reuse a list after Clear rebuild it.
  void Clear();

  void Start();
  bool FCurrent() const;
  /// The item at the cursor with a new reference; stops at assertion 204 of "Current" without one.
  ref<NuvCore> Current();
  /// Stops at assertion 205 of "Next" without a cursor.
  void Next();

 private:
  friend struct NuvBaseLayout;

  ref<NuvListElem> headM;
  ref<NuvListElem> tailM;
  ref<NuvListElem> cursorM;
};

#endif  // NUV_LIST_H
