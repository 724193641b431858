list(APPEND UNIT_TESTS unit/fax_decoder_test.cpp)
