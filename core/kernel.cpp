/// \file The failure injection of the kernel path, for tests.
#include "core/kernel.h"

#include <cstring>

namespace nuv::kernel {

detail::Injection detail::injection = {nullptr, 0, 0};

bool detail::TakeInjected(const char* name, int* error) {
  if (strcmp(injection.name, name) != 0 || injection.times <= 0) {
    return false;
  }
  *error = injection.error;
  if (--injection.times == 0) {
    injection.name = nullptr;
  }
  return true;
}

void FailNextForTesting(const char* name, int error, int times) {
  detail::injection = {name, error, times};
}

}  // namespace nuv::kernel
