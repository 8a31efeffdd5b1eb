/// \file Asynchronous notification: a handler run on SIGIO and SIGURG when data arrives.
#include <nuv/current_thread.h>
#include <nuv/socket.h>

#include <fcntl.h>
#include <csignal>

#include "core/assert_at.h"
#include "core/kernel.h"
#include "core/signals.h"

namespace {

constexpr nuv::kernel::Call kFcntl{"fcntl", -1, 0, false};

bool Installed(int signal, void (*handler)(int)) {
  sigset_t none;
  sigemptyset(&none);
  return !nuv::signals::Install(signal, handler, none, SA_RESTART, nullptr).Failed();
}

// The descriptor's status flags, or -1 when they cannot be read.
int StatusFlags(int fd) {
  return static_cast<int>(nuv::kernel::Make(kFcntl, [fd] { return fcntl(fd, F_GETFL); }).value);
}

bool SetStatusFlags(int fd, int flags) {
  return !nuv::kernel::Make(kFcntl, [=] { return fcntl(fd, F_SETFL, flags); }).Failed();
}

bool SetOwner(int fd, int pid) {
  return !nuv::kernel::Make(kFcntl, [=] { return fcntl(fd, F_SETOWN, pid); }).Failed();
}

int ChangeAsyncMask(int how) {
  sigset_t async;
  sigemptyset(&async);
  sigaddset(&async, SIGIO);
  sigaddset(&async, SIGURG);
  return static_cast<int>(nuv::signals::Mask(how, async, nullptr).value);
}

}  // namespace

int NuvSocket::RegisterAsyncHandler(void (*handler)(int)) {
  if (handler == nullptr) {
    NUV_ASSERT_AT(Installed(SIGIO, SIG_IGN), 565, "RegisterAsyncHandler");
    NUV_ASSERT_AT(Installed(SIGURG, SIG_IGN), 566, "RegisterAsyncHandler");
    const int flags = StatusFlags(fdM);
    NUV_ASSERT_AT(flags != -1, 569, "RegisterAsyncHandler");
    NUV_ASSERT_AT(SetStatusFlags(fdM, flags & ~O_ASYNC), 571, "RegisterAsyncHandler");
    handlerM = nullptr;
    return 0;
  }
  NUV_ASSERT_AT(Installed(SIGIO, handler), 552, "RegisterAsyncHandler");
  NUV_ASSERT_AT(Installed(SIGURG, handler), 553, "RegisterAsyncHandler");
  if (handlerM == nullptr) {
    const int flags = StatusFlags(fdM);
    NUV_ASSERT_AT(flags != -1, 556, "RegisterAsyncHandler");
    NUV_ASSERT_AT(SetStatusFlags(fdM, flags | O_ASYNC), 558, "RegisterAsyncHandler");
    NUV_ASSERT_AT(SetOwner(fdM, NuvCurrentThreadId()), 559, "RegisterAsyncHandler");
  }
  handlerM = handler;
  return 0;
}

int NuvSocket::BlockAsyncHandler() { return ChangeAsyncMask(SIG_BLOCK); }

int NuvSocket::UnblockAsyncHandler() { return ChangeAsyncMask(SIG_UNBLOCK); }
