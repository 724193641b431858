list(APPEND INTEROP_TESTS interop/fax_decoder_test.cpp)
list(APPEND INTEROP_TESTS interop/fax_encoder_test.cpp)
