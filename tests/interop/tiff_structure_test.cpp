// The structure reader against libtiff: files made at test time by
// ImageMagick and tiffcp in every byte order, classic and BigTIFF, strips and
// tiles, chunky and planar, several compressions; for every page our page
// information must agree with libtiff's own reading.
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>

#include "frame/error_record.h"
#include "platform/platform.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"
#include "support/peers.h"

namespace velmora {
namespace {


class TiffStructureInterop : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (access("/usr/bin/convert", X_OK) != 0 || access("/usr/bin/tiffcp", X_OK) != 0) return;
        char pattern[] = "/tmp/vlm_interop_XXXXXX";
        if (mkdtemp(pattern) == nullptr) return;
        dir_ = pattern;
        std::string d = dir_ + "/";
        // Source pages: 8-bit grey, 1-bit, RGB, a 4-bit palette, and
        // one with an orientation; "eight" has only pages of 8-bit samples,
        // which planar configurations and the predictor need.
        bool made =
            velmora::peers::Run(
                "/usr/bin/convert -size 97x61 gradient:black-white -depth 8 -density 300x150 -units "
                "PixelsPerInch " +
                d + "grey.tif") &&
            velmora::peers::Run(
                "/usr/bin/convert -size 70x45 pattern:checkerboard -type bilevel -depth 1 -density 204x98 -units "
                "PixelsPerInch " +
                d + "bw.tif") &&
            velmora::peers::Run("/usr/bin/convert rose: -depth 8 -density 72 " + d + "rgb.tif") &&
            velmora::peers::Run(
                "/usr/bin/convert -size 50x31 gradient:red-blue -colors 16 -type Palette -depth 4 "
                "-density 118x118 -units PixelsPerCentimeter " +
                d + "palette.tif") &&
            velmora::peers::Run("/usr/bin/convert -size 41x23 gradient:white-black -depth 8 -orient LeftBottom " + d +
                  "oriented.tif") &&
            velmora::peers::Run("/usr/bin/tiffcp " + d + "grey.tif " + d + "bw.tif " + d + "rgb.tif " + d + "palette.tif " + d +
                  "oriented.tif " + d + "multi.tif") &&
            velmora::peers::Run("/usr/bin/tiffcp " + d + "grey.tif " + d + "rgb.tif " + d + "oriented.tif " + d + "eight.tif");
        if (!made) return;
        static const struct {
            const char* name;
            const char* options;
            const char* source;
        } kVariants[] = {
            {"le_none", "-L -c none", "multi.tif"},
            {"be_lzw", "-B -c lzw -r 7", "multi.tif"},
            {"big_zip", "-8 -c zip", "multi.tif"},
            {"big_be_packbits", "-8 -B -c packbits -r 3", "multi.tif"},
            {"tiles_lzw_pred", "-t -w 32 -l 32 -c lzw:2", "eight.tif"},
            {"big_be_tiles", "-8 -B -t -w 16 -l 48", "multi.tif"},
            {"planar", "-p separate -r 5", "eight.tif"},
            {"big_planar_tiles", "-8 -p separate -t -w 64 -l 16 -c zip", "eight.tif"},
            {"g4_be", "-B -c g4", "bw.tif"},
            {"g3_2d_big", "-8 -c g3:2d -r 9", "bw.tif"},
            {"jpeg", "-c jpeg -r 16", "rgb.tif"},
        };
        for (const auto& v : kVariants) {
            std::string out = d + v.name + ".tif";
            if (velmora::peers::Run(std::string("/usr/bin/tiffcp ") + v.options + " " + d + v.source + " " + out))
                files_.push_back(out);
        }
    }

    static void TearDownTestSuite() {
        if (!dir_.empty()) velmora::peers::Run("rm -rf " + dir_);
    }

    void SetUp() override {
        REQUIRE_PEER(!dir_.empty(), "ImageMagick or tiffcp");
    }

    static std::string dir_;
    static std::vector<std::string> files_;
};

std::string TiffStructureInterop::dir_;
std::vector<std::string> TiffStructureInterop::files_;

// Compares one page of ours with libtiff's current directory.
void ComparePage(TIFF* peer, TiffFile* tiff, uint32_t page, const std::string& where) {
    SCOPED_TRACE(where + " page " + std::to_string(page));
    ErrorRecord record;
    TiffPageInfo info;
    SetWanted(&info, kFieldAll);
    ASSERT_TRUE(ReadPageInfo(tiff, page, kReadStructure, &info, &record))
        << platform::Utf8FromWide(record.message);
    ASSERT_TRUE(CheckImageStructure(tiff, &info, &record)) << platform::Utf8FromWide(record.message);

    uint32_t width = 0, length = 0, rows = 0, tileWidth = 0, tileLength = 0;
    uint16_t bits = 0, samples = 0, compression = 0, photometric = 0, orientation = 0, planar = 0;
    TIFFGetField(peer, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(peer, TIFFTAG_IMAGELENGTH, &length);
    TIFFGetFieldDefaulted(peer, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(peer, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(peer, TIFFTAG_COMPRESSION, &compression);
    TIFFGetFieldDefaulted(peer, TIFFTAG_ORIENTATION, &orientation);
    TIFFGetFieldDefaulted(peer, TIFFTAG_PLANARCONFIG, &planar);
    EXPECT_EQ(info.width, width);
    EXPECT_EQ(info.length, length);
    EXPECT_EQ(info.bitsPerSample, bits);
    EXPECT_EQ(info.samplesPerPixel, samples);
    EXPECT_EQ(info.compression, compression);
    EXPECT_EQ(info.orientation, orientation);
    EXPECT_EQ(info.planarConfiguration, planar);
    if (TIFFGetField(peer, TIFFTAG_PHOTOMETRIC, &photometric)) {
        EXPECT_TRUE(IsPresent(&info, kFieldPhotometric));
        EXPECT_EQ(info.photometric, photometric);
    }
    EXPECT_EQ(info.tiled, TIFFIsTiled(peer) != 0);
    if (TIFFIsTiled(peer)) {
        TIFFGetField(peer, TIFFTAG_TILEWIDTH, &tileWidth);
        TIFFGetField(peer, TIFFTAG_TILELENGTH, &tileLength);
        EXPECT_EQ(info.tileWidth, tileWidth);
        EXPECT_EQ(info.tileLength, tileLength);
    } else {
        TIFFGetFieldDefaulted(peer, TIFFTAG_ROWSPERSTRIP, &rows);
        EXPECT_EQ(info.rowsPerStrip, rows > length ? length : rows);
    }
    uint32_t strips = TIFFIsTiled(peer) ? TIFFNumberOfTiles(peer) : TIFFNumberOfStrips(peer);
    ASSERT_EQ(info.stripCount, strips);
    TiffStripBuffer buffer;
    for (uint32_t i = 0; i < strips; ++i) {
        ASSERT_EQ(info.offsets.values[i], TIFFGetStrileOffset(peer, i)) << "strip " << i;
        ASSERT_EQ(info.byteCounts.values[i], TIFFGetStrileByteCount(peer, i)) << "strip " << i;
        // The stored bytes of each strip, as libtiff reads them raw.
        uint32_t size = 0;
        const uint8_t* ours = buffer.Read(tiff, &info, i, &size, &record);
        ASSERT_NE(ours, nullptr) << platform::Utf8FromWide(record.message);
        std::vector<uint8_t> theirs(size + 1);
        tmsize_t got = TIFFIsTiled(peer) ? TIFFReadRawTile(peer, i, theirs.data(), size)
                                         : TIFFReadRawStrip(peer, i, theirs.data(), size);
        ASSERT_EQ(got, static_cast<tmsize_t>(size));
        ASSERT_EQ(std::vector<uint8_t>(ours, ours + size), std::vector<uint8_t>(theirs.begin(), theirs.end() - 1));
    }

    float xres = 0, yres = 0;
    uint16_t unit = 0;
    TIFFGetFieldDefaulted(peer, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (TIFFGetField(peer, TIFFTAG_XRESOLUTION, &xres)) {
        ASSERT_TRUE(IsPresent(&info, kFieldXResolution));
        EXPECT_NEAR(double(info.xResolution.numerator) / info.xResolution.denominator, xres, 1e-3 * xres);
        EXPECT_EQ(info.resolutionUnit, unit);
    } else {
        EXPECT_FALSE(IsPresent(&info, kFieldXResolution));
    }
    if (TIFFGetField(peer, TIFFTAG_YRESOLUTION, &yres)) {
        ASSERT_TRUE(IsPresent(&info, kFieldYScale));
        EXPECT_NEAR(double(info.yScale.numerator) / info.yScale.denominator, yres, 1e-3 * yres);
    }
    uint16_t* red = nullptr;
    uint16_t* green = nullptr;
    uint16_t* blue = nullptr;
    if (TIFFGetField(peer, TIFFTAG_COLORMAP, &red, &green, &blue)) {
        uint32_t n = 1u << bits;
        ASSERT_EQ(info.colorMap.count, 3 * n);
        for (uint32_t i = 0; i < n; ++i) {
            EXPECT_EQ(info.colorMap.values[i], red[i]);
            EXPECT_EQ(info.colorMap.values[n + i], green[i]);
            EXPECT_EQ(info.colorMap.values[2 * n + i], blue[i]);
        }
    }
    FreePageInfo(&info);
}

TEST_F(TiffStructureInterop, PagesAgreeWithLibtiff) {
    ASSERT_EQ(files_.size(), 11u);
    for (const std::string& file : files_) {
        TIFF* peer = TIFFOpen(file.c_str(), "r");
        ASSERT_NE(peer, nullptr) << file;
        ErrorRecord record;
        TiffFile* tiff = OpenTiffFile(platform::WideFromUtf8(file).c_str(), kStreamRead, false, &record);
        ASSERT_NE(tiff, nullptr) << file << ": " << platform::Utf8FromWide(record.message);
        uint32_t pages = TIFFNumberOfDirectories(peer);
        EXPECT_EQ(CountPages(tiff, &record), pages) << file;
        EXPECT_EQ(TiffIsBig(tiff), TIFFIsBigTIFF(peer) != 0) << file;
        // Last page first, then in order: the directory cache serves both.
        for (uint32_t d : {pages - 1, 0u}) {
            ASSERT_TRUE(TIFFSetDirectory(peer, static_cast<tdir_t>(d)));
            ComparePage(peer, tiff, d + 1, file);
        }
        for (uint32_t d = 1; d < pages; ++d) {
            ASSERT_TRUE(TIFFSetDirectory(peer, static_cast<tdir_t>(d)));
            ComparePage(peer, tiff, d + 1, file);
        }
        ErrorRecord beyond;
        LocatePage(tiff, pages + 1, 0, &beyond);
        EXPECT_EQ(beyond.code, pages == 0 ? kErrBadFileData : kErrIfdNotFound);
        CloseTiff(tiff, nullptr);
        TIFFClose(peer);
    }
}

}  // namespace
}  // namespace velmora
