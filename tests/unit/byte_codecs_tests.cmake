list(APPEND UNIT_TESTS unit/byte_decoders_test.cpp unit/inflater_test.cpp)
