// The JPEG decoder: ITU-T T.81 streams with the JFIF and Adobe conventions.
//
// What it decodes: baseline and extended sequential DCT (8- and 12-bit
// samples), progressive DCT (spectral selection and successive
// approximation), and lossless (predictors 1 to 7, 2- to 16-bit samples), all
// Huffman coded, with restart intervals, DNL-defined heights and any sampling
// factors from 1 to 4. Arithmetic-coded frames (SOF9 to SOF11) and
// hierarchical streams (DHP) are described but not decoded: decoding them
// fails with 0x02000005 ("Unsupported image type.").
//
// Decoding is strict: a Huffman code that names no symbol, a coefficient or
// difference larger than the sample precision allows, a run past the last
// coefficient, a wrong restart marker or entropy-coded data that ends before
// the last MCU fail with 0x02000004 ("Bad file data."); nothing is concealed.
// A stream that does not begin with SOI fails with 0x02000002.
//
// Colour: one component gives grey; three are YCbCr unless the stream says
// RGB (an Adobe segment with transform 0, or component identifiers 'R', 'G',
// 'B' in a stream without JFIF and Adobe segments); four are Adobe CMYK, or
// YCCK with Adobe transform 2. Two components, or more than four, are the
// one colour layout the decoder refuses (0x02000005); their streams are
// still described. Output pixels are 8-bit grey or blue-green-red triples;
// samples of other precisions are scaled to 8 bits (12-bit and lossless
// samples keep their top 8 bits).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frame/progress.h"
#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

struct Stream;

namespace jpeg {

// Where the compressed bytes come from: a block of memory, or a stream read
// from its current position through a 2048-byte buffer.
struct JpegSource {
    const uint8_t* data = nullptr;
    size_t size = 0;
    Stream* stream = nullptr;

    static JpegSource Memory(const uint8_t* bytes, size_t count) { return JpegSource{bytes, count, nullptr}; }
    static JpegSource FromStream(Stream* s) { return JpegSource{nullptr, 0, s}; }
};

// Process codes, from the frame marker (4 for any stream with DHP).
enum : uint8_t {
    kProcessBaseline = 0,
    kProcessExtended = 1,
    kProcessProgressive = 2,
    kProcessLossless = 3,
    kProcessHierarchical = 4,
    kProcessArithmeticExtended = 5,
    kProcessArithmeticProgressive = 6,
    kProcessArithmeticLossless = 7,
};

// Request bits of ReadInfo.
constexpr uint32_t kInfoThumbnail = 0x0001;  // locate the JFIF/JFXX RGB thumbnail
constexpr uint32_t kInfoWhole = 0x0002;      // read every segment up to EOI, not only up to the first scan

// Bits of JpegInfo::flags (the same values as the exported record's).
constexpr uint32_t kHasJfif = 0x0001;
constexpr uint32_t kHasAdobe = 0x0002;
constexpr uint32_t kHasThumbnail = 0x0004;
constexpr uint32_t kDamaged = 0x0008;       // a known writer fault was repaired
constexpr uint32_t kSingleTables = 0x0010;  // no table segment after the first scan (meaningful with kInfoWhole)
constexpr uint32_t kHasResolution = 0x0020;

struct JpegComponentInfo {
    uint8_t id = 0;
    uint8_t h = 1;  // sampling factors, 1..4
    uint8_t v = 1;
    uint8_t quantTable = 0;
};

constexpr uint32_t kMaxJpegInfoComponents = 4;

// Everything a parse learns of a stream.
struct JpegInfo {
    uint32_t width = 0;
    uint32_t height = 0;  // 0 when the frame leaves it to a DNL segment not yet met
    // Density as exact fractions in TIFF units (1 none, 2 inch, 3 centimetre):
    // from the library's APP3 resolution segment when there is one
    // (kHasResolution), else from JFIF. 0/1 when unknown.
    uint32_t xDensityNumerator = 0;
    uint32_t xDensityDenominator = 1;
    uint32_t yDensityNumerator = 0;
    uint32_t yDensityDenominator = 1;
    uint16_t densityUnit = 1;
    uint8_t components = 0;  // the frame's count (1..255)
    uint8_t precision = 0;   // bits per sample
    uint8_t process = 0;     // kProcess...
    uint8_t adobeTransform = 0;
    uint16_t restartInterval = 0;  // the last DRI met
    uint8_t mcuWidth = 0;          // pixels
    uint8_t mcuHeight = 0;
    uint8_t thumbnailWidth = 0;
    uint8_t thumbnailHeight = 0;
    uint32_t flags = 0;
    // With kInfoThumbnail: where the thumbnail's RGB triples are, as an
    // offset from the start of the source (0 and 0 when none could be read).
    uint64_t thumbnailOffset = 0;
    uint32_t thumbnailBytes = 0;
    // The library's APP3 scale segment, when present.
    bool hasScale = false;
    uint16_t scaleUnit = 0;
    uint32_t xScaleNumerator = 0, xScaleDenominator = 1, yScaleNumerator = 0, yScaleDenominator = 1;
    // The first four components of the frame.
    JpegComponentInfo component[kMaxJpegInfoComponents];
};

// How three- and four-component data is interpreted; TIFF pages decide it by
// their PhotometricInterpretation rather than by the stream's segments.
enum class ColorOverride : uint8_t {
    Auto,   // by the stream's JFIF/Adobe segments and component identifiers
    YCbCr,  // three components are YCbCr (four: YCCK)
    Rgb,    // three components are RGB (four: CMYK); no colour transform
    // Four components are ink amounts of a separated TIFF page (0 = no ink),
    // or YCCK of them when the Adobe segment says so; three: as Auto.
    Separated,
};

// Rows the decoder writes: `height` rows of `width` pixels (1 byte per pixel
// for one component, 3 for the others), the first at `topRow`, each next one
// `stride` bytes further (negative for bottom-up DIBs). Pixels beyond the
// image are left alone; image pixels beyond these rows are decoded but not
// written. With no `topRow` nothing is transformed: a decode for an observer
// only entropy-decodes.
struct JpegOutput {
    uint8_t* topRow = nullptr;
    ptrdiff_t stride = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

struct Frame;
struct DecoderTables;
struct ScanHeader;

// Where one MCU's entropy-coded bits lie: from the start position to the end
// position, each as a byte offset from the start of the source and a bit
// within that byte (0 = the most significant). The end is where the next
// MCU would begin were there no restart marker between them.
struct McuSpan {
    uint64_t startByte = 0;
    uint32_t startBit = 0;
    uint64_t endByte = 0;
    uint32_t endBit = 0;
};

// Watches the entropy decoding of a sequential Huffman frame whose first
// scan holds every component (the frames decoded as they stream in); other
// frames are not decoded at all when an observer is set (the decode ends at
// once, successfully, with no call made). Copy mode builds its MCU index on
// it. Either call returns false to end the decode there, successfully.
class McuObserver {
public:
    virtual ~McuObserver() = default;
    // Before the scan's first MCU: the frame, the tables in force and the scan.
    virtual bool OnScan(const Frame& frame, const DecoderTables& tables, const ScanHeader& scan) = 0;
    // After each MCU: its index in the scan, its bits, and the DC predictors
    // of the scan's components before it (already reset by a restart marker
    // in front of it) and after it.
    virtual bool OnMcu(uint32_t mcuIndex, const McuSpan& span, const int32_t* before, const int32_t* after,
                       uint32_t componentCount) = 0;
};

struct JpegDecodeOptions {
    JpegOutput output;
    ColorOverride color = ColorOverride::Auto;
    ProgressReporter* progress = nullptr;  // by MCU rows; may be null
    McuObserver* observer = nullptr;       // may be null
};

// The frame and scan parameters of an old-style TIFF JPEG page whose strips
// are bare entropy-coded data (one interleaved scan of every component, the
// tables set beforehand with SetQuantTable / SetHuffmanTable).
struct JpegRawFrame {
    uint32_t width = 0;
    uint32_t height = 0;
    uint8_t precision = 8;
    uint8_t components = 1;  // 1 to 4
    JpegComponentInfo component[kMaxJpegInfoComponents];
    uint8_t dcTable[kMaxJpegInfoComponents] = {};
    uint8_t acTable[kMaxJpegInfoComponents] = {};
    uint16_t restartInterval = 0;
    bool lossless = false;  // lossless process: predictor in `predictor`, no quantisation
    uint8_t predictor = 1;
};

struct DecoderState;
class CoefficientConsumer;

// A decoder keeps the tables it has read: tables from an abbreviated
// table-only stream (TIFF JPEGTables) or set directly stay in force for the
// streams decoded after it until one of them redefines them.
class JpegDecoder {
public:
    JpegDecoder();
    ~JpegDecoder();
    JpegDecoder(const JpegDecoder&) = delete;
    JpegDecoder& operator=(const JpegDecoder&) = delete;

    // False with the record holding the allocation error when the decoder
    // could not be made; every other call then fails as well.
    bool valid() const { return state_ != nullptr; }

    // Reads an abbreviated stream of tables: SOI, DQT/DHT (and other
    // segments, skipped), EOI.
    bool LoadTables(const JpegSource& source, ErrorRecord* record);
    // Sets quantisation table `id` (0..3) from 64 values in zig-zag order.
    bool SetQuantTable(uint32_t id, const uint16_t* zigzagValues, ErrorRecord* record);
    // Sets Huffman table `id` (0..3) of `tableClass` (0 DC, 1 AC) from 16
    // code counts (lengths 1 to 16) and their `valueCount` symbols.
    bool SetHuffmanTable(uint32_t tableClass, uint32_t id, const uint8_t* counts, const uint8_t* values,
                         size_t valueCount, ErrorRecord* record);

    // Parses markers only and fills `info`; `request` holds kInfo... bits.
    // Without kInfoWhole the parse stops at the first scan.
    bool ReadInfo(const JpegSource& source, uint32_t request, JpegInfo* info, ErrorRecord* record);

    // Decodes a whole stream into `options.output`. A frame whose height is
    // 0 (set by a later DNL segment) is decoded to the output's height.
    bool Decode(const JpegSource& source, const JpegDecodeOptions& options, ErrorRecord* record);

    // Decodes bare entropy-coded data of the frame `frame` with the tables in
    // force. The data may end with an EOI marker.
    bool DecodeRaw(const JpegRawFrame& frame, const JpegSource& source, const JpegDecodeOptions& options,
                   ErrorRecord* record);

    // Entropy-decodes a DCT stream and hands its coefficients to
    // `consumer` (see jpeg/jpeg_coefficients.h).
    bool ReadCoefficients(const JpegSource& source, CoefficientConsumer* consumer, ErrorRecord* record);

private:
    DecoderState* state_ = nullptr;
};

// Reads a stream's information (the parse-only call of a fresh decoder).
bool ReadJpegInfo(const JpegSource& source, uint32_t request, JpegInfo* info, ErrorRecord* record);

// Decodes a whole stream into a new packed DIB: 8-bit grey with a grey ramp
// for one component, 24-bit for three and four; the resolution from the
// library's APP3 segment or from JFIF. A memory source is read twice when
// its frame height comes from DNL; a stream source is then rewound to where
// it was. Null with the record set on failure.
HGLOBAL DecodeJpegToDib(const JpegSource& source, ProgressReporter* progress, ErrorRecord* record);

}  // namespace jpeg
}  // namespace velmora
