#include "tiff/cals_header.h"

#include <cstring>

namespace velmora {
namespace {

constexpr uint32_t kErrUnsupportedImage = 0x02000005;
constexpr uint32_t kErrUnsupportedFileType = 0x0200001B;
constexpr size_t kRecordCount = 16;
constexpr char kSignature[] = "srcdocid:";
constexpr uint32_t kMaxValue = 0x7FFFFFFF;

// Reads up to `count` decimal integers after a keyword: optional blanks, the
// digits, and a comma between two values. Every value must end inside the
// record.
int ReadIntegers(const char* text, size_t length, uint32_t* values, int count) {
    size_t at = 0;
    int found = 0;
    while (found < count) {
        while (at < length && text[at] == ' ') ++at;
        if (at >= length || text[at] < '0' || text[at] > '9') break;
        uint64_t value = 0;
        while (at < length && text[at] >= '0' && text[at] <= '9') {
            value = value * 10 + static_cast<uint64_t>(text[at] - '0');
            if (value > kMaxValue) return found;
            ++at;
        }
        if (at >= length) break;  // the value must end within its record
        values[found++] = static_cast<uint32_t>(value);
        while (at < length && text[at] == ' ') ++at;
        if (at < length && text[at] == ',') {
            ++at;
        } else {
            break;
        }
    }
    return found;
}

bool StartsWith(const char* record, const char* keyword, size_t* length) {
    *length = std::strlen(keyword);
    return std::memcmp(record, keyword, *length) == 0;
}

}  // namespace

bool IsCalsFile(const uint8_t* bytes, size_t size) {
    return size >= sizeof kSignature - 1 && std::memcmp(bytes, kSignature, sizeof kSignature - 1) == 0;
}

bool ParseCalsHeader(const uint8_t* bytes, size_t size, CalsHeader* header, ErrorRecord* record) {
    if (record->failed()) return false;
    *header = CalsHeader();
    if (size <= kCalsHeaderSize) {
        SetRecordError(record, kErrUnrecognizedFormat, 0);
        return false;
    }
    if (!IsCalsFile(bytes, size)) {
        SetRecordError(record, kErrUnsupportedFileType, 0);
        return false;
    }
    bool typeOne = false;
    bool haveSize = false;
    for (size_t r = 0; r < kRecordCount; ++r) {
        const char* text = reinterpret_cast<const char*>(bytes + r * kCalsRecordSize);
        size_t keyword = 0;
        uint32_t values[2] = {0, 0};
        if (StartsWith(text, "rtype:", &keyword)) {
            typeOne = ReadIntegers(text + keyword, kCalsRecordSize - keyword, values, 1) == 1 && values[0] == 1;
            if (!typeOne) {
                SetRecordError(record, kErrUnsupportedImage, 0);
                return false;
            }
        } else if (StartsWith(text, "rorient:", &keyword)) {
            if (ReadIntegers(text + keyword, kCalsRecordSize - keyword, values, 2) == 2) {
                bool rotationOk = values[0] == 0 || values[0] == 90 || values[0] == 180 || values[0] == 270;
                bool directionOk = values[1] == 90 || values[1] == 270;
                if (rotationOk && directionOk) {
                    header->rotation = static_cast<uint16_t>(values[0]);
                    header->lineDirection = static_cast<uint16_t>(values[1]);
                }
            }
        } else if (StartsWith(text, "rpelcnt:", &keyword)) {
            if (ReadIntegers(text + keyword, kCalsRecordSize - keyword, values, 2) == 2) {
                header->width = values[0];
                header->height = values[1];
                haveSize = true;
            }
        } else if (StartsWith(text, "rdensity:", &keyword) || StartsWith(text, "rdensty:", &keyword)) {
            if (ReadIntegers(text + keyword, kCalsRecordSize - keyword, values, 1) == 1 && values[0] <= 0xFFFF) {
                header->density = static_cast<uint16_t>(values[0]);
            }
        }
    }
    if (!haveSize || header->width == 0 || header->height == 0) {
        SetRecordError(record, kErrUnsupportedImage, 0);
        return false;
    }
    return true;
}

CalsOrientation CalsPageOrientation(const CalsHeader& header) {
    // Rotation then line direction. For rotation 90 the angle reported is the
    // line direction and for 270 its opposite: the page is described that
    // way, quirks included.
    bool normal = header.lineDirection == 270;
    switch (header.rotation) {
        case 90: return normal ? CalsOrientation{8, false, 270} : CalsOrientation{5, true, 90};
        case 180: return normal ? CalsOrientation{3, false, 180} : CalsOrientation{2, true, 180};
        case 270: return normal ? CalsOrientation{6, false, 90} : CalsOrientation{7, true, 270};
        default: return normal ? CalsOrientation{1, false, 0} : CalsOrientation{4, true, 0};
    }
}

}  // namespace velmora
