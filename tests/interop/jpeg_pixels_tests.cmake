list(APPEND INTEROP_TESTS interop/jpeg_pixels_test.cpp)
