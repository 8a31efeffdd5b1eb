/// \file PowerPC: NUV_SIGNAL_ENTRY, the attribute of every signal handler the library installs.
#ifndef NUV_SYNC_ARCH_POWERPC_SIGNAL_ENTRY_H
#define NUV_SYNC_ARCH_POWERPC_SIGNAL_ENTRY_H

// Signal frames arrive on an ABI-aligned stack: handlers need nothing of their own.
#define NUV_SIGNAL_ENTRY

#endif  // NUV_SYNC_ARCH_POWERPC_SIGNAL_ENTRY_H
