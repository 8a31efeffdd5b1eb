/// \file NuvString::Format and the estimate that sizes its buffer.
#include <nuv/string.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>

#include "base/format_estimate.h"
#include "core/assert_at.h"

namespace {

// What printf reads for one argument.
enum class Arg {
  none,
  intValue,
  longValue,
  longLongValue,
  intMaxValue,
  sizeValue,
  ptrdiffValue,
  wideChar,
  doubleValue,
  longDoubleValue,
  pointer,
  string,
};

enum class Length { none, l, longLong, intMax, size, ptrdiff };

// The arguments of one directive, in the order printf reads them: a '*' width, a '*' precision,
// the converted value.
struct Directive {
  Arg args[3];
  unsigned count;
};

// What printf prints for a null string.
constexpr unsigned kNullStringLength = sizeof "(null)" - 1;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

const char* SkipDigits(const char* p) {
  while (IsDigit(*p)) {
    ++p;
  }
  return p;
}

// Whether p starts an argument number ("2$"): positional arguments are read in an order of
// their own, which this walk does not follow.
bool IsPositional(const char* p) {
  const char* end = SkipDigits(p);
  return end != p && *end == '$';
}

// A width or a precision at p; a '*' reads an int argument. Null for a positional '*'.
const char* ParseField(const char* p, Directive& out) {
  if (*p != '*') {
    return SkipDigits(p);
  }
  if (IsPositional(p + 1)) {
    return nullptr;
  }
  out.args[out.count++] = Arg::intValue;
  return p + 1;
}

const char* ParseLength(const char* p, Length& length) {
  length = Length::none;
  switch (*p) {
    case 'h':
      return p[1] == 'h' ? p + 2 : p + 1;
    case 'l':
      length = p[1] == 'l' ? Length::longLong : Length::l;
      return length == Length::longLong ? p + 2 : p + 1;
    case 'L':
    case 'q':
      length = Length::longLong;
      return p + 1;
    case 'j':
      length = Length::intMax;
      return p + 1;
    case 'z':
    case 'Z':
      length = Length::size;
      return p + 1;
    case 't':
      length = Length::ptrdiff;
      return p + 1;
    default:
      return p;
  }
}

Arg IntegerArgument(Length length) {
  static constexpr Arg kByLength[] = {Arg::intValue,    Arg::longValue, Arg::longLongValue,
                                      Arg::intMaxValue, Arg::sizeValue, Arg::ptrdiffValue};
  return kByLength[static_cast<int>(length)];
}

// What conversion c reads with length; false for a conversion printf does not know.
bool ConversionArgument(char c, Length length, Arg& arg) {
  arg = Arg::none;
  if (c != '\0' && strchr("diouxXbB", c) != nullptr) {
    arg = IntegerArgument(length);
  } else if (c != '\0' && strchr("fFeEgGaA", c) != nullptr) {
    // glibc reads a long double for L, q and ll alike.
    arg = length == Length::longLong ? Arg::longDoubleValue : Arg::doubleValue;
  } else if (c == 'c' || c == 'C') {
    arg = c == 'C' || length == Length::l ? Arg::wideChar : Arg::intValue;
  } else if (c == 's') {
    arg = length == Length::l ? Arg::pointer : Arg::string;
  } else if (c == 'S' || c == 'p' || c == 'n') {
    arg = Arg::pointer;
  } else {
    return c == '%' || c == 'm';
  }
  return true;
}

// Reads the directive whose '%' is at percent into out; returns where the format continues, or
// null when nothing more is known: the format ended, or the directive is positional or unknown.
const char* ParseDirective(const char* percent, Directive& out) {
  out.count = 0;
  const char* p = percent + 1;
  if (IsPositional(p)) {
    return nullptr;
  }
  while (*p != '\0' && strchr("-+ #0'I", *p) != nullptr) {
    ++p;
  }
  p = ParseField(p, out);
  if (p != nullptr && *p == '.') {
    p = ParseField(p + 1, out);
  }
  if (p == nullptr) {
    return nullptr;
  }
  Length length = Length::none;
  p = ParseLength(p, length);
  Arg value = Arg::none;
  if (*p == '\0' || !ConversionArgument(*p, length, value)) {
    return nullptr;
  }
  if (value != Arg::none) {
    out.args[out.count++] = value;
  }
  return p + 1;
}

// The arguments of a format as printf's own grammar reads them, walked in step with a copy of
// the argument list, so that a string is read only where the caller truly passed one.
class TrueArguments {
 public:
  explicit TrueArguments(const char* fmt) : restM(fmt) {}

  /// The length of argument index of args when it is a %s string, else 0. Indexes never go
  /// back; args is the copy that every call advances.
  unsigned StringLengthAt(unsigned index, va_list& args);

 private:
  Arg NextArgument();

  const char* restM;
  Directive directiveM = {{}, 0};
  unsigned takenM = 0;
  unsigned indexM = 0;
};

// The analyzer loses the va_copy of FormatEstimate when the copy is passed on by reference and
// then reports every va_arg on it as reading an uninitialized list.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)

// Reads past one argument of args.
void SkipArgument(Arg arg, va_list& args) {
  switch (arg) {
    // NOLINTNEXTLINE(bugprone-branch-clone): each branch reads its own type
    case Arg::longValue:
      va_arg(args, long);
      break;
    case Arg::longLongValue:
      va_arg(args, long long);
      break;
    case Arg::intMaxValue:
      va_arg(args, intmax_t);
      break;
    case Arg::sizeValue:
      va_arg(args, size_t);
      break;
    case Arg::ptrdiffValue:
      va_arg(args, ptrdiff_t);
      break;
    case Arg::wideChar:
      va_arg(args, wint_t);
      break;
    case Arg::doubleValue:
      va_arg(args, double);
      break;
    case Arg::longDoubleValue:
      va_arg(args, long double);
      break;
    case Arg::pointer:
    case Arg::string:
      va_arg(args, const void*);
      break;
    case Arg::intValue:
    case Arg::none:
      va_arg(args, int);
      break;
  }
}

unsigned TrueArguments::StringLengthAt(unsigned index, va_list& args) {
  Arg arg = NextArgument();
  for (; indexM < index && arg != Arg::none; arg = NextArgument()) {
    SkipArgument(arg, args);
    ++indexM;
  }
  if (arg == Arg::none) {
    return 0;
  }
  ++indexM;
  if (arg != Arg::string) {
    SkipArgument(arg, args);
    return 0;
  }
  const char* s = va_arg(args, const char*);
  return s == nullptr ? kNullStringLength : static_cast<unsigned>(strlen(s));
}

// NOLINTEND(clang-analyzer-valist.Uninitialized)

// The next argument of the format; none once nothing more is known.
Arg TrueArguments::NextArgument() {
  while (takenM == directiveM.count) {
    const char* percent = restM == nullptr ? nullptr : strchr(restM, '%');
    if (percent == nullptr) {
      restM = nullptr;
      return Arg::none;
    }
    restM = ParseDirective(percent, directiveM);
    takenM = 0;
    if (restM == nullptr) {
      // Not even a '*' of a directive that ends what is known is trusted.
      directiveM.count = 0;
    }
  }
  return directiveM.args[takenM++];
}

// The estimate's increment for conversion c with width. Only %d, %i, %x and %s advance the
// estimator's cursor: a %s after a %c, %u, %f ... measures an earlier argument. Callers keep
// their %s arguments first; the quirk is kept.
unsigned Increment(char c, unsigned width, unsigned& cursor, TrueArguments& truth, va_list& args) {
  switch (c) {
    case 'c':
      return 1;
    case 'd':
    case 'i':
      ++cursor;
      return width != 0 ? width : 12;
    case 'x':
      ++cursor;
      return width != 0 ? width : 8;
    case 's':
      return truth.StringLengthAt(cursor++, args);
    default:
      return 100;
  }
}

}  // namespace

unsigned nuv::FormatEstimate(const char* fmt, va_list args) {
  TrueArguments truth(fmt);
  va_list walk;  // NOLINT(cppcoreguidelines-init-variables): va_copy initializes it
  va_copy(walk, args);
  auto estimate = static_cast<unsigned>(strlen(fmt));
  unsigned cursor = 0;
  const char* p = strchr(fmt, '%');
  while (p != nullptr) {
    const char* percent = p++;
    while (*p == '-' || *p == '.') {
      ++p;
    }
    unsigned width = 0;
    for (; IsDigit(*p); ++p) {
      width = width * 10 + static_cast<unsigned>(*p - '0');
    }
    if (*p == 'l') {
      ++p;
    }
    const auto directive = static_cast<unsigned>(p - percent + 1);
    estimate += Increment(*p, width, cursor, truth, walk) - directive;
    // A format that ends inside a directive ends the walk here, not past its terminator.
    p = *p == '\0' ? nullptr : strchr(p + 1, '%');
  }
  va_end(walk);
  return estimate + 10;
}

ref<NuvString> NuvString::Format(NuvMempool* pool, const char* fmt, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): va_start initializes it
  va_start(args, fmt);
  const unsigned estimate = nuv::FormatEstimate(fmt, args);
  auto* buffer = static_cast<char*>(pool->Malloc(estimate + 1, NuvMempool::nuv));
  const int written = vsnprintf(buffer, estimate + 1, fmt, args);
  va_end(args);
  // vsnprintf never writes past the buffer; a result that did not fit, or one that fills the
  // estimate, is the overrun the estimate exists to prevent.
  const bool fits = written >= 0 && static_cast<unsigned>(written) <= estimate;
  NUV_ASSERT_AT(fits && strlen(buffer) < estimate, 110, "Format");
  return new (pool) NuvString(buffer, true);
}
