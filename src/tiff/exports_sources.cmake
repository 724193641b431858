list(APPEND VELMORA_SOURCES
  src/tiff/exact_fraction.cpp
  src/tiff/exports.cpp)
