// The fax decoder against libtiff: bi-level pages made at test time (blocks
// and strokes as on a page of text, noise of two densities, solid pages,
// narrow and odd widths, runs of every length to beyond 2560 pixels) are
// compressed by tiffcp as Group 3 one- and two-dimensional, with and
// without fill bits, Group 4, in both fill orders and in strips of one,
// several and all rows, and by libtiff itself as Modified Huffman (byte and
// word aligned). Every raw strip decoded by the library must equal
// libtiff's decoding of it bit for bit, also when only the left columns are
// drawn (a narrower output width); a truncated strip keeps the rows before
// the cut.
#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "codecs/fax_decoder.h"
#include "support/fax_files.h"

namespace {

namespace fs = std::filesystem;
using velmora::peers::Decoded;
using velmora::peers::DecodeStrip;
using velmora::peers::FaxFile;
using velmora::peers::MakePage;
using velmora::peers::Page;
using velmora::peers::ReadFaxFile;
using velmora::peers::Strip;

constexpr const char* kTiffcp = "/usr/bin/tiffcp";

// Writes a page with libtiff, uncompressed or in one of the codings tiffcp
// cannot make (Modified Huffman).
bool WritePage(const Page& page, const std::string& path, uint16_t compression, uint32_t rowsPerStrip) {
    TIFF* tif = TIFFOpen(path.c_str(), "w");
    if (tif == nullptr) return false;
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, page.height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
    std::vector<uint8_t> row(page.RowBytes());
    bool ok = true;
    for (uint32_t y = 0; y < page.height && ok; ++y) {
        std::memcpy(row.data(), &page.bits[y * page.RowBytes()], row.size());
        ok = TIFFWriteScanline(tif, row.data(), y, 0) == 1;
    }
    TIFFClose(tif);
    return ok;
}

// Clears the bits of each row beyond `width` pixels.
void ClipRows(std::vector<uint8_t>* rows, size_t rowBytes, uint32_t width) {
    size_t keep = (width + 7) / 8;
    for (size_t at = 0; at + rowBytes <= rows->size(); at += rowBytes) {
        if (width % 8) (*rows)[at + keep - 1] &= static_cast<uint8_t>(0xFF00 >> (width % 8));
        for (size_t i = keep; i < rowBytes; ++i) (*rows)[at + i] = 0;
    }
}

// The first row where two decodings differ, or -1.
long FirstDifferentRow(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, size_t rowBytes) {
    for (size_t at = 0; at < a.size(); at += rowBytes) {
        if (std::memcmp(&a[at], &b[at], rowBytes) != 0) return static_cast<long>(at / rowBytes);
    }
    return -1;
}

class FaxInterop : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!velmora::peers::Have(kTiffcp)) return;
        char pattern[] = "/tmp/velmora-fax-XXXXXX";
        if (mkdtemp(pattern) == nullptr) return;
        dir_ = new std::string(pattern);
        pages_ = new std::vector<std::pair<std::string, Page>>;
        MakePages();
    }
    static void TearDownTestSuite() {
        if (dir_ != nullptr) fs::remove_all(*dir_);
        delete dir_;
        delete pages_;
        dir_ = nullptr;
        pages_ = nullptr;
    }
    void SetUp() override { REQUIRE_PEER(dir_ != nullptr, "libtiff's tiffcp"); }

    static void MakePages() {
        std::mt19937 random(1728);
        auto add = [](const std::string& name, Page page) { pages_->emplace_back(name, std::move(page)); };
        Page marks = MakePage(1728, 200);  // letter-like blocks and strokes
        for (int i = 0; i < 900; ++i) {
            uint32_t x = random() % 1700, y = random() % 190, w = 1 + random() % 24, h = 1 + random() % 10;
            for (uint32_t yy = y; yy < y + h; ++yy)
                for (uint32_t xx = x; xx < x + w; ++xx) marks.Set(xx, yy);
        }
        add("marks", marks);
        for (auto [width, density] : {std::pair{333u, 2u}, std::pair{1001u, 10u}}) {
            Page noise = MakePage(width, 60);
            for (uint32_t y = 0; y < noise.height; ++y)
                for (uint32_t x = 0; x < noise.width; ++x)
                    if (random() % density == 0) noise.Set(x, y);
            add("noise" + std::to_string(width), noise);
        }
        add("white", MakePage(1728, 20));
        Page black = MakePage(2480, 20);
        for (auto& byte : black.bits) byte = 0xFF;
        add("black", black);
        // Runs of every length up to beyond 2560, both colours, several per row.
        Page runs = MakePage(6000, 40);
        for (uint32_t y = 0; y < runs.height; ++y) {
            uint32_t x = 0;
            bool on = y % 2 == 1;
            while (x < runs.width) {
                uint32_t length = (random() % 4 == 0) ? 2560 + random() % 200 : random() % 2700;
                for (uint32_t i = 0; i < length && x < runs.width; ++i, ++x)
                    if (on) runs.Set(x, y);
                on = !on;
            }
        }
        add("runs", runs);
        for (uint32_t width : {1u, 13u, 17u}) {
            Page narrow = MakePage(width, 50);
            for (uint32_t y = 0; y < narrow.height; ++y)
                for (uint32_t x = 0; x < width; ++x)
                    if ((random() >> 7) % 3 == 0) narrow.Set(x, y);
            add("narrow" + std::to_string(width), narrow);
        }
    }

    // Compresses every page with each tiffcp option set and returns the
    // files made.
    static std::vector<std::string> MakeFiles(const std::vector<std::string>& options) {
        std::vector<std::string> files;
        int n = 0;
        for (auto& [name, page] : *pages_) {
            std::string source = *dir_ + "/" + name + "-none.tif";
            if (!fs::exists(source) && !WritePage(page, source, COMPRESSION_NONE, page.height)) continue;
            for (const std::string& option : options) {
                std::string out = *dir_ + "/" + name + "-" + std::to_string(n++) + ".tif";
                if (velmora::peers::Run(std::string(kTiffcp) + " " + option + " " + source + " " + out))
                    files.push_back(out);
                else
                    ADD_FAILURE() << "tiffcp " << option << " failed on " << name;
            }
        }
        return files;
    }

    // Every strip of every file decodes to libtiff's pixels.
    // Every strip of every file decodes to libtiff's pixels, at the full
    // width and at a narrower output width (the left columns only).
    static void ExpectSameAsLibtiff(const std::vector<std::string>& files) {
        ASSERT_FALSE(files.empty());
        for (const std::string& path : files) {
            FaxFile file;
            ASSERT_TRUE(ReadFaxFile(path, &file)) << path;
            size_t rowBytes = (file.width + 7) / 8;
            for (uint32_t outputWidth : {file.width, file.width - std::min(file.width - 1, 11u)}) {
                size_t outBytes = (outputWidth + 7) / 8;
                for (uint32_t s = 0; s < file.strips.size(); ++s) {
                    Decoded decoded = DecodeStrip(file, s, file.strips[s].raw, outputWidth);
                    EXPECT_TRUE(decoded.ok) << path << " strip " << s << " error " << std::hex << decoded.error;
                    std::vector<uint8_t> expected;
                    for (uint32_t r = 0; r < file.strips[s].rows; ++r) {
                        auto row = file.strips[s].expected.begin() + r * rowBytes;
                        expected.insert(expected.end(), row, row + outBytes);
                    }
                    ClipRows(&expected, outBytes, outputWidth);
                    long row = FirstDifferentRow(decoded.rows, expected, outBytes);
                    EXPECT_EQ(row, -1) << path << " strip " << s << " width " << outputWidth << " differs from row "
                                       << row;
                    if (row != -1) return;
                }
            }
        }
    }

    static std::string* dir_;
    static std::vector<std::pair<std::string, Page>>* pages_;
};

std::string* FaxInterop::dir_ = nullptr;
std::vector<std::pair<std::string, Page>>* FaxInterop::pages_ = nullptr;

TEST_F(FaxInterop, Group3OneDimensionalMatchesLibtiff) {
    ExpectSameAsLibtiff(MakeFiles({"-c g3", "-c g3:fill -r 1", "-c g3 -f lsb2msb -r 7", "-c g3:fill -f lsb2msb"}));
}

TEST_F(FaxInterop, Group3TwoDimensionalMatchesLibtiff) {
    ExpectSameAsLibtiff(MakeFiles({"-c g3:2d -r 100000", "-c g3:2d:fill -r 1", "-c g3:2d -f lsb2msb -r 9",
                                   "-c g3:2d:fill -f lsb2msb -r 100000"}));
}

TEST_F(FaxInterop, Group4MatchesLibtiff) {
    ExpectSameAsLibtiff(MakeFiles({"-c g4 -r 100000", "-c g4 -r 1", "-c g4 -f lsb2msb -r 16", "-c g4"}));
}

// libtiff writes both Modified Huffman codings, but reads the word-aligned
// one correctly only when its strips start at even file offsets: those
// strips are compared with the page that was written instead.
TEST_F(FaxInterop, ModifiedHuffmanMatchesLibtiff) {
    std::vector<std::string> files;
    for (auto& [name, page] : *pages_) {
        for (uint16_t compression : {COMPRESSION_CCITTRLE, COMPRESSION_CCITTRLEW}) {
            for (uint32_t rows : {1u, 5u, page.height}) {
                std::string path =
                    *dir_ + "/" + name + "-mh" + std::to_string(compression) + "-" + std::to_string(rows) + ".tif";
                ASSERT_TRUE(WritePage(page, path, compression, rows)) << path;
                if (compression == COMPRESSION_CCITTRLE) {
                    files.push_back(path);
                    continue;
                }
                FaxFile file;
                ASSERT_TRUE(ReadFaxFile(path, &file, true)) << path;
                size_t rowBytes = page.RowBytes();
                for (uint32_t s = 0; s < file.strips.size(); ++s) {
                    Decoded decoded = DecodeStrip(file, s, file.strips[s].raw, file.width);
                    EXPECT_TRUE(decoded.ok) << path << " strip " << s;
                    auto first = page.bits.begin() + size_t{s} * rows * rowBytes;
                    std::vector<uint8_t> expected(first, first + file.strips[s].rows * rowBytes);
                    EXPECT_EQ(FirstDifferentRow(decoded.rows, expected, rowBytes), -1) << path << " strip " << s;
                }
            }
        }
    }
    ExpectSameAsLibtiff(files);
}

// A strip cut short keeps every row decoded before the cut, completes or
// drops the row in progress, and leaves the rest white. (That damaged bytes
// fail with "Bad image data." at worst is the fax fuzz target's.)
TEST_F(FaxInterop, CutStripsKeepTheirRows) {
    std::vector<std::string> files =
        MakeFiles({"-c g4 -r 100000", "-c g3:2d:fill -r 100000", "-c g3 -r 100000", "-c g3:2d -f lsb2msb"});
    for (auto& [name, page] : *pages_) {
        std::string path = *dir_ + "/" + name + "-damaged-mh.tif";
        ASSERT_TRUE(WritePage(page, path, COMPRESSION_CCITTRLE, page.height));
        files.push_back(path);
    }
    std::mt19937 random(4);
    for (const std::string& path : files) {
        FaxFile file;
        ASSERT_TRUE(ReadFaxFile(path, &file));
        size_t rowBytes = (file.width + 7) / 8;
        const Strip& strip = file.strips[0];
        if (strip.raw.size() < 4) continue;
        for (int trial = 0; trial < 6; ++trial) {
            std::vector<uint8_t> cut(strip.raw.begin(), strip.raw.begin() + random() % (strip.raw.size() - 2));
            Decoded decoded = DecodeStrip(file, 0, cut, file.width);
            if (decoded.ok) continue;  // the cut fell into trailing padding
            EXPECT_EQ(decoded.error, 0x02000006u) << path;
            std::vector<uint8_t> expected = strip.expected;
            ClipRows(&expected, rowBytes, file.width);
            long row = FirstDifferentRow(decoded.rows, expected, rowBytes);
            if (row < 0) continue;
            for (size_t at = (row + 1) * rowBytes; at < decoded.rows.size(); ++at) {
                ASSERT_EQ(decoded.rows[at], 0) << path << ": rows after the failure are not white, cut at "
                                               << cut.size() << ", row " << at / rowBytes;
            }
        }
    }
}

}  // namespace
