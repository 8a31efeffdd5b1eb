/* \file The configuration store's C interface from a program written in C: selects, reads,
 * changes, iterates and syncs a file, and checks the file's bytes. Prints each failed check and
 * exits with 1 when any failed. */
#define _POSIX_C_SOURCE 200809L

#include <nuv/cbase.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures = 0;

static void Check(int passed, const char* what) {
  if (!passed) {
    fprintf(stderr, "FAILED: %s\n", what);
    failures = failures + 1;
  }
}

static int FSame(const char* text, const char* expected) {
  return text != NULL && strcmp(text, expected) == 0;
}

static void WriteText(const char* path, const char* text) {
  FILE* file = fopen(path, "w");
  if (file != NULL) {
    fputs(text, file);
    fclose(file);
  }
}

static int FFileHolds(const char* path, const char* expected) {
  char contents[512];
  size_t length = 0;
  FILE* file = fopen(path, "r");
  if (file == NULL) {
    return 0;
  }
  length = fread(contents, 1, sizeof contents - 1, file);
  fclose(file);
  contents[length] = '\0';
  return strcmp(contents, expected) == 0;
}

static void UseTheStore(const char* path) {
  char* key = NULL;
  char* value = NULL;
  int pairs = 0;

  Check(CBaseSetKeyPath("/Setup/Audio") == 0, "no store: CBaseSetKeyPath gives 0");
  CBaseSetFile(path);
  Check(CBaseSetKeyPath("/Setup/Audio") == 1, "CBaseSetKeyPath finds /Setup/Audio");
  Check(FSame(CBaseFindValue("Volume"), "7"), "CBaseFindValue gives 7");
  Check(FSame(CBaseFindKeyByValue("0"), "Balance"), "CBaseFindKeyByValue gives Balance");
  Check(CBaseSetValue("Volume", "8") == 0, "CBaseSetValue of an existing key gives 0");
  Check(CBaseSetValue("Treble", "2") == 1, "CBaseSetValue of a new key gives 1");

  CBaseIterate();
  while (CBaseNext(&key, &value) == 1) {
    pairs = pairs + 1;
  }
  Check(pairs == 3, "CBaseNext delivers the three pairs");
  Check(FSame(key, "Treble") && FSame(value, "2"), "CBaseNext leaves the last pair in place");

  CBaseSync();
  Check(FFileHolds(path,
                   "/Setup/Network\n  Address 10.0.0.2\n/Setup/Audio\nVolume 8\nBalance 0\n"
                   "Treble 2\n"),
        "CBaseSync rewrites the section in place");
  CBaseClose();
}

int main(void) {
  char directory[] = "/tmp/nuvcbase.XXXXXX";
  char path[64];
  char temporary[sizeof path + sizeof ".cbup"];

  if (mkdtemp(directory) == NULL) {
    perror("mkdtemp");
    return 1;
  }
  snprintf(path, sizeof path, "%s/x.cfg", directory);
  snprintf(temporary, sizeof temporary, "%s.cbup", path);
  WriteText(path, "/Setup/Network\n  Address 10.0.0.2\n/Setup/Audio\n  Volume 7\n  Balance 0\n");
  unsetenv("VELD_ROOT");

  UseTheStore(path);
  Check(access(temporary, F_OK) != 0, "no temporary is left behind");

  unlink(temporary);
  unlink(path);
  rmdir(directory);
  if (failures != 0) {
    return 1;
  }
  printf("C interface: all checks passed\n");
  return 0;
}
