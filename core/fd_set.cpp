/// \file NuvFdSet: descriptor n is bit n mod 32 of word n / 32.
#include <nuv/fd_set.h>

namespace {

bool InRange(int fd) { return fd >= 0 && fd < NuvFdSet::kDescriptors; }

unsigned Bit(int fd) { return 1U << static_cast<unsigned>(fd % 32); }

}  // namespace

void NuvFdSet::Zero() {
  for (unsigned& word : bitsM) {
    word = 0;
  }
  fdMaxM = 0;
}

void NuvFdSet::Set(int fd) {
  if (!InRange(fd)) {
    return;
  }
  bitsM[fd / 32] |= Bit(fd);
  if (fd >= fdMaxM) {
    fdMaxM = fd + 1;
  }
}

void NuvFdSet::Clear(int fd) {
  if (InRange(fd)) {
    bitsM[fd / 32] &= ~Bit(fd);
  }
}

bool NuvFdSet::FIsSet(int fd) const { return InRange(fd) && (bitsM[fd / 32] & Bit(fd)) != 0; }
