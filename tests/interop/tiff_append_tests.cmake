list(APPEND INTEROP_TESTS interop/tiff_append_test.cpp)
