/// \file Selects the processor's stack-frame shape: NUV_CURRENT_STACK_FRAME and the word indexes.
#ifndef NUV_THREAD_STACK_FRAME_ARCH_H
#define NUV_THREAD_STACK_FRAME_ARCH_H

#if defined(__powerpc__) && !defined(__powerpc64__)
#include "thread/arch/powerpc/stack_frame.h"
#elif defined(__i386__)
#include "thread/arch/i686/stack_frame.h"
#else
#error "Nuv has no stack walk for this processor: add thread/arch/<processor>/stack_frame.h"
#endif

#endif  // NUV_THREAD_STACK_FRAME_ARCH_H
