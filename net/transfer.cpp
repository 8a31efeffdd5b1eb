/// \file WriteN and ReadN: exactly so many bytes, whatever each call of the kernel takes.
#include <nuv/socket.h>
#include <nuv/status.h>

#include <unistd.h>

#include "core/kernel.h"

namespace {

// A signal that cuts a transfer short is reported like any failure: EINTR is not retried.
constexpr nuv::kernel::Call kWrite{"write", -1, 0, false};
constexpr nuv::kernel::Call kRead{"read", -1, 0, false};

}  // namespace

int WriteN(int fd, const void* buffer, unsigned length) {
  const auto* next = static_cast<const char*>(buffer);
  while (length > 0) {
    const nuv::kernel::Result written =
        nuv::kernel::Make(kWrite, [=] { return write(fd, next, length); });
    if (written.Failed()) {
      return static_cast<int>(kNuvSocketFailed);
    }
    // A write of no bytes is simply made again.
    next += written.value;
    length -= static_cast<unsigned>(written.value);
  }
  return static_cast<int>(kNuvOk);
}

int ReadN(int fd, void* buffer, unsigned length) {
  auto* next = static_cast<char*>(buffer);
  while (length > 0) {
    const nuv::kernel::Result got =
        nuv::kernel::Make(kRead, [=] { return read(fd, next, length); });
    if (got.Failed()) {
      return static_cast<int>(kNuvSocketFailed);
    }
    if (got.value == 0) {
      return static_cast<int>(kNuvEndOfFile);
    }
    next += got.value;
    length -= static_cast<unsigned>(got.value);
  }
  return static_cast<int>(kNuvOk);
}
