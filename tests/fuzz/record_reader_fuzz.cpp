/// \file Fuzzes the framed-record reader: the input's first two bytes give the length that the
/// receiver expects, the rest is what the peer wrote on the socket before going away. Receive
/// takes records until it reports end of file or a bad record: whatever the bytes, a result,
/// never a crash, a hang or a write past the receiver's buffer.
#include <nuv/mempool.h>
#include <nuv/socket.h>
#include <nuv/status.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/quiet_log.h"

namespace {

constexpr std::size_t kMostBytes = 64 * 1024;  // what one socket pair buffers without a reader

NuvMempool* Pool() {
  static NuvMempool* pool = [] {
    NuvMempool* made = nullptr;
    NuvMempool::Allocate("fuzz", 1024 * 1024, false, nullptr, false, made);
    return made;
  }();
  return pool;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  nuv::fuzz::QuietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 2 || size - 2 > kMostBytes) {
    return 0;
  }
  const unsigned length = data[0] | (data[1] & 0x3fU) << 8;
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
    return 0;
  }
  const bool written =
      size == 2 || write(fds[1], data + 2, size - 2) == static_cast<ssize_t>(size - 2);
  close(fds[1]);
  if (written) {
    auto* socket = new (Pool()) NuvSocket(fds[0]);
    std::vector<unsigned char> buffer(length);
    while (socket->Receive(buffer.data(), length) == static_cast<int>(kNuvOk)) {
    }
    socket->DeleteThis();
  } else {
    close(fds[0]);
  }
  return 0;
}
