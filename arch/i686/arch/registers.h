/// \file i686: the fatal report's register record from a signal handler's ucontext_t.
#ifndef NUV_ARCH_I686_REGISTERS_H
#define NUV_ARCH_I686_REGISTERS_H

#include <nuv/fatal.h>

#include <ucontext.h>

namespace nuv::arch {

/// The nearest equivalents of the PowerPC record: nip = eip, ctr = ecx (the count register),
/// msr = eflags, orig_gpr3 = eax; no link register exists (link = 0, the return address is on
/// the stack and shows in the backtrace). R00 to R18 are the 19 words of the kernel's i386
/// context in its own order (gs fs es ds edi esi ebp esp ebx edx ecx eax trapno err eip cs
/// eflags uesp ss); R19 to R31 are 0.
inline void ReadRegisters(const void* context, NuvRegs* regs) {
  const auto* uc = static_cast<const ucontext_t*>(context);
  const greg_t* words = uc->uc_mcontext.gregs;
  for (int i = 0; i < 32; ++i) {
    regs->gpr[i] = i < NGREG ? static_cast<unsigned long>(words[i]) : 0;
  }
  regs->nip = static_cast<unsigned long>(words[REG_EIP]);
  regs->msr = static_cast<unsigned long>(words[REG_EFL]);
  regs->orig_gpr3 = static_cast<unsigned long>(words[REG_EAX]);
  regs->ctr = static_cast<unsigned long>(words[REG_ECX]);
  regs->link = 0;
}

}  // namespace nuv::arch

#endif  // NUV_ARCH_I686_REGISTERS_H
