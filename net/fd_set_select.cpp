/// \file NuvFdSet::Select: select over the library's descriptor sets, retried on ENOMEM.
#include <nuv/fd_set.h>
#include <nuv/time.h>

#include <sys/select.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "core/assert_at.h"
#include "core/kernel.h"
#include "core/log.h"

namespace {

constexpr nuv::kernel::Call kSelect{"select", -1, 0, false};
constexpr nuv::kernel::Call kUsleep{"usleep", -1, 0, false};
constexpr int kAttempts = 5;
constexpr useconds_t kPauseMicroseconds = 10;
constexpr const char* kTag = "NuvFdSet::Select";

// The C library's descriptor set is the same bits: descriptor n is bit n mod 32 of word n / 32.
static_assert(sizeof(fd_set) == NuvFdSet::kWords * sizeof(unsigned), "1,024 bits");

// Taken afresh for each attempt, since select may change it: the low 32 bits of the time-out in
// microseconds, as a signed number.
timeval Interval(const NuvTime& timeout) {
  const auto microseconds =
      static_cast<int32_t>(static_cast<uint32_t>(timeout.Nanoseconds() / 1000));
  constexpr int32_t kMicrosecondsPerSecond = 1000000;
  return timeval{microseconds / kMicrosecondsPerSecond, microseconds % kMicrosecondsPerSecond};
}

}  // namespace

// The sets given to Select, in the order select takes them, and their copies for the kernel.
struct NuvFdSetSelection {
  static constexpr int kSets = 3;
  NuvFdSet* sets[kSets];
  fd_set kernelSets[kSets];

  // One more than the highest descriptor of any set.
  int Count() const {
    int nfds = 0;
    for (const NuvFdSet* set : sets) {
      if (set != nullptr) {
        nfds = std::max(nfds, set->fdMaxM);
      }
    }
    return nfds;
  }
  fd_set* KernelSet(int which) {
    if (sets[which] == nullptr) {
      return nullptr;
    }
    memcpy(&kernelSets[which], sets[which]->bitsM, sizeof kernelSets[which]);
    return &kernelSets[which];
  }
  // After select: each set keeps only its ready descriptors.
  void TakeReady() {
    for (int which = 0; which < kSets; ++which) {
      if (sets[which] != nullptr) {
        memcpy(sets[which]->bitsM, &kernelSets[which], sizeof kernelSets[which]);
      }
    }
  }
  // Nothing ready; fdMaxM stays.
  void ClearBits() {
    for (NuvFdSet* set : sets) {
      if (set != nullptr) {
        std::fill(std::begin(set->bitsM), std::end(set->bitsM), 0U);
      }
    }
  }
  void LogFailure(int error, int nfds) const {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityErr, kTag,
                    "select() call failed with errno %d, fdMax %d\n", error, nfds);
    static constexpr const char* kLines[kSets] = {"readFds->fdMaxM %d\n", "writeFds->fdMaxM %d\n",
                                                  "exceptFds->fdMaxM %d\n"};
    for (int which = 0; which < kSets; ++which) {
      if (sets[which] != nullptr) {
        nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityErr, kTag, kLines[which],
                        sets[which]->fdMaxM);
      }
    }
  }
  // One call of select, with the time-out taken afresh.
  nuv::kernel::Result Attempt(int nfds, const NuvTime* timeout) {
    timeval interval{};
    if (timeout != nullptr) {
      interval = Interval(*timeout);
    }
    timeval* limit = timeout != nullptr ? &interval : nullptr;
    fd_set* readable = KernelSet(0);
    fd_set* writable = KernelSet(1);
    fd_set* exceptional = KernelSet(2);
    return nuv::kernel::Make(kSelect,
                             [=] { return select(nfds, readable, writable, exceptional, limit); });
  }
};

int NuvFdSet::Select(NuvFdSet* readFds, NuvFdSet* writeFds, NuvFdSet* exceptFds, NuvTime* timeout) {
  NuvFdSetSelection selection{{readFds, writeFds, exceptFds}, {}};
  const int nfds = selection.Count();
  errno = 0;
  nuv::kernel::Result selected{-1, 0};
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    selected = selection.Attempt(nfds, timeout);
    if (!selected.Failed()) {
      selection.TakeReady();
      return static_cast<int>(selected.value);
    }
    if (selected.error != ENOMEM) {
      break;
    }
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityErr, kTag,
                    "Select() returned ENOMEM -- sleeping and trying again!");
    nuv::kernel::Ignore(nuv::kernel::Make(kUsleep, [] { return usleep(kPauseMicroseconds); }),
                        "a signal ends the pause early");
  }
  if (selected.error == ENOSYS) {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityDebug, kTag,
                    "select() call failed with ENOSYS ... not pausing\n");
    selection.ClearBits();
    return static_cast<int>(selected.value);
  }
  selection.LogFailure(selected.error, nfds);
  NUV_ASSERT_AT(false, 743, "Select");
}
