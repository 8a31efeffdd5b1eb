/// \file The process's scheduling level of each real-time class, for the thread layer's tests.
#ifndef NUV_THREAD_RT_PRIORITY_H
#define NUV_THREAD_RT_PRIORITY_H

#include <nuv/thread.h>

namespace nuv {

/// The level of class pri (0 to 4) in this process: positive is SCHED_FIFO at that priority,
/// 0 time-sharing, negative time-sharing with nice(-level).
int ClassPriority(NuvThread::rtPri pri);

/// For tests only: sets the level of class pri (0 to 4) in this process.
void SetClassPriorityForTesting(NuvThread::rtPri pri, int level);

}  // namespace nuv

#endif  // NUV_THREAD_RT_PRIORITY_H
