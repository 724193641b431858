list(APPEND INTEROP_TESTS interop/tiff_corpus_test.cpp)
