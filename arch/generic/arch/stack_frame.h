/// \file Stack frames chained through their first word, the shape that PowerPC (r1 points at the
/// back chain, word 1 is the link-register save slot) and i686 (ebp points at the saved ebp,
/// word 1 is the return address the call pushed) share.
#ifndef NUV_ARCH_GENERIC_STACK_FRAME_H
#define NUV_ARCH_GENERIC_STACK_FRAME_H

namespace nuv::arch {

/// Word 0 of a frame: the caller's frame, 0 at the outermost.
constexpr int kBackChainWord = 0;
/// Word 1 of a frame: the return address of the function that made it.
constexpr int kReturnAddressWord = 1;

}  // namespace nuv::arch

/// The frame of the function that expands it. On i686 it needs -fno-omit-frame-pointer, which the
/// library's build and its exported compile options set.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): must expand in the function whose frame it is.
#define NUV_CURRENT_STACK_FRAME() __builtin_frame_address(0)

#endif  // NUV_ARCH_GENERIC_STACK_FRAME_H
