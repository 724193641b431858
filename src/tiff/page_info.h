// The description of one TIFF page: which fields a caller wants, which were
// present, and their values, interpreted from the page's directory.
//
// Usage:
//     TiffPageInfo info;
//     SetWantedList(&info, kFieldImageWidth, kFieldImageLength, kFieldListEnd);
//     if (ReadPageInfo(tiff, page, kReadStructure, &info, record)) ...
//     FreePageInfo(&info);
//
// Arrays and texts are held in movable blocks that FreePageInfo releases; a
// caller that keeps one takes its handle and sets it to null first.
#pragma once

#include <cstdint>

#include "frame/progress.h"
#include "frame/error_record.h"
#include "tiff/tiff_file.h"
#include "velmora/wintypes.h"

namespace velmora {

// Field ids: one bit each in TiffPageInfo::fields.
enum : uint32_t {
    kFieldAnnotations = 0,          // the library's annotation block (33938)
    kFieldArtist = 1,               // 315
    kFieldStructureDone = 2,        // set after the structural tags
    kFieldStripsDone = 5,           // set after the strip or tile tags
    kFieldCopyright = 7,            // 33432
    kFieldDateTime = 8,             // 306
    kFieldDocumentName = 9,         // 269
    kFieldDecodeDone = 10,          // set once the image's structure was checked (kReadCheckImage)
    kFieldFreeSpace = 13,           // FreeOffsets, FreeByteCounts (288, 289)
    kFieldHostComputer = 14,        // 316
    kFieldImage = 15,               // everything needed to decode the image, and the image
    kFieldImageDescription = 16,    // 270
    kFieldImageLength = 17,         // 257
    kFieldImageWidth = 18,          // 256
    kFieldWangAnnotations = 19,     // 32932
    kFieldJpegProc = 20,            // 512
    kFieldOldJpeg = 21,             // recorded while decoding old-style JPEG pages
    kFieldMake = 23,                // 271
    kFieldModel = 24,               // 272
    kFieldSubfileType = 25,         // NewSubfileType, SubfileType (254, 255)
    kFieldOcrText = 26,             // 33944
    kFieldPageName = 28,            // 285
    kFieldPageNumber = 29,          // 297
    kFieldPhotometric = 31,         // 262
    kFieldExtraSamples = 36,        // ExtraSamples, SampleFormat (338, 339)
    kFieldSoftware = 39,            // 305
    kFieldFaxOptions = 40,          // T4Options, T6Options (292, 293)
    kFieldDataOffsets = 42,         // StripOffsets or TileOffsets (273, 324)
    kFieldTileLength = 43,          // 323
    kFieldDataByteCounts = 44,      // StripByteCounts or TileByteCounts (279, 325)
    kFieldTileByteCountsDone = 45,  // TileByteCounts complete
    kFieldTileWidth = 46,           // 322
    kFieldPageInformation = 47,     // 33945
    kFieldSecondAnnotations = 48,   // 33581
    kFieldXPosition = 49,           // 286
    kFieldXResolution = 50,         // 282
    kFieldXScale = 51,              // 33941, else XResolution
    kFieldYCbCrCoefficients = 53,   // 529
    kFieldYPosition = 55,           // 287
    kFieldYResolution = 56,         // 283
    kFieldYScale = 57,              // 33942, else YResolution
    kFieldAll = 60,                 // wildcard
    kFieldListEnd = 62,             // ends SetWantedList's arguments
    kFieldAnyPresent = 254,         // IsPresent: is any field present
    kFieldEverything = 255,         // SetWanted: all bits (or none)
};

// Read flags of ReadPageInfo.
constexpr uint32_t kReadStrict = 0x001;       // report non-conformant directories
constexpr uint32_t kReadStructure = 0x002;    // interpret image-structure tags without the image
constexpr uint32_t kReadCheckImage = 0x008;  // with kFieldImage: check that the image can be decoded
constexpr uint32_t kReadFast = 0x020;         // faster, reduced-quality decoding
constexpr uint32_t kReadIfdNotFound = 0x100;  // a missing first page is "IFD not found."
constexpr uint32_t kReadFromOffset = 0x200;   // count pages from info->startDirectory
constexpr uint32_t kReadExported = 0x400;     // the exported page reader

// Hard limits on image structure.
constexpr uint32_t kMaxPageDimension = 1u << 24;
constexpr uint32_t kMaxSamplesPerPixel = 64;
constexpr uint32_t kMaxStrips = 1u << 24;

struct TiffRational {
    uint32_t numerator;
    uint32_t denominator;
};

// Integer values of a tag, widened to 64 bits, in a block locked while the
// page info holds it.
struct TiffArray {
    HGLOBAL handle;
    const uint64_t* values;
    uint32_t count;
};

// A tag's bytes (texts end with a NUL beyond `size`) in a movable block;
// `inlineValue` is the value field of a block tag that was not asked for.
struct TiffBlock {
    HGLOBAL handle;
    uint32_t size;
    uint32_t inlineValue;
};

struct TiffPageInfo {
    // Before ReadPageInfo: the wanted fields; after it: the present ones.
    uint64_t fields = 0;
    // Input of kReadFromOffset: the classic directory to count from.
    uint64_t startDirectory = 0;
    // Whether the directory was conformant (strict reading only reports it).
    bool conformant = true;

    // Image structure (with kFieldImage or kReadStructure).
    uint32_t width = 0;
    uint32_t length = 0;
    uint16_t bitsPerSample = 1;  // the first sample's
    bool bitsPerSampleDiffer = false;
    uint16_t samplesPerPixel = 1;
    uint16_t compression = 1;
    uint16_t photometric = 0xFFFF;  // absent
    uint16_t fillOrder = 1;
    uint16_t orientation = 1;
    uint16_t planarConfiguration = 1;
    uint16_t predictor = 1;
    uint32_t rowsPerStrip = 0;  // lowered to the length
    uint32_t tileWidth = 0;
    uint32_t tileLength = 0;
    bool tiled = false;
    // Strips or tiles: stripCount of each, all planes (offsets relative to
    // the TIFF's base offset). Without byte counts in the file the counts
    // are 0.
    uint32_t stripCount = 0;
    uint32_t stripsPerPlane = 0;
    TiffArray offsets = {};
    TiffArray byteCounts = {};
    TiffArray colorMap = {};  // 3 x 2^bits entries: red, then green, then blue
    uint32_t t4Options = 0;
    uint32_t t6Options = 0;
    uint16_t inkSet = 1;
    TiffArray dotRange = {};
    TiffArray extraSamples = {};
    uint16_t sampleFormat = 1;
    TiffArray sampleFormats = {};
    // JPEG (347, 512 to 521).
    TiffBlock jpegTables = {};
    uint16_t jpegProc = 0;
    uint64_t jpegInterchangeFormat = 0;
    uint64_t jpegInterchangeFormatLength = 0;
    uint32_t jpegRestartInterval = 0;
    TiffArray jpegLosslessPredictors = {};
    TiffArray jpegPointTransforms = {};
    TiffArray jpegQTables = {};
    TiffArray jpegDCTables = {};
    TiffArray jpegACTables = {};
    uint32_t oldJpegValue = 0;
    // YCbCr (529 to 532), with the TIFF 6.0 defaults.
    TiffRational ycbcrCoefficients[3] = {{299, 1000}, {587, 1000}, {114, 1000}};
    uint16_t ycbcrSubsampling[2] = {2, 2};
    uint16_t ycbcrPositioning = 1;
    TiffRational referenceBlackWhite[6] = {{0, 1}, {255, 1}, {128, 1}, {255, 1}, {128, 1}, {255, 1}};
    bool hasReferenceBlackWhite = false;

    // Resolution and scale.
    uint16_t resolutionUnit = 2;
    TiffRational xResolution = {};
    TiffRational yResolution = {};
    uint16_t scaleUnit = 2;
    TiffRational xScale = {};
    TiffRational yScale = {};
    bool hasPrivateScale = false;
    TiffRational xPosition = {};
    TiffRational yPosition = {};

    // Other tags.
    uint32_t newSubfileType = 0;
    uint32_t subfileType = 0;
    uint16_t pageNumber[2] = {0, 0};
    TiffArray freeOffsets = {};
    TiffArray freeByteCounts = {};
    TiffBlock artist = {}, copyright = {}, dateTime = {}, documentName = {}, hostComputer = {}, imageDescription = {},
              make = {}, model = {}, pageName = {}, software = {};
    // The library's private blocks.
    TiffBlock annotations = {};        // 33938
    TiffBlock wangAnnotations = {};    // 32932
    TiffBlock secondAnnotations = {};  // 33581
    TiffBlock ocrText = {};            // 33944
    TiffBlock pageInformation = {};    // 33945
    bool hasAnnotations = false;
    bool hasOcrText = false;
};

// Field-set helpers. kFieldEverything sets all.
void SetWanted(TiffPageInfo* info, uint32_t field);
// Marks the fields given, up to kFieldListEnd.
void SetWantedList(TiffPageInfo* info, uint32_t field, ...);
// Whether `field` is present; kFieldAnyPresent asks for any.
bool IsPresent(const TiffPageInfo* info, uint32_t field);

// Locates the page and interprets the wanted fields. kFieldImage (or the
// wildcard) interprets every image-structure tag, as kReadStructure does;
// kFieldImage with kReadCheckImage also checks the structure
// (CheckImageStructure) and makes a resolution with a zero part absent (one
// direction present stands for both): the description DecodePage takes.
// Returns true on success; on failure the page info is released.
bool ReadPageInfo(TiffFile* tiff, uint32_t page, uint32_t readFlags, TiffPageInfo* info, ErrorRecord* record);
// Checks what decoding relies on: dimensions within the limits, strips or
// tiles that cover the image (their arrays are then exactly stripCount
// long; missing byte counts become zeros) and a colour map of 3 x 2^bits
// entries for palette pages. "Bad image data." with the file name when not.
// ReadPageInfo runs it for kReadCheckImage.
bool CheckImageStructure(TiffFile* tiff, TiffPageInfo* info, ErrorRecord* record);
// Frees the blocks inside and resets the record.
void FreePageInfo(TiffPageInfo* info);

// Reads the bytes of strip or tile `index` into `buffer`, which grows as
// needed and is kept for the next strip; returns them, or null with "Bad file
// data." when they lie outside the file. A count of 0 yields an empty,
// non-null result.
class TiffStripBuffer {
public:
    TiffStripBuffer() = default;
    ~TiffStripBuffer();
    TiffStripBuffer(const TiffStripBuffer&) = delete;
    TiffStripBuffer& operator=(const TiffStripBuffer&) = delete;
    const uint8_t* Read(TiffFile* tiff, const TiffPageInfo* info, uint32_t index, uint32_t* size, ErrorRecord* record);
    // Reads `count` bytes at `offset` of the TIFF.
    const uint8_t* ReadRange(TiffFile* tiff, uint64_t offset, uint64_t count, ErrorRecord* record);

private:
    HGLOBAL handle_ = nullptr;
    uint8_t* data_ = nullptr;
    size_t capacity_ = 0;
};

}  // namespace velmora
