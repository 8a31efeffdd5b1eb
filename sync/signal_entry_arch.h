/// \file Selects the processor's NUV_SIGNAL_ENTRY, the attribute of the library's signal handlers.
#ifndef NUV_SYNC_SIGNAL_ENTRY_ARCH_H
#define NUV_SYNC_SIGNAL_ENTRY_ARCH_H

#if defined(__powerpc__) && !defined(__powerpc64__)
#include "sync/arch/powerpc/signal_entry.h"
#elif defined(__i386__)
#include "sync/arch/i686/signal_entry.h"
#else
#error "Nuv has no signal entry for this processor: add sync/arch/<processor>/signal_entry.h"
#endif

#endif  // NUV_SYNC_SIGNAL_ENTRY_ARCH_H
