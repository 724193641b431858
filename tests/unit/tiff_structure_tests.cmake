list(APPEND UNIT_TESTS unit/stream_test.cpp unit/tiff_structure_test.cpp)
