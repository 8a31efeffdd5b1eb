/// \file NuvMessenger and NuvMessageQ: numbered queues of seven-word messages in a pool.
#ifndef NUV_MESSENGER_H
#define NUV_MESSENGER_H

#include <nuv/lockword.h>
#include <nuv/seed.h>
#include <nuv/time.h>

class NuvSema;
struct NuvMessageNode;

/// Seven 32-bit words, copied verbatim: word 0 is the message type.
struct NuvMessage {
  unsigned type;
  unsigned payload[6];
};

/// A messenger's result codes.
enum NuvMessengerResult : unsigned {
  kNuvMessageDone = 0,
  kNuvNoSuchQueue = 1,
  kNuvQueueEmpty = 2,
  kNuvQueueNumberTaken = 3,  // CreateNamedQueue: the number is in use; DestroyQueue: no queue
  kNuvReceiveTimedOut = 4,
};

/// A queue (user "nuv", reference-counted): oldest message first.
/// Layout (checked in sync/layout.cpp): 0 core, 12 head, 16 tail, 20 number, 24 lock word,
/// 28 receive semaphore, 32 size semaphore, 36 next; 40 bytes.
class NuvMessageQ : public NuvCore {
 public:
  using Predicate = bool (*)(NuvMessage*, unsigned long);

  NuvMessageQ(int number, int size);
  /// Discards the messages left and destroys both semaphores; a receiver still waiting stops at
  /// the semaphore's assertion.
  ~NuvMessageQ() override;
  NuvMessageQ(const NuvMessageQ&) = delete;
  NuvMessageQ& operator=(const NuvMessageQ&) = delete;
  NuvMessageQ(NuvMessageQ&&) = delete;
  NuvMessageQ& operator=(NuvMessageQ&&) = delete;

  /// Discards every message.
  void flush();
  /// Removes every message for which predicate returns true. The predicate runs with the
  /// queue's lock word held and must not use the same queue.
  void Filter(Predicate predicate, unsigned long argument);
  /// Whether a message of this type is queued.
  bool Peek(unsigned long type);

  int GetNumber() const { return numberM; }

 private:
  friend class NuvMessenger;
  friend struct NuvSyncLayout;

  void Append(NuvMessageNode* node);
  NuvMessageNode* TakeHead();

  NuvMessageNode* headM = nullptr;
  NuvMessageNode* tailM = nullptr;
  int numberM;
  volatile NuvLock lockM = 0;
  NuvSema* receiveM = nullptr;
  NuvSema* sizeM = nullptr;
  NuvMessageQ* nextM = nullptr;
};

/// One per pool (user "nuv"): its lock word, the next queue number and the list of queues.
/// Layout (checked in sync/layout.cpp): 0 seed, 8 lock word, 12 next number, 16 queues;
/// 20 bytes.
class NuvMessenger : public NuvSeed {
 public:
  /// No queues yet; the first number handed out is 1.
  NuvMessenger();

  /// A new queue with the next free number; returns the number.
  int CreateQueue(int size);
  /// A queue with the caller's number (its size semaphore starts at 10): done, or
  /// kNuvQueueNumberTaken.
  unsigned CreateNamedQueue(int number, int size);
  /// Unlinks the queue; it goes when its last user lets go. Done, or kNuvQueueNumberTaken when
  /// there is no such queue.
  unsigned DestroyQueue(int number);
  /// Appends a copy of message; never waits (flag and timeout are accepted and ignored). Done,
  /// or kNuvNoSuchQueue.
  unsigned isend(int number, NuvMessage& message, char flag, NuvTime* timeout);
  /// Takes the oldest message. Done; kNuvNoSuchQueue; kNuvQueueEmpty when noWait is set and
  /// nothing is queued; kNuvReceiveTimedOut when the time-out ran out (below 10 ms: at once).
  unsigned irecv(int number, NuvMessage& out, char noWait, NuvTime* timeout);
  void flush(int number);
  void Filter(int number, NuvMessageQ::Predicate predicate, unsigned long argument);
  bool Peek(int number, unsigned long type);

 private:
  friend struct NuvSyncLayout;

  /// The queue with this number with one reference taken for the caller, or null.
  NuvMessageQ* Lookup(int number);
  bool FNumberTaken(int number) const;
  void AppendQueue(NuvMessageQ* queue);

  volatile NuvLock lockM = 0;
  int nextNumberM = 1;
  NuvMessageQ* queuesM = nullptr;
};

#endif  // NUV_MESSENGER_H
