#include "pdf/text_layer.h"

#include <algorithm>
#include <cmath>

#include "pdf/buffered_writer.h"

namespace velmora {

namespace {

// Courier's metrics in units of 1/1000 em.
constexpr double kAscent = 629;
constexpr double kDescent = -157;
constexpr double kAdvance = 600;
constexpr double kTolerance = 0.001;

bool Touches(const OcrBox& a, const OcrBox& b) {
    return a.left <= b.right && b.left <= a.right && a.top <= b.bottom && b.top <= a.bottom;
}

bool Redacted(const OcrBox& box, const OcrBox* redactions, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (Touches(box, redactions[i])) return true;
    }
    return false;
}

void Character(BufferedWriter* writer, uint16_t code, ErrorRecord* record) {
    const uint8_t byte = code > 0xFF ? '?' : static_cast<uint8_t>(code);
    if (byte == '(' || byte == ')' || byte == '\\') writer->Put('\\', record);
    writer->Put(byte, record);
}

// The state of the text operators written so far.
struct TextState {
    double fontSize = -1;
    double scaling = 100;
};

// Writes one word: characters [begin, end) of `chars`, followed by a space
// when `trailingSpace`.
void Word(BufferedWriter* writer, const OcrChar* chars, size_t begin, size_t end, bool trailingSpace,
          const TextLayerPage& page, const OcrBox* redactions, size_t redactionCount, TextState* state,
          ErrorRecord* record) {
    bool boxed = false;
    OcrBox box{};
    for (size_t i = begin; i < end; ++i) {
        if (chars[i].kind != OcrCharKind::Boxed) continue;
        const OcrBox& b = chars[i].box;
        box = boxed ? OcrBox{std::min(box.left, b.left), std::min(box.top, b.top), std::max(box.right, b.right),
                             std::max(box.bottom, b.bottom)}
                    : b;
        boxed = true;
    }
    if (!boxed || Redacted(box, redactions, redactionCount)) return;
    const bool turned = page.rotation == 90 || page.rotation == 270;
    const int32_t pageHeight = turned ? page.width : page.height;
    const double xPoints = 72.0 / (turned ? page.yResolution : page.xResolution);
    const double yPoints = 72.0 / (turned ? page.xResolution : page.yResolution);
    box = RotateOcrBox(box, page.rotation, page.width, page.height);

    const double width = (static_cast<double>(box.right) - box.left + 1) * xPoints;
    const double height = (static_cast<double>(box.bottom) - box.top + 1) * yPoints;
    const double fontSize = height * 1000 / (kAscent - kDescent);
    const double advance = kAdvance * static_cast<double>(end - begin);
    const double scaling = fontSize > 0 ? width * 100 / (fontSize * 0.001 * advance) : 100;
    const double x = box.left * xPoints;
    const double y = (static_cast<double>(pageHeight) - box.bottom - 1) * yPoints - kDescent * fontSize / 1000;

    if (std::fabs(fontSize - state->fontSize) > kTolerance) {
        writer->Text("/F1 ", record);
        writer->Real(fontSize, record);
        writer->Text(" Tf ", record);
        state->fontSize = fontSize;
    }
    writer->Text("1 0 0 1 ", record);
    writer->Real(x, record);
    writer->Put(' ', record);
    writer->Real(y, record);
    writer->Text(" Tm ", record);
    if (std::fabs(scaling - state->scaling) > kTolerance) {
        writer->Real(scaling, record);
        writer->Text(" Tz ", record);
        state->scaling = scaling;
    }
    writer->Put('(', record);
    for (size_t i = begin; i < end; ++i) Character(writer, chars[i].code, record);
    if (trailingSpace) writer->Put(' ', record);
    writer->Text(") Tj ", record);
}

}  // namespace

bool BuildTextLayer(const uint8_t* text, uint32_t size, const TextLayerPage& page, const OcrBox* redactions,
                    size_t redactionCount, CheckedArray<uint8_t>* out, ErrorRecord* record) {
    OcrTextView view;
    if (!OpenOcrText(text, size, &view, record)) return false;
    CheckedArray<uint8_t> bytes;
    BufferedWriter writer;
    writer.AttachBytes(&bytes);
    writer.Text("q 3 Tr ", record);
    TextState state;
    OcrEntry entry;
    for (uint32_t e = 0; e < view.count && ReadOcrEntry(view, e, &entry, record); ++e) {
        writer.Text("BT 0 Tc ", record);
        state.fontSize = -1;
        const OcrChar* chars = entry.chars.data();
        const size_t count = entry.chars.size();
        size_t begin = 0;
        while (begin < count) {
            if (chars[begin].kind == OcrCharKind::Separator) {
                ++begin;
                continue;
            }
            size_t end = begin;
            while (end < count && chars[end].kind != OcrCharKind::Separator) ++end;
            const bool space = end < count && chars[end].code == ' ';
            Word(&writer, chars, begin, end, space, page, redactions, redactionCount, &state, record);
            begin = end;
        }
        writer.Text("ET ", record);
    }
    writer.Put('Q', record);
    writer.Flush(record);
    for (size_t i = 0; i < bytes.size() && out->Append(bytes[i], record); ++i) {
    }
    return record->ok();
}

}  // namespace velmora
