# JPEG: what the decoder and the encoder share.
list(APPEND VELMORA_SOURCES
  src/codecs/jpeg_private_segment.cpp)
