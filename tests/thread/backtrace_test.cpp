/// \file NuvThread::GetBacktrace: the calling process's return addresses.
#include <nuv/thread.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr int kSlots = 6;

__attribute__((noinline)) void* BacktraceFromHere(void** out, int count) {
  NuvThread::GetBacktrace(0, count, out);
  return __builtin_return_address(0);
}

TEST(GetBacktrace, SkipBeyondTheStackDepthFillsEverySlotWithZero) {
  void* out[kSlots];
  std::fill(out, out + kSlots, reinterpret_cast<void*>(1));
  NuvThread::GetBacktrace(100000, kSlots, out);
  EXPECT_TRUE(std::all_of(out, out + kSlots, [](void* slot) { return slot == nullptr; }));
}

TEST(GetBacktrace, WritesExactlyCountSlots) {
  void* out[kSlots];
  std::fill(out, out + kSlots, reinterpret_cast<void*>(1));
  NuvThread::GetBacktrace(0, 2, out);
  EXPECT_TRUE(std::all_of(out + 2, out + kSlots,
                          [](void* slot) { return slot == reinterpret_cast<void*>(1); }));
}

TEST(GetBacktrace, FirstEntriesHoldTheCallersReturnAddress) {
  void* out[kSlots] = {};
  void* const returnAddress = BacktraceFromHere(out, kSlots);
  // The device saves a return address in its caller's frame, the host in its own: either way
  // the caller's return address is among the first two entries.
  EXPECT_TRUE(out[0] == returnAddress || out[1] == returnAddress);
}

TEST(GetBacktrace, ZeroCountWritesNothing) {
  void* out[1] = {reinterpret_cast<void*>(1)};
  NuvThread::GetBacktrace(0, 0, out);
  EXPECT_EQ(out[0], reinterpret_cast<void*>(1));
}

}  // namespace
