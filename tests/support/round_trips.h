/// \file How many round trips the hand-off tests between two processes make.
#ifndef NUV_TESTS_SUPPORT_ROUND_TRIPS_H
#define NUV_TESTS_SUPPORT_ROUND_TRIPS_H

#include <chrono>
#include <cstdlib>
#include <thread>

namespace nuv::test {

/// NUV_HANDOFF_ROUND_TRIPS for a long run by hand; otherwise the given count, which keeps the
/// test well within its time on every target.
inline unsigned RoundTrips(unsigned usual) {
  const char* asked = std::getenv("NUV_HANDOFF_ROUND_TRIPS");
  return asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : usual;
}

/// How long the round trips may stand still before a test calls it a lost wake-up: hundreds of
/// times the slowest round trip seen (a few milliseconds, under the sanitizers and emulation on
/// a loaded machine).
constexpr std::chrono::milliseconds kStandstill{2000};

/// Watches progress(), a count that grows with the round trips, until it reaches target: true
/// then, false once it stood still for kStandstill. A lost wake-up leaves both sides asleep for
/// good; a slow machine only slows the count, however long the run takes.
template <typename Progress>
bool KeepsGoingTo(unsigned target, Progress progress) {
  unsigned last = progress();
  auto lastChange = std::chrono::steady_clock::now();
  while (last < target) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const unsigned now = progress();
    if (now != last) {
      last = now;
      lastChange = std::chrono::steady_clock::now();
    } else if (std::chrono::steady_clock::now() - lastChange > kStandstill) {
      return false;
    }
  }
  return true;
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_ROUND_TRIPS_H
