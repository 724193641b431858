list(APPEND INTEROP_TESTS interop/tiff_structure_test.cpp)
