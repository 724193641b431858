#include "tiff/page_information.h"

#include <cstring>

#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr char kSignature[16] = "VelmoraPageInfo";
constexpr uint32_t kUnitNone = 1, kUnitInch = 2, kUnitCentimetre = 3;

void Put32(uint8_t* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

// value per `unit` as value per inch: divided by the unit's length and
// multiplied by the inch's (25.4 mm).
bool ToInches(Fraction value, uint32_t unit, Fraction* inches) {
    Fraction length;
    if (!UnitLengthInMillimetres(unit, &length)) return false;
    ErrorRecord exact;
    *inches = Multiply(Divide(value, length, &exact), Fraction{254, 10}, &exact);
    return exact.ok();
}

}  // namespace

HGLOBAL BuildPageInformation(uint32_t value, Fraction horizontal, Fraction vertical, uint32_t unit, const char* first,
                             const char* second, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    if (unit > kUnitCentimetre) {
        Fraction x, y;
        if (ToInches(horizontal, unit, &x) && ToInches(vertical, unit, &y)) {
            horizontal = x;
            vertical = y;
            unit = kUnitInch;
        } else {
            unit = kUnitNone;
        }
    }
    const size_t firstLength = first != nullptr ? std::strlen(first) : 0;
    const size_t secondLength = second != nullptr ? std::strlen(second) : 0;
    const uint64_t size = uint64_t{kPageInformationHeader} + firstLength + 1 + secondLength + 1;
    if (size > 0xFFFFFFFFu) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    HGLOBAL block = AllocHandle(static_cast<size_t>(size), GMEM_ZEROINIT, record);
    if (block == nullptr) return nullptr;
    auto* at = static_cast<uint8_t*>(platform::MemLock(block));
    Put32(at, static_cast<uint32_t>(size));
    std::memcpy(at + 4, kSignature, sizeof kSignature);
    Put32(at + 20, value);
    Put32(at + 24, horizontal.denominator);
    Put32(at + 28, horizontal.numerator);
    Put32(at + 32, vertical.denominator);
    Put32(at + 36, vertical.numerator);
    at[40] = static_cast<uint8_t>(unit == 0 ? kUnitNone : unit);
    if (firstLength != 0) std::memcpy(at + kPageInformationHeader, first, firstLength);
    if (secondLength != 0) std::memcpy(at + kPageInformationHeader + firstLength + 1, second, secondLength);
    platform::MemUnlock(block);
    return block;
}

}  // namespace velmora
