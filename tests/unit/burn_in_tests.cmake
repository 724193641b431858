list(APPEND UNIT_TESTS unit/burn_in_test.cpp unit/font_leak_suppression.cpp)
