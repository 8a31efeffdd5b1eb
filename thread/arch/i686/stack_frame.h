/// \file i686 stack frames: ebp points at the saved ebp; word 1 is the frame's return address.
#ifndef NUV_THREAD_ARCH_I686_STACK_FRAME_H
#define NUV_THREAD_ARCH_I686_STACK_FRAME_H

namespace nuv::arch {

/// Word 0 of a frame: the caller's saved frame pointer, 0 at the outermost (_start clears ebp).
constexpr int kBackChainWord = 0;
/// Word 1 of a frame: the return address pushed by the call that made the frame.
constexpr int kReturnAddressWord = 1;

}  // namespace nuv::arch

/// The frame of the function that expands it: ebp. Needs -fno-omit-frame-pointer, which the
/// library's build and its exported compile options set.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): must expand in the function whose frame it is.
#define NUV_CURRENT_STACK_FRAME() __builtin_frame_address(0)

#endif  // NUV_THREAD_ARCH_I686_STACK_FRAME_H
