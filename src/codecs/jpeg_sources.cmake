# JPEG: what the decoder and the encoder share, the JPEG handles and
# exports, the copy of MCU rectangles, and the JPEG pages of TIFF files.
list(APPEND VELMORA_SOURCES
  src/codecs/exports.cpp
  src/codecs/jpeg_copy.cpp
  src/codecs/jpeg_mcu_index.cpp
  src/codecs/jpeg_handle.cpp
  src/codecs/jpeg_private_segment.cpp
  src/tiff/jpeg_strip_decoder.cpp)
