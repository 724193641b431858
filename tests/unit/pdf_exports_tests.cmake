list(APPEND UNIT_TESTS unit/pdf_exports_test.cpp)
