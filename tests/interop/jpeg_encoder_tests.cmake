list(APPEND INTEROP_TESTS interop/jpeg_encoder_test.cpp)
