list(APPEND INTEROP_TESTS interop/dib_bmp_test.cpp)
