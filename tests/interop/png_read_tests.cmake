list(APPEND INTEROP_TESTS interop/png_read_test.cpp)
