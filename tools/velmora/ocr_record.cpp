// Recognised text as the library stores it with a page: a record of one entry
// per line, each a UTF-16 text and a coded box for every character.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "command.h"

namespace velmora_cli {
namespace {

// Appends bits most significant first, starting each entry on a fresh byte.
class Bits {
public:
    explicit Bits(std::vector<uint8_t>* out) : out_(out) {}
    void Put(unsigned count, uint32_t value) {
        for (unsigned i = count; i-- > 0;) {
            if (used_ == 0) out_->push_back(0);
            if ((value >> i) & 1) out_->back() |= static_cast<uint8_t>(0x80 >> used_);
            used_ = (used_ + 1) & 7;
        }
    }
    // A signed number in the smallest of 5, 8, 16 or 32 bits, after its prefix.
    void Number(int32_t v) {
        if (v >= -16 && v < 16) return Put(1, 0), Put(5, v & 0x1F);
        if (v >= -128 && v < 128) return Put(2, 2), Put(8, v & 0xFF);
        if (v >= -32768 && v < 32768) return Put(3, 6), Put(16, v & 0xFFFF);
        Put(3, 7), Put(32, static_cast<uint32_t>(v));
    }

private:
    std::vector<uint8_t>* out_;
    unsigned used_ = 0;
};

void PutU32(std::vector<uint8_t>* out, size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) (*out)[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

// The code points of UTF-8 text; false for malformed text.
bool DecodeUtf8(const std::string& text, std::vector<uint32_t>* points) {
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i]);
        const unsigned extra = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 4;
        if (extra == 4 || lead > 0xF4 || i + extra >= text.size() + (extra == 0 ? 1 : 0)) return false;
        uint32_t point = extra == 0 ? lead : lead & (0x3F >> extra);
        for (unsigned k = 1; k <= extra; ++k) {
            const auto next = static_cast<uint8_t>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            point = point << 6 | (next & 0x3F);
        }
        if (point > 0x10FFFF) return false;
        points->push_back(point);
        i += extra + 1;
    }
    return true;
}

}  // namespace

HGLOBAL BuildOcrRecord(const std::vector<OcrLine>& lines) {
    static const char kSignature[16] = "VelmoraOCRText";
    const size_t tableEnd = VELMORA_OCR_TEXT_SIZE_V1 + lines.size() * VELMORA_OCR_TEXT_ENTRY_SIZE_V1;
    std::vector<uint8_t> bytes(tableEnd, 0);
    std::memcpy(bytes.data() + 4, kSignature, sizeof kSignature);
    PutU32(&bytes, 20, VELMORA_OCR_TEXT_FORMAT_1);
    PutU32(&bytes, 24, static_cast<uint32_t>(lines.size()));
    for (size_t e = 0; e < lines.size(); ++e) {
        // Each character gets an even share of its word's width; the spaces
        // between words and the second half of a surrogate pair get no box.
        std::vector<uint16_t> units;
        std::vector<int> kinds;  // 0 boxed, 2 separator, 3 joined
        std::vector<RECT> boxes;
        for (size_t w = 0; w < lines[e].size(); ++w) {
            const OcrWord& word = lines[e][w];
            std::vector<uint32_t> points;
            if (!DecodeUtf8(word.text, &points) || points.empty()) return nullptr;
            if (w > 0) units.push_back(' '), kinds.push_back(2), boxes.push_back({});
            const int64_t width = int64_t{word.box.right} - word.box.left;
            for (size_t i = 0; i < points.size(); ++i) {
                const auto n = static_cast<int64_t>(points.size());
                const auto at = static_cast<int64_t>(i);
                boxes.push_back({static_cast<LONG>(word.box.left + width * at / n), word.box.top,
                                 static_cast<LONG>(word.box.left + width * (at + 1) / n), word.box.bottom});
                kinds.push_back(0);
                if (points[i] < 0x10000) {
                    units.push_back(static_cast<uint16_t>(points[i]));
                    continue;
                }
                units.push_back(static_cast<uint16_t>(0xD800 + ((points[i] - 0x10000) >> 10)));
                units.push_back(static_cast<uint16_t>(0xDC00 + (points[i] & 0x3FF)));
                kinds.push_back(3), boxes.push_back({});
            }
        }
        PutU32(&bytes, VELMORA_OCR_TEXT_SIZE_V1 + e * 8, static_cast<uint32_t>(bytes.size()));
        for (uint16_t unit : units) bytes.push_back(static_cast<uint8_t>(unit)), bytes.push_back(unit >> 8);
        bytes.push_back(0), bytes.push_back(0);
        PutU32(&bytes, VELMORA_OCR_TEXT_SIZE_V1 + e * 8 + 4, static_cast<uint32_t>(bytes.size()));
        Bits bits(&bytes);
        for (size_t i = 0; i < units.size(); ++i) {
            if (kinds[i] != 0) {
                bits.Put(2, static_cast<uint32_t>(kinds[i]));
                continue;
            }
            bits.Put(1, 0);
            bits.Number(boxes[i].left), bits.Number(boxes[i].top);
            bits.Number(boxes[i].right), bits.Number(boxes[i].bottom);
        }
    }
    PutU32(&bytes, 0, static_cast<uint32_t>(bytes.size()));
    HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes.size());
    if (block == nullptr) return nullptr;
    std::memcpy(GlobalLock(block), bytes.data(), bytes.size());
    GlobalUnlock(block);
    return block;
}

int StoreOcrRecords(const char* path, const std::vector<HGLOBAL>& records) {
    HGLOBAL tiff = OpenVelmoraTIFF(path, 0x80000000u, 0);
    if (tiff == nullptr) return Fail(path);
    const std::string temporary = std::string(path) + ".velmora-ocr";
    int result = RewritePages(path, AllPages(CountTiffPages(tiff)), temporary.c_str(), [&](DWORD p, HGLOBAL target) {
        VelmoraAppendTIFF append = {};
        append.size = VELMORA_APPEND_TIFF_SIZE_V5;
        append.compression = VELMORA_COMPRESSION_DEFAULT;
        append.sourceTIFF = tiff;
        append.sourcePage = p;
        if (p <= records.size() && records[p - 1] != nullptr) {
            append.flags |= VELMORA_APPEND_OCR_TEXT;
            append.ocrText = records[p - 1];
        }
        return AppendVelmoraOpenTIFFEx(target, &append) != FALSE;
    });
    CloseVelmoraTIFF(tiff);
    std::error_code error;
    if (result == 0 && (std::filesystem::rename(temporary, path, error), error)) {
        std::fprintf(stderr, "velmora: cannot replace %s\n", path);
        result = 1;
    }
    if (result != 0) std::remove(temporary.c_str());
    return result;
}

}  // namespace velmora_cli
