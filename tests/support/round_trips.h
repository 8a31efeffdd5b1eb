/// \file How many round trips the hand-off tests between two processes make.
#ifndef NUV_TESTS_SUPPORT_ROUND_TRIPS_H
#define NUV_TESTS_SUPPORT_ROUND_TRIPS_H

#include <chrono>
#include <cstdlib>

namespace nuv::test {

/// NUV_HANDOFF_ROUND_TRIPS for a long run by hand; otherwise the given count, which keeps the
/// test well within its time on every target.
inline unsigned RoundTrips(unsigned usual) {
  const char* asked = std::getenv("NUV_HANDOFF_ROUND_TRIPS");
  return asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : usual;
}

/// The deadline of a run of RoundTrips(usual): the usual one's, or for a long run a
/// millisecond per round trip.
inline std::chrono::milliseconds RoundTripDeadline(unsigned usual,
                                                   std::chrono::milliseconds usualDeadline) {
  const unsigned count = RoundTrips(usual);
  return count <= usual ? usualDeadline : std::chrono::milliseconds(count);
}

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_ROUND_TRIPS_H
