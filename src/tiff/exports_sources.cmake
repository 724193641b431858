list(APPEND VELMORA_SOURCES
  src/tiff/cals_header.cpp
  src/tiff/cals_reader.cpp
  src/tiff/document_type.cpp
  src/tiff/exact_fraction.cpp
  src/tiff/exports.cpp
  src/tiff/page_format.cpp)
