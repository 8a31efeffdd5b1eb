/// \file The fatal handler _stray_ and its register dump.
#include <nuv/fatal.h>

#include <nuv/thread.h>

#include <unistd.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "arch/registers.h"
#include "arch/signal_entry.h"
#include "arch/stack_frame.h"
#include "core/log.h"
#include "thread/backtrace.h"
#include "thread/restart.h"

namespace {

// Set by the first entry and never cleared: every later entry is the "recursive" one.
int strayRecursionFlag = 0;

constexpr size_t kBacktraceBufferSize = 512;
constexpr size_t kBacktraceTextLimit = 500;
constexpr size_t kIdentitySize = 32;
constexpr int kRegisterLines = 8;
constexpr int kRegistersPerLine = 4;

// The dying thread's name for the log tag and the report; a process that no library thread
// adopted is named by its pid.
struct Identity {
  char name[kIdentitySize];
  int pid;
};

Identity DyingThread() {
  Identity who{};
  if (pCurrentThreadG != nullptr) {
    snprintf(who.name, sizeof who.name, "%s", pCurrentThreadG->GetName());
    who.pid = pCurrentThreadG->GetId();
  } else {
    who.pid = getpid();
    snprintf(who.name, sizeof who.name, "%d", who.pid);
  }
  return who;
}

__attribute__((format(printf, 2, 3))) void LogAlert(const char* tag, const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  nuv::log::Record(nuv::log::kFacilityNuv, nuv::log::kPriorityAlert, tag, format, args);
  va_end(args);
}

// Appends "%x " per frame from the given frame outward, on standard error and in text. A text
// longer than kBacktraceTextLimit ends the walk with "bt overflow." (the entry that passed the
// limit stays in the text).
void WriteBacktrace(void* frame, char* text, size_t size) {
  size_t used = 0;
  text[0] = '\0';
  while (frame != nullptr) {
    const auto address = reinterpret_cast<unsigned long>(nuv::SavedReturnAddress(frame));
    fprintf(stderr, "%lx ", address);
    const int written = snprintf(text + used, size - used, "%lx ", address);
    used += written > 0 ? static_cast<size_t>(written) : 0;
    if (used > kBacktraceTextLimit) {
      fprintf(stderr, "bt overflow.\n");
      return;
    }
    frame = nuv::CallerFrame(frame);
  }
}

}  // namespace

// Runs inside a signal handler: it takes no library lock (the interrupted code may hold one),
// and calls the logger and stdio as the device's report always has.
void _stray_(int signal, void* context) {
  const Identity who = DyingThread();
  if (strayRecursionFlag != 0) {
    LogAlert(who.name, "Nuv recursive _stray_ call, signal %d", signal);
  } else {
    strayRecursionFlag = 1;
    LogAlert(who.name, "Nuv Fatal Error: Thread %s <%d> died due to signal %d", who.name, who.pid,
             signal);
    fprintf(stderr, "Nuv Fatal Error: Thread %s <%d> died due to signal %d\n", who.name, who.pid,
            signal);
    if (context != nullptr) {
      NuvRegs regs{};
      NuvRegsFromContext(context, &regs);
      _dumpregs(&regs);
    }
    char backtrace[kBacktraceBufferSize];
    WriteBacktrace(NUV_CURRENT_STACK_FRAME(), backtrace, sizeof backtrace);
    LogAlert(who.name, "Nuv Thread Backtrace: %s", backtrace);
  }
  LogAlert(who.name, "Nuv Fatal Error: Thread died due to signal %d", signal);
  LogAlert(who.name, "Invoking rule 834: rebooting system");
  nuv::RestartDevice(signal);
}

NUV_SIGNAL_ENTRY void NuvStraySignalHandler(int signal, siginfo_t* /*info*/, void* context) {
  _stray_(signal, context);
}

void NuvRegsFromContext(const void* context, NuvRegs* regs) {
  nuv::arch::ReadRegisters(context, regs);
}

void _dumpregs(const NuvRegs* regs) {
  const Identity who = DyingThread();
  // The log line keeps the device's historical conversions; both print the same 32-bit words.
  LogAlert(who.name, "NIP %#08x link %#08x ctr %d", static_cast<unsigned>(regs->nip),
           static_cast<unsigned>(regs->link), static_cast<int>(regs->ctr));
  fprintf(stderr, "NIP %#08lx link %#08lx ctr %ld\n", regs->nip, regs->link,
          static_cast<long>(regs->ctr));
  for (int line = 0; line < kRegisterLines; ++line) {
    char text[kRegistersPerLine * 16 + 1] = {};
    size_t used = 0;
    for (int column = 0; column < kRegistersPerLine; ++column) {
      const int number = line * kRegistersPerLine + column;
      used += static_cast<size_t>(
          snprintf(text + used, sizeof text - used, "R%02d 0x%08lx  ", number, regs->gpr[number]));
    }
    LogAlert(who.name, "%s", text);
    fprintf(stderr, "%s\n", text);
  }
}
