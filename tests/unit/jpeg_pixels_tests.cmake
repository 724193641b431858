list(APPEND UNIT_TESTS unit/jpeg_pixels_test.cpp)
