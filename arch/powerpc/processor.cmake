# PowerPC, the device: 32-bit big-endian. Its ABI keeps the stack's back chain by itself.
set(NUV_PROCESSOR_PATTERN "^(powerpc|ppc)$")
set(NUV_PROCESSOR_OPTIONS "")
