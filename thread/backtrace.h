/// \file Walking the calling process's stack by its frames' back chains.
#ifndef NUV_THREAD_BACKTRACE_H
#define NUV_THREAD_BACKTRACE_H

namespace nuv {

/// The frame that frame's back chain leads to; null at the outermost frame, and also when the
/// chain does not lead further up the process's stack (a frame not built by the ABI's rules),
/// so that a walk never reads outside the stack.
void* CallerFrame(void* frame);

/// The return address saved in frame's return-address word.
void* SavedReturnAddress(void* frame);

}  // namespace nuv

#endif  // NUV_THREAD_BACKTRACE_H
