/// \file NuvIdArray and NuvGenericArray: growable arrays in a pool, embedded by value.
#ifndef NUV_ARRAY_H
#define NUV_ARRAY_H

#include <nuv/mempool.h>
#include <nuv/seed.h>

/// A growable array of identifiers (8 slots, then doubling; zero-filled storage, user "nuv").
class NuvIdArray {
 public:
  explicit NuvIdArray(NuvMempool* pool);
  ~NuvIdArray();
  NuvIdArray(const NuvIdArray&) = delete;
  NuvIdArray& operator=(const NuvIdArray&) = delete;
  NuvIdArray(NuvIdArray&&) = delete;
  NuvIdArray& operator=(NuvIdArray&&) = delete;

  /// Element i; stops at assertion 210 of "__vc" outside 0 <= i < Count(). Never grows.
  unsigned long& operator[](int i);
  unsigned long operator[](int i) const;
  void Add(unsigned long id);
  /// Adds zeros until Count() >= n; never shrinks.
  void Extend(int n);
  /// Removes n elements from index i; stops at assertion 211 of "Remove" unless
  /// 0 <= i <= Count() - n.
  void Remove(int i, int n);
  /// Doubles the slots (8 when there are none), keeping the elements.
  void Expand();

  int Count() const { return countM; }
  int Capacity() const { return capacityM; }

 private:
  friend struct NuvBaseLayout;

  NuvMempool* poolM;
  unsigned long* idsM = nullptr;
  int capacityM = 0;
  int countM = 0;
};

/// A growable array of counted NuvCore references; every non-null slot holds one reference and
/// null slots are allowed. Grows like NuvIdArray.
class NuvGenericArray {
 public:
  using Compare = int (*)(NuvCore**, NuvCore**);

  explicit NuvGenericArray(NuvMempool* pool);
  /// Drops every element's reference and frees the slots.
  ~NuvGenericArray();
  NuvGenericArray(const NuvGenericArray&) = delete;
  NuvGenericArray& operator=(const NuvGenericArray&) = delete;
  NuvGenericArray(NuvGenericArray&&) = delete;
  NuvGenericArray& operator=(NuvGenericArray&&) = delete;

  /// The slot itself; stops at assertion 220 of "__vc" outside 0 <= i < Count(). Whoever writes
  /// through it takes the new occupant's reference and drops the old one's.
  NuvCore*& operator[](int i);
  /// Appends x (null allowed), taking one reference.
  void Add(NuvCore* x);
  /// Adds null slots until Count() >= n; never shrinks.
  void Extend(int n);
  /// Removes n slots from index i, each removed element losing one reference; stops at
  /// assertion 221 of "Remove" unless 0 <= i <= Count() - n.
  void Remove(int i, int n);
  /// Removes every slot holding x (the same object); nothing happens when there is none.
  void Remove(NuvCore* x);
  bool FContains(NuvCore* x) const;
  /// qsort over the slots; cmp receives pointers to two slots. Not stable.
  void Sort(Compare cmp);
  /// Doubles the slots (8 when there are none); reference counts are unchanged overall.
  void Expand();

  int Count() const { return countM; }
  int Capacity() const { return capacityM; }

 private:
  friend struct NuvBaseLayout;

  NuvMempool* poolM;
  NuvCore** slotsM = nullptr;
  int capacityM = 0;
  int countM = 0;
};

#endif  // NUV_ARRAY_H
