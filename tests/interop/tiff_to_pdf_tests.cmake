list(APPEND INTEROP_TESTS interop/tiff_to_pdf_test.cpp)
# The stand-in for the outside JBIG2 converter library, loaded by path.
add_library(velmora_fake_jbig2_converter MODULE interop/fake_jbig2_converter.c)
cmake_language(DEFER CALL add_dependencies velmora_interop_tests velmora_fake_jbig2_converter)
cmake_language(DEFER CALL target_compile_definitions velmora_interop_tests PRIVATE
               VELMORA_FAKE_JBIG2_CONVERTER="$<TARGET_FILE:velmora_fake_jbig2_converter>")
