/// \file Selects the processor's atomics: ExchangeAcquire, StoreRelease, FetchAdd.
#ifndef NUV_SYNC_ATOMIC_ARCH_H
#define NUV_SYNC_ATOMIC_ARCH_H

#if defined(__powerpc__) && !defined(__powerpc64__)
#include "sync/arch/powerpc/atomic.h"
#elif defined(__i386__)
#include "sync/arch/i686/atomic.h"
#else
#error "Nuv has no atomics for this processor: add sync/arch/<processor>/atomic.h"
#endif

#endif  // NUV_SYNC_ATOMIC_ARCH_H
