# The JPEG encoder: tables, forward DCT, Huffman coding, scans, segments.
list(APPEND VELMORA_SOURCES
  src/codecs/jpeg_encoder.cpp
  src/codecs/jpeg_encoder_baseline.cpp
  src/codecs/jpeg_encoder_color.cpp
  src/codecs/jpeg_encoder_lossless.cpp
  src/codecs/jpeg_encoder_segments.cpp
  src/codecs/jpeg_encoder_source.cpp
  src/codecs/jpeg_encoder_thumbnail.cpp
  src/codecs/jpeg_forward_dct.cpp
  src/codecs/jpeg_huffman_encoder.cpp
  src/codecs/jpeg_tables.cpp)
