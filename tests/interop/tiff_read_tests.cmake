list(APPEND INTEROP_TESTS interop/tiff_read_test.cpp)
