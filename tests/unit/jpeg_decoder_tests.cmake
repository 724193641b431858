list(APPEND UNIT_TESTS unit/jpeg_decoder_test.cpp)
