# Vector routes of the JPEG colour conversion (SSE2, SSSE3 on x86).
list(APPEND VELMORA_SOURCES
  src/codecs/jpeg_color_vector.cpp)
