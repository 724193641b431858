// The DIB exports: their checks, errors and results, and BMP saving.
#include <string>

#include <gtest/gtest.h>

#include "dib/bmp_writer.h"
#include "frame/error_record.h"
#include "frame/library.h"
#include "platform/platform.h"
#include "velmora/velmora.h"
#include "dib_test_images.h"
#include "../support/last_error.h"

namespace velmora {
namespace {

using test::MakeDib;
using testing_support::ErrorOf;

TEST(DibExports, ColourTypeRefusesBadDibsWithTheirErrors) {
    auto bw = MakeDib(5, 2, 1);
    bw.table()[0] = RGBQUAD{255, 255, 255, 0};
    EXPECT_EQ(GetVelmoraDIBColorType(bw.bits(), bw.header()), 0);
    bw.table()[1] = RGBQUAD{0, 0, 255, 0};
    EXPECT_EQ(GetVelmoraDIBColorType(bw.bits(), bw.header()), 1);
    auto high = MakeDib(5, 2, 16);
    EXPECT_EQ(GetVelmoraDIBColorType(high.bits(), high.header()), 8);

    SetErrorCode(0);
    high.header()->biSize = 124;
    EXPECT_EQ(ErrorOf(GetVelmoraDIBColorType(high.bits(), high.header()) == -1), 87u);
    high.header()->biSize = 40;
    high.header()->biHeight = -2;
    EXPECT_EQ(ErrorOf(GetVelmoraDIBColorType(high.bits(), high.header()) == -1), 87u);
    EXPECT_EQ(ErrorOf(GetVelmoraDIBColorType(bw.bits(), nullptr) == -1), 998u);
    EXPECT_EQ(ErrorOf(GetVelmoraDIBColorType(nullptr, bw.header()) == -1), 998u);
}

TEST(DibExports, DataAndSizeOfAPackedDib) {
    auto one = MakeDib(9, 3, 1, 1);
    EXPECT_EQ(GetVelmoraDIBData(one.header()), reinterpret_cast<uint8_t*>(one.header()) + 44);
    EXPECT_EQ(GetVelmoraDIBSize(one.header()), 44u + 3 * 4);
    auto masked = MakeDib(3, 2, 32, 3, BI_BITFIELDS);
    EXPECT_EQ(GetVelmoraDIBData(masked.header()), reinterpret_cast<uint8_t*>(masked.header()) + 64);
    EXPECT_EQ(GetVelmoraDIBSize(masked.header()), 64u + 2 * 12);

    // A zero width: Data refuses it, Size does not look.
    one.header()->biWidth = 0;
    SetErrorCode(0);
    EXPECT_EQ(ErrorOf(GetVelmoraDIBData(one.header()) == nullptr), 87u);
    EXPECT_EQ(GetVelmoraDIBSize(one.header()), 44u);
    one.header()->biSize = 12;
    EXPECT_EQ(ErrorOf(GetVelmoraDIBSize(one.header()) == 0), 87u);
    EXPECT_EQ(ErrorOf(GetVelmoraDIBData(nullptr) == nullptr), 998u);
    EXPECT_EQ(ErrorOf(GetVelmoraDIBSize(nullptr) == 0), 998u);
    // A size beyond 32 bits is refused rather than wrapped.
    auto huge = MakeDib(1, 1, 24);
    huge.header()->biWidth = 0x7FFFFFFF;
    huge.header()->biHeight = 0x7FFFFFFF;
    EXPECT_EQ(ErrorOf(GetVelmoraDIBSize(huge.header()) == 0), 87u);
}

TEST(DibExports, DisplayPaletteChecksItsDibFirst) {
    auto dib = MakeDib(4, 4, 8);
    dib.header()->biPlanes = 2;
    EXPECT_EQ(ErrorOf(CreateVelmoraDIBPalette(dib.bits(), dib.header(), nullptr, FALSE) == nullptr), 87u);
    dib.header()->biPlanes = 1;
    HPALETTE palette = CreateVelmoraDIBPalette(dib.bits(), dib.header(), nullptr, FALSE);
#if defined(_WIN32)
    // A true-colour display (as under Wine) has no palette to fit.
    if (palette != nullptr) {
        DeleteObject(palette);
    } else {
        EXPECT_EQ(LastErrorCode(), 0x02000009u);
    }
#else
    EXPECT_EQ(ErrorOf(palette == nullptr), 120u);
#endif
}

class DibBmpSave : public ::testing::Test {
protected:
    void SetUp() override {
        uint32_t error = 0;
        ASSERT_TRUE(platform::CreateTempFile(platform::SystemTempDirectory(), u"vbt", &path_, &error));
    }
    void TearDown() override {
        uint32_t error = 0;
        platform::FileDelete(path_, &error);
    }
    std::string Read() {
        uint32_t error = 0;
        platform::FileHandle file = platform::FileOpen(path_, platform::FileAccess::Read, &error);
        std::string bytes(4096, '\0');
        size_t done = 0;
        if (file != platform::kNoFile) {
            platform::FileRead(file, bytes.data(), bytes.size(), &done, &error);
            platform::FileClose(file);
        }
        bytes.resize(done);
        return bytes;
    }
    std::u16string path_;
};

TEST_F(DibBmpSave, WritesFileHeaderHeaderTableAndRowsAsStored) {
    auto dib = MakeDib(3, 2, 24, 3);  // a palette hint, which is not written
    for (int i = 0; i < 12; ++i) dib.bits()[i] = static_cast<uint8_t>(i + 1);
    std::string path = platform::Utf8FromWide(path_);
    ASSERT_TRUE(SaveVelmoraBMPDIB(path.c_str(), dib.bits(), dib.header()));
    std::string file = Read();
    ASSERT_EQ(file.size(), 14u + 40 + 24);
    EXPECT_EQ(file.substr(0, 2), "BM");
    auto u32 = [&](size_t at) {
        return uint32_t(uint8_t(file[at])) | uint32_t(uint8_t(file[at + 1])) << 8 |
               uint32_t(uint8_t(file[at + 2])) << 16 | uint32_t(uint8_t(file[at + 3])) << 24;
    };
    EXPECT_EQ(u32(2), 78u);
    EXPECT_EQ(u32(6), 0u);
    EXPECT_EQ(u32(10), 54u);
    EXPECT_EQ(u32(14 + 32), 3u);  // biClrUsed as stored
    EXPECT_EQ(file[54], 1);
    EXPECT_EQ(file[54 + 23], 0);  // row padding as stored
}

TEST_F(DibBmpSave, AFailureLeavesTheOldFileAndNoPartialOne) {
    auto dib = MakeDib(3, 2, 8);
    std::string path = platform::Utf8FromWide(path_);
    ASSERT_TRUE(SaveVelmoraBMPDIB(path.c_str(), dib.bits(), dib.header()));
    std::string before = Read();
    // Refused DIBs and paths never touch the file.
    dib.header()->biSize = 108;
    EXPECT_EQ(ErrorOf(!SaveVelmoraBMPDIB(path.c_str(), dib.bits(), dib.header())), 87u);
    dib.header()->biSize = 40;
    EXPECT_EQ(ErrorOf(!SaveVelmoraBMPDIB(nullptr, dib.bits(), dib.header())), 998u);
    // A directory cannot be replaced by the file.
    std::u16string directory = platform::SystemTempDirectory();
    ErrorRecord record;
    EXPECT_FALSE(WriteBmpFile(directory.substr(0, directory.size() - 1), dib.header(), dib.bits(), &record));
    EXPECT_NE(record.code, 0u);
    std::string missing = path + "-missing/sub/file.bmp";
    EXPECT_FALSE(SaveVelmoraBMPDIB(missing.c_str(), dib.bits(), dib.header()));
    EXPECT_NE(LastErrorCode(), 0u);
    EXPECT_EQ(Read(), before);
}

}  // namespace
}  // namespace velmora
