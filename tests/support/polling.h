/// \file Waiting in a test for something that another process brings about.
#ifndef NUV_TESTS_SUPPORT_POLLING_H
#define NUV_TESTS_SUPPORT_POLLING_H

#include <chrono>
#include <thread>

namespace nuv::test {

/// How long a step of a test waits for another process before the test gives up.
constexpr std::chrono::milliseconds kPollDeadline{5000};

/// Polls every millisecond until condition() holds; false when the deadline passes first.
template <typename Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds deadline = kPollDeadline) {
  const auto giveUp = std::chrono::steady_clock::now() + deadline;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > giveUp) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_POLLING_H
