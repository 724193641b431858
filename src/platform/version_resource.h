// The library's version information: the values of its version resource on
// Windows, and the same values built in elsewhere.
#pragma once

#define VELMORA_VERSION_NUMBER 0x8748
#define VELMORA_VERSION_FILE 8, 7, 4, 8
#define VELMORA_PRODUCT_NAME "Velmora"
#define VELMORA_PRODUCT_VERSION "8.748 (Unicode)"
#define VELMORA_COMPANY_NAME "Solvenir"
#define VELMORA_LANGUAGE_VERSION "187"

#ifdef __cplusplus
namespace velmora {
constexpr const char* kVersionProductName = VELMORA_PRODUCT_NAME;
constexpr const char* kVersionProductVersion = VELMORA_PRODUCT_VERSION;
}  // namespace velmora
#endif
