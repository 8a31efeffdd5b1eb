/// \file NuvLockShared: readers, writers, promotion and demotion across processes.
#include <nuv/shared_lock.h>

namespace {

// Charges the time spent since the last reading against the remaining time-out, so that every
// later wait receives what is left of the caller's time-out (none: it waits without limit).
class TimeoutBudget {
 public:
  explicit TimeoutBudget(const NuvTime* timeout) : limitedM(timeout != nullptr) {
    if (limitedM) {
      remainingM = *timeout;
      NuvTimeCounter::initCounter();
      counterM.Start();
    }
  }
  NuvTime* First() { return limitedM ? &remainingM : nullptr; }
  NuvTime* Next() {
    if (!limitedM) {
      return nullptr;
    }
    remainingM.Set(remainingM.Nanoseconds() - static_cast<int64_t>(counterM.tonsec()));
    counterM.Start();
    return &remainingM;
  }

 private:
  bool limitedM;
  NuvTime remainingM;
  NuvTimeCounter counterM;
};

// Writers and promoters sleep on it until the readers are gone; it never rises above 0.
NuvSema* NewDrain(NuvMempool* pool) {
  auto* drain = new (pool) NuvSema(NuvMempool::nuv);
  drain->init(0, true);
  return drain;
}

}  // namespace

NuvLockShared::NuvLockShared() : NuvSema(NuvMempool::nuv), drainM(NewDrain(GetPool())) {
  init(1, true);
}

NuvLockShared::~NuvLockShared() { drainM->DeleteThis(); }

int NuvLockShared::readlock(NuvTime* timeout) {
  if (psema(timeout) == -1) {
    return -1;
  }
  readersM = static_cast<int16_t>(readersM + 1);
  vsema();
  return 0;
}

int NuvLockShared::readunlock(NuvTime* timeout) {
  if (psema(timeout) == -1) {
    return -1;
  }
  readersM = static_cast<int16_t>(readersM - 1);
  if (readersM == 0) {
    drainM->vwaiter();
  }
  vsema();
  return 0;
}

int NuvLockShared::writelock(NuvTime* timeout) {
  TimeoutBudget budget(timeout);
  if (psema(budget.First()) == -1) {
    return -1;
  }
  while (readersM > 0) {
    if (drainM->sssema(this, budget.Next()) < 0) {
      return -1;
    }
    if (psema(budget.Next()) == -1) {
      return -1;
    }
  }
  return 0;
}

int NuvLockShared::writeunlock() {
  drainM->vwaiter();
  return vsema();
}

int NuvLockShared::demotelock() {
  readersM = static_cast<int16_t>(readersM + 1);
  return vsema();
}

int NuvLockShared::promotelock(NuvTime* timeout) {
  TimeoutBudget budget(timeout);
  if (psema(budget.First()) == -1) {
    return -1;
  }
  promotersM = static_cast<int16_t>(promotersM + 1);
  while (readersM > promotersM) {
    // Only a time-out that is used up ends the wait on drain with -1. Retaking the free gate
    // then would start the loop over at once, for as long as another reader stays.
    if (drainM->sssema(this, budget.Next()) == -1) {
      return -1;
    }
    if (psema(budget.Next()) == -1) {
      return -1;
    }
  }
  promotersM = static_cast<int16_t>(promotersM - 1);
  return 0;
}
