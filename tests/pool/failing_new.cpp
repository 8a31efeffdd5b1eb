/// \file The nothrow new of the pool test program: the usual allocation unless a test asked the
/// next one to fail.
#include "failing_new.h"

#include <new>

namespace {
bool failNext = false;
}  // namespace

void nuv::test::FailNextNothrowNew() { failNext = true; }

// Allocates as the plain new does, so that the plain delete (the sanitizers' own, on host-asan)
// frees it.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  if (failNext) {
    failNext = false;
    return nullptr;
  }
  return ::operator new(size);
}
