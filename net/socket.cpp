/// \file NuvSocket: connecting, the descriptor, and whether an event is waiting.
#include <nuv/fd_set.h>
#include <nuv/socket.h>
#include <nuv/status.h>
#include <nuv/time.h>

#include <sys/socket.h>
#include <cerrno>

#include "core/kernel.h"
#include "core/log.h"
#include "net/local_socket.h"

namespace {

constexpr nuv::kernel::Call kConnect{"connect", -1, 0, false};
constexpr nuv::kernel::Call kSetsockopt{"setsockopt", -1, 0, false};
constexpr int kLingerSeconds = 100;

// Unsent data is kept for up to 100 seconds after close; a refusal only costs that.
void AskForLinger(int fd) {
  const linger lingering{1, kLingerSeconds};
  const nuv::kernel::Result asked = nuv::kernel::Make(kSetsockopt, [&] {
    return setsockopt(fd, SOL_SOCKET, SO_LINGER, &lingering, sizeof lingering);
  });
  if (asked.Failed()) {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityWarn, "NuvSocket",
                    "setsockopt SO_LINGER failed, err = %d", asked.error);
  }
}

}  // namespace

int NuvSocket::Connect(NuvMempool* pool, const char* path, ref<NuvSocket>& out) {
  const int fd = nuv::net::NewStreamSocket();
  if (fd < 0) {
    return static_cast<int>(kNuvSocketFailed);
  }
  if (!nuv::net::AtLocalAddress(kConnect, connect, fd, path)) {
    nuv::net::GiveUp(fd);
    return static_cast<int>(kNuvSocketFailed);
  }
  AskForLinger(fd);
  out = new (pool) NuvSocket(fd);
  return static_cast<int>(kNuvOk);
}

NuvSocket::NuvSocket(int fd) : NuvCore(NuvMempool::nuv), fdM(fd) {}

NuvSocket::~NuvSocket() {
  nuv::kernel::Ignore(nuv::kernel::Close(fdM),
                      "the socket is given up either way; CloseFd may have closed it");
}

int NuvSocket::CloseFd() const { return static_cast<int>(nuv::kernel::Close(fdM).value); }

bool NuvSocket::IsDataPresent() const {
  NuvFdSet readable;
  readable.Set(fdM);
  NuvTime noWait(0);
  NuvFdSet::Select(&readable, nullptr, nullptr, &noWait);
  return readable.FIsSet(fdM);
}
