list(APPEND VELMORA_SOURCES
  src/codecs/adler32.cpp
  src/codecs/deflate_decoder.cpp
  src/codecs/inflater.cpp
  src/codecs/lzw_decoder.cpp
  src/codecs/packbits_decoder.cpp
  src/codecs/predictor.cpp
  src/codecs/run_length_decoder.cpp
  src/codecs/scratch_block.cpp
  src/codecs/strip_input.cpp
  src/codecs/strip_rows.cpp
  src/codecs/thunderscan_decoder.cpp)
