/// \file Sockets: a framed record's round trip between two processes (Send and Receive of 64
/// payload bytes, echoed) beside the same 72 bytes written and read on a bare Unix stream socket
/// pair, interleaved in one run.
#include <nuv/mempool.h>
#include <nuv/seed.h>
#include <nuv/socket.h>
#include <nuv/status.h>

#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/how_measured.h"
#include "bench/median.h"
#include "bench/private_pool.h"
#include "bench/shared_pool.h"

namespace {

constexpr unsigned kPoolSize = 64 * 1024;
constexpr int kRuns = 15;
constexpr int kRoundTripsPerRun = 2000;
constexpr unsigned kPayloadBytes = 64;
// The bytes a record of kPayloadBytes puts on the wire: its 8-byte header, then the payload.
constexpr unsigned kRecordBytes = sizeof(NuvEventHeader) + kPayloadBytes;

// Both exchanges run on a socket pair, so that they differ only in what goes over it: the
// library's ends are wrapped in NuvSocket, the plain ones are used bare.
struct Ends {
  int libraryParent;
  int libraryChild;
  int plainParent;
  int plainChild;
};

bool MakePair(int& parent, int& child) {
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
    std::perror("socketpair");
    return false;
  }
  parent = fds[0];
  child = fds[1];
  return true;
}

// An echoing child closes every end but its own: it then sees end of file as soon as the parent
// closes its end, whichever child was forked first.
void CloseAllBut(const Ends& ends, int own) {
  for (const int fd : {ends.libraryParent, ends.libraryChild, ends.plainParent, ends.plainChild}) {
    if (fd != own) {
      close(fd);
    }
  }
}

// Answers every record with itself until the parent closes its end.
void EchoRecords(NuvMempool* pool, int fd) {
  const ref<NuvSocket> socket(new (pool) NuvSocket(fd));
  std::array<char, kPayloadBytes> payload{};
  while (socket->Receive(payload.data(), kPayloadBytes) == static_cast<int>(kNuvOk) &&
         socket->Send(payload.data(), kPayloadBytes) == static_cast<int>(kNuvOk)) {
  }
}

// Reads exactly length bytes; false at end of file or on an error.
bool ReadAll(int fd, char* buffer, size_t length) {
  while (length > 0) {
    const ssize_t got = read(fd, buffer, length);
    if (got <= 0) {
      return false;
    }
    buffer += got;
    length -= static_cast<size_t>(got);
  }
  return true;
}

void EchoPlain(int fd) {
  std::array<char, kRecordBytes> record{};
  while (ReadAll(fd, record.data(), kRecordBytes) &&
         write(fd, record.data(), kRecordBytes) == static_cast<ssize_t>(kRecordBytes)) {
  }
  close(fd);
}

void RunOn(int cpu) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(cpu, &one);
  sched_setaffinity(0, sizeof one, &one);
}

// Where the processes run. Left free, the scheduler puts one echo beside the parent and the
// other on the second processor, a different choice in each run, and a hand-off to another
// processor costs several times one on the same: so each echo is placed, both alike.
struct Placement {
  const char* what;
  int echoCpu;
  int ownCpu;
};

void Bench(NuvMempool* pool, const Placement& placement) {
  Ends ends{};
  if (!MakePair(ends.libraryParent, ends.libraryChild) ||
      !MakePair(ends.plainParent, ends.plainChild)) {
    return;
  }
  RunOn(placement.echoCpu);  // the echoes inherit it
  const int libraryEcho = nuv::bench::StartChild([=] {
    CloseAllBut(ends, ends.libraryChild);
    EchoRecords(pool, ends.libraryChild);
  });
  const int plainEcho = nuv::bench::StartChild([=] {
    CloseAllBut(ends, ends.plainChild);
    EchoPlain(ends.plainChild);
  });
  RunOn(placement.ownCpu);
  close(ends.libraryChild);
  close(ends.plainChild);
  ref<NuvSocket> socket(new (pool) NuvSocket(ends.libraryParent));
  NuvSocket* library = socket.get();
  const int plain = ends.plainParent;
  std::array<char, kPayloadBytes> payload{};
  std::array<char, kRecordBytes> record{};
  const std::string what = std::string("record round trip, ") + placement.what;
  nuv::bench::PrintBeside(what.c_str(), {"Send + Receive (64 bytes)", "write + read (72 bytes)"},
                          nuv::bench::Interleaved(
                              kRuns, kRoundTripsPerRun,
                              [library, &payload] {
                                library->Send(payload.data(), kPayloadBytes);
                                library->Receive(payload.data(), kPayloadBytes);
                              },
                              [plain, &record] {
                                write(plain, record.data(), kRecordBytes);
                                ReadAll(plain, record.data(), kRecordBytes);
                              }),
                          true);
  socket = nullptr;
  close(plain);
  waitpid(libraryEcho, nullptr, 0);
  waitpid(plainEcho, nullptr, 0);
}

}  // namespace

int main() {
  nuv::bench::PrintHowMeasured();
  // Each echoing child works on its own copy of the pool: a socket needs nothing shared.
  NuvMempool* pool = nuv::bench::MakePrivatePool(kPoolSize);
  if (pool == nullptr) {
    return EXIT_FAILURE;
  }
  cpu_set_t all;
  CPU_ZERO(&all);
  sched_getaffinity(0, sizeof all, &all);
  const int own = sched_getcpu();
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (cpu != own && CPU_ISSET(cpu, &all)) {
      Bench(pool, {"each echo on another processor", cpu, own});
      break;
    }
  }
  Bench(pool, {"all on one processor", own, own});
  sched_setaffinity(0, sizeof all, &all);
  delete pool;
  return EXIT_SUCCESS;
}
