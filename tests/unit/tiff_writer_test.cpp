// Appending pages through the exports: the checks of the append record with
// their reason codes, appends that fail leaving the file as it was, byte
// order and BigTIFF destinations, and whole files appended through a
// temporary copy.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dib_test_images.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "temp_names.h"
#include "tiff/page_info.h"
#include "tiff/page_information.h"
#include "tiff/page_writer.h"
#include "tiff_builder.h"
#include "velmora/velmora.h"
#include "../support/last_error.h"
#include "../support/memory_stream.h"

namespace velmora {
namespace {

using testing::Long;
using testing::ReadBytes;
using testing::Short;
using testing::TempPath;
using testing::TiffBuilder;
using testing::WriteBytes;
using testing_support::ErrorOf;
using testing_support::TakeBlock;

// A 24 x 5 bi-level DIB (index 0 black) with a diagonal.
test::TestDib BiLevelDib() {
    test::TestDib dib = test::MakeDib(24, 5, 1, 2);
    dib.table()[1] = RGBQUAD{255, 255, 255, 0};
    for (int32_t y = 0; y < 5; ++y) {
        for (int32_t x = 0; x < 24; ++x) test::SetPixel(dib.header(), dib.bits(), x, y, x == y * 3 ? 0 : 1);
    }
    return dib;
}

// A one-page classic TIFF, 8 x 2 grey, in the given byte order.
std::vector<uint8_t> GreyFile(bool bigEndian, bool bigTiff = false) {
    TiffBuilder b(bigEndian, bigTiff);
    const std::vector<uint8_t> pixels = {0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120, 130, 140, 150};
    const uint64_t at = b.bytes().size();
    b.bytes().insert(b.bytes().end(), pixels.begin(), pixels.end());
    b.SetFirst(b.AddDirectory({Long(256, {8}), Long(257, {2}), Short(258, {8}), Short(259, {1}), Short(262, {1}),
                               Long(273, {at}), Long(278, {2}), Long(279, {pixels.size()})}));
    return b.bytes();
}

VelmoraAppendTIFF DibRecord(const test::TestDib& dib) {
    VelmoraAppendTIFF a = {};
    a.size = VELMORA_APPEND_TIFF_SIZE_V7;
    a.flags = VELMORA_APPEND_DIB_POINTER | VELMORA_APPEND_REASON;
    a.dib = dib.words.data();
    a.compression = VELMORA_COMPRESSION_DEFAULT;
    return a;
}

// Closes a memory TIFF and returns its bytes.
std::vector<uint8_t> CloseMemory(HGLOBAL tiff) {
    HGLOBAL memory = nullptr;
    DWORD size = 0;
    EXPECT_EQ(CloseMemoryVelmoraTIFF(tiff, &memory, &size), 1);
    std::vector<uint8_t> bytes = TakeBlock(memory);
    bytes.resize(std::min<size_t>(bytes.size(), size));
    return bytes;
}

TEST(TiffWriter, RecordChecksGiveTheirReasonsAndLeaveTheFileAlone) {
    test::TestDib dib = BiLevelDib();
    test::TestDib colour = test::MakeDib(4, 4, 24);
    VelmoraResolutionScale zero = {}, badUnit = {1, 200, 1, 200, 4, 0}, badScaleUnit = {1, 200, 1, 200, 18, 0};
    HGLOBAL other = OpenVelmoraTIFF(nullptr, VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
    ASSERT_NE(other, nullptr);
    test::TestDib odd = test::MakeDib(4, 4, 2);
    const WORD tooHigh = 101;
    struct Case {
        const char* what;
        std::function<void(VelmoraAppendTIFF&)> change;
        WORD reason;
    };
    const Case cases[] = {
        {"two sources", [&](VelmoraAppendTIFF& a) { a.sourceTIFF = other; }, 1},
        {"no source", [](VelmoraAppendTIFF& a) { a.dib = nullptr; }, 1},
        {"a flag left to other writers", [](VelmoraAppendTIFF& a) { a.flags |= 0x2; }, 2},
        {"a flag above bit 24", [](VelmoraAppendTIFF& a) { a.flags |= 0x02000000; }, 2},
        {"a source TIFF without a page", [&](VelmoraAppendTIFF& a) { a.dib = nullptr, a.sourceTIFF = other; }, 3},
        {"annotation options of 8",
         [](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_ANNOTATION_OPTIONS, a.annotationOptions = 8; }, 5},
        {"a JPEG quality of 101",
         [&](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_JPEG_QUALITY, a.extraData = &tooHigh; }, 7},
        {"no JPEG quality", [](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_JPEG_QUALITY; }, 7},
        {"a compression nothing writes", [](VelmoraAppendTIFF& a) { a.compression = VELMORA_COMPRESSION_OTHER; }, 6},
        {"Group 4 for a colour DIB",
         [&](VelmoraAppendTIFF& a) { a.dib = colour.words.data(), a.compression = VELMORA_COMPRESSION_GROUP4; }, 6},
        {"a zero resolution", [&](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_RESOLUTION, a.resolution = &zero; },
         11},
        {"a resolution in millimetres",
         [&](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_RESOLUTION, a.resolution = &badUnit; }, 12},
        {"a zero scale", [&](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_SCALE, a.scale = &zero; }, 13},
        {"a scale unit of 18", [&](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_SCALE, a.scale = &badScaleUnit; },
         14},
        {"no OCR text block", [](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_OCR_TEXT; }, 15},
        {"a DIB of 2 bits per pixel", [&](VelmoraAppendTIFF& a) { a.dib = odd.words.data(); }, 16},
        {"a missing text", [](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_TEXT(3); }, 17},
        {"no annotation block", [](VelmoraAppendTIFF& a) { a.flags |= VELMORA_APPEND_ANNOTATIONS; }, 18},
    };
    HGLOBAL tiff = OpenVelmoraTIFF(nullptr, VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
    ASSERT_NE(tiff, nullptr);
    for (const Case& c : cases) {
        VelmoraAppendTIFF a = DibRecord(dib);
        c.change(a);
        EXPECT_EQ(AppendVelmoraOpenTIFFEx(tiff, &a), 0) << c.what;
        EXPECT_EQ(GetLastVelmoraErrorCode(), 87u) << c.what;
        EXPECT_EQ(a.reason, c.reason) << c.what;
    }
    // The JPEG quality decides how much of the page is kept: a lower one
    // writes a smaller page.
    test::TestDib picture = test::MakeDib(64, 64, 24);
    for (int32_t y = 0; y < 64; ++y) {
        for (int32_t x = 0; x < 64; ++x)
            test::SetPixel(picture.header(), picture.bits(), x, y, (x * 37 ^ y * 91) * 2654435761u);
    }
    size_t pageSizes[2] = {};
    for (WORD quality : {WORD{10}, WORD{95}}) {
        HGLOBAL jpeg = OpenVelmoraTIFF(nullptr, VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
        VelmoraAppendTIFF q = DibRecord(picture);
        q.compression = VELMORA_COMPRESSION_JPEG;
        q.flags |= VELMORA_APPEND_JPEG_QUALITY;
        q.extraData = &quality;
        EXPECT_EQ(AppendVelmoraOpenTIFFEx(jpeg, &q), 1) << quality;
        pageSizes[quality > 50] = CloseMemory(jpeg).size();
    }
    EXPECT_LT(pageSizes[0] * 2, pageSizes[1]);
    // A size that is not one of the record's, a missing record, a bad handle.
    VelmoraAppendTIFF a = DibRecord(dib);
    a.size = 96;
    EXPECT_EQ(ErrorOf(AppendVelmoraOpenTIFFEx(tiff, &a) == 0), 87u);
    EXPECT_EQ(ErrorOf(AppendVelmoraOpenTIFFEx(tiff, nullptr) == 0), 998u);
    a = DibRecord(dib);
    EXPECT_EQ(ErrorOf(AppendVelmoraOpenTIFFEx(nullptr, &a) == 0), 6u);
    EXPECT_EQ(CloseMemory(tiff).size(), 8u);
    CloseVelmoraTIFF(other);
}

// Every field the record can carry is stored with the page. (Pages coded
// from DIBs are decoded by libtiff to the DIB's pixels in the TIFF corpus.)
TEST(TiffWriter, DibPagesCarryTheirTextsResolutionScaleAndBlocks) {
    test::TestDib dib = BiLevelDib();
    HGLOBAL tiff = OpenVelmoraTIFF(nullptr, VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
    VelmoraResolutionScale resolution = {1, 204, 1, 196, 2, 0}, scale = {254, 1000, 254, 1000, 2, 0};
    HGLOBAL ocr = platform::MemAlloc(GMEM_MOVEABLE, 5);
    std::memcpy(platform::MemLock(ocr), "words", 5);
    platform::MemUnlock(ocr);
    HGLOBAL marks = platform::MemAlloc(GMEM_MOVEABLE, 7);
    std::memcpy(platform::MemLock(marks), "\x07\0\0\0abc", 7);
    platform::MemUnlock(marks);
    VelmoraAppendTIFF a = DibRecord(dib);
    a.flags |= VELMORA_APPEND_RESOLUTION | VELMORA_APPEND_SCALE | VELMORA_APPEND_OCR_TEXT | VELMORA_APPEND_TEXT(0) |
               VELMORA_APPEND_TEXT(7) | VELMORA_APPEND_ANNOTATIONS;
    a.annotations = marks;
    a.resolution = &resolution;
    a.scale = &scale;
    a.ocrText = ocr;
    a.texts[0] = "Contract";
    a.texts[7] = "scanner-7";
    ASSERT_EQ(AppendVelmoraOpenTIFFEx(tiff, &a), 1) << std::hex << GetLastVelmoraErrorCode();
    a.flags = VELMORA_APPEND_DIB_POINTER;
    a.compression = VELMORA_COMPRESSION_PACKBITS;
    ASSERT_EQ(AppendVelmoraOpenTIFFEx(tiff, &a), 1);

    VelmoraResolutionScale got = {};
    ASSERT_EQ(GetVelmoraTIFFResolution(tiff, 1, &got), 1);
    EXPECT_EQ(got.xNumerator * 1000 / got.xDenominator, 204000u);
    EXPECT_EQ(got.yNumerator * 1000 / got.yDenominator, 196000u);
    ASSERT_EQ(GetVelmoraTIFFScale(tiff, 1, &got), 1);
    EXPECT_EQ(got.xNumerator, 1000u);
    EXPECT_EQ(got.xDenominator, 254u);
    HGLOBAL stored = nullptr;
    DWORD storedSize = 0;
    ASSERT_EQ(GetVelmoraTIFFAnnotations(tiff, 1, &stored, &storedSize), 1);
    ASSERT_EQ(storedSize, 7u);
    EXPECT_EQ(std::memcmp(TakeBlock(stored).data(), "\x07\0\0\0abc", 7), 0);
    ASSERT_EQ(GetVelmoraTIFFAnnotations(tiff, 2, &stored, &storedSize), 1);
    EXPECT_EQ(stored, nullptr);
    WORD code = 0;
    ASSERT_EQ(GetVelmoraTIFFCompression(tiff, 1, &code), 1);
    EXPECT_EQ(code, VELMORA_COMPRESSION_GROUP4);
    ASSERT_EQ(GetVelmoraTIFFCompression(tiff, 2, &code), 1);
    EXPECT_EQ(code, VELMORA_COMPRESSION_PACKBITS);
    const std::vector<uint8_t> bytes = CloseMemory(tiff);
    const std::string file(bytes.begin(), bytes.end());
    EXPECT_NE(file.find("Contract"), std::string::npos);
    EXPECT_NE(file.find("scanner-7"), std::string::npos);
    EXPECT_NE(file.find("words"), std::string::npos);
    platform::MemFree(ocr);
    platform::MemFree(marks);
}

// A page whose strip lies outside its file is refused before anything is
// written, and a BigTIFF destination is refused. (How a big-endian file grows
// is checked against libtiff by the append interop tests.)
TEST(TiffWriter, FailedAppendsLeaveTheFileAsItWas) {
    const std::string destination = TempPath("writer-destination.tif"), broken = TempPath("writer-broken.tif");
    const std::vector<uint8_t> original = GreyFile(true);
    WriteBytes(destination, original);
    TiffBuilder b(false, false);
    b.SetFirst(b.AddDirectory({Long(256, {8}), Long(257, {2}), Short(258, {8}), Short(259, {1}), Short(262, {1}),
                               Long(273, {4000}), Long(278, {2}), Long(279, {16})}));
    WriteBytes(broken, b.bytes());

    HGLOBAL tiff = OpenVelmoraTIFF(destination.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 0);
    ASSERT_NE(tiff, nullptr);
    VelmoraAppendTIFF a = {};
    a.size = VELMORA_APPEND_TIFF_SIZE_V1;
    a.sourceName = broken.c_str();
    a.compression = VELMORA_COMPRESSION_DEFAULT;
    EXPECT_EQ(ErrorOf(AppendVelmoraOpenTIFFEx(tiff, &a) == 0), 0x02000006u);
    a.compression = VELMORA_COMPRESSION_LZW;
    EXPECT_EQ(AppendVelmoraOpenTIFFEx(tiff, &a), 0);
    EXPECT_NE(GetLastVelmoraErrorCode(), 0u);
    EXPECT_EQ(AppendVelmoraOpenTIFF(tiff, broken.c_str()), 0);
    CloseVelmoraTIFF(tiff);
    EXPECT_EQ(ReadBytes(destination), original);

    WriteBytes(destination, GreyFile(false, true));
    tiff = OpenVelmoraTIFF(destination.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 0);
    ASSERT_NE(tiff, nullptr);
    a.sourceName = destination.c_str();
    a.compression = VELMORA_COMPRESSION_DEFAULT;
    EXPECT_EQ(ErrorOf(AppendVelmoraOpenTIFFEx(tiff, &a) == 0), 0x0200001Bu);
    CloseVelmoraTIFF(tiff);
    std::remove(destination.c_str());
    std::remove(broken.c_str());
}

// A file appended onto another: created when missing, rewritten through a
// temporary file beside it when present, unchanged when anything fails, and
// no temporary file left either way.
TEST(TiffWriter, FilesAppendThroughATemporaryCopy) {
    const std::string directory = TempPath("writer-append");
    std::filesystem::create_directory(directory);
    const std::string destination = directory + "/dest.tif", source = directory + "/source.tif",
                      broken = directory + "/broken.tif";
    WriteBytes(source, GreyFile(false));
    std::vector<uint8_t> bad = GreyFile(false);
    bad.resize(bad.size() - 40);  // the directory's tail and the strip's bytes go
    WriteBytes(broken, bad);

    ASSERT_EQ(AppendVelmoraTIFF(destination.c_str(), source.c_str()), 1) << std::hex << GetLastVelmoraErrorCode();
    ASSERT_EQ(AppendVelmoraTIFF(destination.c_str(), source.c_str()), 1) << std::hex << GetLastVelmoraErrorCode();
    ASSERT_EQ(AppendVelmoraTIFF(destination.c_str(), destination.c_str()), 1);
    const std::vector<uint8_t> four = ReadBytes(destination);
    EXPECT_EQ(AppendVelmoraTIFF(destination.c_str(), broken.c_str()), 0);
    EXPECT_EQ(ReadBytes(destination), four);
    EXPECT_EQ(AppendVelmoraTIFF((directory + "/missing/dest.tif").c_str(), source.c_str()), 0);

    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) files += entry.is_regular_file();
    EXPECT_EQ(files, 3u) << "a temporary file was left behind";
    HGLOBAL tiff = OpenVelmoraTIFF(destination.c_str(), VELMORA_TIFF_READ, 0);
    DWORD width = 0, length = 0;
    EXPECT_EQ(GetVelmoraTIFFSize(tiff, 4, &width, &length), 1);
    EXPECT_EQ(GetVelmoraTIFFSize(tiff, 5, &width, &length), 0);
    CloseVelmoraTIFF(tiff);
    std::filesystem::remove_all(directory);
}

// A document's pages copied IFD by IFD: a page with its thumbnail, and one
// IFD alone as a TIFF of its own.
TEST(TiffWriter, DocumentPagesAndIfdsCopyOut) {
    TiffBuilder b(false, false);
    for (uint64_t ifd = 0; ifd < 3; ++ifd) {
        const uint64_t at = b.bytes().size();
        b.bytes().insert(b.bytes().end(), 16, static_cast<uint8_t>(40 * ifd));
        std::vector<testing::Field> fields = {Long(254, {ifd == 1 ? 1u : 0u}),
                                              Long(256, {8}),
                                              Long(257, {2}),
                                              Short(258, {8}),
                                              Short(259, {1}),
                                              Short(262, {1}),
                                              Long(273, {at}),
                                              Long(278, {2}),
                                              Long(279, {16}),
                                              Short(297, {ifd == 2 ? 1u : 0u, 2})};
        if (ifd == 0) fields.push_back({32932, 1, 4, {1, 2, 3, 4}});  // foreign annotations
        b.AddDirectory(fields);
    }
    const std::string path = TempPath("writer-document.tif");
    WriteBytes(path, b.bytes());
    HGLOBAL document = OpenVelmoraTIFFDocument(path.c_str());
    ASSERT_NE(document, nullptr) << std::hex << GetLastVelmoraErrorCode();
    HGLOBAL marks = nullptr;
    DWORD markBytes = 0;
    // A foreign block too short to hold a mark gives no annotations.
    EXPECT_EQ(GetVelmoraTIFFAnnotations(GetVelmoraTIFFDocumentTIFF(document), 1, &marks, &markBytes), 1);
    EXPECT_EQ(marks, nullptr);

    HGLOBAL copy = OpenVelmoraTIFF(nullptr, VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
    ASSERT_EQ(CopyVelmoraTIFFDocumentPage(document, 1, copy, nullptr), 1) << std::hex << GetLastVelmoraErrorCode();
    EXPECT_EQ(ErrorOf(CopyVelmoraTIFFDocumentPage(document, 3, copy, nullptr) == 0), 87u);
    HGLOBAL copied = OpenVelmoraTIFFDocumentTIFF(copy, VELMORA_TIFF_DOCUMENT_OWN_TIFF);
    ASSERT_NE(copied, nullptr);
    EXPECT_EQ(GetVelmoraTIFFDocumentIFDCount(copied), 2u);
    VelmoraTIFFDocumentIFDInfo info = {};
    info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V1;
    ASSERT_EQ(GetVelmoraTIFFDocumentIFDInfo(copied, 2, &info), 1);
    EXPECT_EQ(info.subfileType, 1u);
    EXPECT_EQ(CloseVelmoraTIFFDocument(copied), 1);

    HGLOBAL memory = nullptr;
    DWORD size = 0;
    ASSERT_EQ(GetVelmoraTIFFDocumentIFDTIFF(document, 3, &memory, &size), 1);
    const std::string single = TempPath("writer-single.tif");
    WriteBytes(single, TakeBlock(memory));
    HGLOBAL tiff = OpenVelmoraTIFF(single.c_str(), VELMORA_TIFF_READ, 0);
    HGLOBAL dib = ReadVelmoraOpenTIFFDIB(tiff, 1);
    ASSERT_NE(dib, nullptr);
    EXPECT_EQ(PackedBits(static_cast<BITMAPINFOHEADER*>(platform::MemLock(dib)))[0], 80);
    platform::MemUnlock(dib);
    platform::MemFree(dib);
    DWORD width = 0, length = 0;
    EXPECT_EQ(GetVelmoraTIFFSize(tiff, 2, &width, &length), 0);
    CloseVelmoraTIFF(tiff);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDocumentIFDTIFF(document, 4, &memory, &size) == 0), 87u);
    EXPECT_EQ(memory, nullptr);
    EXPECT_EQ(CloseVelmoraTIFFDocument(document), 1);
    std::remove(path.c_str());
    std::remove(single.c_str());
}

// A thumbnail of page 1, averaged or picked, appended as a reduced image with
// the resolution scaled with its pixels.
TEST(TiffWriter, ThumbnailsFitTheBoxAndKeepThePhysicalSize) {
    // 300 x 200 at 200 dpi: the left third black, the rest white.
    test::TestDib dib = test::MakeDib(300, 200, 1, 2);
    dib.table()[1] = RGBQUAD{255, 255, 255, 0};
    dib.header()->biXPelsPerMeter = dib.header()->biYPelsPerMeter = 7874;
    for (int32_t y = 0; y < 200; ++y)
        for (int32_t x = 100; x < 300; ++x) test::SetPixel(dib.header(), dib.bits(), x, y, 1);
    const std::string path = TempPath("writer-thumbnail.tif");
    HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 1);
    VelmoraAppendTIFF a = DibRecord(dib);
    ASSERT_EQ(AppendVelmoraOpenTIFFEx(tiff, &a), 1);
    ASSERT_EQ(CloseVelmoraTIFF(tiff), 1);

    EXPECT_EQ(ErrorOf(AppendVelmoraThumbnail(513, 64, 0, path.c_str()) == 0), 87u);
    EXPECT_EQ(AppendVelmoraThumbnail(64, 64, 2, path.c_str()), 0);
    ASSERT_EQ(AppendVelmoraThumbnail(64, 64, 0, path.c_str()), 1) << std::hex << GetLastVelmoraErrorCode();
    ASSERT_EQ(AppendVelmoraThumbnail(0x10030, 512, 1, path.c_str()), 1);  // 48 wide: the high bits do not count

    tiff = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ, 0);
    DWORD width = 0, length = 0;
    ASSERT_EQ(GetVelmoraTIFFSize(tiff, 2, &width, &length), 1);
    EXPECT_EQ(width, 64u);
    EXPECT_EQ(length, 42u);  // 200 x 64 / 300
    VelmoraResolutionScale resolution = {};
    ASSERT_EQ(GetVelmoraTIFFResolution(tiff, 2, &resolution), 1);
    EXPECT_EQ(resolution.xNumerator * 3, resolution.xDenominator * 128u);  // 200 x 64 / 300 dpi
    EXPECT_EQ(GetVelmoraTIFFColorType(tiff, 2), VELMORA_COLOR_GRAY256);
    HGLOBAL small = ReadVelmoraOpenTIFFDIB(tiff, 2);
    ASSERT_NE(small, nullptr);
    const auto* header = static_cast<BITMAPINFOHEADER*>(platform::MemLock(small));
    const uint8_t* row = PackedBits(header);
    // Thumbnail column 21 covers source columns 98 to 102: two black of five.
    EXPECT_EQ(row[0], 0);
    EXPECT_EQ(row[21], 153);
    EXPECT_EQ(row[63], 255);
    platform::MemUnlock(small);
    platform::MemFree(small);
    EXPECT_EQ(GetVelmoraTIFFColorType(tiff, 3), VELMORA_COLOR_BW);
    WORD code = 0;
    ASSERT_EQ(GetVelmoraTIFFCompression(tiff, 3, &code), 1);
    EXPECT_EQ(code, VELMORA_COMPRESSION_GROUP4);
    ASSERT_EQ(GetVelmoraTIFFSize(tiff, 3, &width, &length), 1);
    EXPECT_EQ(width, 48u);
    EXPECT_EQ(length, 32u);
    CloseVelmoraTIFF(tiff);
    HGLOBAL document = OpenVelmoraTIFFDocument(path.c_str());
    EXPECT_EQ(GetVelmoraTIFFDocumentPageCount(document), 1);
    VelmoraTIFFDocumentIFDInfo info = {};
    info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V1;
    ASSERT_EQ(GetVelmoraTIFFDocumentIFDInfo(document, 2, &info), 1);
    EXPECT_EQ(info.subfileType, 1u);
    CloseVelmoraTIFFDocument(document);
    std::remove(path.c_str());
}

// The page-information block: values in other units stored in inches, and
// carried by the page it is written with.
TEST(TiffWriter, PageInformationBlocksConvertTheirUnitAndTravelWithThePage) {
    ErrorRecord record;
    HGLOBAL block = BuildPageInformation(5, Fraction{10, 1}, Fraction{20, 1}, 8, "front", nullptr, &record);
    ASSERT_NE(block, nullptr);
    const std::vector<uint8_t> stored = TakeBlock(block);
    ASSERT_EQ(stored.size(), 41u + 6 + 1);
    EXPECT_EQ(stored[0], 48);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(stored.data()) + 4), "VelmoraPageInfo");
    auto u32 = [&](size_t at) { return uint32_t{stored[at]} | stored[at + 1] << 8 | stored[at + 2] << 16; };
    EXPECT_EQ(u32(20), 5u);
    EXPECT_EQ(u32(24), 1u);  // 10 per millimetre: 254 per inch
    EXPECT_EQ(u32(28), 254u);
    EXPECT_EQ(u32(36), 508u);
    EXPECT_EQ(stored[40], 2);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(stored.data()) + 41), "front");

    test::TestDib dib = BiLevelDib();
    TiffFile* tiff = OpenMemoryTiff(&record);
    PageWriteOptions options;
    options.extras.pageInformation = stored.data();
    options.extras.pageInformationSize = static_cast<uint32_t>(stored.size());
    ASSERT_TRUE(AppendDibPage(tiff, nullptr, dib.header(), dib.bits(), options, &record)) << record.code;
    TiffPageInfo info;
    SetWanted(&info, kFieldPageInformation);
    ASSERT_TRUE(ReadPageInfo(tiff, 1, 0, &info, &record));
    ASSERT_NE(info.pageInformation.handle, nullptr);
    EXPECT_EQ(std::memcmp(platform::MemLock(info.pageInformation.handle), stored.data(), stored.size()), 0);
    platform::MemUnlock(info.pageInformation.handle);
    FreePageInfo(&info);
    HGLOBAL data = CloseStream(CloseTiff(tiff, &record), &record);
    platform::MemFree(data);
}

}  // namespace
}  // namespace velmora
