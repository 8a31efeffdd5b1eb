/// \file Assertion reports: NuvAssertFail and the library's own __assert_fail.
#include <nuv/assert.h>

#include <nuv/fatal.h>
#include <nuv/logger.h>

#include <cassert>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kPseudoSignalNuvAssert = 0;
constexpr int kPseudoSignalAssert = -2;

// The function comes before the line and the source file closes the text: the order device
// engineers' log readers expect, kept on purpose.
void ReportAssertion(const char* expression, const char* sourceFile, int line,
                     const char* function) {
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::prialert, "NuvAssertionFailure",
                 "%s (%s, line %d (%s))", expression, function, line, sourceFile);
  fprintf(stderr, "Nuv Assertion Failure: %s\n", expression);
  fprintf(stderr, "    %s, line %d (%s)\n", function, line, sourceFile);
}

}  // namespace

extern "C" void NuvAssertFail(const char* expression, const char* sourceFile, int line,
                              const char* function) {
  ReportAssertion(expression, sourceFile, line, function);
  _stray_(kPseudoSignalNuvAssert, nullptr);
}

// Replaces the C library's version for every assert() in a process that links the library.
// The parameters keep the C library's own names, as its declaration in <assert.h> has them.
extern "C" void __assert_fail(const char* __assertion, const char* __file, unsigned int __line,
                              const char* __function) noexcept {
  ReportAssertion(__assertion, __file, static_cast<int>(__line), __function);
  _stray_(kPseudoSignalAssert, nullptr);
  // The C library declares this function noreturn, so its callers are compiled on that promise:
  // should the restart fail, end the process rather than return into them.
  _Exit(EXIT_FAILURE);
}
