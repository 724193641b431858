// A CALS Type 1 page is a Group 4 raster behind a text header: wrapped
// around Group 4 data that libtiff made, it must decode to libtiff's pixels.
#include <tiffio.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "io/stream.h"
#include "tiff/cals_reader.h"

namespace velmora {
namespace {

std::vector<uint8_t> CalsFile(const std::string& orient, uint32_t width, uint32_t height,
                              const std::vector<uint8_t>& data) {
    std::vector<uint8_t> file(kCalsHeaderSize, ' ');
    const std::string records[] = {"srcdocid: test", "rtype: 1", "rorient: " + orient,
                                   "rpelcnt: " + std::to_string(width) + "," + std::to_string(height),
                                   "rdensity: 300"};
    for (size_t r = 0; r < 5; ++r) std::memcpy(file.data() + kCalsRecordSize * r, records[r].data(), records[r].size());
    file.insert(file.end(), data.begin(), data.end());
    return file;
}

TEST(CalsRead, Group4PageMatchesLibtiffAndMirrorsAreFlipped) {
    const uint32_t width = 301, height = 97;
    std::vector<uint8_t> page((width + 7) / 8 * height);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            bool black = ((x / 9 + y / 5) % 3 == 0) || (x * y) % 17 == 3;
            if (black) page[y * ((width + 7) / 8) + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
        }
    }
    char path[] = "/tmp/velmora-cals-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    TIFF* tif = TIFFOpen(path, "w");
    ASSERT_NE(tif, nullptr);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, height);
    ASSERT_GE(TIFFWriteEncodedStrip(tif, 0, page.data(), static_cast<tmsize_t>(page.size())), 0);
    TIFFClose(tif);
    tif = TIFFOpen(path, "r");
    std::vector<uint8_t> coded(static_cast<size_t>(TIFFRawStripSize(tif, 0)));
    ASSERT_GT(TIFFReadRawStrip(tif, 0, coded.data(), static_cast<tmsize_t>(coded.size())), 0);
    TIFFClose(tif);
    unlink(path);

    for (const char* orient : {"0,270", "180,90"}) {
        std::vector<uint8_t> file = CalsFile(orient, width, height, coded);
        ErrorRecord record;
        Stream* stream = OpenFixedMemoryStream(file.data(), static_cast<uint32_t>(file.size()), &record);
        CalsHeader header;
        CalsPage result;
        ASSERT_TRUE(ReadCalsHeader(stream, &header, &record));
        ASSERT_TRUE(ReadCalsPage(stream, header, 1, kCalsDecode, &result, nullptr, &record)) << record.code;
        bool mirrored = std::string(orient) == "180,90";
        EXPECT_EQ(result.orientation, mirrored ? 2 : 1);
        EXPECT_EQ(result.angle, mirrored ? 180 : 0);
        ImageLock lock(result.dib);
        EXPECT_EQ(lock.header()->biXPelsPerMeter, 11800);
        DibRows rows = RowsFromTop(lock.header(), lock.bits());
        size_t mismatches = 0;
        for (uint32_t y = 0; y < height; ++y) {
            const uint8_t* row = rows.top + rows.stride * static_cast<ptrdiff_t>(mirrored ? height - 1 - y : y);
            for (uint32_t x = 0; x < width; ++x) {
                bool ours = (row[x / 8] >> (7 - x % 8)) & 1;
                bool theirs = (page[y * ((width + 7) / 8) + x / 8] >> (7 - x % 8)) & 1;
                mismatches += ours != theirs;
            }
        }
        EXPECT_EQ(mismatches, 0u) << orient;
        HGLOBAL dib = result.dib;
        FreeImage(&dib);

        CalsPage second;
        EXPECT_FALSE(ReadCalsPage(stream, header, 2, kCalsDecode, &second, nullptr, &record));
        EXPECT_EQ(record.code, 0x02000003u);
        CloseStream(stream, nullptr);
    }
}

}  // namespace
}  // namespace velmora
