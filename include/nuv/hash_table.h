/// \file NuvGenericHashTable: open addressing with linear probing over counted NuvCore keys and
/// data, and the hash and comparison functions for string keys.
#ifndef NUV_HASH_TABLE_H
#define NUV_HASH_TABLE_H

#include <nuv/array.h>
#include <nuv/seed.h>
#include <nuv/string.h>

/// One slot of a table (user "nuv"): empty (no key, no data), live (key and data) or deleted
/// (key, no data). Slots are created once and reused.
class NuvHashEntry : public NuvCore {
 public:
  NuvHashEntry();
  /// Drops data, then key.
  ~NuvHashEntry() override = default;
  NuvHashEntry(const NuvHashEntry&) = delete;
  NuvHashEntry& operator=(const NuvHashEntry&) = delete;
  NuvHashEntry(NuvHashEntry&&) = delete;
  NuvHashEntry& operator=(NuvHashEntry&&) = delete;

  ref<NuvCore> key;
  ref<NuvCore> data;
};

/// A hash table embedded by value in its owner; slots and entries live in its pool. The slot
/// count is a power of two and the home slot of a key is hash & (slots - 1).
///
/// Kept behaviour that existing code relies on:
/// - the probe stops at the first deleted slot as well as at the first empty one, so once a key
///   of a probe chain is removed, keys stored further along it are no longer found, and storing
///   one of them again makes a second live copy;
/// - growth doubles the slots without moving entries: a key whose home slot moves is reported
///   absent afterwards. Create tables large enough never to grow;
/// - a store that finds no free slot on its probe is dropped silently.
class NuvGenericHashTable {
 public:
  using Hash = unsigned long (*)(ref<NuvCore> key, NuvGenericHashTable* context);
  /// 0 means equal. Called for every slot probed, also with a null slot key.
  using Compare = int (*)(ref<NuvCore> a, ref<NuvCore> b, NuvGenericHashTable* context);

  /// initialSize must be a power of two: 0 stops at assertion 401 of "NuvGenericHashTable",
  /// more than one bit set at assertion 402. context is handed unchanged to hash and compare.
  NuvGenericHashTable(NuvMempool* pool, Hash hash, Compare compare, NuvGenericHashTable* context,
                      unsigned long initialSize);
  /// Empties every slot and drops the slots and the cursor.
  ~NuvGenericHashTable();
  NuvGenericHashTable(const NuvGenericHashTable&) = delete;
  NuvGenericHashTable& operator=(const NuvGenericHashTable&) = delete;
  NuvGenericHashTable(NuvGenericHashTable&&) = delete;
  NuvGenericHashTable& operator=(NuvGenericHashTable&&) = delete;

  /// Empties every slot; the slot count stays. Resets the key and deleted counts.
  void Clear();
  /// The probe: the first empty or deleted slot, or the live slot whose key compares equal, from
  /// the key's home slot on, wrapping once; null when every slot is live and none matches.
  ref<NuvHashEntry> Find(ref<NuvCore> key);
  /// The data stored for key, or null.
  ref<NuvCore> Lookup(ref<NuvCore> key);
  /// Inserts, replaces (the stored key object is kept) or, with null data, deletes.
  void Store(ref<NuvCore> key, ref<NuvCore> data);
  /// Store(key, null).
  void Remove(ref<NuvCore> key);
  /// Doubles the slots when more than half are live (initialSize slots when there are none).
  void Extend();

  unsigned NKeys() const { return nkeysM; }
  /// Slots deleted since the last Clear (a deleted slot reused by a store still counts).
  unsigned NDeleted() const { return ndeletedM; }
  unsigned NSlots() const { return static_cast<unsigned>(slotsM.Count()); }

  /// Iteration in slot order over the live slots. Store and Remove during an iteration are
  /// allowed; a slot filled behind the cursor is not visited.
  void Start();
  bool FCurrent() const;
  /// Key and data at the cursor, each with a new reference. The cursor is not checked: call them
  /// only while FCurrent().
  ref<NuvCore> CurrentKey();
  ref<NuvCore> CurrentData();
  void Next();

  /// Bob Jenkins's lookup2 hash of the bytes of s with initial value 0 (s may be null).
  static unsigned long HashString(const char* s);
  /// For each byte b of p[0..n): h = rotate-left(h, 5) ^ b.
  static void FastHashBytes(const void* p, unsigned n, unsigned long& h);
  /// HashString of the UTF-8 form; s must not be null.
  static unsigned long HashNuvString(ref<NuvString> s);
  /// The leading decimal numeral of the UTF-8 form (strtol; 0 when there is none) times 5, as an
  /// unsigned 32-bit value; s must not be null.
  static unsigned long HashNuvStringAtoi(ref<NuvString> s);
  /// strcmp of the UTF-8 forms; a null string sorts after any other (both null: 0).
  static int CmpNuvString(ref<NuvString> a, ref<NuvString> b);
  /// The three above with the signatures a table takes; keys must be NuvStrings (not checked).
  static unsigned long HashNuvStringCore(ref<NuvCore> k, NuvGenericHashTable* context);
  static unsigned long HashNuvStringAtoiCore(ref<NuvCore> k, NuvGenericHashTable* context);
  static int CmpNuvStringCore(ref<NuvCore> a, ref<NuvCore> b, NuvGenericHashTable* context);

 private:
  friend struct NuvBaseLayout;

  NuvMempool* poolM;
  Hash hashM;
  Compare compareM;
  NuvGenericArray slotsM;
  ref<NuvHashEntry> cursorM;
  NuvGenericHashTable* contextM;
  unsigned nkeysM = 0;
  unsigned ndeletedM = 0;
  int indexM = 0;
  unsigned long initialSizeM;
};

#endif  // NUV_HASH_TABLE_H
