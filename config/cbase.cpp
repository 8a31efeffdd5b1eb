/// \file The configuration store's C interface over one process-wide store.
#include <nuv/cbase.h>

#include <cstring>
#include <new>

#include "config/cbase_state.h"

NuvConfigbase* CBase = nullptr;
NuvConfigIterator* CBIterator = nullptr;

namespace {

void DropIterator() {
  delete CBIterator;
  CBIterator = nullptr;
}

}  // namespace

void CBaseSetFile(const char* fileName) {
  if (fileName == nullptr) {
    fileName = "";  // as the store takes it: the empty name, which no file has
  }
  if (CBase != nullptr) {
    // Deliberate: compared with the full name, so with VELD_ROOT set an absolute name never
    // matches and the store is rebuilt on every call, losing unsynced changes.
    if (strcmp(fileName, CBase->Path()) == 0) {
      return;
    }
    DropIterator();
    delete CBase;
  }
  CBase = new (std::nothrow) NuvConfigbase(fileName);
}

int CBaseSetKeyPath(const char* keyPath) {
  if (CBase == nullptr) {
    return 0;
  }
  DropIterator();
  return CBase->SetKeyPath(keyPath) == 1 ? 1 : 0;
}

int CBaseSetValue(const char* key, const char* value) {
  if (CBase == nullptr) {
    return 0;
  }
  // Deliberate: 1 only for an added key; a replaced value gives 0 like a failure.
  return CBase->SetValue(key, value) == 1 ? 1 : 0;
}

const char* CBaseFindValue(const char* key) {
  return CBase == nullptr ? nullptr : CBase->FindValue(key);
}

const char* CBaseFindKeyByValue(const char* value) {
  return CBase == nullptr ? nullptr : CBase->FindKeyByValue(value);
}

void CBaseSync() {
  if (CBase != nullptr) {
    CBase->Sync(true);
  }
}

void CBaseRelease() {
  if (CBase != nullptr) {
    CBase->Release();
  }
}

void CBaseClose() {
  if (CBase != nullptr) {
    // Deliberate: CBase keeps pointing at the destroyed store and CBIterator is left as it is;
    // no CBase function may be called afterwards.
    delete CBase;
    return;
  }
  DropIterator();
}

void CBaseIterate() {
  if (CBase != nullptr) {
    delete CBIterator;
    CBIterator = CBase->Enumerate();
  }
}

int CBaseNext(char** key, char** value) {
  if (CBase == nullptr || CBIterator == nullptr) {
    return 0;
  }
  const int delivered = CBIterator->Current(key, value);
  CBIterator->Next();
  return delivered;
}
