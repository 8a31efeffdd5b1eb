# The library's layers: each folder is an object library that sees only its own headers and those
# of the layers it may use, so that an include that goes the wrong way fails the build. A layer's
# headers are staged under the build directory: nuv/<its public headers> and <folder>/ (its
# private ones), with the layers it uses on the include path after its own.

# nuv_layer(NAME [FOLDER <folder>] HEADERS <public headers> SOURCES <sources>
#           [USES <layers below>])
# The folder of a layer's private headers is the layer's name, unless FOLDER gives another: a
# folder may hold the sources of two layers (the task manager sits in sync/ above the threads).
function(nuv_layer name)
  cmake_parse_arguments(LAYER "" "FOLDER" "HEADERS;SOURCES;USES" ${ARGN})
  if(NOT LAYER_FOLDER)
    set(LAYER_FOLDER ${name})
  endif()
  set(stage ${PROJECT_BINARY_DIR}/layers/${name})
  file(REMOVE_RECURSE ${stage})
  file(MAKE_DIRECTORY ${stage}/nuv)
  foreach(header IN LISTS LAYER_HEADERS)
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/include/nuv/${header} ${stage}/nuv/${header} SYMBOLIC)
  endforeach()
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${LAYER_FOLDER} ${stage}/${LAYER_FOLDER} SYMBOLIC)

  add_library(nuv_${name} OBJECT ${LAYER_SOURCES})
  target_include_directories(nuv_${name} PUBLIC ${stage})
  foreach(used IN LISTS LAYER_USES)
    target_link_libraries(nuv_${name} PUBLIC nuv_${used})
  endforeach()
  target_compile_options(nuv_${name} PRIVATE ${NUV_WARNING_OPTIONS})
  target_compile_options(nuv_${name} PUBLIC ${NUV_PROCESSOR_OPTIONS})
  target_compile_definitions(nuv_${name} PRIVATE NUV_ENABLE_REBOOT=$<BOOL:${NUV_ENABLE_REBOOT}>)
endfunction()
