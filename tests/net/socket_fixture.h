/// \file What the socket tests share: a private pool, a socket path of the test's own, and
/// connected pairs.
#ifndef NUV_TESTS_NET_SOCKET_FIXTURE_H
#define NUV_TESTS_NET_SOCKET_FIXTURE_H

#include <nuv/socket.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/private_pool.h"

namespace nuv::test {

/// Priority value of the sockets' bad-record records: facility "facnuv" (local0), "pridebug".
constexpr int kDebugRecordValue = 135;

/// A record header as this processor writes it: magic and length in the device's own byte order.
inline std::vector<unsigned char> NativeHeader(unsigned magic, int length) {
  std::vector<unsigned char> bytes(8);
  std::memcpy(bytes.data(), &magic, 4);
  std::memcpy(bytes.data() + 4, &length, 4);
  return bytes;
}

/// Writes bytes to fd in one write, as a peer that does not frame them would.
inline void WriteRaw(int fd, const std::vector<unsigned char>& bytes) {
  ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

/// A socket path of the test's own in /tmp, removed before and after the test.
inline std::string TestSocketPath(const char* what) {
  return "/tmp/nuvsock_" + std::to_string(getpid()) + "_" + what;
}

/// A private pool, a path for the test's server, and the two ends of a connection through it.
class SocketTest : public PrivatePoolTest {
 protected:
  void SetUp() override {
    PrivatePoolTest::SetUp();
    pathM = TestSocketPath("server");
    unlink(pathM.c_str());
  }
  void TearDown() override {
    serverM = nullptr;
    clientM = nullptr;
    acceptedM = nullptr;
    unlink(pathM.c_str());
    PrivatePoolTest::TearDown();
  }

  const char* Path() const { return pathM.c_str(); }

  /// Opens the test's server on its path.
  void Listen() { ASSERT_EQ(NuvServer::Create(Pool(), Path(), serverM), static_cast<int>(kNuvOk)); }
  /// Listens, connects a client and accepts it: Client() and Accepted() are the two ends.
  void Connect() {
    ASSERT_NO_FATAL_FAILURE(Listen());
    ASSERT_EQ(NuvSocket::Connect(Pool(), Path(), clientM), static_cast<int>(kNuvOk));
    ASSERT_EQ(serverM->Accept(acceptedM), static_cast<int>(kNuvOk));
  }

  ref<NuvServer>& Server() { return serverM; }
  ref<NuvSocket>& Client() { return clientM; }
  ref<NuvSocket>& Accepted() { return acceptedM; }

 private:
  std::string pathM;
  ref<NuvServer> serverM;
  ref<NuvSocket> clientM;
  ref<NuvSocket> acceptedM;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_NET_SOCKET_FIXTURE_H
