list(APPEND UNIT_TESTS unit/tiff_document_test.cpp)
