# The processor, chosen in one place: the folder under arch/ whose processor.cmake matches
# CMAKE_SYSTEM_PROCESSOR. Its arch/ headers come first on the include path, then those of
# arch/generic that it does not replace. Porting to another 32-bit processor means adding
# arch/<processor>/ with its processor.cmake and headers (and a toolchain file): nothing here.
# Sets NUV_ARCH, NUV_ARCH_INCLUDE_DIRS and NUV_PROCESSOR_OPTIONS (compile options that code built
# against the library needs too).
set(NUV_ARCH "")
file(GLOB nuv_processor_files ${PROJECT_SOURCE_DIR}/arch/*/processor.cmake)
foreach(nuv_processor_file IN LISTS nuv_processor_files)
  include(${nuv_processor_file})
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "${NUV_PROCESSOR_PATTERN}")
    get_filename_component(nuv_processor_dir ${nuv_processor_file} DIRECTORY)
    get_filename_component(NUV_ARCH ${nuv_processor_dir} NAME)
    break()
  endif()
endforeach()
if(NUV_ARCH STREQUAL "")
  message(FATAL_ERROR "Nuv has no processor support for '${CMAKE_SYSTEM_PROCESSOR}': add "
                      "arch/<processor>/ with a processor.cmake and the headers of arch/i686/.")
endif()
foreach(nuv_needed atomic.h timebase.h registers.h)
  if(NOT EXISTS ${PROJECT_SOURCE_DIR}/arch/${NUV_ARCH}/arch/${nuv_needed})
    message(FATAL_ERROR "arch/${NUV_ARCH}/ lacks arch/${nuv_needed}: every processor needs one.")
  endif()
endforeach()
set(NUV_ARCH_INCLUDE_DIRS ${PROJECT_SOURCE_DIR}/arch/${NUV_ARCH} ${PROJECT_SOURCE_DIR}/arch/generic)
