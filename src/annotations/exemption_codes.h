// Exemption codes: the short codes a redaction carries to say why its text
// was removed, read from an XML exemption code file:
//
//   <ExemptionCodes>
//     <ExemptionCodeGroup Name="..." DisplayName="...">
//       <ExemptionCodeInfo Code="..." Description="..."/>
//     </ExemptionCodeGroup>
//   </ExemptionCodes>
//
// The root may also be any element whose single child is ExemptionCodes. A
// group needs a non-empty Name and DisplayName, neither equal to one of a
// group loaded before (else it is skipped with its codes); a code needs a
// non-empty Code (else it is skipped); Description is optional. Groups stay
// in file order; the codes of a group are sorted by their code text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/checked_array.h"
#include "frame/error_record.h"

namespace velmora {

// Texts are offsets into ExemptionCodes::texts; offset 0 is the empty text.
struct ExemptionCode {
    uint32_t code;
    uint32_t group;        // index of the group
    uint32_t description;  // 0 when the code has none
};

struct ExemptionCodeGroup {
    uint32_t position;  // index in file order among the groups loaded
    uint32_t displayName;
    uint32_t name;
    uint32_t firstCode;  // the group's codes are codes[firstCode, firstCode + codeCount)
    uint32_t codeCount;
};

struct ExemptionCodes {
    CheckedArray<ExemptionCodeGroup> groups;
    CheckedArray<ExemptionCode> codes;
    CheckedArray<char16_t> texts;  // NUL-terminated texts one after the other

    const char16_t* Text(uint32_t offset) const { return texts.empty() ? u"" : texts.data() + offset; }
    void Clear() {
        groups.Clear();
        codes.Clear();
        texts.Clear();
    }
};

// Replaces `codes` with the file's groups. A file that cannot be read or
// parsed, or whose root is not as above, leaves no groups and "Unexpected
// error." (0x8000FFFF) in the record; running out of memory leaves 8.
bool ReadExemptionCodesFile(const std::u16string& path, ExemptionCodes* codes, ErrorRecord* record);
// The same for a document in memory.
bool ReadExemptionCodesBuffer(const uint8_t* bytes, size_t size, ExemptionCodes* codes, ErrorRecord* record);

}  // namespace velmora
