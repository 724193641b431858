// PNG reading against Pillow: a corpus of every colour type, bit depth,
// interlace method and filter, written by Pillow and by a small writer of the
// corpus script, must decode to Pillow's pixels after the DIB reductions.
// Damaged files give their error codes; damaged image data keeps its rows.
#include <zlib.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/png_reader.h"
#include "frame/progress.h"
#include "image_corpus.h"
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

// Reads `bytes` through a memory stream over them.
void ReadBytes(const std::vector<uint8_t>& bytes, Read* out, bool wantAlpha = false,
               ProgressReporter* progress = nullptr) {
    ErrorRecord streamRecord;
    Stream* stream = OpenFixedMemoryStream(bytes.data(), static_cast<uint32_t>(bytes.size()), &streamRecord);
    ASSERT_NE(stream, nullptr);
    out->dib = ReadPngDib(stream, progress, wantAlpha ? &out->alpha : nullptr, &out->warning, &out->record);
    CloseStream(stream, nullptr);
}

TEST(PngRead, CorpusDecodesLikePillow) {
    REQUIRE_PEER(peers::HavePillow(VELMORA_PYTHON), std::string("Pillow for ") + VELMORA_PYTHON);
    peers::TempDir dir("velmora-png");
    ASSERT_TRUE(dir.ok() && RunCorpusScript("png_corpus.py", dir.path()));
    EXPECT_EQ(CheckCorpusPages(dir, "cases.txt"), 300);
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

// The 4 x 4 grey image's rows from the top: `rows` as written, the rest 0.
bool RowsKept(const Read& read, int rows) {
    ImageLock lock(read.dib);
    const BITMAPINFOHEADER* h = lock.header();
    for (int y = 0; y < 4; ++y) {
        const uint8_t* row = PackedBits(h) + RowStride(h) * (3 - y);
        for (int x = 0; x < 4; ++x) {
            if (row[x] != (y < rows ? y * 16 + x : 0)) return false;
        }
    }
    return true;
}

// The zlib stream of the grey rows cut after two rows' worth of output.
Bytes CutStream() {
    Bytes raw = GreyRows(), partial(200);
    z_stream z = {};
    deflateInit(&z, 0);
    z.next_in = raw.data();
    z.avail_in = 10;
    z.next_out = partial.data();
    z.avail_out = 200;
    deflate(&z, Z_SYNC_FLUSH);
    partial.resize(200 - z.avail_out);
    deflateEnd(&z);
    return partial;
}

TEST(PngRead, DamagedFilesGiveTheirErrors) {
    const Bytes good = Png({kGrey, Idat(), kIend});
    const Chunk text = {"tEXt", {'a', 0, 'b'}};
    Bytes badFilter = GreyRows();
    badFilter[2 * 5] = 9;  // the third row's filter type
    const size_t afterIhdr = 33;
    const struct {
        const char* what;
        Bytes file;
        uint32_t code;
        bool wantAlpha = false;
        int rows = -1;  // rows of the grey image kept, and whether the read warns of damage
        bool warns = false;
    } cases[] = {
        {"bad signature", Flipped(good, 1, 0x20), kErrUnrecognizedFormat},
        {"signature only", Cut(good, 8), kErrBadFileData},
        {"bad CRC in IHDR", Flipped(good, afterIhdr - 4, 1), kErrBadFileData},
        {"IHDR not first", Png({text, kGrey, Idat(), kIend}), kErrBadFileData},
        {"zero width", Png({Ihdr(0, 4, 8, 0), Idat(), kIend}), kErrBadImageData},
        {"RGB at 4 bits", Png({Ihdr(4, 4, 4, 2), Idat(), kIend}), kErrUnsupportedImageType},
        {"interlace method 2", Png({Ihdr(4, 4, 8, 0, 2), Idat(), kIend}), kErrUnsupportedImageType},
        {"alpha of grey with alpha", Png({Ihdr(4, 4, 8, 4), Idat(), kIend}), kErrUnsupportedImageType, true},
        {"alpha of 16-bit RGBA", Png({Ihdr(4, 4, 16, 6), Idat(), kIend}), kErrUnsupportedImageType, true},
        {"PLTE after IDAT", Png({kPalette2, kPlte3, PaletteIdat(), kPlte3, kIend}), kErrBadImageData},
        {"palette without PLTE", Png({kPalette2, PaletteIdat(), kIend}), kErrBadImageData},
        {"PLTE longer than 2^depth", Png({kPalette2, {"PLTE", Bytes(15)}, PaletteIdat(), kIend}), kErrBadImageData},
        {"bKGD past the palette", Png({kPalette2, kPlte3, {"bKGD", {3}}, PaletteIdat(), kIend}), kErrBadImageData},
        {"pHYs unit 2", Png({kGrey, Phys(1, 1, 2), Idat(), kIend}), kErrBadImageData},
        {"IDAT after another chunk", Png({kGrey, Idat(), text, Idat(), kIend}), kErrBadImageData},
        {"no IEND", Png({kGrey, Idat()}), kErrBadImageData},
        {"chunk longer than 2^31-1", Flipped(good, -12, 0x80), kErrBadImageData},
        {"tRNS, bKGD, unknown chunk",
         Png({kPalette2, kPlte3, {"tRNS", {0}}, {"bKGD", {2}}, {"zzZz", Bytes(5)}, PaletteIdat(), kIend}), 0},
        {"bad CRC in a skipped chunk", Flipped(Png({kGrey, text, Idat(), kIend}), afterIhdr + 8 + 3, 1), 0, false, 4},
        {"image data cut", Png({kGrey, {"IDAT", CutStream()}, kIend}), 0, false, 2, true},
        {"unknown filter type", Png({kGrey, {"IDAT", Deflated(badFilter)}, kIend}), 0, false, 2, true},
        {"bKGD after IDAT", Png({kGrey, Idat(), {"bKGD", {0, 1}}, kIend}), 0, false, 4, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Read read;
        ReadBytes(c.file, &read, c.wantAlpha);
        EXPECT_EQ(read.record.code, c.code);
        EXPECT_EQ(read.dib == nullptr, c.code != 0);
        if (c.rows < 0 || read.dib == nullptr) continue;
        EXPECT_EQ(read.warning, c.warns);
        EXPECT_TRUE(RowsKept(read, c.rows));
    }
}

TEST(PngRead, AlphaImageAndCancel) {
    // Alpha of 8-bit RGB with alpha, as an 8-bit grey image; none for grey.
    Read rgba;
    ReadBytes(Png({Ihdr(2, 1, 8, 6), {"IDAT", Deflated({0, 1, 2, 3, 40, 5, 6, 7, 250})}, kIend}), &rgba, true);
    ASSERT_NE(rgba.alpha, nullptr) << std::hex << rgba.record.code;
    {
        ImageLock lock(rgba.alpha);
        EXPECT_EQ(lock.header()->biBitCount, 8);
        EXPECT_TRUE(lock.bits()[0] == 40 && lock.bits()[1] == 250);
    }
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
    ReadBytes(Png({Ihdr(4, 64, 8, 0), {"IDAT", Deflated(tall)}, kIend}), &cancelled, false, &cancel);
    EXPECT_EQ(cancelled.record.code, kErrCancelled);
    EXPECT_EQ(cancelled.dib, nullptr);
}

}  // namespace
}  // namespace velmora
