list(APPEND UNIT_TESTS unit/tiff_writer_test.cpp)
