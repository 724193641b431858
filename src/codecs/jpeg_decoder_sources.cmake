# The JPEG decoder: marker layer, Huffman tables, entropy decoding of the
# sequential, progressive and lossless processes, and the frame driver.
list(APPEND VELMORA_SOURCES
  src/codecs/jpeg_bit_reader.cpp
  src/codecs/jpeg_decoder.cpp
  src/codecs/jpeg_frame_decoder.cpp
  src/codecs/jpeg_huffman_decoder.cpp
  src/codecs/jpeg_input.cpp
  src/codecs/jpeg_markers.cpp)
