// JPEG-compressed TIFF pages that the libtiff corpus cannot check exactly
// (the pages the library writes are read back by libtiff there): YCbCr
// pages (libtiff smooths chroma while upsampling, the reader replicates it)
// are compared with djpeg's decoding of the very streams the
// strips and tiles hold; old-style JPEG pages, which no current writer
// makes, are built here around a cjpeg stream, both through
// JPEGInterchangeFormat and as bare entropy-coded data with the tables in
// JPEGQTables, JPEGDCTables and JPEGACTables.
#include <tiffio.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../unit/tiff_builder.h"
#include "platform/platform.h"
#include "velmora/velmora.h"
#include "support/pictures.h"

namespace {

using Bytes = std::vector<uint8_t>;
using velmora::peers::LargestDifference;
using velmora::peers::Picture;
using velmora::peers::ReadFile;
using velmora::peers::ReadPnm;
using velmora::testing::Field;
using velmora::testing::Long;
using velmora::testing::Short;

// Reads page 1 of a TIFF through the exported reader.
bool ReadPage(const std::string& path, uint32_t channels, Picture* picture, uint32_t* error) {
    HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), 0x80000000u, 0);
    if (tiff == nullptr) {
        *error = GetLastVelmoraErrorCode();
        return false;
    }
    HGLOBAL dib = ReadVelmoraOpenTIFFDIB(tiff, 1);
    *error = GetLastVelmoraErrorCode();
    CloseVelmoraTIFF(tiff);
    if (dib == nullptr) return false;
    *picture = velmora::peers::FromDib(dib);
    velmora::platform::MemFree(dib);
    return picture->channels == channels;
}

// The segments of a baseline JPEG stream that an old-style page needs.
struct Parsed {
    std::map<int, Bytes> quant;    // id -> 64 zig-zag values
    std::map<int, Bytes> huffman;  // class * 4 + id -> 16 counts and the symbols
    uint32_t width = 0, height = 0, components = 0;
    uint8_t h = 1, v = 1;  // sampling of the first component
    Bytes entropy;         // the scan's data, up to EOI
    size_t entropyOffset = 0;
};

bool Parse(const Bytes& jpeg, Parsed* parsed) {
    size_t at = 2;
    while (at + 4 <= jpeg.size()) {
        if (jpeg[at] != 0xFF) return false;
        const uint8_t marker = jpeg[at + 1];
        const size_t length = size_t{jpeg[at + 2]} << 8 | jpeg[at + 3];
        const uint8_t* data = jpeg.data() + at + 4;
        const size_t size = length - 2;
        if (marker == 0xDB) {
            for (size_t i = 0; i + 65 <= size; i += 65)
                parsed->quant[data[i] & 15] = Bytes(data + i + 1, data + i + 65);
        } else if (marker == 0xC4) {
            for (size_t i = 0; i + 17 <= size;) {
                size_t count = 0;
                for (int k = 0; k < 16; ++k) count += data[i + 1 + k];
                parsed->huffman[(data[i] >> 4) * 4 + (data[i] & 15)] = Bytes(data + i + 1, data + i + 17 + count);
                i += 17 + count;
            }
        } else if (marker == 0xC0) {
            parsed->height = uint32_t{data[1]} << 8 | data[2];
            parsed->width = uint32_t{data[3]} << 8 | data[4];
            parsed->components = data[5];
            parsed->h = data[7] >> 4;
            parsed->v = data[7] & 15;
        } else if (marker == 0xDA) {
            parsed->entropyOffset = at + 2 + length;
            parsed->entropy.assign(jpeg.begin() + static_cast<std::ptrdiff_t>(parsed->entropyOffset), jpeg.end());
            return true;
        }
        at += 2 + length;
    }
    return false;
}

class JpegTiffPages : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* tool : {"/usr/bin/cjpeg", "/usr/bin/djpeg", "/usr/bin/tiffcp", "/usr/bin/convert"}) {
            REQUIRE_PEER(velmora::peers::Have(tool), tool);
        }
        TIFFSetWarningHandler(nullptr);
        // A photograph-like picture: smooth areas, edges and fine detail.
        ASSERT_TRUE(
            velmora::peers::Run("/usr/bin/convert -size 203x117 -seed 7 plasma:red-blue -blur 0x1 \\( -size 203x117 "
                                "pattern:checkerboard \\) -compose overlay -composite -depth 8 " +
                                Path("source.ppm") + " 2>/dev/null"));
    }
    std::string Path(const char* name) const { return directory_.Path(name); }

    // djpeg's decoding of a stream, without chroma smoothing.
    bool Reference(const Bytes& jpeg, Picture* picture) {
        velmora::peers::WriteFile(Path("part.jpg"), jpeg);
        return velmora::peers::Run("/usr/bin/djpeg -dct int -outfile " + Path("part.pnm") + " " + Path("part.jpg")) &&
               ReadPnm(Path("part.pnm"), picture);
    }

    velmora::peers::TempDir directory_{"velmora-jpeg-tiff"};
};

// Every strip or tile of a compression 7 YCbCr page is an abbreviated
// stream; with the page's tables in front it is a stream djpeg reads.
TEST_F(JpegTiffPages, YcbcrStripsAndTilesMatchDjpeg) {
    const struct {
        const char* name;
        const char* layout;
    } kLayouts[] = {{"one strip", "-r 1000"}, {"strips of 16 rows", "-r 16"}, {"tiles of 32", "-t -w 32 -l 32"}};
    ASSERT_TRUE(velmora::peers::Run("/usr/bin/convert " + Path("source.ppm") + " -depth 8 -compress none " +
                                    Path("source.tif")));
    for (const auto& layout : kLayouts) {
        SCOPED_TRACE(layout.name);
        const std::string path = Path("page.tif");
        ASSERT_TRUE(velmora::peers::Run(std::string("/usr/bin/tiffcp -c jpeg ") + layout.layout + " " +
                                        Path("source.tif") + " " + path));

        TIFF* tif = TIFFOpen(path.c_str(), "r");
        ASSERT_NE(tif, nullptr);
        uint16_t photometric = 0;
        TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
        ASSERT_EQ(photometric, PHOTOMETRIC_YCBCR);
        uint32_t tablesSize = 0;
        const uint8_t* tables = nullptr;
        ASSERT_TRUE(TIFFGetField(tif, TIFFTAG_JPEGTABLES, &tablesSize, &tables));
        const bool tiled = TIFFIsTiled(tif);
        uint32_t unitWidth = 203, unitLength = 0;
        if (tiled) {
            TIFFGetField(tif, TIFFTAG_TILEWIDTH, &unitWidth);
            TIFFGetField(tif, TIFFTAG_TILELENGTH, &unitLength);
        } else {
            TIFFGetField(tif, TIFFTAG_ROWSPERSTRIP, &unitLength);
        }
        const uint32_t across = (203 + unitWidth - 1) / unitWidth;
        Picture expected{203, 117, 3, Bytes(203 * 117 * 3)};
        const uint32_t units = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
        for (uint32_t unit = 0; unit < units; ++unit) {
            uint64_t* counts = nullptr;
            ASSERT_TRUE(TIFFGetField(tif, tiled ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS, &counts));
            const tmsize_t size = static_cast<tmsize_t>(counts[unit]);
            Bytes raw(static_cast<size_t>(size));
            if (tiled) {
                TIFFReadRawTile(tif, unit, raw.data(), size);
            } else {
                TIFFReadRawStrip(tif, unit, raw.data(), size);
            }
            Bytes stream(tables, tables + tablesSize - 2);            // without its EOI
            stream.insert(stream.end(), raw.begin() + 2, raw.end());  // without the strip's SOI
            Picture part;
            ASSERT_TRUE(Reference(stream, &part)) << "unit " << unit;
            const uint32_t x0 = (unit % across) * unitWidth, y0 = (unit / across) * unitLength;
            for (uint32_t y = 0; y < part.height && y0 + y < 117; ++y) {
                for (uint32_t x = 0; x < part.width && x0 + x < 203; ++x) {
                    std::memcpy(&expected.pixels[((y0 + y) * 203 + x0 + x) * 3], &part.pixels[(y * part.width + x) * 3],
                                3);
                }
            }
        }
        TIFFClose(tif);

        Picture actual;
        uint32_t error = 0;
        ASSERT_TRUE(ReadPage(path, 3, &actual, &error)) << std::hex << error;
        EXPECT_LE(LargestDifference(actual, expected), 1);
        EXPECT_GE(LargestDifference(actual, expected), 0);
    }
}

// Old-style pages around one cjpeg stream: through JPEGInterchangeFormat,
// and as bare entropy-coded data with the tables in their own tags.
TEST_F(JpegTiffPages, OldStylePagesMatchDjpeg) {
    for (const bool grey : {false, true}) {
        SCOPED_TRACE(grey ? "grey" : "colour");
        const std::string jpegPath = Path("old.jpg");
        ASSERT_TRUE(velmora::peers::Run(std::string("/usr/bin/cjpeg -quality 85 ") + (grey ? "-grayscale " : "") +
                                        "-outfile " + jpegPath + " " + Path("source.ppm")));
        const Bytes jpeg = ReadFile(jpegPath);
        Picture expected;
        ASSERT_TRUE(Reference(jpeg, &expected));
        Parsed parsed;
        ASSERT_TRUE(Parse(jpeg, &parsed));
        const uint32_t channels = grey ? 1 : 3;
        const uint64_t photometric = grey ? 1 : 6;

        for (const bool interchange : {true, false}) {
            SCOPED_TRACE(interchange ? "JPEGInterchangeFormat" : "tables in tags");
            velmora::testing::TiffBuilder builder(false, false);
            Bytes& bytes = builder.bytes();
            const uint64_t jpegAt = bytes.size();
            bytes.insert(bytes.end(), jpeg.begin(), jpeg.end());
            Field bits = Short(258, {8, 8, 8});
            bits.count = channels;
            bits.values.resize(channels);
            std::vector<Field> fields = {
                Long(256, {parsed.width}), Long(257, {parsed.height}), bits,
                Short(259, {6}),           Short(262, {photometric}),  Long(273, {jpegAt + parsed.entropyOffset}),
                Short(277, {channels}),    Long(278, {parsed.height}), Long(279, {parsed.entropy.size()}),
            };
            if (interchange) {
                fields.push_back(Short(512, {1}));
                fields.push_back(Long(513, {jpegAt}));
                fields.push_back(Long(514, {jpeg.size()}));
            } else {
                // Each component's tables, laid out after the stream.
                std::vector<uint64_t> q, dc, ac;
                for (uint32_t c = 0; c < channels; ++c) {
                    const int id = c == 0 ? 0 : 1;
                    q.push_back(bytes.size());
                    bytes.insert(bytes.end(), parsed.quant[id].begin(), parsed.quant[id].end());
                    dc.push_back(bytes.size());
                    bytes.insert(bytes.end(), parsed.huffman[id].begin(), parsed.huffman[id].end());
                    ac.push_back(bytes.size());
                    bytes.insert(bytes.end(), parsed.huffman[4 + id].begin(), parsed.huffman[4 + id].end());
                }
                fields.push_back(Short(512, {1}));
                fields.push_back(Field{519, 4, q.size(), q});
                fields.push_back(Field{520, 4, dc.size(), dc});
                fields.push_back(Field{521, 4, ac.size(), ac});
            }
            if (!grey) fields.push_back(Short(530, {parsed.h, parsed.v}));
            builder.AddDirectory(fields);
            const std::string path = Path("old.tif");
            velmora::peers::WriteFile(path, bytes);

            Picture actual;
            uint32_t error = 0;
            ASSERT_TRUE(ReadPage(path, channels, &actual, &error)) << std::hex << error;
            EXPECT_LE(LargestDifference(actual, expected), 1);
            EXPECT_GE(LargestDifference(actual, expected), 0);
        }
    }
}

}  // namespace
