// BMP files read through ReadVelmoraDIB as the peers decode them (a corpus
// that Pillow and ImageMagick write at test time), the same images saved by
// SaveVelmoraDIB in each form and read back by the peers and by the library,
// and damaged files and records with their documented results.
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/error_record.h"
#include "platform/platform.h"
#include "image_corpus.h"
#include "support/peers.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

using Bytes = std::vector<uint8_t>;

// A DIB handle owned by the test, with its header.
struct Dib {
    HGLOBAL handle;
    explicit Dib(HGLOBAL h) : handle(h) {}
    ~Dib() { FreeImage(&handle); }
    BITMAPINFOHEADER* header() const { return static_cast<BITMAPINFOHEADER*>(platform::MemLock(handle)); }
};

// The corpus read as the peers decode it; then each file saved by
// SaveVelmoraDIB in every form its depth has, the saved files read by Pillow
// as their sources (and by ImageMagick too at RLE4), and by the library as
// Pillow reads them.
TEST(BmpCorpus, ReadsAsThePeersAndSavesInEveryFormTheyReadBack) {
    REQUIRE_PEER(peers::HavePillow(VELMORA_PYTHON), "Pillow");
    REQUIRE_PEER(peers::Have("/usr/bin/convert"), "ImageMagick");
    peers::TempDir dir("velmora-bmp-corpus");
    ASSERT_TRUE(dir.ok() && RunCorpusScript("bmp_corpus.py", dir.path()));
    EXPECT_EQ(CheckCorpusPages(dir, "cases.txt"), 25);  // every file the script writes

    std::string list;
    int saved = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        if (entry.path().extension() != ".bmp") continue;
        Dib dib(ReadVelmoraDIB(entry.path().c_str(), 1));
        ASSERT_NE(dib.handle, nullptr) << entry.path();
        BITMAPINFOHEADER* h = dib.header();
        // 16-bit DIBs are saved as they are read; Pillow widens their fields.
        for (DWORD form : {DWORD{0}, DWORD{VELMORA_SAVE_BMP_CORE}, DWORD{VELMORA_SAVE_BMP_RLE}}) {
            if (h->biBitCount == 16 || (form == VELMORA_SAVE_BMP_RLE && h->biBitCount != 4 && h->biBitCount != 8)) {
                continue;
            }
            const std::string path = dir.Path(entry.path().stem().string() + "." + std::to_string(form) + ".saved");
            VelmoraSaveDIBBMPOptions bmp = {VELMORA_SAVE_DIB_BMP_OPTIONS_SIZE_V1, 0, form};
            VelmoraSaveDIBOptions options = {VELMORA_SAVE_DIB_OPTIONS_SIZE_V1, 0, &bmp, nullptr, nullptr, nullptr};
            ASSERT_TRUE(SaveVelmoraDIB(path.c_str(), PackedBits(h), h, VELMORA_DOCTYPE_BMP, &options)) << path;
            const Bytes file = peers::ReadFile(path);
            ASSERT_GE(file.size(), 34u);
            const uint32_t compression = form == VELMORA_SAVE_BMP_RLE ? (h->biBitCount == 8 ? 1u : 2u) : 0u;
            EXPECT_EQ(file[14], form == VELMORA_SAVE_BMP_CORE ? 12u : 40u) << path;
            if (form != VELMORA_SAVE_BMP_CORE) EXPECT_EQ(file[30], compression) << path;
            EXPECT_EQ(file[2] | file[3] << 8 | file[4] << 16 | uint32_t(file[5]) << 24, file.size()) << path;
            list += " '" + path + "'";
            ++saved;
        }
        platform::MemUnlock(dib.handle);
    }
    EXPECT_EQ(saved, 52);  // plain and core but at 16 bits, run-length at 4 and 8
    ASSERT_TRUE(RunCorpusScript("bmp_corpus.py", "--decode " + dir.path() + list));
    EXPECT_EQ(CheckCorpusPages(dir, "saved.txt"), saved);
}

// An 8-bit grey DIB with a diagonal pattern.
HGLOBAL GreyPicture(int32_t width, int32_t height) {
    ErrorRecord record;
    HGLOBAL image = CreateImage(width, height, 8, 3780, 3780, 0, kStorageZeroInit | kStorageGreyRamp, &record);
    ImageLock lock(image);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) lock.bits()[RowStride(lock.header()) * y + x] = uint8_t(x * 29 + y * 7);
    }
    return image;
}

// ---- Damaged files and records ---------------------------------------------

void Put32(Bytes* b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) (*b)[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

// A well-formed BMP with a 40-byte header: `masks` (12 bytes) and `table`
// after the header, then `pixels`.
Bytes MakeBmp(int32_t width, int32_t height, uint16_t bits, uint32_t compression, const Bytes& extra,
              const Bytes& pixels) {
    Bytes b(54);
    b[0] = 'B', b[1] = 'M';
    Put32(&b, 10, static_cast<uint32_t>(54 + extra.size()));
    Put32(&b, 14, 40);
    Put32(&b, 18, static_cast<uint32_t>(width));
    Put32(&b, 22, static_cast<uint32_t>(height));
    b[26] = 1, b[28] = static_cast<uint8_t>(bits);
    Put32(&b, 30, compression);
    b.insert(b.end(), extra.begin(), extra.end());
    b.insert(b.end(), pixels.begin(), pixels.end());
    Put32(&b, 2, static_cast<uint32_t>(b.size()));
    return b;
}

Bytes With(Bytes b, size_t at, uint32_t value, int width = 4) {
    for (int i = 0; i < width; ++i) b[at + i] = static_cast<uint8_t>(value >> (8 * i));
    return b;
}

Bytes Masks(uint32_t r, uint32_t g, uint32_t b) {
    Bytes m(12);
    Put32(&m, 0, r), Put32(&m, 4, g), Put32(&m, 8, b);
    return m;
}

// 3 x 2 pixels at 24 bits; 4 (or `width`) x 2 at 8 bits in RLE8 with a two-entry table.
Bytes Rgb24() { return MakeBmp(3, 2, 24, 0, {}, Bytes(24, 0x40)); }
Bytes Rle8(const Bytes& runs, int32_t width = 4) {
    return With(MakeBmp(width, 2, 8, 1, Bytes{0, 0, 0, 0, 255, 255, 255, 0}, runs), 46, 2);
}

Bytes Cut(Bytes b, size_t size) {
    b.resize(size);
    return b;
}

Bytes Concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Damaged files read through the export that reports damage: each fails
// with its code, or reads (reporting whether it needed a tolerance) into the
// rows given.
TEST(BmpRead, DamagedFilesGiveTheirDocumentedResults) {
    const Bytes rgb = Rgb24();
    const Bytes fields = MakeBmp(4, 4, 32, 3, Masks(0xFF0000, 0xFF00, 0xFF), Bytes(64, 0x7F));
    const struct {
        const char* what;
        Bytes file;
        uint32_t error;   // 0: read
        bool warns;       // read despite a tolerated fault
        Bytes rows = {};  // the DIB's rows when given, bottom row first
    } cases[] = {
        {"not BM", With(rgb, 0, 'B' | 'A' << 8, 2), 0x02000002, false},
        {"reserved word", With(rgb, 8, 1, 2), 0x02000002, false},
        {"shorter than the file header", Cut(rgb, 4), 0x02000002, false},
        {"header size 20", With(rgb, 14, 20), 0x02000005, false},
        {"header cut", Cut(rgb, 30), 0x02000004, false},
        {"depth 2", With(rgb, 28, 2, 2), 0x02000005, false},
        {"RLE8 at 24 bits", With(rgb, 30, 1), 0x02000005, false},
        {"width 0", With(rgb, 18, 0), 0x02000004, false},
        {"pixels cut", Cut(rgb, rgb.size() - 1), 0x02000004, false},
        {"table cut", MakeBmp(1, 1, 8, 0, Bytes(16), {}), 0x02000004, false},
        {"masks share a bit", MakeBmp(3, 2, 16, 3, Masks(0xF801, 0x7E1, 0x1F), Bytes(16)), 0x02000004, false},
        {"mask broken", MakeBmp(3, 2, 16, 3, Masks(0xF800, 0x7E0, 0x15), Bytes(16)), 0x02000004, false},
        {"mask beyond 16 bits", MakeBmp(3, 2, 16, 3, Masks(0x1F800, 0x7E0, 0x1F), Bytes(16)), 0x02000004, false},
        {"sound", rgb, 0, false, Bytes(24, 0x40)},
        {"wrong file size", With(rgb, 2, 12345), 0, true, Bytes(24, 0x40)},
        // The missing 12 bytes are the top row's last three pixels.
        {"bit fields 12 bytes short", Cut(fields, fields.size() - 12), 0, true, Concat(Bytes(39, 0x7F), Bytes(9))},
        {"RLE8 without end, run too long", Rle8({9, 1, 0, 0, 2, 1}), 0, true, {1, 1, 1, 1, 1, 1, 0, 0}},
        {"RLE8 runs into the row padding", Rle8({4, 1, 0, 0, 4, 1, 0, 1}, 3), 0, false, {1, 1, 1, 0, 1, 1, 1, 0}},
        {"RLE8 delta, odd absolute", Rle8({0, 2, 1, 1, 0, 3, 1, 0, 1, 0, 0, 1}), 0, false, {0, 0, 0, 0, 0, 1, 0, 1}},
        // 10-bit channels scaled to 8 bits, truncating.
        {"ten-bit fields",
         MakeBmp(1, 1, 32, 3, Masks(0x3FF00000, 0xFFC00, 0x3FF), With(Bytes(4), 0, 1023u << 20 | 512u << 10 | 3)),
         0,
         false,
         {0, 0x7F, 0xFF, 0}},
    };
    peers::TempDir dir("velmora-bmp-damage");
    const std::string path = dir.Path("damaged.bmp");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(peers::WriteFile(path, c.file));
        VelmoraReadDIB read = {VELMORA_READ_DIB_SIZE_V3, 0, path.c_str(), 1};
        read.flags = VELMORA_READ_DIB_OPTIONS;
        read.options = VELMORA_READ_DIB_REPORT_DAMAGE;
        SetLastVelmoraError(1);
        Dib dib(ReadVelmoraDIBEx(&read));
        EXPECT_EQ(dib.handle == nullptr, c.error != 0);
        EXPECT_EQ(GetLastVelmoraErrorCode(), c.error != 0 ? c.error : c.warns ? 0x02000004u : 0u);
        if (dib.handle == nullptr || c.rows.empty()) continue;
        const uint8_t* rows = PackedBits(dib.header());
        EXPECT_EQ(Bytes(rows, rows + c.rows.size()), c.rows);
        platform::MemUnlock(dib.handle);
    }
}

// The record checks and the dispatch by type, with files of each kind the
// library writes.
TEST(ImageFileDispatch, ChecksRecordsAndRoutesEveryType) {
    peers::TempDir dir("velmora-dispatch");
    const std::string bmp = dir.Path("a.bmp"), jpeg = dir.Path("a.jpg"), tiff = dir.Path("a.tif");
    Dib source(GreyPicture(17, 9));
    BITMAPINFOHEADER* h = source.header();
    const void* bits = PackedBits(h);
    ASSERT_TRUE(SaveVelmoraDIB(bmp.c_str(), bits, h, VELMORA_DOCTYPE_BMP, nullptr));
    ASSERT_TRUE(SaveVelmoraDIB(jpeg.c_str(), bits, h, VELMORA_DOCTYPE_JPEG, nullptr)) << LastErrorCode();
    ASSERT_TRUE(SaveVelmoraDIB(tiff.c_str(), bits, h, VELMORA_DOCTYPE_TIFF, nullptr)) << LastErrorCode();
    auto fails = [](HGLOBAL dib, uint32_t error) {
        Dib owner(dib);
        return dib == nullptr && GetLastVelmoraErrorCode() == error;
    };

    // Records with one fault each.
    const WORD v3 = VELMORA_READ_DIB_SIZE_V3;
    const DWORD withOptions = VELMORA_READ_DIB_OPTIONS;
    const struct {
        VelmoraReadDIB read;
        uint32_t error;
    } records[] = {
        {{30, 0, bmp.c_str(), 1}, 87},
        {{v3, 0, nullptr, 1}, 998},
        {{v3, 0, bmp.c_str(), 0}, 87},
        {{v3, 0, bmp.c_str(), 1, 0, 0x80000000u}, 87},
        {{v3, 0, bmp.c_str(), 1, 0, 0, nullptr, 0, 4}, 87},
        {{v3, 0, bmp.c_str(), 1, 0, 0, nullptr, 0, withOptions, 16}, 87},
        {{VELMORA_READ_DIB_SIZE_V2, 0, bmp.c_str(), 1, 0, 0, nullptr, 0, withOptions, 15}, 87},
    };
    for (const auto& r : records) EXPECT_TRUE(fails(ReadVelmoraDIBEx(&r.read), r.error)) << r.read.size;
    VelmoraReadDIB read = {v3, 0, bmp.c_str(), 1, 0, 0, nullptr, 0, withOptions, 15};
    const std::u16string wide(bmp.begin(), bmp.end());
    read.path = wide.c_str();
    read.flags = VELMORA_READ_DIB_WIDE_PATH | VELMORA_READ_DIB_OPTIONS;
    Dib wideRead(ReadVelmoraDIBEx(&read));
    EXPECT_NE(wideRead.handle, nullptr) << LastErrorCode();

    // Every type the library writes reads back; one-page types take page 1
    // only, TIFF its pages, and offsets only where the type allows them.
    // With every option a sound file reports no damage.
    read.flags = VELMORA_READ_DIB_OPTIONS;
    for (const std::string* path : {&bmp, &jpeg, &tiff}) {
        read.path = path->c_str();
        SetLastVelmoraError(1);
        Dib dib(ReadVelmoraDIBEx(&read));
        EXPECT_NE(dib.handle, nullptr) << *path << " " << LastErrorCode();
        EXPECT_EQ(GetLastVelmoraErrorCode(), 0u) << *path;
        EXPECT_TRUE(fails(ReadVelmoraDIB(path->c_str(), 2), 87)) << *path;
    }

    // An image 100 bytes into a file: read there as a BMP, refused as a TIFF.
    for (const std::string* path : {&bmp, &tiff}) {
        Bytes inside(100, 0x55);
        const Bytes image = peers::ReadFile(*path);
        inside.insert(inside.end(), image.begin(), image.end());
        const std::string embedded = dir.Path("embedded.bin");
        ASSERT_TRUE(peers::WriteFile(embedded, inside));
        Dib offsetRead(ReadVelmoraDIBOffset(embedded.c_str(), 1, 100));
        if (path == &bmp) EXPECT_NE(offsetRead.handle, nullptr) << LastErrorCode();
        if (path == &tiff) EXPECT_TRUE(offsetRead.handle == nullptr && GetLastVelmoraErrorCode() == 87);
        EXPECT_TRUE(fails(ReadVelmoraDIB(embedded.c_str(), 1), 0x02000002));
    }

    const std::string pdf = dir.Path("a.pdf");
    ASSERT_TRUE(peers::WriteFile(pdf, Bytes{'%', 'P', 'D', 'F', '-', '1', '.', '4', '\n'}));
    EXPECT_TRUE(fails(ReadVelmoraDIB(pdf.c_str(), 1), 0x0200001B));
    EXPECT_TRUE(fails(ReadVelmoraDIB(dir.Path("missing.bmp").c_str(), 1), 2));

    // SaveVelmoraDIB's type and option records.
    EXPECT_FALSE(SaveVelmoraDIB(bmp.c_str(), bits, h, 1, nullptr));
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
    VelmoraSaveDIBOptions options = {VELMORA_SAVE_DIB_OPTIONS_SIZE_V1};
    VelmoraSaveDIBBMPOptions bmpOptions = {4, 0, 0};
    VelmoraSaveDIBChoice choice = {VELMORA_SAVE_DIB_CHOICE_SIZE_V1, 0, 1, 1};
    options.bmp = &bmpOptions;
    EXPECT_FALSE(SaveVelmoraDIB(bmp.c_str(), bits, h, 0, &options));
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
    bmpOptions.size = VELMORA_SAVE_DIB_BMP_OPTIONS_SIZE_V1;
    options.choice2 = &choice;
    EXPECT_FALSE(SaveVelmoraDIB(bmp.c_str(), bits, h, 0, &options));
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
    options.choice2 = nullptr;
    options.size = 16;
    EXPECT_FALSE(SaveVelmoraDIB(bmp.c_str(), bits, h, 0, &options));
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);

    ErrorRecord record;
    Dib wideImage(CreateImage(65536, 1, 1, 0, 0, 0, kStorageZeroInit, &record));
    BITMAPINFOHEADER* w = wideImage.header();
    options.size = VELMORA_SAVE_DIB_OPTIONS_SIZE_V1;
    bmpOptions.options = VELMORA_SAVE_BMP_CORE;
    EXPECT_FALSE(SaveVelmoraDIB(bmp.c_str(), PackedBits(w), w, 0, &options));
    EXPECT_EQ(GetLastVelmoraErrorCode(), 0x0200002Du);
    platform::MemUnlock(wideImage.handle);
    platform::MemUnlock(source.handle);
}

}  // namespace
}  // namespace velmora
