/// \file What the server and the connecting side share: a new local stream socket, its address
/// at a path, and giving up a half-made one.
#ifndef NUV_NET_LOCAL_SOCKET_H
#define NUV_NET_LOCAL_SOCKET_H

#include <sys/socket.h>
#include <sys/un.h>

namespace nuv::net {

/// The address length given to bind and connect, whatever the path: the whole structure.
constexpr socklen_t kLocalAddressLength = 110;
static_assert(sizeof(sockaddr_un) == kLocalAddressLength, "family and a 108-byte path field");

/// Family AF_UNIX and the first 107 characters of path in a zeroed path field: a longer path is
/// cut, and the field always ends in a zero.
sockaddr_un LocalAddress(const char* path);
/// socket(AF_UNIX, SOCK_STREAM, 0): the descriptor, or -1.
int NewStreamSocket();
/// Closes a descriptor that is given up after a failure; the failure is what gets reported.
void GiveUp(int fd);

}  // namespace nuv::net

#endif  // NUV_NET_LOCAL_SOCKET_H
