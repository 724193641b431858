list(APPEND VELMORA_SOURCES
  src/tiff/document.cpp
  src/tiff/document_exports.cpp
  src/tiff/page_numbering.cpp)
