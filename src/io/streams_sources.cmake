list(APPEND VELMORA_SOURCES
  src/io/file_names.cpp
  src/io/stream.cpp)
