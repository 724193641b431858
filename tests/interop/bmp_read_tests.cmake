list(APPEND INTEROP_TESTS interop/bmp_read_test.cpp)
