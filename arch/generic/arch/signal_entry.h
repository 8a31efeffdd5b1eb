/// \file NUV_SIGNAL_ENTRY, the attribute of every signal handler the library installs: nothing
/// where signals arrive on an ABI-aligned stack, as they do on PowerPC.
#ifndef NUV_ARCH_GENERIC_SIGNAL_ENTRY_H
#define NUV_ARCH_GENERIC_SIGNAL_ENTRY_H

#define NUV_SIGNAL_ENTRY

#endif  // NUV_ARCH_GENERIC_SIGNAL_ENTRY_H
