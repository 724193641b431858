list(APPEND INTEROP_TESTS interop/jpeg_tiff_test.cpp)
