/// \file NuvMessenger: the numbered message queues of a pool.
#ifndef NUV_MESSENGER_H
#define NUV_MESSENGER_H

#include <nuv/lockword.h>
#include <nuv/seed.h>

class NuvMessageQ;

/// One per pool (user "nuv"): its lock word, the next queue number and the list of queues.
class NuvMessenger : public NuvSeed {
 public:
  /// No queues yet; the first number handed out is 1.
  NuvMessenger();

 private:
  friend struct NuvMempoolLayout;
  volatile NuvLock lockM = 0;
  int nextNumberM = 1;
  NuvMessageQ* queuesM = nullptr;
};

#endif  // NUV_MESSENGER_H
