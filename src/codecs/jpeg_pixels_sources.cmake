# JPEG sample pipeline: the inverse DCT, upsampling and colour conversion.
list(APPEND VELMORA_SOURCES
  src/codecs/jpeg_idct.cpp
  src/codecs/jpeg_color.cpp)
