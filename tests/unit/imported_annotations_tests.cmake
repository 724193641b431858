list(APPEND UNIT_TESTS unit/imported_annotations_test.cpp)
