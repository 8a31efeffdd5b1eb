/// \file What the server and the connecting side share: a new local stream socket, its address
/// at a path, and giving up a half-made one.
#ifndef NUV_NET_LOCAL_SOCKET_H
#define NUV_NET_LOCAL_SOCKET_H

#include <sys/socket.h>

#include "core/kernel.h"

namespace nuv::net {

/// bind or connect.
using AddressCall = int (*)(int fd, const sockaddr* address, socklen_t length);

/// Makes call (bind or connect, named as the kernel path knows it) on fd with the address of
/// path: family AF_UNIX and the first 107 characters of path in a zeroed path field (a longer
/// path is cut, and the field always ends in a zero), with the length of the whole structure,
/// 110, whatever the path. False when it failed, and at once for a null path.
bool AtLocalAddress(const kernel::Call& named, AddressCall call, int fd, const char* path);
/// socket(AF_UNIX, SOCK_STREAM, 0): the descriptor, or -1.
int NewStreamSocket();
/// Closes a descriptor that is given up after a failure; the failure is what gets reported.
void GiveUp(int fd);

}  // namespace nuv::net

#endif  // NUV_NET_LOCAL_SOCKET_H
