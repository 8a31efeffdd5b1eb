/// \file Uses the installed library: one lock word and the status texts.
#include <nuv/nuv.h>

#include <cstdio>

int main() {
  volatile NuvLock word = 0;
  if (uptrylock(&word) != 1 || uptrylock(&word) != 0) {
    return 1;
  }
  upunlock(&word);
  std::printf("installed Nuv works: %s\n", NuvStatusText(kNuvOk));
  return 0;
}
