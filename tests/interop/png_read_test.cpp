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

TEST(PngRead, CorpusDecodesLikePillow) {
    REQUIRE_PEER(peers::HavePillow(VELMORA_PYTHON), std::string("Pillow for ") + VELMORA_PYTHON);
    peers::TempDir dir("velmora-png");
    ASSERT_TRUE(dir.ok());
    std::string log;
    ASSERT_TRUE(peers::Output(std::string(VELMORA_PYTHON) + " " + VELMORA_TEST_SOURCE_DIR +
                                  "/interop/png_corpus.py " + dir.path() + " 2>&1",
                              &log))
        << log;
    std::ifstream manifest(dir.Path("manifest.txt"));
    std::string line;
    int files = 0;
    while (std::getline(manifest, line)) {
        std::istringstream fields(line);
        std::string name;
        int bits = 0, width = 0, height = 0, xres = 0, yres = 0, tableCount = 0, hasAlpha = 0;
        fields >> name >> bits >> width >> height >> xres >> yres >> tableCount >> hasAlpha;
        SCOPED_TRACE(name);
        ++files;
        Read read;
        ReadBytes(peers::ReadFile(dir.Path(name + ".png")), &read, hasAlpha != 0);
        ASSERT_NE(read.dib, nullptr) << std::hex << read.record.code;
        EXPECT_FALSE(read.warning);
        ImageLock lock(read.dib);
        const BITMAPINFOHEADER* h = lock.header();
        ASSERT_EQ(h->biBitCount, bits);
        ASSERT_EQ(h->biWidth, width);
        ASSERT_EQ(h->biHeight, height);
        EXPECT_EQ(h->biXPelsPerMeter, xres);
        EXPECT_EQ(h->biYPelsPerMeter, yres);

        std::vector<uint8_t> table = peers::ReadFile(dir.Path(name + ".pal"));
        ASSERT_EQ(ColorCount(h), static_cast<uint32_t>(tableCount));
        for (int i = 0; i < tableCount; ++i) {
            const RGBQUAD& q = ColorTable(h)[i];
            ASSERT_EQ((std::vector<int>{q.rgbRed, q.rgbGreen, q.rgbBlue}),
                      (std::vector<int>{table[3 * i], table[3 * i + 1], table[3 * i + 2]}))
                << "table entry " << i;
        }
        std::vector<uint8_t> pixels = peers::ReadFile(dir.Path(name + ".pix"));
        const int perPixel = bits == 24 ? 3 : 1;
        ASSERT_EQ(pixels.size(), static_cast<size_t>(width) * height * perPixel);
        for (int y = 0, bad = 0; y < height && bad < 5; ++y) {
            for (int x = 0; x < width && bad < 5; ++x) {
                const uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * perPixel];
                uint32_t want = perPixel == 3 ? uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2] : p[0];
                uint32_t got = PixelAt(h, x, y);
                if (got != want) {
                    ADD_FAILURE() << "pixel " << x << "," << y << ": " << std::hex << got << " for " << want;
                    ++bad;
                }
            }
        }
        if (hasAlpha) {
            ASSERT_NE(read.alpha, nullptr);
            ImageLock alphaLock(read.alpha);
            const BITMAPINFOHEADER* a = alphaLock.header();
            ASSERT_EQ(a->biBitCount, 8);
            std::vector<uint8_t> alpha = peers::ReadFile(dir.Path(name + ".alpha"));
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    ASSERT_EQ(PixelAt(a, x, y), alpha[static_cast<size_t>(y) * width + x]) << x << "," << y;
                }
            }
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

struct Damage {
    const char* what;
    Bytes file;
    uint32_t code;
};

TEST(PngRead, DamagedFilesGiveTheirErrors) {
    Bytes good = Png({kGrey, Idat(), kIend});
    Bytes badSignature = good;
    badSignature[1] = 'Q';
    Bytes badIhdrCrc = good;
    badIhdrCrc[29] ^= 1;
    Bytes truncated(good.begin(), good.begin() + 33 + 8 + 5);
    Bytes badPlteCrc = Png({kPalette2, kPlte3, PaletteIdat(), kIend});
    badPlteCrc[33 + 8 + 9] ^= 0x40;
    Bytes longIhdr = Png({{"IHDR", Bytes(14)}, Idat(), kIend});
    Bytes badSkippedCrc = Png({kGrey, {"tEXt", {'a', 0, 'b'}}, Idat(), kIend});
    badSkippedCrc[33 + 8 + 3] ^= 1;

    const Damage cases[] = {
        {"bad signature", badSignature, kErrUnrecognizedFormat},
        {"five bytes", Bytes(good.begin(), good.begin() + 5), kErrUnrecognizedFormat},
        {"signature only", Bytes(good.begin(), good.begin() + 8), kErrBadFileData},
        {"bad CRC in IHDR", badIhdrCrc, kErrBadFileData},
        {"IHDR not first", Png({{"tEXt", {'a', 0, 'b'}}, kGrey, Idat(), kIend}), kErrBadFileData},
        {"IHDR of 14 bytes", longIhdr, kErrBadFileData},
        {"bad CRC in PLTE", badPlteCrc, kErrBadFileData},
        {"truncated IDAT", truncated, kErrBadFileData},
        {"zero width", Png({Ihdr(0, 4, 8, 0), Idat(), kIend}), kErrBadImageData},
        {"zero height", Png({Ihdr(4, 0, 8, 0), Idat(), kIend}), kErrBadImageData},
        {"RGB at 4 bits", Png({Ihdr(4, 4, 4, 2), Idat(), kIend}), kErrUnsupportedImageType},
        {"palette at 16 bits", Png({Ihdr(4, 4, 16, 3), Idat(), kIend}), kErrUnsupportedImageType},
        {"colour type 5", Png({Ihdr(4, 4, 8, 5), Idat(), kIend}), kErrUnsupportedImageType},
        {"interlace method 2", Png({Ihdr(4, 4, 8, 0, 2), Idat(), kIend}), kErrUnsupportedImageType},
        {"compression method 1", Png({Ihdr(4, 4, 8, 0, 0, 1), Idat(), kIend}), kErrUnsupportedImageType},
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
        {"IDAT after another chunk", Png({kGrey, Idat(), {"tEXt", {'a', 0}}, Idat(), kIend}), kErrBadImageData},
        {"no IEND", Png({kGrey, Idat()}), kErrBadImageData},
        {"IEND with data", Png({kGrey, Idat(), {"IEND", {0}}}), kErrBadImageData},
        {"IEND before IDAT", Png({kGrey, kIend}), kErrBadImageData},
        {"chunk longer than 2^31-1", Png({kGrey, Idat(), {"tEXt", {}}}), kErrBadImageData},
        {"bad CRC in a skipped chunk", badSkippedCrc, 0},
        {"unknown chunk, tRNS and bKGD after PLTE",
         Png({kPalette2, kPlte3, {"tRNS", {0}}, {"bKGD", {2}}, {"zzZz", Bytes(5)}, PaletteIdat(), kIend}), 0},
    };
    for (const Damage& c : cases) {
        SCOPED_TRACE(c.what);
        Bytes file = c.file;
        if (std::string(c.what) == "chunk longer than 2^31-1") {
            size_t at = file.size() - 12;  // the length of the last chunk
            file[at] = 0x80;
        }
        Read read;
        ReadBytes(file, &read);
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

TEST(PngRead, AlphaRequestsAndCancel) {
    Read greyAlpha;
    ReadBytes(Png({Ihdr(4, 4, 8, 4), Idat(), kIend}), &greyAlpha, true);
    EXPECT_EQ(greyAlpha.record.code, kErrUnsupportedImageType);
    Read deepRgba;
    ReadBytes(Png({Ihdr(4, 4, 16, 6), Idat(), kIend}), &deepRgba, true);
    EXPECT_EQ(deepRgba.record.code, kErrUnsupportedImageType);
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
