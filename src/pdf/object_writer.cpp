#include "pdf/object_writer.h"

#include <cstring>

namespace velmora {
namespace {

const char kHexDigits[] = "0123456789abcdef";

bool IsSpecialNameByte(uint8_t byte) {
    static const char kSpecial[] = "\t\n\f\r %()<>[]{}/#";
    return byte == 0 || std::memchr(kSpecial, byte, sizeof kSpecial - 1) != nullptr;
}

void WriteMembers(BufferedWriter* out, const PdfObject* first, uint16_t version, ErrorRecord* record) {
    for (const PdfObject* member = first; member != nullptr && record->ok(); member = member->next) {
        if (member != first) out->Put(' ', record);
        WritePdfObject(out, member, version, record);
    }
}

}  // namespace

void WritePdfName(BufferedWriter* out, const uint8_t* text, size_t length, uint16_t version, ErrorRecord* record) {
    uint8_t name[kPdfNameLimit];
    size_t used = 0;
    bool escape = version > kPdfVersion11;
    for (size_t i = 0; i < length; ++i) {
        bool special = escape && IsSpecialNameByte(text[i]);
        if (used + (special ? 3 : 1) > sizeof name) break;
        if (special) {
            name[used++] = '#';
            name[used++] = static_cast<uint8_t>(kHexDigits[text[i] >> 4]);
            name[used++] = static_cast<uint8_t>(kHexDigits[text[i] & 15]);
        } else {
            name[used++] = text[i];
        }
    }
    out->Put('/', record);
    out->Write(name, used, record);
}

void WritePdfString(BufferedWriter* out, const uint8_t* bytes, size_t length, bool hex, ErrorRecord* record) {
    if (hex) {
        out->Put('<', record);
        for (size_t i = 0; i < length; ++i) {
            out->Put(static_cast<uint8_t>(kHexDigits[bytes[i] >> 4]), record);
            out->Put(static_cast<uint8_t>(kHexDigits[bytes[i] & 15]), record);
        }
        out->Put('>', record);
        return;
    }
    bool special = false;
    bool unbalanced = false;
    int64_t depth = 0;
    for (size_t i = 0; i < length; ++i) {
        uint8_t byte = bytes[i];
        if (byte == '\r' || byte == '\n' || byte == '\\') special = true;
        if (byte == '(') ++depth;
        if (byte == ')' && --depth < 0) unbalanced = true;
    }
    if (depth != 0) unbalanced = true;
    out->Put('(', record);
    if (!special && !unbalanced) {
        out->Write(bytes, length, record);
    } else {
        for (size_t i = 0; i < length; ++i) {
            uint8_t byte = bytes[i];
            if (byte == '\n') {
                out->Text("\\n", record);
            } else if (byte == '\r') {
                out->Text("\\r", record);
            } else if (byte == '\\' || (unbalanced && (byte == '(' || byte == ')'))) {
                out->Put('\\', record);
                out->Put(byte, record);
            } else {
                out->Put(byte, record);
            }
        }
    }
    out->Put(')', record);
}

void WritePdfObject(BufferedWriter* out, const PdfObject* object, uint16_t version, ErrorRecord* record) {
    if (record->failed()) return;
    switch (object->kind) {
        case PdfKind::Array:
            out->Put('[', record);
            WriteMembers(out, object->members, version, record);
            out->Put(']', record);
            break;
        case PdfKind::Boolean: out->Text(object->boolean ? "true" : "false", record); break;
        case PdfKind::Dictionary:
        case PdfKind::Stream:
            out->Text("<<", record);
            WriteMembers(out, object->members, version, record);
            out->Text(">>", record);
            if (object->kind == PdfKind::Stream) out->Text("\r\nstream\r\n", record);
            break;
        case PdfKind::Reference:
            out->Unsigned(object->number, record);
            out->Put(' ', record);
            out->Unsigned(object->generation, record);
            out->Text(" R", record);
            break;
        case PdfKind::Integer: out->Integer(object->integer, record); break;
        case PdfKind::Name: WritePdfName(out, object->bytes.data(), object->bytes.size(), version, record); break;
        case PdfKind::Null: out->Text("null", record); break;
        case PdfKind::Reserved: break;
        case PdfKind::Real: out->Real(object->real, record); break;
        case PdfKind::String:
            WritePdfString(out, object->bytes.data(), object->bytes.size(), object->hex, record);
            break;
    }
}

}  // namespace velmora
