list(APPEND INTEROP_TESTS interop/jpeg_exports_test.cpp)
