list(APPEND UNIT_TESTS unit/jpeg_decoder_test.cpp)
list(APPEND UNIT_TESTS unit/jpeg_mcu_index_test.cpp)
