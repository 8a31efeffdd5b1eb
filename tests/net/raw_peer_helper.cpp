/// \file A peer that knows nothing of the library: it speaks to a local socket with plain
/// connect, write and read, as another program of the device might.
///   raw_peer_helper write PATH HEX   connects to PATH, writes the bytes in one write, exits
///   raw_peer_helper read PATH COUNT  connects to PATH, reads COUNT bytes, prints them in hex
/// Exit status 0 when it did all that, 1 when a step failed (the step is on standard error).
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

int Fail(const char* step) {
  std::fprintf(stderr, "%s: %s\n", step, std::strerror(errno));
  return 1;
}

int ConnectTo(const char* path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return -1;
  }
  return fd;
}

std::vector<unsigned char> FromHex(const std::string& hex) {
  std::vector<unsigned char> bytes;
  for (size_t at = 0; at + 1 < hex.size(); at += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(at, 2), nullptr, 16)));
  }
  return bytes;
}

int WriteBytes(int fd, const std::string& hex) {
  const std::vector<unsigned char> bytes = FromHex(hex);
  if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    return Fail("write");
  }
  return 0;
}

int ReadBytes(int fd, size_t count) {
  std::vector<unsigned char> bytes(count);
  size_t got = 0;
  while (got < count) {
    const ssize_t part = read(fd, bytes.data() + got, count - got);
    if (part <= 0) {
      return Fail("read");
    }
    got += static_cast<size_t>(part);
  }
  for (const unsigned char byte : bytes) {
    std::printf("%02x", byte);
  }
  std::printf("\n");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s write PATH HEX | read PATH COUNT\n", argv[0]);
    return 2;
  }
  const std::string mode = argv[1];
  const int fd = ConnectTo(argv[2]);
  if (fd < 0) {
    return Fail("connect");
  }
  const int result =
      mode == "write" ? WriteBytes(fd, argv[3]) : ReadBytes(fd, std::strtoul(argv[3], nullptr, 10));
  close(fd);
  return result;
}
