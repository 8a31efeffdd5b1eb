/// \file The log socket paths, replaceable so that tests never reach the machine's log daemon.
#ifndef NUV_CORE_LOG_SOCKET_H
#define NUV_CORE_LOG_SOCKET_H

namespace nuv {

/// Replaces "/dev/log" and "/var/dev/log", the two paths the logger tries in turn; null restores
/// the default. For tests only: not part of the public interface. Paths are used up to 14 bytes.
void SetLogSocketPathsForTesting(const char* primary, const char* secondary);

}  // namespace nuv

#endif  // NUV_CORE_LOG_SOCKET_H
