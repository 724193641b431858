list(APPEND UNIT_TESTS unit/cals_test.cpp)
