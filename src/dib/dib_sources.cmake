# The DIB model: layout, image handles and storage kinds, validation,
# colour tables, rotation, BMP writing, display palettes, and its exports.
list(APPEND VELMORA_SOURCES
  src/dib/bmp_writer.cpp
  src/dib/color_type.cpp
  src/dib/dib_layout.cpp
  src/dib/dib_validation.cpp
  src/dib/display_palette.cpp
  src/dib/exports.cpp
  src/dib/image.cpp
  src/dib/palette.cpp
  src/dib/pixel_fetch.cpp
  src/dib/resolution.cpp
  src/dib/rotate.cpp
  src/dib/spill_store.cpp
  src/dib/standing_palettes.cpp
  ${VELMORA_GENERATED_DIR}/standing_palettes_data.cpp)

# The standing display palettes, generated from their readable source.
add_custom_command(
  OUTPUT ${VELMORA_GENERATED_DIR}/standing_palettes_data.cpp
  COMMAND ${VELMORA_PYTHON} ${CMAKE_SOURCE_DIR}/tools/palettegen/palettegen.py
          --palettes ${CMAKE_SOURCE_DIR}/src/dib/standing_palettes.txt
          --out ${VELMORA_GENERATED_DIR}/standing_palettes_data.cpp
  DEPENDS ${CMAKE_SOURCE_DIR}/tools/palettegen/palettegen.py ${CMAKE_SOURCE_DIR}/src/dib/standing_palettes.txt
  COMMENT "Generating the standing display palettes" VERBATIM)

# Page-granular memory and display palettes of the platform layer.
if(WIN32)
  list(APPEND VELMORA_SOURCES src/platform/win32/page_memory.cpp src/platform/win32/display_palette.cpp)
else()
  list(APPEND VELMORA_SOURCES src/platform/posix/page_memory.cpp)
endif()
