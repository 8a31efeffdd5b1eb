/// \file Memory shared with forked children, for cross-process tests of shared words.
#ifndef NUV_TESTS_SUPPORT_SHARED_MEMORY_H
#define NUV_TESTS_SUPPORT_SHARED_MEMORY_H

#include <sys/mman.h>

#include <cstddef>
#include <new>

namespace nuv::test {

/// One T in an anonymous shared mapping: a forked child and its parent see the same object.
template <typename T>
class SharedObject {
 public:
  SharedObject()
      : memoryM(
            mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
        objectM(new (memoryM) T()) {}
  ~SharedObject() { munmap(memoryM, sizeof(T)); }
  SharedObject(const SharedObject&) = delete;
  SharedObject& operator=(const SharedObject&) = delete;

  T* operator->() const { return objectM; }
  T& operator*() const { return *objectM; }

 private:
  void* memoryM;
  T* objectM;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_SHARED_MEMORY_H
