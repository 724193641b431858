// The TIFF exports on small files built byte by byte: page queries, the
// reader's conversions and refusals, dates, and document types.
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tuple>

#include "platform/platform.h"
#include "tiff_builder.h"
#include "velmora/velmora.h"
#include "temp_names.h"
#include "../support/last_error.h"
#include "../support/memory_stream.h"

namespace velmora {
namespace {

using testing::Ascii;
using testing::Long;
using testing::Short;
using testing::TempPath;
using testing::TiffBuilder;
using testing::WriteBytes;
using testing_support::ErrorOf;

// A page whose image bytes are placed before its directory.
uint64_t AddPage(TiffBuilder* b, const std::vector<uint8_t>& image, std::vector<testing::Field> fields) {
    uint64_t at = b->bytes().size();
    b->bytes().insert(b->bytes().end(), image.begin(), image.end());
    fields.push_back(Long(273, {at}));
    fields.push_back(Long(279, {image.size()}));
    return b->AddDirectory(fields);
}

class TiffExports : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        TiffBuilder b(false, false);
        // 1: 100 x 200 grey, no PhotometricInterpretation, Orientation 6.
        std::vector<uint8_t> grey(100 * 200);
        for (size_t i = 0; i < grey.size(); ++i) grey[i] = static_cast<uint8_t>(i % 251);
        AddPage(&b, grey,
                {Long(256, {100}), Long(257, {200}), Short(258, {8}), Short(259, {1}), Short(274, {6}),
                 Long(278, {200}), Ascii(306, "2024:02:29 13:14:15")});
        // 2: Group 4 with uncompressed mode allowed: described, not decoded.
        AddPage(&b, {0xFF, 0xFF},
                {Long(256, {64}), Long(257, {8}), Short(258, {1}), Short(259, {4}), Short(262, {0}), Long(278, {8}),
                 Long(293, {2}), Ascii(306, "yesterday")});
        // 3: 2-bit grey, and 4: 16-bit grey (their pixels are compared with
        // libtiff's in the TIFF corpus).
        AddPage(&b, {0x1B, 0xE4},
                {Long(256, {4}), Long(257, {2}), Short(258, {2}), Short(259, {1}), Short(262, {1}), Long(278, {2})});
        AddPage(&b, {0x34, 0x12, 0xCD, 0xAB},
                {Long(256, {2}), Long(257, {1}), Short(258, {16}), Short(259, {1}), Short(262, {1}), Long(278, {1})});
        for (size_t i = 0; i + 1 < 4; ++i) b.SetNext(i, b.directory(i + 1));
        b.SetFirst(b.directory(0));
        path_ = new std::string(TempPath("exports-pages.tif"));
        WriteBytes(*path_, b.bytes());
    }
    static void TearDownTestSuite() {
        std::remove(path_->c_str());
        delete path_;
    }
    void SetUp() override {
        tiff_ = OpenVelmoraTIFF(path_->c_str(), VELMORA_TIFF_READ, 0);
        ASSERT_NE(tiff_, nullptr) << std::hex << GetLastVelmoraErrorCode();
    }
    void TearDown() override { EXPECT_EQ(CloseVelmoraTIFF(tiff_), 1); }

    static std::string* path_;
    HGLOBAL tiff_ = nullptr;
};
std::string* TiffExports::path_ = nullptr;

TEST_F(TiffExports, PageQueries) {
    DWORD width = 0, length = 0, tiled = 7;
    ASSERT_EQ(GetVelmoraTIFFSize(tiff_, 1, &width, &length), 1);
    EXPECT_EQ(width, 100u);
    EXPECT_EQ(length, 200u);
    EXPECT_EQ(GetVelmoraTIFFPhotoInt(tiff_, 1), -2);
    EXPECT_EQ(GetVelmoraTIFFPhotoInt(tiff_, 2), 0);
    EXPECT_EQ(IsVelmoraTIFFTiled(tiff_, 1, &tiled), 1);
    EXPECT_EQ(tiled, 0u);
    WORD code = 0;
    ASSERT_EQ(GetVelmoraTIFFCompression(tiff_, 2, &code), 1);
    EXPECT_EQ(code, VELMORA_COMPRESSION_GROUP4);
    EXPECT_EQ(GetVelmoraTIFFColorType(tiff_, 2), 0);
    EXPECT_EQ(GetVelmoraTIFFColorType(tiff_, 4), 8);

    // Past the last page, and the checks in their order.
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFSize(tiff_, 5, &width, &length) == 0), 0x02000003u);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFSize(tiff_, 0, &width, &length) == 0), 87u);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFSize(tiff_, 1, nullptr, &length) == 0), 998u);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFSize(nullptr, 1, &width, &length) == 0), 6u);
}

// The private scale tags as other writers store them: SHORT and LONG values
// read as value/1; a RATIONAL pair, or a unit of the wrong type, is ignored in
// favour of the resolution; none of them makes the page unreadable.
TEST(TiffScale, PrivateScaleTagsOfEveryForm) {
    TiffBuilder b(false, false);
    const std::vector<testing::Field> page = {Long(256, {2}),
                                              Long(257, {1}),
                                              Short(258, {8}),
                                              Short(259, {1}),
                                              Short(262, {1}),
                                              Long(278, {1}),
                                              testing::Rational(282, 200, 1),
                                              testing::Rational(283, 300, 1),
                                              Short(296, {2})};
    auto with = [&page](std::vector<testing::Field> extra) {
        std::vector<testing::Field> fields = page;
        fields.insert(fields.end(), extra.begin(), extra.end());
        return fields;
    };
    AddPage(&b, {1, 2}, with({Short(33941, {600}), Long(33942, {450})}));
    AddPage(&b, {1, 2}, with({testing::Field{33941, 5, 2, {1, 2, 3, 4}}, testing::Rational(33942, 1000, 254)}));
    AddPage(&b, {1, 2}, with({testing::Ascii(33940, "mm"), Short(33941, {7})}));
    for (size_t i = 0; i + 1 < 3; ++i) b.SetNext(i, b.directory(i + 1));
    b.SetFirst(b.directory(0));
    const std::string path = TempPath("exports-scale.tif");
    WriteBytes(path, b.bytes());
    HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ, 0);
    ASSERT_NE(tiff, nullptr);
    struct Expected {
        DWORD x, xd, y, yd, unit;
    };
    const Expected expected[] = {{600, 1, 450, 1, 2}, {200, 1, 1000, 254, 2}, {7, 1, 300, 1, 2}};
    for (DWORD p = 1; p <= 3; ++p) {
        VelmoraResolutionScale scale = {};
        ASSERT_EQ(GetVelmoraTIFFScale(tiff, p, &scale), 1) << p << ": " << std::hex << GetLastVelmoraErrorCode();
        const Expected& e = expected[p - 1];
        EXPECT_EQ(scale.xNumerator, e.x) << p;
        EXPECT_EQ(scale.xDenominator, e.xd) << p;
        EXPECT_EQ(scale.yNumerator, e.y) << p;
        EXPECT_EQ(scale.yDenominator, e.yd) << p;
        EXPECT_EQ(scale.unit, e.unit) << p;
        HGLOBAL dib = ReadVelmoraOpenTIFFDIB(tiff, p);
        EXPECT_NE(dib, nullptr) << p;
        if (dib != nullptr) platform::MemFree(dib);
    }
    CloseVelmoraTIFF(tiff);
    std::remove(path.c_str());
}

TEST_F(TiffExports, DatesParseOrComeBackAsText) {
    VelmoraTIFFDateTime date;
    HGLOBAL text = reinterpret_cast<HGLOBAL>(1);
    ASSERT_EQ(GetVelmoraTIFFDateTime(tiff_, 1, &date, &text), 1);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(std::tuple(date.year, date.month, date.day, date.hour, date.minute, date.second),
              std::tuple(2024, 2, 29, 13, 14, 15));
    ASSERT_EQ(GetVelmoraTIFFDateTime(tiff_, 2, &date, &text), 1);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(testing_support::TakeBlock(text).data()), "yesterday");
    EXPECT_EQ(date.year, 0);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDateTime(tiff_, 3, &date, &text) == 0), 1168u);
}

TEST_F(TiffExports, ReaderTurnsAndRefuses) {
    HGLOBAL dib = ReadVelmoraOpenTIFFDIB(tiff_, 1);
    ASSERT_NE(dib, nullptr) << std::hex << GetLastVelmoraErrorCode();
    {
        auto* header = static_cast<BITMAPINFOHEADER*>(platform::MemLock(dib));
        EXPECT_EQ(header->biWidth, 200);  // Orientation 6: a quarter turn clockwise
        EXPECT_EQ(header->biHeight, 100);
        EXPECT_EQ(header->biBitCount, 8);
        platform::MemUnlock(dib);
        platform::MemFree(dib);
    }
    EXPECT_EQ(ErrorOf(ReadVelmoraOpenTIFFDIB(tiff_, 2) == nullptr), 0x02000005u);
    // By name: the file is closed again and the read's error stays.
    EXPECT_EQ(ErrorOf(ReadVelmoraTIFFDIB(path_->c_str(), 9) == nullptr), 0x02000003u);

    VelmoraReadTIFFDIB request = {};
    request.size = VELMORA_READ_TIFF_DIB_SIZE_V1;
    request.tiff = tiff_;
    request.page = 1;
    request.flags = 4;
    EXPECT_EQ(ErrorOf(ReadVelmoraOpenTIFFDIBEx(&request) == nullptr), 87u);
    request.flags = 2;  // burning in needs the longer record
    EXPECT_EQ(ErrorOf(ReadVelmoraOpenTIFFDIBEx(&request) == nullptr), 87u);
    request.size = VELMORA_READ_TIFF_DIB_SIZE_V2;
    request.burnInOptions = 16;
    EXPECT_EQ(ErrorOf(ReadVelmoraOpenTIFFDIBEx(&request) == nullptr), 87u);
    request.size = 3;
    EXPECT_EQ(ErrorOf(ReadVelmoraOpenTIFFDIBEx(&request) == nullptr), 87u);
}

TEST(TiffFiles, OpeningAndMemoryTiffs) {
    EXPECT_EQ(ErrorOf(OpenVelmoraTIFF("x.tif", 0x20000000u, 0) == nullptr), 87u);
    EXPECT_EQ(ErrorOf(OpenVelmoraTIFF(TempPath("exports-missing.tif").c_str(), VELMORA_TIFF_READ, 0) == nullptr), 2u);

    HGLOBAL memory = OpenVelmoraTIFF(nullptr, VELMORA_TIFF_READ, 0);
    ASSERT_NE(memory, nullptr);
    DWORD width, length;
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFSize(memory, 1, &width, &length) == 0), 0x02000004u);
    EXPECT_GE(SetMemoryVelmoraTIFFSize(memory, 4096, -2), 0);
    EXPECT_EQ(CloseVelmoraTIFF(memory), 1);
}

TEST(DocumentTypes, ByContentExtensionAndCapabilities) {
    struct Case {
        const char* bytes;
        size_t size;
        LONG type;
    };
    const Case cases[] = {{"II*\0\x08\0\0\0", 8, 6},
                          {"MM\0*\0\0\0\x08", 8, 6},
                          {"srcdocid: x", 11, 13},
                          {"BM\x36\0\0\0", 6, 0},
                          {"GIF89a", 6, 1},
                          {"\xFF\xD8\xFF\xE0", 4, 2},
                          {"\x0A\x05\x01\x08", 4, 4},
                          {"%PDF-1.4\n", 9, 9},
                          {"\x89PNG\r\n\x1A\n", 8, 5},
                          {"P4\n1 1\n", 7, 14},
                          {"hello", 5, 8}};
    std::string path = TempPath("exports-type.bin");
    for (const Case& c : cases) {
        WriteBytes(path, std::vector<uint8_t>(c.bytes, c.bytes + c.size));
        EXPECT_EQ(GetVelmoraDocumentType(path.c_str()), c.type) << c.bytes;
    }
    std::remove(path.c_str());
    EXPECT_EQ(ErrorOf(GetVelmoraDocumentType(path.c_str()) == -1), 2u);

    EXPECT_EQ(GetVelmoraDocumentTypeFromExtension("scan.TIFF"), 6);
    EXPECT_EQ(GetVelmoraDocumentTypeFromExtension("a.b.jpeg"), 2);
    EXPECT_EQ(GetVelmoraDocumentTypeFromExtension("drawing.cal"), 13);
    EXPECT_EQ(GetVelmoraDocumentTypeFromExtension("notes.txt"), 8);
    EXPECT_EQ(ErrorOf(GetVelmoraDocumentTypeFromExtension("README") == -1), 87u);

    EXPECT_EQ(GetVelmoraDocumentTypeCaps(6), 7);
    EXPECT_EQ(GetVelmoraDocumentTypeCaps(13), 1);
    EXPECT_EQ(GetVelmoraDocumentTypeCaps(3), 0);
    EXPECT_EQ(ErrorOf(GetVelmoraDocumentTypeCaps(8) == -1), 87u);  // recognised, yet not in the table
}

}  // namespace
}  // namespace velmora
