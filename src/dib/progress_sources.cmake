list(APPEND VELMORA_SOURCES
  src/dib/progress.cpp)
