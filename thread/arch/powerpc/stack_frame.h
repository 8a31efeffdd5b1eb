/// \file PowerPC stack frames: r1 points at the back chain; word 1 is the link-register save slot.
#ifndef NUV_THREAD_ARCH_POWERPC_STACK_FRAME_H
#define NUV_THREAD_ARCH_POWERPC_STACK_FRAME_H

namespace nuv::arch {

/// Word 0 of a frame: the caller's frame, 0 at the outermost.
constexpr int kBackChainWord = 0;
/// Word 1 of a frame: where a called function saves its return address (its link register).
constexpr int kReturnAddressWord = 1;

}  // namespace nuv::arch

/// The frame of the function that expands it: the stack pointer, r1, which the ABI keeps
/// pointing at the back chain.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): must expand in the function whose frame it is.
#define NUV_CURRENT_STACK_FRAME() __builtin_frame_address(0)

#endif  // NUV_THREAD_ARCH_POWERPC_STACK_FRAME_H
