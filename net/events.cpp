/// \file Framed records (events) on a socket: Send and Receive, with a broken pipe's SIGPIPE
/// turned into a result.
#include <nuv/socket.h>
#include <nuv/status.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>

#include "arch/signal_entry.h"
#include "core/log.h"
#include "core/signals.h"

namespace {

constexpr unsigned kHeaderBytes = sizeof(NuvEventHeader);
static_assert(kHeaderBytes == 8, "magic and length");
// An event up to this size, header included, is written by one WriteN and read by one ReadN of
// the whole event, as it always has been. A longer one is moved in more calls, never through a
// buffer of the caller's size on the stack: the same bytes and the same results.
constexpr unsigned kStagingBytes = 4096;
constexpr unsigned kStagedPayload = kStagingBytes - kHeaderBytes;

// The one recovery point of Send and Receive in this process.
nuv::signals::BrokenPipeRecovery recovery;

int WriteEvent(int fd, const void* data, unsigned length) {
  unsigned char staging[kStagingBytes];
  const NuvEventHeader header{kNuvEventMagic, static_cast<int>(length)};
  memcpy(staging, &header, kHeaderBytes);
  const unsigned staged = std::min(length, kStagedPayload);
  if (staged > 0) {
    memcpy(staging + kHeaderBytes, data, staged);
  }
  int result = WriteN(fd, staging, kHeaderBytes + staged);
  if (result == static_cast<int>(kNuvOk) && staged < length) {
    result = WriteN(fd, static_cast<const unsigned char*>(data) + staged, length - staged);
  }
  return result;
}

// Reads and drops length bytes.
int Discard(int fd, unsigned length, unsigned char* scratch) {
  int result = static_cast<int>(kNuvOk);
  while (result == static_cast<int>(kNuvOk) && length > 0) {
    const unsigned part = std::min(length, kStagingBytes);
    result = ReadN(fd, scratch, part);
    length -= part;
  }
  return result;
}

bool IsGood(const NuvEventHeader& header, unsigned length) {
  return header.magic == kNuvEventMagic && header.length == static_cast<int>(length);
}

void LogBadHeader(const NuvEventHeader& header, unsigned length) {
  if (header.magic != kNuvEventMagic) {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityDebug, "NuvSocket",
                    "Bad magic on event read: 0x%x", header.magic);
  } else {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityDebug, "NuvSocket",
                    "Bad event size: %d versus %d", header.length, static_cast<int>(length));
  }
}

// The whole event is read before its header is looked at: length + 8 bytes, whatever they hold.
int ReadEvent(int fd, void* data, unsigned length) {
  unsigned char staging[kStagingBytes];
  const unsigned staged = std::min(length, kStagedPayload);
  int result = ReadN(fd, staging, kHeaderBytes + staged);
  if (result != static_cast<int>(kNuvOk)) {
    return result;
  }
  NuvEventHeader header{};
  memcpy(&header, staging, kHeaderBytes);
  const unsigned rest = length - staged;
  if (!IsGood(header, length)) {
    result = Discard(fd, rest, staging);
    if (result == static_cast<int>(kNuvOk)) {
      LogBadHeader(header, length);
      result = static_cast<int>(kNuvBadRecord);
    }
    return result;
  }
  if (staged > 0) {
    memcpy(data, staging + kHeaderBytes, staged);
  }
  return rest > 0 ? ReadN(fd, static_cast<unsigned char*>(data) + staged, rest) : result;
}

}  // namespace

// Runs in a signal handler: only the jump back into the transfer.
NUV_SIGNAL_ENTRY void badpipe(int /*signal*/) { siglongjmp(recovery.point, 1); }

namespace {

// Runs transfer() with SIGPIPE sent to badpipe: its result, or end of file when the peer went
// away during it.
template <typename Transfer>
int GuardedTransfer(Transfer transfer) {
  int result = static_cast<int>(kNuvOk);
  if (!nuv::signals::GuardBrokenPipe(recovery, badpipe, [&] { result = transfer(); })) {
    return static_cast<int>(kNuvEndOfFile);
  }
  return result;
}

}  // namespace

int NuvSocket::Send(const void* data, unsigned length) const {
  if (data == nullptr && length > 0) {
    // Nothing to take the payload from: refused, as the kernel refuses such a write, before a
    // header goes out that no payload would follow.
    return static_cast<int>(kNuvSocketFailed);
  }
  const int fd = fdM;
  return GuardedTransfer([=] { return WriteEvent(fd, data, length); });
}

int NuvSocket::Receive(void* data, unsigned length) const {
  if (data == nullptr && length > 0) {
    // Nowhere to put the payload: refused before anything is read, so the stream stays in step.
    return static_cast<int>(kNuvSocketFailed);
  }
  const int fd = fdM;
  return GuardedTransfer([=] { return ReadEvent(fd, data, length); });
}
