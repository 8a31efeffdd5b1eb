/// \file External names: the device kernel's naming request, and reading another process's name.
#include "thread/external_name.h"

#include <nuv/os_thread.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <cstdio>
#include <cstring>

#include "core/kernel.h"

namespace {

constexpr int kNameBufferSize = 120;
// _IOW('N', 3, a 4-byte argument) as the device's kernel numbers it.
constexpr unsigned long kNameRequest = 0x80044e03;
constexpr int kPathSize = 32;

// The name handed to the kernel: at most 119 characters and a zero.
char osnbuf[kNameBufferSize];

using nuv::kernel::Call;
using nuv::kernel::Ignore;
using nuv::kernel::Make;
using nuv::kernel::Result;

constexpr Call kOpen{"open", -1, 0, false};
constexpr Call kRead{"read", -1, 0, false};
constexpr Call kIoctl{"ioctl", -1, 0, false};

void Close(int fd) { Ignore(nuv::kernel::Close(fd), "the descriptor is given up either way"); }

}  // namespace

namespace nuv {

KernelNameRequest FillKernelNameRequest(const char* name) {
  strncpy(osnbuf, name, kNameBufferSize);
  osnbuf[kNameBufferSize - 1] = '\0';
  return {osnbuf, &osnbuf[kNameBufferSize - 1]};
}

}  // namespace nuv

// "/dev/mem" is opened read-only, only to reach the device's request; nothing is read from it.
int newExternalize(const char* name) {
  const Result opened = Make(kOpen, [] { return open("/dev/mem", O_RDONLY); });
  if (opened.Failed()) {
    return 0;
  }
  const auto fd = static_cast<int>(opened.value);
  nuv::KernelNameRequest request = nuv::FillKernelNameRequest(name);
  const Result named = Make(kIoctl, [fd, &request] { return ioctl(fd, kNameRequest, &request); });
  Close(fd);
  return named.Failed() ? 0 : 1;
}

// A name that cannot be set leaves the parent's command line; nothing is reported.
void NuvOsThread::ExternalizeName(const char* name) {
  if (newExternalize(name) == 0) {
    nuv::RenameInPlace(name);
  }
}

// The zero goes to buf[count], so a full read of len bytes needs len + 1 characters.
void NuvOsThread::GetExternalName(int pid, char* buf, int len) {
  char path[kPathSize];
  snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
  const Result opened = Make(kOpen, [&path] { return open(path, O_RDONLY); });
  if (!opened.Failed()) {
    const auto fd = static_cast<int>(opened.value);
    const Result count =
        Make(kRead, [fd, buf, len] { return read(fd, buf, static_cast<size_t>(len)); });
    Close(fd);
    if (count.value > 0) {
      buf[count.value] = '\0';
      return;
    }
  }
  snprintf(buf, static_cast<size_t>(len) + 1, "%d", pid);
}
