list(APPEND INTEROP_TESTS interop/pdfa_test.cpp)
