/// \file Local stream sockets: a new one, its address, and giving one up.
#include "net/local_socket.h"

#include <sys/un.h>
#include <cstring>

#include "core/kernel.h"

namespace nuv::net {
namespace {

constexpr kernel::Call kSocket{"socket", -1, 0, false};
constexpr size_t kPathCharacters = sizeof(sockaddr_un{}.sun_path) - 1;
constexpr socklen_t kAddressLength = 110;
static_assert(sizeof(sockaddr_un) == kAddressLength, "family and a 108-byte path field");

}  // namespace

bool AtLocalAddress(const kernel::Call& named, AddressCall call, int fd, const char* path) {
  if (path == nullptr) {
    // No address at all: refused before the kernel is asked, as a refusal of the call would be.
    return false;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path, kPathCharacters);
  const auto* general = reinterpret_cast<const sockaddr*>(&address);
  return !kernel::Make(named, [=] { return call(fd, general, kAddressLength); }).Failed();
}

int NewStreamSocket() {
  return static_cast<int>(
      kernel::Make(kSocket, [] { return socket(AF_UNIX, SOCK_STREAM, 0); }).value);
}

void GiveUp(int fd) { kernel::Ignore(kernel::Close(fd), "the descriptor is given up either way"); }

}  // namespace nuv::net
