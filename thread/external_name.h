/// \file The names threads show to the system: the kernel's naming request and the rewrite of
/// the process's own argument area, laid open for the thread layer's tests.
#ifndef NUV_THREAD_EXTERNAL_NAME_H
#define NUV_THREAD_EXTERNAL_NAME_H

namespace nuv {

/// The argument of the device kernel's naming request: the first character of the name and the
/// last character of its buffer.
struct KernelNameRequest {
  char* start;
  char* last;
};

/// Copies name into the request's buffer (at most 119 characters, then a zero) and returns the
/// request that newExternalize hands to the kernel.
KernelNameRequest FillKernelNameRequest(const char* name);

/// Writes name over the argument area that the process started with: cut to the area's length
/// minus one, zeros after it up to the environment. The first rewrite moves the start-up
/// arguments aside so that the program still reads them. Leaves the area alone when no
/// environment string lies above it, or when memory for the copies runs out.
void RenameInPlace(const char* name);

}  // namespace nuv

#endif  // NUV_THREAD_EXTERNAL_NAME_H
