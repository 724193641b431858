list(APPEND UNIT_TESTS unit/resolution_test.cpp)
