list(APPEND INTEROP_TESTS interop/pdf_writer_test.cpp)
