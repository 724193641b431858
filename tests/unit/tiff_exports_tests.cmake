list(APPEND UNIT_TESTS unit/tiff_exports_test.cpp)
