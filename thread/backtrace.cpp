/// \file Stack walk for backtraces: back chains and saved return addresses.
#include "thread/backtrace.h"

#include <nuv/thread.h>

#include "arch/stack_frame.h"

// Set by the dynamic loader: the top of the process's initial stack. Every frame lies below it.
extern "C" void* __libc_stack_end;  // NOLINT(readability-redundant-declaration): glibc's own.

namespace nuv {

// Frames are read as raw words, red zones of the sanitizer's instrumented frames included.
__attribute__((no_sanitize_address)) void* CallerFrame(void* frame) {
  void* const* words = static_cast<void* const*>(frame);
  void* caller = words[arch::kBackChainWord];
  if (caller <= frame || caller >= __libc_stack_end) {
    return nullptr;
  }
  return caller;
}

__attribute__((no_sanitize_address)) void* SavedReturnAddress(void* frame) {
  return static_cast<void* const*>(frame)[arch::kReturnAddressWord];
}

}  // namespace nuv

__attribute__((noinline)) void NuvThread::GetBacktrace(int skip, int count, void** out) {
  void* frame = NUV_CURRENT_STACK_FRAME();
  for (int hop = 0; hop <= skip && frame != nullptr; ++hop) {
    frame = nuv::CallerFrame(frame);
  }
  for (int slot = 0; slot < count; ++slot) {
    out[slot] = frame == nullptr ? nullptr : nuv::SavedReturnAddress(frame);
    if (frame != nullptr) {
      frame = nuv::CallerFrame(frame);
    }
  }
}
