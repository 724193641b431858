// PackBits strips (TIFF compression 32773, TIFF 6.0 section 9): a signed
// control byte n copies the next n + 1 bytes (0 to 127), repeats the next
// byte 1 - n times (-1 to -127), or does nothing (-128). Runs and copies
// continue across row ends.
#include <algorithm>
#include <cstring>

#include "codecs/byte_decoders.h"
#include "codecs/strip_input.h"
#include "codecs/strip_rows.h"

namespace velmora {
namespace {

class PackBitsDecoder final : public StripDecoder {
public:
    bool Begin(const CodecPage& page, ErrorRecord* record) override {
        page_ = page;
        return StripRowSizes(page, &rowBytes_, &visible_, record);
    }

    bool Decode(const CodecStrip& strip, ErrorRecord* record) override {
        if (record->failed()) return false;
        if (!input_.Load(page_, strip, record)) return false;
        if (!rows_.Start(page_, strip, rowBytes_, visible_, nullptr, record)) return false;
        bool ok = DecodeBytes(input_.data(), input_.size(), record);
        rows_.Close();
        return ok;
    }

private:
    // Input that ends before its control bytes are satisfied ends the strip
    // with what it holds.
    bool DecodeBytes(const uint8_t* p, size_t size, ErrorRecord* record) {
        const uint8_t* const end = p + size;
        while (p < end && !rows_.done()) {
            // Most control bytes are decoded in stretches of output that
            // need no test of the row's end or the input's end per byte.
            if (end - p > kMaxControl) {
                const size_t window = rows_.contiguous() ? static_cast<size_t>(rows_.remaining()) : rows_.room();
                if (window > kMaxControl) {
                    uint8_t* const start = rows_.cursor();
                    uint8_t* out = start;
                    // The last control byte to start with has its 128 bytes after it.
                    const uint8_t* const inLast = end - (kMaxControl + 1);
                    p = DecodeStretch(p, inLast, &out, start + (window - kMaxControl));
                    if (!rows_.Written(static_cast<size_t>(out - start), record)) return false;
                    if (p >= end || rows_.done()) break;
                }
            }
            // One control byte near an end, where its bytes may run on into
            // the next row or past the input.
            int n = static_cast<int8_t>(*p++);
            if (n >= 0) {
                size_t count = std::min<size_t>(static_cast<size_t>(n) + 1, static_cast<size_t>(end - p));
                if (!rows_.Put(p, count, record)) return false;
                p += count;
            } else if (n != -128) {
                if (p == end) break;
                if (!rows_.PutRun(*p, static_cast<size_t>(1 - n), record)) return false;
                ++p;
            }
        }
        return true;
    }

    // Decodes control bytes while one starts at or before `inLast` and the
    // output is at or before `outLast`, so that every control byte has all
    // its input and room for all its output. Moves `*output` past the bytes
    // written; returns the input position.
    static const uint8_t* DecodeStretch(const uint8_t* p, const uint8_t* inLast, uint8_t** output,
                                        const uint8_t* outLast) {
        uint8_t* out = *output;
        while (p <= inLast && out <= outLast) {
            const int n = static_cast<int8_t>(*p++);
            if (n >= 0) {
                const size_t count = static_cast<size_t>(n) + 1;
                CopyBytes(out, p, count);
                p += count;
                out += count;
            } else if (n != -128) {
                const size_t count = static_cast<size_t>(1 - n);
                FillBytes(out, *p++, count);
                out += count;
            }
        }
        *output = out;
        return p;
    }

    // Copies 1 to 128 bytes with word moves that overlap rather than pass
    // the end, so that no byte past `count` is touched.
    static void CopyBytes(uint8_t* to, const uint8_t* from, size_t count) {
        if (count >= 16) {
            for (size_t i = 0; i + 16 < count; i += 16) std::memcpy(to + i, from + i, 16);
            std::memcpy(to + count - 16, from + count - 16, 16);
        } else if (count >= 8) {
            std::memcpy(to, from, 8);
            std::memcpy(to + count - 8, from + count - 8, 8);
        } else if (count >= 4) {
            std::memcpy(to, from, 4);
            std::memcpy(to + count - 4, from + count - 4, 4);
        } else {
            to[0] = from[0];
            to[count / 2] = from[count / 2];
            to[count - 1] = from[count - 1];
        }
    }

    // Sets 1 to 128 bytes to `value` in the same way.
    static void FillBytes(uint8_t* to, uint8_t value, size_t count) {
        const uint64_t word = value * uint64_t{0x0101010101010101};
        if (count >= 16) {
            uint8_t pattern[16];
            std::memcpy(pattern, &word, 8);
            std::memcpy(pattern + 8, &word, 8);
            for (size_t i = 0; i + 16 < count; i += 16) std::memcpy(to + i, pattern, 16);
            std::memcpy(to + count - 16, pattern, 16);
        } else if (count >= 8) {
            std::memcpy(to, &word, 8);
            std::memcpy(to + count - 8, &word, 8);
        } else if (count >= 4) {
            std::memcpy(to, &word, 4);
            std::memcpy(to + count - 4, &word, 4);
        } else {
            to[0] = value;
            to[count / 2] = value;
            to[count - 1] = value;
        }
    }

    // The most bytes one control byte reads after itself or writes.
    static constexpr ptrdiff_t kMaxControl = 128;

    CodecPage page_;
    size_t rowBytes_ = 0;
    size_t visible_ = 0;
    StripInput input_;
    StripRowWriter rows_;
};

}  // namespace

std::unique_ptr<StripDecoder> CreatePackBitsDecoder() { return NewDecoder<PackBitsDecoder>(); }

}  // namespace velmora
