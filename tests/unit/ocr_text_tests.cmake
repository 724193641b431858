list(APPEND UNIT_TESTS unit/ocr_text_test.cpp)
