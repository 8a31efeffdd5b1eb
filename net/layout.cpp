/// \file The formats of servers and sockets, checked at compile time: they live in pools that
/// every process of the device reads.
#include <nuv/socket.h>

#include <cstddef>

// Both derive from NuvSeed, which makes them formally non-standard-layout; the offsets below are
// exactly what these checks are there to pin down.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvNetLayout {
  static_assert(sizeof(NuvServer) == 20, "server: core, name, descriptor");
  static_assert(offsetof(NuvServer, nameM) == 12, "server name");
  static_assert(offsetof(NuvServer, fdM) == 16, "server descriptor");
  static_assert(sizeof(NuvSocket) == 20, "socket: core, descriptor, handler");
  static_assert(offsetof(NuvSocket, fdM) == 12, "socket descriptor");
  static_assert(offsetof(NuvSocket, handlerM) == 16, "socket handler");
  static_assert(sizeof(NuvEventHeader) == 8, "event header: magic, length");
  static_assert(offsetof(NuvEventHeader, magic) == 0, "event magic first");
  static_assert(offsetof(NuvEventHeader, length) == 4, "event length");
};
#pragma GCC diagnostic pop
