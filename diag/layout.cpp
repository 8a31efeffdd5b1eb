/// \file The shared format of logger objects, checked at compile time.
#include <nuv/logger.h>

#include <cstddef>

// A logger object derives from NuvSeed, which makes it formally non-standard-layout; the offsets
// below are exactly what these checks are there to pin down.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvDiagLayout {
  static_assert(sizeof(NuvLogger) == 24, "logger: core, facility, priority, name");
  static_assert(offsetof(NuvLogger, facilityM) == 12, "logger facility");
  static_assert(offsetof(NuvLogger, priorityM) == 16, "logger priority");
  static_assert(offsetof(NuvLogger, nameM) == 20, "logger name");
};
#pragma GCC diagnostic pop
