/// \file Where the calling thread's id comes from once the thread layer is linked in.
#ifndef NUV_CORE_CURRENT_THREAD_H
#define NUV_CORE_CURRENT_THREAD_H

namespace nuv {

/// The current thread's id, or 0 when the process runs no library thread.
using CurrentThreadIdSource = int (*)();

/// Makes NuvCurrentThreadId ask source first; the thread layer installs its own at start-up.
void SetCurrentThreadIdSource(CurrentThreadIdSource source) noexcept;

}  // namespace nuv

#endif  // NUV_CORE_CURRENT_THREAD_H
