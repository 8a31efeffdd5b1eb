/// \file The shared format of time values and counter readings, checked at compile time: both
/// are kept in pools that every process reads, upper word first on either byte order.
#include <nuv/time.h>

#include <cstddef>

struct NuvCoreLayout {
  static_assert(sizeof(NuvTime) == 8, "time: two 32-bit words");
  static_assert(offsetof(NuvTime, upperM) == 0, "time upper word first");
  static_assert(offsetof(NuvTime, lowerM) == 4, "time lower word");
  static_assert(sizeof(NuvTimeCounter) == 8, "counter: the start's two words");
  static_assert(offsetof(NuvTimeCounter, startUpperM) == 0, "counter start upper word first");
  static_assert(offsetof(NuvTimeCounter, startLowerM) == 4, "counter start lower word");
};
