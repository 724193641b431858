list(APPEND INTEROP_TESTS interop/gif_pcx_read_test.cpp)
