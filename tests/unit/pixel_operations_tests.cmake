list(APPEND UNIT_TESTS unit/pixel_operations_test.cpp)
