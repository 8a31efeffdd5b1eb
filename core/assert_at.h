/// \file The library's own invariant checks: a numbered assertion of a named function.
#ifndef NUV_CORE_ASSERT_AT_H
#define NUV_CORE_ASSERT_AT_H

// The C library declares it only while NDEBUG is unset; the library's checks never depend on it.
// NOLINTNEXTLINE(readability-redundant-declaration): redundant only where NDEBUG is unset.
extern "C" void __assert_fail(const char* __assertion, const char* __file, unsigned int __line,
                              const char* __function) noexcept __attribute__((noreturn));

/// Fails assertion number `line` of `function` when cond is false. Like every invariant check of
/// the library, the report carries an empty expression and an empty file name: device engineers
/// identify it by the function and the number.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): must expand at the check, like assert.
#define NUV_ASSERT_AT(cond, line, function) \
  ((cond) ? static_cast<void>(0) : __assert_fail("", "", (line), (function)))

#endif  // NUV_CORE_ASSERT_AT_H
