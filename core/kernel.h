/// \file The library's one way to the kernel. Every system call is made through Make with a Call
/// that states its name, the value by which it reports failure, the errno its caller takes as
/// success, and whether an interrupted call is made again. errno stays as the call left it, and
/// tests can make a chosen call fail without reaching the kernel. Calls that cannot fail
/// (getpid, sync, getpagesize, time) are made directly.
#ifndef NUV_CORE_KERNEL_H
#define NUV_CORE_KERNEL_H

#include <cerrno>
#include <type_traits>

namespace nuv::kernel {

/// A system call as the library makes it.
struct Call {
  const char* name;       // the call's name, by which tests make it fail
  long failure;           // the value it returns when it fails
  int tolerated;          // an errno that its caller takes as success; 0 for none
  bool retryInterrupted;  // made again while it fails with EINTR
};

/// What a call gave: its value, and the errno it failed with (0 when it succeeded or failed
/// with its tolerated errno).
struct Result {
  long value;
  int error;
  bool Failed() const { return error != 0; }
};

namespace detail {
/// A call's value as a long: a pointer by its address.
template <typename T>
long AsLong(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<long>(value);
  } else {
    return static_cast<long>(value);
  }
}

/// The call that tests made fail next, if any.
struct Injection {
  const char* name;
  int error;
  int times;
  int spared;  // calls of that name that still go through first
};
extern Injection injection;
/// True, with the errno to fail with, when the named call is to fail now.
bool TakeInjected(const char* name, int* error);
}  // namespace detail

/// Makes fn's system call as `call` states. fn returns the call's own value (a pointer is
/// returned as its address).
template <typename Fn>
Result Make(const Call& call, Fn fn) {
  int error = 0;
  if (detail::injection.name != nullptr && detail::TakeInjected(call.name, &error)) {
    errno = error;
    return {call.failure, error};
  }
  for (;;) {
    const long value = detail::AsLong(fn());
    if (value != call.failure) {
      return {value, 0};
    }
    error = errno;
    if (error != EINTR || !call.retryInterrupted) {
      return {value, error == call.tolerated ? 0 : error};
    }
  }
}

/// close(fd), made as the call "close" (not made again when interrupted): every close of the
/// library goes through here.
Result Close(int fd);

/// A failure that the behaviour says to ignore: the reason says why, where it happens.
inline void Ignore(const Result& /*result*/, const char* /*reason*/) {}

/// For tests only: after `spared` more calls named `name` have gone through, the next `times`
/// fail with `error` without reaching the kernel. A name of null ends it.
void FailNextForTesting(const char* name, int error, int times = 1, int spared = 0);

}  // namespace nuv::kernel

#endif  // NUV_CORE_KERNEL_H
