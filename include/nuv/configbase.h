/// \file NuvConfigbase and NuvConfigIterator: a sectioned key/value text file, read and rewritten
/// one section at a time. Unlike the rest of the library it lives on the process heap.
#ifndef NUV_CONFIGBASE_H
#define NUV_CONFIGBASE_H

#include <regex.h>
#include <cstdint>
#include <cstdio>

/// One key/value pair of the section in memory. The store owns both texts and the record.
struct NuvConfigPair {
  char* key;
  char* value;
  NuvConfigPair* next;
};

/// A cursor over the pairs of the section in memory, made by NuvConfigbase::Enumerate and owned
/// (deleted) by its caller. It must not outlive the section it walks.
class NuvConfigIterator {
 public:
  explicit NuvConfigIterator(NuvConfigPair* first) : pairM(first) {}

  /// At the end: 0, and key and value are left untouched. Otherwise stores the pair's key and
  /// value (the store's own texts), each only where its pointer is not null, and returns 1.
  int Current(char** key, char** value) const;
  /// Moves to the next pair; nothing at the end.
  void Next();

 private:
  NuvConfigPair* pairM;
};

/// A configuration file of sections: a header line holding the section's key path, then pair
/// lines "key value". One section, the current key path, is held in memory; lookups and changes
/// work on it and Sync writes it back through the file name + ".cbup". Failures are never
/// reported other than by a 0 or null result, or by a Sync that silently does nothing.
class NuvConfigbase {
 public:
  /// The file is fileName, or, for an absolute name while VELD_ROOT is set, VELD_ROOT + "/" +
  /// fileName (two slashes in a row, which the file system accepts). Nothing is opened yet. A
  /// null fileName is taken as "", a name that no file has.
  explicit NuvConfigbase(const char* fileName);
  /// Frees the section, closes the file. Unsynced changes are lost.
  ~NuvConfigbase();
  NuvConfigbase(const NuvConfigbase&) = delete;
  NuvConfigbase& operator=(const NuvConfigbase&) = delete;
  NuvConfigbase(NuvConfigbase&&) = delete;
  NuvConfigbase& operator=(NuvConfigbase&&) = delete;

  /// Makes keyPath's section current: 1 when found (or already current, then without reading),
  /// 0 when the file cannot be opened or holds no such section (then no section is current).
  /// The first non-comment line whose whole text is keyPath or a leading part of it is the
  /// header, pair lines of earlier sections included: "/Setup" is taken for "/Setup/Network"
  /// when it comes first. A null keyPath names no section: 0, without reading the file.
  int SetKeyPath(const char* keyPath);
  /// SetKeyPath; when that fails, keyPath becomes current anyway with no pairs, so that the next
  /// Sync appends it to the file as a new section. 1; 0 only for a null keyPath, which leaves
  /// no section current.
  int MakeKeyPath(const char* keyPath);

  /// The value of the first pair whose key is key; null when there is none or no section is
  /// current (or key is null). Valid until the section is replaced or the store destroyed.
  const char* FindValue(const char* key);
  /// The key of the first pair whose value is value; otherwise as FindValue (null for a null
  /// value).
  const char* FindKeyByValue(const char* value);
  /// Gives key the value, marking the store dirty. Returns 1 when the key was added, 0 when it
  /// was replaced or no section is current: it reports an added key, not success. A null key or
  /// value changes nothing and gives 0.
  int SetValue(const char* key, const char* value);

  /// When a section is current, has pairs and was changed: rewrites the file with the section in
  /// place of its old lines (appended when new) and clears dirty. With close the file is closed
  /// afterwards; otherwise the rewritten file stays open for the next Sync. Does nothing when the
  /// rewritten file cannot be created or written; the file keeps its old contents then.
  void Sync(bool close);
  /// Clears the dirty mark, so that unsynced changes are not written, and closes the file; the
  /// section and its key path stay in memory.
  void Release();
  /// A new iterator on the first pair, to be deleted by the caller; null when no section is
  /// current.
  NuvConfigIterator* Enumerate();

  /// The full name of the file.
  const char* Path() const { return pathM; }

 private:
  bool FReselected();
  void ForgetSection();
  bool OpenOrRewind();
  bool FindHeader(const char* keyPath);
  void ReadPairs();
  NuvConfigPair* PairWithKey(const char* key) const;
  NuvConfigPair* PairWithValue(const char* value) const;
  void AppendPair(const char* key, const char* value);
  int32_t CopyLinesBeforeSection(FILE* out);
  int32_t WriteSection(FILE* out) const;
  void CopyRemainingLines(FILE* out);

  char* pathM;
  char* keyPathM = nullptr;
  FILE* streamM = nullptr;
  int32_t headerLineM = 0;
  int32_t endLineM = 0;
  int32_t dirtyM = 0;
  NuvConfigPair* pairsM = nullptr;
  regex_t linePatternM{};
  regex_t pairPatternM{};
};

#endif  // NUV_CONFIGBASE_H
