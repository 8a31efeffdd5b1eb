/// \file NuvConfigbase: selecting a section by key path and reading its pairs from the file.
#include <nuv/configbase.h>

#include <cstdlib>
#include <cstring>

#include "config/lines.h"
#include "config/pair.h"

using nuv::config::CopyGroup;
using nuv::config::FIgnored;
using nuv::config::FMatches;
using nuv::config::Groups;
using nuv::config::Line;
using nuv::config::NewPair;
using nuv::config::ReadLine;

int NuvConfigbase::SetKeyPath(const char* keyPath) {
  if (keyPath == nullptr) {
    // Names no section: the result of one that is not in the file, without reading it.
    ForgetSection();
    return 0;
  }
  if (keyPathM != nullptr && strcmp(keyPathM, keyPath) == 0) {
    return 1;
  }
  // The dirty mark stays: changes to the section left behind are lost, and the next Sync
  // rewrites the section chosen now.
  ForgetSection();
  if (!OpenOrRewind()) {
    return 0;
  }
  const bool found = FindHeader(keyPath);
  endLineM = headerLineM + 1;
  if (!found) {
    return 0;
  }
  ReadPairs();
  keyPathM = strdup(keyPath);
  return 1;
}

int NuvConfigbase::MakeKeyPath(const char* keyPath) {
  if (keyPath == nullptr) {
    // No section can be made without its key path.
    ForgetSection();
    return 0;
  }
  if (SetKeyPath(keyPath) == 0) {
    keyPathM = strdup(keyPath);
  }
  return 1;
}

bool NuvConfigbase::OpenOrRewind() {
  if (streamM != nullptr) {
    rewind(streamM);
    return true;
  }
  streamM = fopen(pathM, "r");
  return streamM != nullptr;
}

// Leaves headerLine at the header's index, or at the number of lines read when there is none:
// a section made anew is then written after the file's last line.
bool NuvConfigbase::FindHeader(const char* keyPath) {
  Line line{};
  Groups groups{};
  int32_t index = 0;
  for (; ReadLine(streamM, &line); ++index) {
    if (FIgnored(line) || !FMatches(&linePatternM, line, groups)) {
      continue;
    }
    // Deliberate prefix rule: a text that is keyPath or a leading part of it is the header,
    // and any line counts, pair lines of earlier sections included.
    const char* text = line.text + groups[1].rm_so;
    const auto length = static_cast<size_t>(groups[1].rm_eo - groups[1].rm_so);
    if (strncmp(keyPath, text, length) == 0) {
      headerLineM = index;
      return true;
    }
  }
  headerLineM = index;
  return false;
}

// Comment and blank lines inside the section are skipped and not counted in endLine.
void NuvConfigbase::ReadPairs() {
  Line line{};
  Groups groups{};
  NuvConfigPair** end = &pairsM;
  while (ReadLine(streamM, &line)) {
    if (FIgnored(line)) {
      continue;
    }
    if (!FMatches(&pairPatternM, line, groups)) {
      return;
    }
    *end = NewPair(CopyGroup(line, groups, 1), CopyGroup(line, groups, 2));
    if (*end == nullptr) {
      return;
    }
    end = &(*end)->next;
    ++endLineM;
  }
}
