/// \file The shared format of the strings and containers, checked at compile time.
#include <nuv/array.h>
#include <nuv/hash_table.h>
#include <nuv/id_set.h>
#include <nuv/list.h>
#include <nuv/string.h>
#include <nuv/table.h>

#include <cstddef>

// These objects live in pools that every process maps; their classes derive from NuvSeed, which
// makes them formally non-standard-layout, and the offsets are exactly what is pinned down here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvBaseLayout {
  static_assert(sizeof(ref<NuvCore>) == 4, "a counted reference is one pointer");

  static_assert(sizeof(NuvString) == 20, "string: core, wide form, UTF-8 form");
  static_assert(offsetof(NuvString, wideM) == 12, "string wide form");
  static_assert(offsetof(NuvString, utf8M) == 16, "string UTF-8 form");
  static_assert(sizeof(NuvStringList) == 28, "string list: core, items, count, capacity, cursor");
  static_assert(offsetof(NuvStringList, itemsM) == 12, "string list items");
  static_assert(offsetof(NuvStringList, countM) == 16, "string list count");
  static_assert(offsetof(NuvStringList, capacityM) == 20, "string list capacity");
  static_assert(offsetof(NuvStringList, cursorM) == 24, "string list cursor");

  static_assert(sizeof(NuvListElem) == 20, "list element: core, item, next");
  static_assert(offsetof(NuvListElem, itemM) == 12, "list element item");
  static_assert(offsetof(NuvListElem, nextM) == 16, "list element next");
  static_assert(sizeof(NuvGenericList) == 12, "list: head, tail, cursor");
  static_assert(offsetof(NuvGenericList, headM) == 0, "list head");
  static_assert(offsetof(NuvGenericList, tailM) == 4, "list tail");
  static_assert(offsetof(NuvGenericList, cursorM) == 8, "list cursor");

  static_assert(sizeof(NuvIdArray) == 16, "id array: pool, ids, capacity, count");
  static_assert(offsetof(NuvIdArray, poolM) == 0, "id array pool");
  static_assert(offsetof(NuvIdArray, idsM) == 4, "id array ids");
  static_assert(offsetof(NuvIdArray, capacityM) == 8, "id array capacity");
  static_assert(offsetof(NuvIdArray, countM) == 12, "id array count");
  static_assert(sizeof(NuvGenericArray) == 16, "array: pool, slots, capacity, count");
  static_assert(offsetof(NuvGenericArray, poolM) == 0, "array pool");
  static_assert(offsetof(NuvGenericArray, slotsM) == 4, "array slots");
  static_assert(offsetof(NuvGenericArray, capacityM) == 8, "array capacity");
  static_assert(offsetof(NuvGenericArray, countM) == 12, "array count");

  static_assert(sizeof(NuvTableElem) == 24, "table element: core, key, item, next");
  static_assert(offsetof(NuvTableElem, keyM) == 12, "table element key");
  static_assert(offsetof(NuvTableElem, itemM) == 16, "table element item");
  static_assert(offsetof(NuvTableElem, nextM) == 20, "table element next");
  static_assert(sizeof(NuvGenericTable) == 12, "table: head, tail, cursor");
  static_assert(offsetof(NuvGenericTable, headM) == 0, "table head");
  static_assert(offsetof(NuvGenericTable, tailM) == 4, "table tail");
  static_assert(offsetof(NuvGenericTable, cursorM) == 8, "table cursor");

  static_assert(sizeof(NuvIdSetElem) == 20, "id set element: core, id, next");
  static_assert(offsetof(NuvIdSetElem, idM) == 12, "id set element id");
  static_assert(offsetof(NuvIdSetElem, nextM) == 16, "id set element next");
  static_assert(sizeof(NuvIdSet) == 20, "id set: core, head, cursor");
  static_assert(offsetof(NuvIdSet, headM) == 12, "id set head");
  static_assert(offsetof(NuvIdSet, cursorM) == 16, "id set cursor");

  static_assert(sizeof(NuvHashEntry) == 20, "hash entry: core, key, data");
  static_assert(offsetof(NuvHashEntry, key) == 12, "hash entry key");
  static_assert(offsetof(NuvHashEntry, data) == 16, "hash entry data");
  static_assert(sizeof(NuvGenericHashTable) == 52, "hash table: ten fields");
  static_assert(offsetof(NuvGenericHashTable, poolM) == 0, "hash table pool");
  static_assert(offsetof(NuvGenericHashTable, hashM) == 4, "hash table hash function");
  static_assert(offsetof(NuvGenericHashTable, compareM) == 8, "hash table compare function");
  static_assert(offsetof(NuvGenericHashTable, slotsM) == 12, "hash table slots");
  static_assert(offsetof(NuvGenericHashTable, cursorM) == 28, "hash table cursor");
  static_assert(offsetof(NuvGenericHashTable, contextM) == 32, "hash table context");
  static_assert(offsetof(NuvGenericHashTable, nkeysM) == 36, "hash table key count");
  static_assert(offsetof(NuvGenericHashTable, ndeletedM) == 40, "hash table deleted count");
  static_assert(offsetof(NuvGenericHashTable, indexM) == 44, "hash table iteration index");
  static_assert(offsetof(NuvGenericHashTable, initialSizeM) == 48, "hash table initial size");
};
#pragma GCC diagnostic pop
