/// \file The id of the calling library thread.
#ifndef NUV_CURRENT_THREAD_H
#define NUV_CURRENT_THREAD_H

/// The calling thread's id, the id that waits queue and wake-ups are sent to: the current
/// library thread's (pCurrentThreadG) process id; where no thread runs, the process id, read
/// from the kernel once per process (a forked child reads its own), not at every call.
int NuvCurrentThreadId();

#endif  // NUV_CURRENT_THREAD_H
