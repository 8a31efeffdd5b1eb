/// \file Sanitizer defaults of test programs that run under qemu-i386.

// LeakSanitizer stops the world with ptrace, which user emulation does not give it: every
// sanitized program would spin at exit. Every other check stays on.
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }
