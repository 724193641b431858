// The fax encoder against libtiff: bi-level pages (blocks of text-like marks,
// noise, solid rows, runs past 2624 pixels, widths that are not whole bytes)
// are coded as Modified Huffman, Group 3 one- and two-dimensional with and
// without fill bits, and Group 4, in both fill orders and in several strips;
// the raw strips go into a TIFF that libtiff decodes strip by strip, and
// the library's own decoder reads them too (it also checks that every EOL
// ends on a byte boundary when fill bits are set). Both must give back the
// page bit for bit.
#include <tiffio.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "codecs/fax_decoder.h"
#include "codecs/fax_encoder.h"
#include "support/fax_files.h"
#include "support/memory_stream.h"

namespace {

using velmora::peers::Page;

// Equal to `rows` in every pixel of the page (pad bits are not compared).
bool SamePixels(const Page& page, const std::vector<uint8_t>& rows) {
    for (uint32_t y = 0; y < page.height; ++y) {
        for (uint32_t x = 0; x < page.width; ++x) {
            const size_t at = y * page.RowBytes() + x / 8;
            const uint8_t bit = static_cast<uint8_t>(0x80 >> (x % 8));
            if ((page.bits[at] & bit) != (rows[at] & bit)) return false;
        }
    }
    return true;
}

std::vector<Page> MakePages() {
    std::mt19937 random(7);
    auto page = [](uint32_t width, uint32_t height) {
        Page p = velmora::peers::MakePage(width, height);
        // Pad bits set: the encoder must ignore what lies past the width.
        if (width % 8 != 0) {
            for (uint32_t y = 0; y < height; ++y) p.bits[y * p.RowBytes() + p.RowBytes() - 1] |= 0xFF >> (width % 8);
        }
        return p;
    };
    std::vector<Page> pages;
    Page marks = page(1728, 120);  // letter-like blocks and strokes
    for (int i = 0; i < 400; ++i) {
        uint32_t x = random() % 1700, y = random() % 110, w = 1 + random() % 24, h = 1 + random() % 10;
        for (uint32_t yy = y; yy < y + h; ++yy)
            for (uint32_t xx = x; xx < x + w; ++xx) marks.Set(xx, yy);
    }
    pages.push_back(marks);
    Page noise = page(333, 40);
    for (uint32_t y = 0; y < noise.height; ++y)
        for (uint32_t x = 0; x < noise.width; ++x)
            if (random() % 2) noise.Set(x, y);
    pages.push_back(noise);
    Page wide = page(6000, 12);  // runs of every make-up length, past 2560 of both colours
    for (uint32_t y = 0; y < wide.height; ++y) {
        uint32_t start = (y % 2) ? 0 : 2700 + y * 64;
        for (uint32_t x = start; x < std::min<uint32_t>(wide.width, start + 2700 + y * 131); ++x) wide.Set(x, y);
    }
    pages.push_back(wide);
    Page narrow = page(1, 9);  // one pixel wide, black and white rows
    for (uint32_t y = 0; y < narrow.height; y += 2) narrow.Set(0, y);
    pages.push_back(narrow);
    Page solid = page(13, 6);  // all white, then all black rows
    for (uint32_t y = 3; y < solid.height; ++y)
        for (uint32_t x = 0; x < solid.width; ++x) solid.Set(x, y);
    pages.push_back(solid);
    return pages;
}

struct Coding {
    uint16_t compression;
    uint32_t t4Options;
    double yResolution;
};

// Codes one strip of `page` into bytes with the library.
std::vector<uint8_t> Encode(velmora::FaxEncoder* encoder, const Page& page, uint32_t firstRow, uint32_t rows,
                            uint32_t index, uint32_t* error) {
    velmora::ErrorRecord record;
    velmora::Stream* out = velmora::OpenMemoryStream(false, &record);
    velmora::EncoderStrip strip;
    strip.topRow = page.bits.data() + firstRow * page.RowBytes();
    strip.stride = static_cast<ptrdiff_t>(page.RowBytes());
    strip.rows = rows;
    strip.index = index;
    strip.out = out;
    uint64_t written = encoder->Encode(strip, &record);
    std::vector<uint8_t> bytes = velmora::testing_support::CloseAndTake(out, &record);
    EXPECT_EQ(written, bytes.size());
    *error = record.code;
    return bytes;
}

TEST(FaxEncoder, EveryCodingDecodesToThePageInLibtiffAndInTheLibrary) {
    const Coding codings[] = {{2, 0, 200}, {3, 0, 200}, {3, 4, 200}, {3, 1, 196},
                              {3, 1, 204}, {3, 5, 204}, {4, 0, 200}};
    const velmora::peers::TempDir directory("velmora-fax-encoder");
    const std::string path = directory.Path("page.tif");
    int cases = 0;
    for (const Page& page : MakePages()) {
        for (const Coding& coding : codings) {
            for (uint16_t fillOrder : {1, 2}) {
                for (uint32_t rowsPerStrip : {page.height, 5u}) {
                    SCOPED_TRACE(testing::Message() << page.width << "x" << page.height << " compression "
                                                    << coding.compression << " t4 " << coding.t4Options << " fill "
                                                    << fillOrder << " rows/strip " << rowsPerStrip);
                    uint32_t strips = (page.height + rowsPerStrip - 1) / rowsPerStrip;
                    velmora::ErrorRecord record;
                    velmora::FaxEncoder encoder;
                    velmora::FaxEncoderPage setup;
                    setup.compression = coding.compression;
                    setup.width = page.width;
                    setup.t4Options = coding.t4Options;
                    setup.fillOrder = fillOrder;
                    setup.yResolution = coding.yResolution;
                    ASSERT_TRUE(encoder.Begin(setup, &record));

                    TIFF* tif = TIFFOpen(path.c_str(), "w");
                    ASSERT_NE(tif, nullptr);
                    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, page.width);
                    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, page.height);
                    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
                    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
                    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
                    TIFFSetField(tif, TIFFTAG_COMPRESSION, coding.compression);
                    TIFFSetField(tif, TIFFTAG_FILLORDER, fillOrder);
                    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
                    if (coding.compression == 3) TIFFSetField(tif, TIFFTAG_GROUP3OPTIONS, coding.t4Options);
                    std::vector<std::vector<uint8_t>> raws;
                    for (uint32_t s = 0; s < strips; ++s) {
                        uint32_t rows = std::min(rowsPerStrip, page.height - s * rowsPerStrip);
                        uint32_t error = 0;
                        raws.push_back(Encode(&encoder, page, s * rowsPerStrip, rows, s, &error));
                        ASSERT_EQ(error, 0u);
                        if (coding.compression == 4) {  // ends with the end-of-facsimile block
                            const std::vector<uint8_t>& raw = raws.back();
                            ASSERT_GE(raw.size(), 3u);
                            uint32_t tail = 0;
                            for (size_t i = raw.size() - 3; i < raw.size(); ++i) {
                                uint8_t b = raw[i];
                                for (int bit = 0; fillOrder == 2 && bit < 8; ++bit) {
                                    tail = (tail << 1) | ((b >> bit) & 1);
                                }
                                if (fillOrder != 2) tail = (tail << 8) | b;
                            }
                            while ((tail & 1) == 0) tail >>= 1;
                            EXPECT_EQ(tail & 0xFFFFFF, 0x001001u);
                        }
                        ASSERT_EQ(TIFFWriteRawStrip(tif, s, raws.back().data(), raws.back().size()),
                                  static_cast<tmsize_t>(raws.back().size()));
                    }
                    TIFFClose(tif);
                    encoder.End();

                    velmora::peers::FaxFile file;
                    ASSERT_TRUE(velmora::peers::ReadFaxFile(path, &file));
                    std::vector<uint8_t> theirs, ours;
                    for (uint32_t s = 0; s < strips; ++s) {
                        const velmora::peers::Strip& strip = file.strips[s];
                        theirs.insert(theirs.end(), strip.expected.begin(), strip.expected.end());
                        velmora::peers::Decoded decoded = velmora::peers::DecodeStrip(file, s, strip.raw, page.width);
                        EXPECT_EQ(decoded.error, 0u) << "strip " << s;
                        ours.insert(ours.end(), decoded.rows.begin(), decoded.rows.end());
                    }
                    EXPECT_TRUE(SamePixels(page, theirs)) << "libtiff";
                    EXPECT_TRUE(SamePixels(page, ours)) << "library";
                    ++cases;
                }
            }
        }
    }
    EXPECT_EQ(cases, 5 * 7 * 2 * 2);
}

TEST(FaxEncoder, RowsPerGroupFollowTheVerticalResolution) {
    EXPECT_EQ(velmora::FaxRowsPerGroup(0, 196, 2), 2u);
    EXPECT_EQ(velmora::FaxRowsPerGroup(0, 200, 2), 2u);
    EXPECT_EQ(velmora::FaxRowsPerGroup(0, 204, 2), 4u);
    EXPECT_EQ(velmora::FaxRowsPerGroup(0, 7.874015748031496, 3), 2u);
    EXPECT_EQ(velmora::FaxRowsPerGroup(0, 7.9, 3), 4u);
    EXPECT_EQ(velmora::FaxRowsPerGroup(0, 400, 1), 2u);
    EXPECT_EQ(velmora::FaxRowsPerGroup(8, 98, 2), 8u);
}

}  // namespace
