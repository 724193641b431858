list(APPEND INTEROP_TESTS interop/cals_read_test.cpp)
