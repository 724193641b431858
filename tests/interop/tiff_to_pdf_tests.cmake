list(APPEND INTEROP_TESTS interop/tiff_to_pdf_test.cpp)
