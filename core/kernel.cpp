/// \file The failure injection of the kernel path, for tests.
#include "core/kernel.h"

#include <unistd.h>

#include <cstring>

namespace nuv::kernel {

detail::Injection detail::injection = {nullptr, 0, 0, 0};

bool detail::TakeInjected(const char* name, int* error) {
  if (strcmp(injection.name, name) != 0 || injection.times <= 0) {
    return false;
  }
  if (injection.spared > 0) {
    --injection.spared;
    return false;
  }
  *error = injection.error;
  if (--injection.times == 0) {
    injection.name = nullptr;
  }
  return true;
}

Result Close(int fd) {
  static constexpr Call kClose{"close", -1, 0, false};
  return Make(kClose, [fd] { return close(fd); });
}

void FailNextForTesting(const char* name, int error, int times, int spared) {
  detail::injection = {name, error, times, spared};
}

}  // namespace nuv::kernel
