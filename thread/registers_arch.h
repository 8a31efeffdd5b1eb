/// \file Selects the processor's register reader: ReadRegisters.
#ifndef NUV_THREAD_REGISTERS_ARCH_H
#define NUV_THREAD_REGISTERS_ARCH_H

#if defined(__powerpc__) && !defined(__powerpc64__)
#include "thread/arch/powerpc/registers.h"
#elif defined(__i386__)
#include "thread/arch/i686/registers.h"
#else
#error "Nuv has no register reader for this processor: add thread/arch/<processor>/registers.h"
#endif

#endif  // NUV_THREAD_REGISTERS_ARCH_H
