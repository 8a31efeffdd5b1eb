/// \file Selects the processor's free-running counter: ReadTimeBase.
#ifndef NUV_THREAD_TIMEBASE_ARCH_H
#define NUV_THREAD_TIMEBASE_ARCH_H

#if defined(__powerpc__) && !defined(__powerpc64__)
#include "thread/arch/powerpc/timebase.h"
#elif defined(__i386__)
#include "thread/arch/i686/timebase.h"
#else
#error "Nuv has no time base for this processor: add thread/arch/<processor>/timebase.h"
#endif

#endif  // NUV_THREAD_TIMEBASE_ARCH_H
