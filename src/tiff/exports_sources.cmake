list(APPEND VELMORA_SOURCES
  src/tiff/exact_fraction.cpp
  src/tiff/exports.cpp)
list(APPEND VELMORA_SOURCES
  src/tiff/cals_header.cpp)
