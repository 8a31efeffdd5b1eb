/// \file The shared format of time values, counter readings and descriptor sets, checked at compile
/// time: all are kept in pools that every process reads, upper word first on either byte order.
#include <nuv/fd_set.h>
#include <nuv/time.h>

#include <cstddef>

struct NuvCoreLayout {
  static_assert(sizeof(NuvTime) == 8, "time: two 32-bit words");
  static_assert(offsetof(NuvTime, upperM) == 0, "time upper word first");
  static_assert(offsetof(NuvTime, lowerM) == 4, "time lower word");
  static_assert(sizeof(NuvTimeCounter) == 8, "counter: the start's two words");
  static_assert(offsetof(NuvTimeCounter, startUpperM) == 0, "counter start upper word first");
  static_assert(offsetof(NuvTimeCounter, startLowerM) == 4, "counter start lower word");
  static_assert(sizeof(NuvFdSet) == 132, "descriptor set: 32 words of bits and the count");
  static_assert(offsetof(NuvFdSet, bitsM) == 0, "descriptor bits first");
  static_assert(offsetof(NuvFdSet, fdMaxM) == 128, "one more than the highest descriptor");
};
