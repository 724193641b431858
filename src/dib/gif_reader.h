// Reading frames of a GIF file (87a or 89a) into 8-bit DIBs.
//
// A frame comes out at its own size, not placed on the logical screen and
// not composed over earlier frames; its colour table is its local table or
// else the global one. The transparency and timing of graphic control
// extensions are not used, so a transparent index shows as its table colour.
#pragma once

#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "frame/progress.h"
#include "io/stream.h"
#include "velmora/wintypes.h"

namespace velmora {

// Where a frame stands and how its image data is laid out.
struct GifFrame {
    uint16_t left = 0;
    uint16_t top = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    bool interlaced = false;
    uint32_t tableCount = 0;  // 0 when the frame has no table at all
    RGBQUAD table[256] = {};
    uint64_t dataOffset = 0;  // of the minimum code size byte
};

// One open GIF: its screen descriptor, its global table, and the offsets of
// the frames found so far, so that asking again for an earlier frame seeks
// straight to it. The stream must outlive the reader.
class GifReader {
public:
    // Reads the signature, the logical screen descriptor and the global
    // table from the stream's current position: 0x02000002 when there is no
    // GIF signature, 0x0200001B for another version, 0x02000004 for a bad
    // screen descriptor.
    bool Open(Stream* stream, ErrorRecord* record);

    // Finds frame `frame` (from 1) and describes it; 0x02000003 when the
    // file ends before it, 0x02000004 for malformed blocks, 0x02000005 when
    // a plain-text extension belongs to it. The comment extensions before it
    // become its comment.
    bool FindFrame(uint32_t frame, GifFrame* out, ErrorRecord* record);
    // Finds and decodes frame `frame` into a new packed DIB at the frame's
    // size; 0x02000005 when the frame has no colour table. LZW data that is
    // damaged or ends early leaves the rows not reached zero and sets
    // damaged().
    HGLOBAL ReadFrame(uint32_t frame, ProgressReporter* progress, ErrorRecord* record);

    uint16_t screenWidth() const { return screenWidth_; }
    uint16_t screenHeight() const { return screenHeight_; }
    // Bits per primary colour, 1 to 8.
    uint8_t colorResolution() const { return colorResolution_; }
    // The aspect byte plus 15 (a ratio over 64), or 0 when the byte is 0.
    uint16_t aspect() const { return aspect_; }
    // The comment of the frame last found, as wide text (empty when none).
    bool hasComment() const { return hasComment_; }
    const char16_t* comment() const { return comment_.empty() ? u"" : comment_.data(); }
    bool damaged() const { return damaged_; }

private:
    Stream* stream_ = nullptr;
    uint16_t screenWidth_ = 0;
    uint16_t screenHeight_ = 0;
    uint8_t colorResolution_ = 0;
    uint16_t aspect_ = 0;
    uint32_t globalCount_ = 0;
    RGBQUAD global_[256] = {};
    // frameStarts_[i] is where the blocks of frame i + 1 begin.
    CheckedArray<uint64_t> frameStarts_;
    CheckedArray<uint8_t> commentBytes_;
    CheckedArray<char16_t> comment_;
    bool hasComment_ = false;
    bool damaged_ = false;
};

// Reads frame `frame` (from 1) of the GIF that starts at the stream's current
// position into a new packed DIB; null with the error in `record`. `damaged`
// (may be null) tells whether the frame's image data ended it early.
HGLOBAL ReadGifDib(Stream* stream, uint32_t frame, ProgressReporter* progress, bool* damaged, ErrorRecord* record);

}  // namespace velmora
