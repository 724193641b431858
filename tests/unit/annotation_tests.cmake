list(APPEND UNIT_TESTS unit/annotation_stream_test.cpp unit/annotation_exports_test.cpp
     unit/page_annotations_test.cpp unit/annotation_clipboard_test.cpp)
