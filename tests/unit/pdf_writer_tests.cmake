list(APPEND UNIT_TESTS unit/pdf_writer_test.cpp)
