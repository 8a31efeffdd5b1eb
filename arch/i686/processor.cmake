# i686, the workstation: 32-bit x86. The fatal report walks the frame-pointer chain, so the
# library and the code built against it keep frame pointers.
set(NUV_PROCESSOR_PATTERN "^(i[3-6]86|x86)$")
set(NUV_PROCESSOR_OPTIONS -fno-omit-frame-pointer)
