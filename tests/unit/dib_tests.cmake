list(APPEND UNIT_TESTS unit/dib_model_test.cpp unit/dib_storage_test.cpp unit/dib_exports_test.cpp)
list(APPEND UNIT_TESTS unit/color_conversion_test.cpp)
