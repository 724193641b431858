// PNG reading against Pillow: a corpus of every colour type, bit depth,
// interlace method and filter, written by Pillow and by a small writer of the
// corpus script, must decode to Pillow's pixels after the DIB reductions.
// Damaged files give their error codes; damaged image data keeps its rows.
#include <zlib.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/png_reader.h"
#include "frame/progress.h"
#include "io/stream.h"
#include "support/peers.h"

namespace velmora {
namespace {

struct Read {
    HGLOBAL dib = nullptr;
    HGLOBAL alpha = nullptr;
    bool warning = false;
    ErrorRecord record;
    ~Read() {
        FreeImage(&dib);
        FreeImage(&alpha);
    }
};

// Reads `bytes` from `offset` of a memory stream over them.
void ReadBytes(const std::vector<uint8_t>& bytes, Read* out, bool wantAlpha = false, uint32_t offset = 0,
               ProgressReporter* progress = nullptr) {
    ErrorRecord streamRecord;
    Stream* stream = OpenFixedMemoryStream(bytes.data(), static_cast<uint32_t>(bytes.size()), &streamRecord);
    ASSERT_NE(stream, nullptr);
    StreamSeek(stream, offset, &streamRecord);
    out->dib = ReadPngDib(stream, progress, wantAlpha ? &out->alpha : nullptr, &out->warning, &out->record);
    CloseStream(stream, nullptr);
}

// The value of pixel (x, y) from the top: a table index, or 0xRRGGBB at 24 bits.
uint32_t PixelAt(const BITMAPINFOHEADER* header, int32_t x, int32_t y) {
    const uint8_t* row = PackedBits(header) + RowStride(header) * static_cast<uint64_t>(header->biHeight - 1 - y);
    switch (header->biBitCount) {
        case 1: return (row[x / 8] >> (7 - x % 8)) & 1;
        case 4: return (row[x / 2] >> (x % 2 ? 0 : 4)) & 0xF;
        case 8: return row[x];
        default: return uint32_t{row[3 * x + 2]} << 16 | uint32_t{row[3 * x + 1]} << 8 | row[3 * x];
    }
}

// Compares every pixel with `want`, top row first, 1 byte (index) or 3
// (red, green, blue) a pixel; reports at most a few differences.
void ExpectPixels(const BITMAPINFOHEADER* h, const std::vector<uint8_t>& want) {
    const size_t per = h->biBitCount == 24 ? 3 : 1;
    ASSERT_EQ(want.size(), size_t{static_cast<uint32_t>(h->biWidth)} * static_cast<uint32_t>(h->biHeight) * per);
    int bad = 0;
    for (int32_t y = 0; y < h->biHeight; ++y) {
        for (int32_t x = 0; x < h->biWidth; ++x) {
            const uint8_t* p = &want[(static_cast<size_t>(y) * static_cast<uint32_t>(h->biWidth) + x) * per];
            uint32_t expected = per == 3 ? uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2] : p[0];
            uint32_t got = PixelAt(h, x, y);
            if (got != expected && bad++ < 5)
                ADD_FAILURE() << "pixel " << x << "," << y << ": " << got << " for " << expected;
        }
    }
}

TEST(PngRead, CorpusDecodesLikePillow) {
    REQUIRE_PEER(peers::HavePillow(VELMORA_PYTHON), std::string("Pillow for ") + VELMORA_PYTHON);
    peers::TempDir dir("velmora-png");
    ASSERT_TRUE(dir.ok());
    std::string log;
    ASSERT_TRUE(peers::Output(
        std::string(VELMORA_PYTHON) + " " + VELMORA_TEST_SOURCE_DIR + "/interop/png_corpus.py " + dir.path() + " 2>&1",
        &log))
        << log;
    std::ifstream manifest(dir.Path("manifest.txt"));
    std::string name;
    int bits, width, height, xres, yres, tableCount, hasAlpha, files = 0;
    while (manifest >> name >> bits >> width >> height >> xres >> yres >> tableCount >> hasAlpha) {
        SCOPED_TRACE(name);
        ++files;
        Read read;
        ReadBytes(peers::ReadFile(dir.Path(name + ".png")), &read, hasAlpha != 0);
        ASSERT_NE(read.dib, nullptr) << std::hex << read.record.code;
        EXPECT_FALSE(read.warning);
        ImageLock lock(read.dib);
        const BITMAPINFOHEADER* h = lock.header();
        ASSERT_EQ((std::vector<int>{h->biBitCount, h->biWidth, h->biHeight, h->biXPelsPerMeter, h->biYPelsPerMeter}),
                  (std::vector<int>{bits, width, height, xres, yres}));
        ASSERT_EQ(ColorCount(h), static_cast<uint32_t>(tableCount));
        std::vector<uint8_t> table = peers::ReadFile(dir.Path(name + ".pal"));
        for (int i = 0; i < tableCount; ++i) {
            const RGBQUAD& q = ColorTable(h)[i];
            ASSERT_EQ(ColorOf(q), table[3 * i] | table[3 * i + 1] << 8 | table[3 * i + 2] << 16) << "table entry " << i;
        }
        ExpectPixels(h, peers::ReadFile(dir.Path(name + ".pix")));
        if (hasAlpha) {
            ASSERT_NE(read.alpha, nullptr);
            ImageLock alphaLock(read.alpha);
            ExpectPixels(alphaLock.header(), peers::ReadFile(dir.Path(name + ".alpha")));
        }
    }
    EXPECT_GT(files, 250);
}

// ---- Files built chunk by chunk -------------------------------------------

using Bytes = std::vector<uint8_t>;

void Put32(Bytes* out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out->push_back(static_cast<uint8_t>(v >> shift));
}

struct Chunk {
    std::string type;
    Bytes data;
};

Bytes Png(const std::vector<Chunk>& chunks) {
    Bytes out = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    for (const Chunk& c : chunks) {
        Put32(&out, static_cast<uint32_t>(c.data.size()));
        Bytes typed(c.type.begin(), c.type.end());
        typed.insert(typed.end(), c.data.begin(), c.data.end());
        out.insert(out.end(), typed.begin(), typed.end());
        Put32(&out, static_cast<uint32_t>(crc32(0, typed.data(), static_cast<uInt>(typed.size()))));
    }
    return out;
}

Chunk Ihdr(uint32_t width, uint32_t height, uint8_t depth, uint8_t colorType, uint8_t interlace = 0,
           uint8_t method = 0) {
    Bytes d;
    Put32(&d, width);
    Put32(&d, height);
    d.insert(d.end(), {depth, colorType, method, 0, interlace});
    return {"IHDR", d};
}

Bytes Deflated(const Bytes& raw) {
    uLongf size = compressBound(static_cast<uLong>(raw.size()));
    Bytes out(size);
    compress(out.data(), &size, raw.data(), static_cast<uLong>(raw.size()));
    out.resize(size);
    return out;
}

// Four 8-bit grey rows of 4 pixels, unfiltered: row r holds r*16 + x.
Bytes GreyRows() {
    Bytes raw;
    for (uint8_t r = 0; r < 4; ++r) {
        raw.push_back(0);
        for (uint8_t x = 0; x < 4; ++x) raw.push_back(static_cast<uint8_t>(r * 16 + x));
    }
    return raw;
}

const Chunk kGrey = Ihdr(4, 4, 8, 0);
const Chunk kPalette2 = Ihdr(4, 4, 2, 3);
const Chunk kPlte3 = {"PLTE", {255, 0, 0, 0, 255, 0, 0, 0, 255}};
const Chunk kIend = {"IEND", {}};
Chunk Idat() { return {"IDAT", Deflated(GreyRows())}; }
Chunk PaletteIdat() { return {"IDAT", Deflated({0, 0x1B, 0, 0x1B, 0, 0x1B, 0, 0x1B})}; }
Chunk Phys(uint32_t x, uint32_t y, uint8_t unit) {
    Bytes d;
    Put32(&d, x);
    Put32(&d, y);
    d.push_back(unit);
    return {"pHYs", d};
}

// `file` with the byte at `at` (from the end when negative) XORed with `mask`.
Bytes Flipped(Bytes file, ptrdiff_t at, uint8_t mask) {
    file[at < 0 ? file.size() + at : static_cast<size_t>(at)] ^= mask;
    return file;
}
Bytes Cut(const Bytes& file, size_t size) { return Bytes(file.begin(), file.begin() + size); }

struct Damage {
    const char* what;
    Bytes file;
    uint32_t code;
    bool wantAlpha = false;
};

TEST(PngRead, DamagedFilesGiveTheirErrors) {
    const Bytes good = Png({kGrey, Idat(), kIend});
    const Bytes palette = Png({kPalette2, kPlte3, PaletteIdat(), kIend});
    const Chunk text = {"tEXt", {'a', 0, 'b'}};
    const size_t afterIhdr = 33;
    const Damage cases[] = {
        {"bad signature", Flipped(good, 1, 0x20), kErrUnrecognizedFormat},
        {"five bytes", Cut(good, 5), kErrUnrecognizedFormat},
        {"signature only", Cut(good, 8), kErrBadFileData},
        {"bad CRC in IHDR", Flipped(good, afterIhdr - 4, 1), kErrBadFileData},
        {"IHDR not first", Png({text, kGrey, Idat(), kIend}), kErrBadFileData},
        {"IHDR of 14 bytes", Png({{"IHDR", Bytes(14)}, Idat(), kIend}), kErrBadFileData},
        {"bad CRC in PLTE", Flipped(palette, afterIhdr + 8 + 9, 0x40), kErrBadFileData},
        {"truncated IDAT", Cut(good, afterIhdr + 8 + 5), kErrBadFileData},
        {"zero width", Png({Ihdr(0, 4, 8, 0), Idat(), kIend}), kErrBadImageData},
        {"zero height", Png({Ihdr(4, 0, 8, 0), Idat(), kIend}), kErrBadImageData},
        {"RGB at 4 bits", Png({Ihdr(4, 4, 4, 2), Idat(), kIend}), kErrUnsupportedImageType},
        {"palette at 16 bits", Png({Ihdr(4, 4, 16, 3), Idat(), kIend}), kErrUnsupportedImageType},
        {"colour type 5", Png({Ihdr(4, 4, 8, 5), Idat(), kIend}), kErrUnsupportedImageType},
        {"interlace method 2", Png({Ihdr(4, 4, 8, 0, 2), Idat(), kIend}), kErrUnsupportedImageType},
        {"compression method 1", Png({Ihdr(4, 4, 8, 0, 0, 1), Idat(), kIend}), kErrUnsupportedImageType},
        {"alpha of grey with alpha", Png({Ihdr(4, 4, 8, 4), Idat(), kIend}), kErrUnsupportedImageType, true},
        {"alpha of 16-bit RGBA", Png({Ihdr(4, 4, 16, 6), Idat(), kIend}), kErrUnsupportedImageType, true},
        {"second IHDR", Png({kGrey, kGrey, Idat(), kIend}), kErrBadImageData},
        {"PLTE after IDAT", Png({kPalette2, kPlte3, PaletteIdat(), kPlte3, kIend}), kErrBadImageData},
        {"palette without PLTE", Png({kPalette2, PaletteIdat(), kIend}), kErrBadImageData},
        {"PLTE longer than 2^depth", Png({kPalette2, {"PLTE", Bytes(15)}, PaletteIdat(), kIend}), kErrBadImageData},
        {"PLTE not a multiple of 3", Png({kPalette2, {"PLTE", Bytes(7)}, PaletteIdat(), kIend}), kErrBadImageData},
        {"two PLTE", Png({kPalette2, kPlte3, kPlte3, PaletteIdat(), kIend}), kErrBadImageData},
        {"bKGD before PLTE", Png({kPalette2, {"bKGD", {0}}, kPlte3, PaletteIdat(), kIend}), kErrBadImageData},
        {"bKGD past the palette", Png({kPalette2, kPlte3, {"bKGD", {3}}, PaletteIdat(), kIend}), kErrBadImageData},
        {"bKGD of wrong length", Png({kGrey, {"bKGD", {0, 0, 0}}, Idat(), kIend}), kErrBadImageData},
        {"bKGD grey out of range", Png({Ihdr(4, 4, 4, 0), {"bKGD", {0, 16}}, Idat(), kIend}), kErrBadImageData},
        {"pHYs unit 2", Png({kGrey, Phys(1, 1, 2), Idat(), kIend}), kErrBadImageData},
        {"two pHYs", Png({kGrey, Phys(1, 1, 1), Phys(1, 1, 1), Idat(), kIend}), kErrBadImageData},
        {"pHYs after IDAT", Png({kGrey, Idat(), Phys(1, 1, 1), kIend}), kErrBadImageData},
        {"IDAT after another chunk", Png({kGrey, Idat(), text, Idat(), kIend}), kErrBadImageData},
        {"no IEND", Png({kGrey, Idat()}), kErrBadImageData},
        {"IEND with data", Png({kGrey, Idat(), {"IEND", {0}}}), kErrBadImageData},
        {"IEND before IDAT", Png({kGrey, kIend}), kErrBadImageData},
        {"chunk longer than 2^31-1", Flipped(good, -12, 0x80), kErrBadImageData},
        {"bad CRC in a skipped chunk", Flipped(Png({kGrey, text, Idat(), kIend}), afterIhdr + 8 + 3, 1), 0},
        {"tRNS, bKGD, unknown chunk",
         Png({kPalette2, kPlte3, {"tRNS", {0}}, {"bKGD", {2}}, {"zzZz", Bytes(5)}, PaletteIdat(), kIend}), 0},
    };
    for (const Damage& c : cases) {
        SCOPED_TRACE(c.what);
        Read read;
        ReadBytes(c.file, &read, c.wantAlpha);
        EXPECT_EQ(read.record.code, c.code);
        EXPECT_EQ(read.dib == nullptr, c.code != 0);
    }
}

TEST(PngRead, DamagedImageDataKeepsTheRowsBeforeIt) {
    auto rowsKept = [](const Read& read, int rows) {
        ImageLock lock(read.dib);
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 4; ++x) {
                uint32_t want = y < rows ? static_cast<uint32_t>(y * 16 + x) : 0;
                EXPECT_EQ(PixelAt(lock.header(), x, y), want) << x << "," << y;
            }
        }
    };
    // The zlib stream cut after two rows' worth of output.
    Bytes raw = GreyRows();
    Bytes partial;
    {
        z_stream z = {};
        deflateInit(&z, 0);
        partial.resize(200);
        z.next_in = raw.data();
        z.avail_in = 10;
        z.next_out = partial.data();
        z.avail_out = 200;
        deflate(&z, Z_SYNC_FLUSH);
        partial.resize(200 - z.avail_out);
        deflateEnd(&z);
    }
    Read cut;
    ReadBytes(Png({kGrey, {"IDAT", partial}, kIend}), &cut);
    ASSERT_NE(cut.dib, nullptr) << std::hex << cut.record.code;
    EXPECT_TRUE(cut.warning);
    rowsKept(cut, 2);

    Bytes badFilter = raw;
    badFilter[2 * 5] = 9;  // the third row's filter type
    Read filtered;
    ReadBytes(Png({kGrey, {"IDAT", Deflated(badFilter)}, kIend}), &filtered);
    ASSERT_NE(filtered.dib, nullptr);
    EXPECT_TRUE(filtered.warning);
    rowsKept(filtered, 2);

    Read lateBackground;
    ReadBytes(Png({kGrey, Idat(), {"bKGD", {0, 1}}, kIend}), &lateBackground);
    ASSERT_NE(lateBackground.dib, nullptr);
    EXPECT_TRUE(lateBackground.warning);
    rowsKept(lateBackground, 4);

    // A PNG inside a larger stream is read from the stream's position.
    Bytes embedded(100, 0xEE);
    Bytes file = Png({kGrey, Idat(), kIend});
    embedded.insert(embedded.end(), file.begin(), file.end());
    Read inside;
    ReadBytes(embedded, &inside, false, 100);
    ASSERT_NE(inside.dib, nullptr);
    EXPECT_FALSE(inside.warning);
    rowsKept(inside, 4);
}

TEST(PngRead, NoAlphaImageAndCancel) {
    Read grey;
    ReadBytes(Png({kGrey, Idat(), kIend}), &grey, true);
    EXPECT_NE(grey.dib, nullptr);
    EXPECT_EQ(grey.alpha, nullptr);

    // A host that cancels at its first report gets no image.
    Bytes tall;
    for (int r = 0; r < 64; ++r) tall.insert(tall.end(), {0, 1, 2, 3, 4});
    ProgressReporter cancel([](DWORD, UINT_PTR) -> BOOL { return 0; }, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));  // reports come at most every 50 ms
    Read cancelled;
    ReadBytes(Png({Ihdr(4, 64, 8, 0), {"IDAT", Deflated(tall)}, kIend}), &cancelled, false, 0, &cancel);
    EXPECT_EQ(cancelled.record.code, kErrCancelled);
    EXPECT_EQ(cancelled.dib, nullptr);
}

}  // namespace
}  // namespace velmora
