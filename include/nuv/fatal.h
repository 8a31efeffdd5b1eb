/// \file The fatal path: report who died of what, the registers and a backtrace, then restart.
#ifndef NUV_FATAL_H
#define NUV_FATAL_H

#include <csignal>

/// The register record of the fatal report, in the PowerPC kernel's order: general registers 0
/// to 31, the next instruction address, the machine state, the saved first argument register,
/// the count register and the link register. On the host the nearest equivalents are filled in
/// (docs/design.md lists them).
struct NuvRegs {
  unsigned long gpr[32];
  unsigned long nip;
  unsigned long msr;
  unsigned long orig_gpr3;
  unsigned long ctr;
  unsigned long link;
};

/// The fatal handler. signal is a real signal number, or a pseudo-signal: 0 from NuvAssertFail
/// and NuvThread::abort, -2 from __assert_fail, -1 from a thread that failed to start. context is
/// the ucontext_t of an SA_SIGINFO handler, or null (no register dump). Logs and prints the
/// report, waits 5 s for the log to drain, syncs the file systems and restarts the device.
void _stray_(int signal, void* context);

/// An SA_SIGINFO handler that passes the signal and its context to _stray_; install it with
/// SA_NODEFER so that a fault during the report re-enters the handler's recursion guard.
void NuvStraySignalHandler(int signal, siginfo_t* info, void* context);

/// Writes the register dump: "NIP .. link .. ctr .." and eight lines of four registers.
void _dumpregs(const NuvRegs* regs);

/// Fills regs from the ucontext_t of a signal handler.
void NuvRegsFromContext(const void* context, NuvRegs* regs);

#endif  // NUV_FATAL_H
