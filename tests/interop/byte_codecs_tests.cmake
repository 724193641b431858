list(APPEND INTEROP_TESTS interop/byte_codecs_test.cpp)
list(APPEND INTEROP_TESTS interop/byte_encoders_test.cpp)
