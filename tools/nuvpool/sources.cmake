# The reader of pool files and its reports: everything of nuvpool but its command line. The
# fuzzers build these too, with their own compiler.
set(NUVPOOL_READER_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/chunk_walk.cpp
  ${CMAKE_CURRENT_LIST_DIR}/figures.cpp
  ${CMAKE_CURRENT_LIST_DIR}/heap_walk.cpp
  ${CMAKE_CURRENT_LIST_DIR}/json_writer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/pool_image.cpp
  ${CMAKE_CURRENT_LIST_DIR}/pool_model.cpp
  ${CMAKE_CURRENT_LIST_DIR}/pool_objects.cpp
  ${CMAKE_CURRENT_LIST_DIR}/pool_reader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/processes.cpp
  ${CMAKE_CURRENT_LIST_DIR}/report_json.cpp
  ${CMAKE_CURRENT_LIST_DIR}/report_text.cpp)
