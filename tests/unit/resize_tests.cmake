list(APPEND UNIT_TESTS unit/resize_test.cpp)
