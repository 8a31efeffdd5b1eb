/// \file The size NuvString::Format reserves for a format and its arguments (internal).
#ifndef NUV_BASE_FORMAT_ESTIMATE_H
#define NUV_BASE_FORMAT_ESTIMATE_H

#include <cstdarg>

namespace nuv {

/// The estimate of fmt: its length; at each directive, the directive's length taken off and its
/// increment added (%c 1; %d and %i the width or 12; %x the width or 8; %s the length of the
/// argument at the estimator's own cursor, which only %d, %i, %x and %s advance; anything else
/// 100); then 10 more. Format reserves the estimate plus one byte. The %s argument is read only
/// when the argument at the estimator's cursor truly is a %s string of fmt; otherwise it counts
/// 0 (a null string counts 6, the length of "(null)"). args is left as it was.
unsigned FormatEstimate(const char* fmt, va_list args);

}  // namespace nuv

#endif  // NUV_BASE_FORMAT_ESTIMATE_H
