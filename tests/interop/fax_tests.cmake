list(APPEND INTEROP_TESTS interop/fax_decoder_test.cpp)
