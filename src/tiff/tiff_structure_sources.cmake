list(APPEND VELMORA_SOURCES
  src/tiff/page_decoder.cpp
  src/tiff/page_info.cpp
  src/tiff/tiff_file.cpp)
