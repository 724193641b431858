list(APPEND UNIT_TESTS unit/jpeg_encoder_test.cpp)
