list(APPEND INTEROP_TESTS interop/jpeg_decoder_test.cpp)
