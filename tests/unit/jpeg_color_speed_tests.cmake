list(APPEND UNIT_TESTS unit/jpeg_color_routes_test.cpp)
