// The JPEG encoder: DIBs and plain pixel rows written as baseline or
// lossless JPEG streams (ITU-T T.81, Huffman coding), whole files with the
// JFIF and the library's own APP3 segments, or the complete and abbreviated
// streams that JPEG-compressed TIFF strips hold.
//
// What is written, in order:
//   SOI;
//   APP0 "JFIF" version 1.02 with the density of the settings, and its
//     thumbnail (below)                              when writeJfif is set;
//   COM with the text "Velmora"                      when writeComment is set;
//   APP3 resolution, APP3 scale (jpeg_private_segment.h) when asked;
//   DQT, one segment with every table (baseline only);
//   SOF0 (baseline) or SOF3 (lossless);
//   DHT, one segment per table used;
//   SOS and the entropy-coded data; EOI.
// An abbreviated image stream (omitTables) leaves DQT and the standard DHT
// out; tables made for the image (optimised or lossless) are still written,
// since no tables-only stream could carry them.
//
// Input. A grey image (one component) is an 8-bit DIB, or a 1-, 4- or 8-bit
// palette DIB whose colour table is grey (every entry with red = green =
// blue), its samples taken through the table. A colour image (three
// components, converted to YCbCr with the JFIF equations) is a 24-bit DIB
// or a palette DIB with any other table, taken through the table. Other
// depths fail with 0x02000013 "Invalid image type.". Images wider or taller
// than 65535 pixels, which a frame header cannot describe, fail with
// 0x02000005.
//
// Quantisation. Without caller tables the Annex K example tables are scaled
// by the quality (QualityScale, ScaleQuantisation in jpeg_tables.h); caller
// tables are used as given, each value limited to 1..255. Grey images use
// the luminance table only.
//
// Lossless. Predictor 1 (the sample to the left; the first sample of a row
// takes the one above, and the first of the image 128), point transform 0,
// one Huffman table made for the image per kind of component (luminance,
// chrominance). Colour images are coded as YCbCr like baseline ones, so only
// grey images come back bit for bit. Lossless frames are always sampled
// 1x1.
//
// Thumbnails (JFIF only; ignored without writeJfif). A thumbnail DIB of 1, 4
// or 8 bits is taken as an 8-bit palette image with its own table, a 24-bit
// one as it is; other depths fail with 0x02000013. Then:
//   plain mode, 24-bit: inside the JFIF segment as red-green-blue pixels,
//     top row first; a width or height above 255 or 3 x width x height + 14
//     of 65534 or more fails with 0x0200002C "Thumbnail too large.";
//   plain mode, palette: a second APP0 segment "JFXX" with extension code
//     0x11 (a 768-byte palette, then one byte per pixel), with the same size
//     rules (width x height + 776 below 65534);
//   JFXX mode: a 24-bit thumbnail, or a palette one whose table is the exact
//     ascending grey ramp, as an APP0 "JFXX" segment with extension code 0x10
//     holding a complete baseline JPEG of it made with the image's quality
//     and sampling; any other palette fails with 0x02000013, and a JPEG that
//     does not fit a segment with 0x0200002C.
//
// Every function takes the ErrorRecord last, does nothing once it holds an
// error, and returns true on success. Stream write errors end the encode
// with the stream's error; work buffers are movable blocks whose allocation
// failure carries the library's out-of-memory error; a cancelled progress
// callback ends with 1223. Progress is reported by MCU rows (an optimised
// baseline encode makes two passes and reports both).
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_private_segment.h"
#include "frame/progress.h"
#include "frame/error_record.h"
#include "io/stream.h"
#include "velmora/wintypes.h"

namespace velmora::jpeg {

enum class JpegProcess : uint8_t {
    Baseline = 0,  // SOF0: 8-bit DCT, Huffman coding
    Lossless = 3,  // SOF3: lossless, Huffman coding
};

// Horizontal x vertical sampling of the luminance relative to the two
// chrominance components (the TIFF YCbCrSubSampling pairs 1 1, 2 1, 2 2).
// Grey images are always 1x1.
enum class ChromaSampling : uint8_t { H1V1, H2V1, H2V2 };

struct JpegEncoderSettings {
    int32_t quality = 75;  // limited to 1..100
    // Optional: 64 luminance then 64 chrominance values, natural row order;
    // when set the quality is not used.
    const uint8_t* tables = nullptr;
    JpegProcess process = JpegProcess::Baseline;
    ChromaSampling sampling = ChromaSampling::H1V1;
    // Huffman tables made for the image from its statistics (a second pass
    // over the image) instead of the Annex K.3 tables; baseline only.
    bool optimiseHuffman = false;

    // APP0 "JFIF": the density unit (0 none, 1 dots per inch, 2 per cm) and
    // the densities, written as given.
    bool writeJfif = false;
    uint8_t densityUnit = 0;
    uint16_t xDensity = 1;
    uint16_t yDensity = 1;
    // Optional thumbnail: a DIB header and its first stored row (null: the
    // rows follow the colour table, as in a packed DIB).
    const BITMAPINFOHEADER* thumbnail = nullptr;
    const void* thumbnailBits = nullptr;
    bool jfxxThumbnail = false;

    bool writeComment = true;
    bool writeResolution = false;
    PrivateSegment resolution{PrivateSegmentKind::Resolution};
    bool writeScale = false;
    PrivateSegment scale{PrivateSegmentKind::Scale};

    // An abbreviated stream for a TIFF strip whose tables are in JPEGTables.
    bool omitTables = false;
};

// Plain pixel rows, for example one strip of a TIFF page.
struct JpegRows {
    const uint8_t* top = nullptr;  // the top row's first pixel
    ptrdiff_t stride = 0;          // from one row to the next (negative for bottom-up storage)
    uint32_t width = 0;
    uint32_t height = 0;
    uint8_t bytesPerPixel = 1;  // 1: grey; 3: colour
    bool redFirst = false;      // colour byte order: false blue-green-red (DIB), true red-green-blue (TIFF)
    // The TIFF PlanarConfiguration of the page; only 1 (chunky) can be coded,
    // anything else fails with 0x02000005.
    uint16_t planarConfiguration = 1;
};

// Encodes a DIB: `header` and its first stored row (null: the rows follow
// the colour table, as in a packed DIB). Bottom-up and top-down (negative
// height) DIBs are both read top row first.
bool EncodeJpegDib(const BITMAPINFOHEADER* header, const void* bits, const JpegEncoderSettings& settings,
                   Stream* stream, ProgressReporter* progress, ErrorRecord* record);

// Encodes plain rows.
bool EncodeJpegRows(const JpegRows& rows, const JpegEncoderSettings& settings, Stream* stream,
                    ProgressReporter* progress, ErrorRecord* record);

// Writes a tables-only stream (SOI, DQT, DHT, EOI: the JPEGTables of a TIFF
// page) for images of `components` (1 or 3) components: the quantisation
// tables of the settings and the Annex K.3 Huffman tables. Lossless
// settings have no shared tables: the stream is SOI and EOI.
bool WriteJpegTables(uint8_t components, const JpegEncoderSettings& settings, Stream* stream, ErrorRecord* record);

// The quantisation tables the settings give (natural order): [0] luminance,
// [1] chrominance.
void MakeQuantisationTables(const JpegEncoderSettings& settings, uint16_t tables[2][64]);

}  // namespace velmora::jpeg
