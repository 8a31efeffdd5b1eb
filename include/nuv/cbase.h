/* \file The configuration store's C interface: one store and one iterator per process. Plain C,
 * so that C programs include it as well as C++ ones. */
#ifndef NUV_CBASE_H
#define NUV_CBASE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the store for fileName the process's store, unless the current one's full file name
 * equals fileName. A replaced store is destroyed, unsynced changes and iterator with it. With
 * VELD_ROOT set, an absolute fileName never equals a full name, so the store is rebuilt. A null
 * fileName is taken as "", a name that no file has. */
void CBaseSetFile(const char* fileName);
/* 0 without a store. Drops the iterator, then selects the section: 1 when found, else 0. */
int CBaseSetKeyPath(const char* keyPath);
/* 0 without a store; 1 when key was added to the current section, 0 when it was replaced or no
 * section is current. */
int CBaseSetValue(const char* key, const char* value);
/* Null without a store; otherwise the value of key in the current section, or null. */
const char* CBaseFindValue(const char* key);
/* Null without a store; otherwise the key of the first pair holding value, or null. */
const char* CBaseFindKeyByValue(const char* value);
/* Writes the current section back and closes the file, when a store exists. */
void CBaseSync(void);
/* Closes the file without writing, when a store exists; the section stays in memory. */
void CBaseRelease(void);
/* Destroys the store. No CBase function may be called afterwards in the process. Without a
 * store it only drops the iterator. */
void CBaseClose(void);
/* Starts a new iteration over the current section's pairs, when a store exists. */
void CBaseIterate(void);
/* 0 without a store or iteration, or after the last pair (key and value then untouched);
 * otherwise stores the next pair's key and value (each only where its pointer is not null) and
 * returns 1. */
int CBaseNext(char** key, char** value);

#ifdef __cplusplus
}
#endif

#endif /* NUV_CBASE_H */
