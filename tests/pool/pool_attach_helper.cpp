/// \file Second process of the pool tests: attaches pool NAME, prints what it sees, answers in it.
#include <nuv/os_mempool.h>
#include <nuv/status.h>

#include <cstdint>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: pool_attach_helper NAME\n");
    return 2;
  }
  char* base = nullptr;
  unsigned length = 0;
  int fd = -1;
  const unsigned result = NuvOsMempool::Attach(argv[1], base, length, fd);
  if (result != kNuvOk) {
    printf("attach failed 0x%x\n", result);
    return 1;
  }
  // The creator's first word is reported; its complement in the second word is the answer.
  auto* words = reinterpret_cast<unsigned*>(base);
  printf("base 0x%08x length %u word 0x%08x\n",
         static_cast<unsigned>(reinterpret_cast<uintptr_t>(base)), length, words[0]);
  words[1] = ~words[0];
  NuvOsMempool::Free(base, length, fd);
  return 0;
}
