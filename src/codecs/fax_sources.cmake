# The CCITT fax decoder and the code lists it builds its tables from.
set(VELMORA_FAX_CODES ${CMAKE_SOURCE_DIR}/src/codecs/fax_codes.txt)
set(VELMORA_FAXGEN ${CMAKE_SOURCE_DIR}/tools/resgen/faxcodes.py)
add_custom_command(
  OUTPUT ${VELMORA_GENERATED_DIR}/fax_code_lists.cpp
  COMMAND ${VELMORA_PYTHON} ${VELMORA_FAXGEN} --codes ${VELMORA_FAX_CODES}
          --out ${VELMORA_GENERATED_DIR}/fax_code_lists.cpp
  DEPENDS ${VELMORA_FAXGEN} ${VELMORA_FAX_CODES}
  COMMENT "Generating the fax code lists" VERBATIM)

list(APPEND VELMORA_SOURCES
  src/codecs/fax_decoder.cpp
  src/codecs/fax_tables.cpp
  ${VELMORA_GENERATED_DIR}/fax_code_lists.cpp)
