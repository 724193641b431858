#include "pdf/number_format.h"

#include "frame/formatter.h"

namespace velmora {

size_t FormatReal(double value, char* out) { return FormatNarrow(out, kNumberTextSize, "%r", value); }

size_t FormatInteger(int32_t value, char* out) { return FormatNarrow(out, kNumberTextSize, "%lD", value); }

}  // namespace velmora
