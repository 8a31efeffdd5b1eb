/// \file Assertion reports, and the two process utilities that live beside them (yield is
/// declared with the lock words, whose back-off it is).
#ifndef NUV_ASSERT_H
#define NUV_ASSERT_H

#include <nuv/lockword.h>

extern "C" {
/// Reports a violated assertion: one log record (facility "facnuv", priority "prialert", tag
/// "NuvAssertionFailure", text "<expression> (<function>, line <line> (<file>))"), two lines on
/// standard error, then the fatal path with pseudo-signal 0. Does not return while the device
/// restarts; see docs/design.md for how the restart policy ends the process instead.
void NuvAssertFail(const char* expression, const char* sourceFile, int line, const char* function);
}

/// Runs argv[0] (no path search) with argv and the current environment and waits for it,
/// resuming the wait when a signal interrupts it. Returns kNuvOk when the program exited with
/// status 0, kNuvProcessFailed when fork or wait failed, the program could not be run (exit 127),
/// exited with another status or was ended by a signal.
unsigned execCmd(char** argv);

#endif  // NUV_ASSERT_H
