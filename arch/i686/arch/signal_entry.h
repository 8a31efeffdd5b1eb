/// \file i686: NUV_SIGNAL_ENTRY, the attribute of every signal handler the library installs.
#ifndef NUV_ARCH_I686_SIGNAL_ENTRY_H
#define NUV_ARCH_I686_SIGNAL_ENTRY_H

// The i386 ABI promises a 16-byte aligned stack at each call, and frame layouts (sanitized
// frames' red zones among them) count on it; qemu-i386 delivers signals on a stack aligned to
// 8 bytes only. A handler therefore realigns the stack on entry: two instructions.
#define NUV_SIGNAL_ENTRY __attribute__((force_align_arg_pointer))

#endif  // NUV_ARCH_I686_SIGNAL_ENTRY_H
