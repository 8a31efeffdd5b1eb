/// \file NuvConfigbase: construction, lookups and changes of the section in memory.
#include <nuv/configbase.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "config/lines.h"
#include "config/pair.h"

namespace {

// The texts and flags are part of the file format; "[{]" spells the opening brace of a braced
// key so that the regex compiler does not read it as a repeat of nothing.
constexpr const char* kHeaderPattern = "^[[:blank:]]*(.+)$";
constexpr const char* kPairPattern = "^[[:blank:]]*([^[:blank:]{]+|[{][^{]+})[[:blank:]]+(.+)$";
constexpr int kPatternFlags = REG_EXTENDED | REG_NEWLINE;

char* FullPath(const char* fileName) {
  if (fileName == nullptr) {
    // No name is taken as the empty name, which no file has.
    return strdup("");
  }
  const char* root = getenv("VELD_ROOT");
  if (fileName[0] == '/' && root != nullptr) {
    // Deliberate: the joined name holds "//", which the file system accepts.
    return nuv::config::Concat(root, "/", fileName);
  }
  return strdup(fileName);
}

}  // namespace

// The patterns are fixed and valid, so compiling them fails only when memory is exhausted,
// which the store does not handle anywhere.
NuvConfigbase::NuvConfigbase(const char* fileName) : pathM(FullPath(fileName)) {
  regcomp(&linePatternM, kHeaderPattern, kPatternFlags);
  regcomp(&pairPatternM, kPairPattern, kPatternFlags);
}

NuvConfigbase::~NuvConfigbase() {
  free(pathM);
  ForgetSection();
  if (streamM != nullptr) {
    fclose(streamM);
  }
  regfree(&linePatternM);
  regfree(&pairPatternM);
}

void NuvConfigbase::ForgetSection() {
  free(keyPathM);
  keyPathM = nullptr;
  nuv::config::FreePairs(pairsM);
  pairsM = nullptr;
}

// Every lookup and change selects the current key path again; an equal key path returns at
// once, so the file is read only when the section has changed.
bool NuvConfigbase::FReselected() { return keyPathM != nullptr && SetKeyPath(keyPathM) == 1; }

// A null key or value is held by no pair.
NuvConfigPair* NuvConfigbase::PairWithKey(const char* key) const {
  if (key == nullptr) {
    return nullptr;
  }
  NuvConfigPair* pair = pairsM;
  while (pair != nullptr && strcmp(pair->key, key) != 0) {
    pair = pair->next;
  }
  return pair;
}

NuvConfigPair* NuvConfigbase::PairWithValue(const char* value) const {
  if (value == nullptr) {
    return nullptr;
  }
  NuvConfigPair* pair = pairsM;
  while (pair != nullptr && strcmp(pair->value, value) != 0) {
    pair = pair->next;
  }
  return pair;
}

void NuvConfigbase::AppendPair(const char* key, const char* value) {
  NuvConfigPair** end = &pairsM;
  while (*end != nullptr) {
    end = &(*end)->next;
  }
  *end = nuv::config::NewPair(strdup(key), strdup(value));
}

const char* NuvConfigbase::FindValue(const char* key) {
  if (!FReselected()) {
    return nullptr;
  }
  const NuvConfigPair* pair = PairWithKey(key);
  return pair == nullptr ? nullptr : pair->value;
}

const char* NuvConfigbase::FindKeyByValue(const char* value) {
  if (!FReselected()) {
    return nullptr;
  }
  const NuvConfigPair* pair = PairWithValue(value);
  return pair == nullptr ? nullptr : pair->key;
}

int NuvConfigbase::SetValue(const char* key, const char* value) {
  // A null key or value changes nothing, as without a section.
  if (key == nullptr || value == nullptr || !FReselected()) {
    return 0;
  }
  dirtyM = 1;
  NuvConfigPair* pair = PairWithKey(key);
  if (pair != nullptr) {
    // Copied before the old value is freed: value may be the old value itself.
    char* copy = strdup(value);
    free(pair->value);
    pair->value = copy;
    // Deliberate: 0 here although the value changed; the result reports an added key.
    return 0;
  }
  AppendPair(key, value);
  return 1;
}

void NuvConfigbase::Release() {
  dirtyM = 0;
  if (streamM != nullptr) {
    fclose(streamM);
    streamM = nullptr;
  }
}

NuvConfigIterator* NuvConfigbase::Enumerate() {
  if (keyPathM == nullptr) {
    return nullptr;
  }
  return new (std::nothrow) NuvConfigIterator(pairsM);
}
