/// \file PowerPC: the fatal report's register record from a signal handler's ucontext_t.
#ifndef NUV_ARCH_POWERPC_REGISTERS_H
#define NUV_ARCH_POWERPC_REGISTERS_H

#include <nuv/fatal.h>

#include <ucontext.h>

namespace nuv::arch {

/// The kernel's register record: r0-r31, then nip, msr, orig_gpr3, ctr, link (words 32 to 36).
inline void ReadRegisters(const void* context, NuvRegs* regs) {
  const auto* uc = static_cast<const ucontext_t*>(context);
  const unsigned long* words = uc->uc_mcontext.uc_regs->gregs;
  for (int i = 0; i < 32; ++i) {
    regs->gpr[i] = words[i];
  }
  regs->nip = words[32];
  regs->msr = words[33];
  regs->orig_gpr3 = words[34];
  regs->ctr = words[35];
  regs->link = words[36];
}

}  // namespace nuv::arch

#endif  // NUV_ARCH_POWERPC_REGISTERS_H
