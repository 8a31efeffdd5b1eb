/// \file NuvServer: a listening local stream socket bound to a path.
#include <nuv/socket.h>
#include <nuv/status.h>

#include <sys/socket.h>
#include <unistd.h>
#include <cstring>

#include "core/assert_at.h"
#include "core/kernel.h"
#include "net/local_socket.h"

namespace {

constexpr nuv::kernel::Call kBind{"bind", -1, 0, false};
constexpr nuv::kernel::Call kListen{"listen", -1, 0, false};
constexpr nuv::kernel::Call kAccept{"accept", -1, 0, false};
constexpr nuv::kernel::Call kUnlink{"unlink", -1, 0, false};
constexpr int kBacklog = 5;

bool BindAndListen(int fd, const char* path) {
  return nuv::net::AtLocalAddress(kBind, bind, fd, path) &&
         !nuv::kernel::Make(kListen, [fd] { return listen(fd, kBacklog); }).Failed();
}

}  // namespace

int NuvServer::Create(NuvMempool* pool, const char* path, ref<NuvServer>& out) {
  const ref<NuvServer> server(new (pool) NuvServer());
  const int result = server->Open(path);
  if (result == static_cast<int>(kNuvOk)) {
    out = server;
  }
  return result;
}

NuvServer::NuvServer() : NuvCore(NuvMempool::nuv) {}

NuvServer::~NuvServer() {
  if (nameM != nullptr) {
    nuv::kernel::Ignore(nuv::kernel::Make(kUnlink, [this] { return unlink(nameM); }),
                        "a path cut to 107 characters is not the name, and stays");
    GetPool()->Free(nameM);
  }
  if (fdM != -1) {
    NUV_ASSERT_AT(!nuv::kernel::Close(fdM).Failed(), 155, "NuvServer");
  }
}

int NuvServer::Open(const char* path) {
  const int fd = nuv::net::NewStreamSocket();
  if (fd < 0) {
    return static_cast<int>(kNuvSocketFailed);
  }
  if (!BindAndListen(fd, path)) {
    nuv::net::GiveUp(fd);
    return static_cast<int>(kNuvSocketFailed);
  }
  fdM = fd;
  const size_t size = strlen(path) + 1;
  nameM = static_cast<char*>(GetPool()->Malloc(static_cast<unsigned>(size), NuvMempool::nuv));
  memcpy(nameM, path, size);
  return static_cast<int>(kNuvOk);
}

int NuvServer::Accept(ref<NuvSocket>& out) {
  // The peer's address is not used; a local peer's is cut to fit.
  sockaddr peer{};
  socklen_t peerLength = sizeof peer;
  const int fd = fdM;
  const nuv::kernel::Result accepted =
      nuv::kernel::Make(kAccept, [&] { return accept(fd, &peer, &peerLength); });
  if (accepted.Failed()) {
    return static_cast<int>(kNuvSocketFailed);
  }
  out = new (GetPool()) NuvSocket(static_cast<int>(accepted.value));
  return static_cast<int>(kNuvOk);
}
