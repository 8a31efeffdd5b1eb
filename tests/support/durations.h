/// \file Time-outs for tests, in the library's nanosecond values.
#ifndef NUV_TESTS_SUPPORT_DURATIONS_H
#define NUV_TESTS_SUPPORT_DURATIONS_H

#include <nuv/time.h>

#include <cstdint>

namespace nuv::test {

/// A time-out of ms milliseconds.
inline NuvTime Milliseconds(int64_t ms) { return NuvTime(ms * 1000000); }

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_DURATIONS_H
