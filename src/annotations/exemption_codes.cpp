#include "annotations/exemption_codes.h"

#include <algorithm>

#include "platform/xml_document.h"

namespace velmora {
namespace {

bool SameText(const char16_t* a, const char16_t* b) {
    while (*a != 0 && *a == *b) ++a, ++b;
    return *a == *b;
}

bool TextBefore(const char16_t* a, const char16_t* b) {
    while (*a != 0 && *a == *b) ++a, ++b;
    return *a < *b;
}

const char16_t* AttributeValue(const platform::XmlAttribute* attributes, size_t count, const char16_t* name) {
    for (size_t i = 0; i < count; ++i) {
        if (SameText(attributes[i].name, name)) return attributes[i].value;
    }
    return nullptr;
}

bool Present(const char16_t* text) { return text != nullptr && *text != 0; }

// Builds the groups while the parser walks the document.
class CodeFileReader final : public platform::XmlVisitor {
public:
    CodeFileReader(ExemptionCodes* codes, ErrorRecord* record) : codes_(codes), record_(record) {}

    bool StartElement(const char16_t* name, const platform::XmlAttribute* attributes, size_t count) override {
        const size_t level = level_++;
        if (level == 0) {
            if (SameText(name, u"ExemptionCodes")) {
                codesLevel_ = 0;
            } else {
                wrapped_ = true;
            }
        } else if (wrapped_ && level == 1) {
            ++wrapperChildren_;
            if (SameText(name, u"ExemptionCodes") && wrapperChildren_ == 1) codesLevel_ = 1;
        } else if (codesLevel_ >= 0 && level == static_cast<size_t>(codesLevel_) + 1) {
            if (SameText(name, u"ExemptionCodeGroup")) StartGroup(attributes, count);
        } else if (inGroup_ && level == static_cast<size_t>(codesLevel_) + 2) {
            if (SameText(name, u"ExemptionCodeInfo")) AddCode(attributes, count);
        }
        return record_->ok();
    }

    void EndElement() override {
        --level_;
        if (inGroup_ && codesLevel_ >= 0 && level_ == static_cast<size_t>(codesLevel_) + 1) EndGroup();
    }

    // Whether the document had the expected root.
    bool RootAccepted() const { return codesLevel_ >= 0 && (!wrapped_ || wrapperChildren_ == 1); }

private:
    // Appends a text with its terminator; its offset, or 0 after a failure.
    uint32_t AddText(const char16_t* text) {
        if (codes_->texts.empty() && !codes_->texts.Append(0, record_)) return 0;
        const size_t offset = codes_->texts.size();
        if (offset > UINT32_MAX) {
            SetRecordError(record_, kErrNotEnoughMemory, 0);
            return 0;
        }
        do {
            if (!codes_->texts.Append(*text, record_)) return 0;
        } while (*text++ != 0);
        return static_cast<uint32_t>(offset);
    }

    bool Duplicate(const char16_t* name, const char16_t* displayName) const {
        for (const ExemptionCodeGroup& group : codes_->groups) {
            if (SameText(codes_->Text(group.name), name) || SameText(codes_->Text(group.displayName), displayName)) {
                return true;
            }
        }
        return false;
    }

    void StartGroup(const platform::XmlAttribute* attributes, size_t count) {
        const char16_t* name = AttributeValue(attributes, count, u"Name");
        const char16_t* displayName = AttributeValue(attributes, count, u"DisplayName");
        if (!Present(name) || !Present(displayName) || Duplicate(name, displayName)) return;
        ExemptionCodeGroup group{};
        group.position = static_cast<uint32_t>(codes_->groups.size());
        group.displayName = AddText(displayName);
        group.name = AddText(name);
        group.firstCode = static_cast<uint32_t>(codes_->codes.size());
        inGroup_ = codes_->groups.Append(group, record_);
    }

    void AddCode(const platform::XmlAttribute* attributes, size_t count) {
        const char16_t* code = AttributeValue(attributes, count, u"Code");
        const char16_t* description = AttributeValue(attributes, count, u"Description");
        if (!Present(code)) return;
        if (codes_->codes.size() >= UINT32_MAX) {
            SetRecordError(record_, kErrNotEnoughMemory, 0);
            return;
        }
        ExemptionCode entry{};
        entry.code = AddText(code);
        entry.group = static_cast<uint32_t>(codes_->groups.size() - 1);
        entry.description = Present(description) ? AddText(description) : 0;
        codes_->codes.Append(entry, record_);
    }

    void EndGroup() {
        inGroup_ = false;
        ExemptionCodeGroup& group = codes_->groups[codes_->groups.size() - 1];
        group.codeCount = static_cast<uint32_t>(codes_->codes.size() - group.firstCode);
        const ExemptionCodes* codes = codes_;
        std::stable_sort(codes_->codes.begin() + group.firstCode, codes_->codes.end(),
                         [codes](const ExemptionCode& a, const ExemptionCode& b) {
                             return TextBefore(codes->Text(a.code), codes->Text(b.code));
                         });
    }

    ExemptionCodes* codes_;
    ErrorRecord* record_;
    size_t level_ = 0;
    ptrdiff_t codesLevel_ = -1;  // the level of the ExemptionCodes element
    bool wrapped_ = false;
    size_t wrapperChildren_ = 0;
    bool inGroup_ = false;
};

template <typename Walk>
bool ReadCodes(Walk walk, ExemptionCodes* codes, ErrorRecord* record) {
    if (record->failed()) return false;
    codes->Clear();
    CodeFileReader reader(codes, record);
    uint32_t error = 0;
    const bool walked = walk(&reader, &error);
    if (record->failed() || !walked || !reader.RootAccepted()) {
        codes->Clear();
        SetRecordError(record, error == kErrNotEnoughMemory ? kErrNotEnoughMemory : kUnexpectedError, 0);
        return false;
    }
    return true;
}

}  // namespace

bool ReadExemptionCodesFile(const std::u16string& path, ExemptionCodes* codes, ErrorRecord* record) {
    return ReadCodes(
        [&](platform::XmlVisitor* visitor, uint32_t* error) { return platform::WalkXmlFile(path, visitor, error); },
        codes, record);
}

bool ReadExemptionCodesBuffer(const uint8_t* bytes, size_t size, ExemptionCodes* codes, ErrorRecord* record) {
    return ReadCodes([&](platform::XmlVisitor* visitor,
                         uint32_t* error) { return platform::WalkXmlBuffer(bytes, size, visitor, error); },
                     codes, record);
}

}  // namespace velmora
