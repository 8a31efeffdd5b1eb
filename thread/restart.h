/// \file The restart policy: how the fatal path ends the device, or, in builds without the real
/// restart, the process.
#ifndef NUV_THREAD_RESTART_H
#define NUV_THREAD_RESTART_H

namespace nuv {

/// Waits for the log records to leave the process (5 s), syncs the file systems and restarts
/// the device. In a build without NUV_ENABLE_REBOOT the process ends instead: by signal's
/// default action for a real signal that ends a process, otherwise by _exit(EXIT_FAILURE).
/// Returns only when the restart itself failed (the process lacks the privilege).
void RestartDevice(int signal);

/// Shortens the wait before the restart. For tests only: not part of the public interface.
void SetRestartDelayForTesting(unsigned milliseconds);

}  // namespace nuv

#endif  // NUV_THREAD_RESTART_H
