list(APPEND INTEROP_TESTS interop/byte_codecs_test.cpp)
