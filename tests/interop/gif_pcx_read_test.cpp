// GIF and PCX files written by Pillow and ImageMagick (gif_pcx_corpus.py)
// must read pixel for pixel as Pillow reads them: every GIF frame at its own
// size, every PCX layout. Damaged files give their error codes.
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/gif_reader.h"
#include "dib/image.h"
#include "dib/pcx_reader.h"
#include "dib/pixel_fetch.h"
#include "io/stream.h"
#include "support/peers.h"

namespace velmora {
namespace {

// Bytes before each file, so that every offset the readers use must count
// from where the stream stood.
constexpr uint32_t kLead = 3;

struct Dib {
    HGLOBAL handle = nullptr;
    ~Dib() { FreeImage(&handle); }
};

// A stream over `bytes` behind kLead bytes, positioned at the file.
class FileStream {
public:
    explicit FileStream(const std::vector<uint8_t>& bytes) : data_(kLead, 0xEE) {
        data_.insert(data_.end(), bytes.begin(), bytes.end());
        stream_ = OpenFixedMemoryStream(data_.data(), static_cast<uint32_t>(data_.size()), &record_);
        StreamSeek(stream_, kLead, &record_);
    }
    ~FileStream() { CloseStream(stream_, nullptr); }
    Stream* get() const { return stream_; }

private:
    std::vector<uint8_t> data_;
    ErrorRecord record_;
    Stream* stream_ = nullptr;
};

class GifPcxRead : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!peers::HavePillow(VELMORA_PYTHON) || !peers::Have("/usr/bin/convert")) return;
        corpus_ = new peers::TempDir("velmora-gifpcx");
        std::string log;
        made_ = corpus_->ok() &&
                peers::Output(std::string(VELMORA_PYTHON) + " " VELMORA_TEST_SOURCE_DIR "/interop/gif_pcx_corpus.py " +
                                  corpus_->path() + " 2>&1",
                              &log);
        if (!made_) std::fprintf(stderr, "corpus: %s\n", log.c_str());
    }
    static void TearDownTestSuite() {
        delete corpus_;
        corpus_ = nullptr;
    }
    void SetUp() override {
        REQUIRE_PEER(peers::HavePillow(VELMORA_PYTHON) && peers::Have("/usr/bin/convert"), "Pillow and ImageMagick");
        ASSERT_TRUE(made_);
    }
    static std::vector<uint8_t> Corpus(const std::string& name) { return peers::ReadFile(corpus_->Path(name)); }

    static peers::TempDir* corpus_;
    static bool made_;
};

peers::TempDir* GifPcxRead::corpus_ = nullptr;
bool GifPcxRead::made_ = false;

// The DIB's colours against RGB rows from the top; the first difference.
std::string CompareRgb(HGLOBAL dib, const std::vector<uint8_t>& rgb, int32_t width, int32_t height) {
    ImageLock lock(dib);
    const BITMAPINFOHEADER* h = lock.header();
    if (h->biWidth != width || h->biHeight != height) {
        return "size " + std::to_string(h->biWidth) + "x" + std::to_string(h->biHeight);
    }
    if (rgb.size() != size_t{3} * width * height) return "expected pixels missing";
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            const uint8_t* p = rgb.data() + 3 * (size_t{static_cast<uint32_t>(y)} * width + x);
            COLORREF ours = PixelColor(h, lock.bits(), x, y);
            if (ours != (p[0] | p[1] << 8 | p[2] << 16)) {
                std::ostringstream where;
                where << "pixel " << x << "," << y << ": " << std::hex << ours << " for " << int(p[0]) << ","
                      << int(p[1]) << "," << int(p[2]);
                return where.str();
            }
        }
    }
    return "";
}

TEST_F(GifPcxRead, EveryFrameAndImageMatchesPillow) {
    std::ifstream cases(corpus_->Path("cases.txt"));
    std::string line, openName;
    std::vector<uint8_t> file;
    std::unique_ptr<FileStream> shared;
    GifReader reader;  // one per GIF, read frame after frame
    int compared = 0;
    while (std::getline(cases, line)) {
        std::istringstream fields(line);
        std::string name, raw;
        uint32_t frame = 0;
        int32_t width = 0, height = 0, bitCount = 0;
        ASSERT_TRUE(fields >> name >> frame >> width >> height >> bitCount >> raw) << line;
        SCOPED_TRACE(line);
        const bool gif = name.size() > 4 && name.compare(name.size() - 4, 4, ".gif") == 0;
        if (name != openName) {
            openName = name;
            file = Corpus(name);
            shared = std::make_unique<FileStream>(file);
            ErrorRecord record;
            if (gif) ASSERT_TRUE(reader.Open(shared->get(), &record)) << record.code;
        }
        FileStream own(file);
        ErrorRecord record;
        Dib fresh{gif ? ReadGifDib(own.get(), frame, nullptr, nullptr, &record) : ReadPcxDib(own.get(), nullptr, &record)};
        if (width == 0) {
            EXPECT_EQ(fresh.handle, nullptr);
            EXPECT_EQ(record.code, 0x02000003u);
            continue;
        }
        ASSERT_NE(fresh.handle, nullptr) << std::hex << record.code;
        {
            ImageLock lock(fresh.handle);
            EXPECT_EQ(lock.header()->biBitCount, bitCount);
        }
        std::vector<uint8_t> expected = Corpus(raw);
        EXPECT_EQ(CompareRgb(fresh.handle, expected, width, height), "");
        if (gif) {
            ErrorRecord sharedRecord;
            Dib again{reader.ReadFrame(frame, nullptr, &sharedRecord)};
            ASSERT_NE(again.handle, nullptr) << std::hex << sharedRecord.code;
            EXPECT_FALSE(reader.damaged());
            EXPECT_EQ(CompareRgb(again.handle, expected, width, height), "");
            if (name == "magick_anim.gif" || name == "interlaced16.gif") {
                EXPECT_TRUE(reader.hasComment());  // as wide text
                EXPECT_EQ(std::u16string(reader.comment()), name[0] == 'm' ? u"frame comment" : u"interlaced, 89a");
            }
            // Back to the first frame through the remembered offsets.
            Dib first{reader.ReadFrame(1, nullptr, &sharedRecord)};
            EXPECT_NE(first.handle, nullptr) << std::hex << sharedRecord.code;
        }
        ++compared;
    }
    EXPECT_GE(compared, 35);
}

std::vector<uint8_t> With(std::vector<uint8_t> file, size_t at, uint8_t value) {
    file[at] = value;
    return file;
}

std::vector<uint8_t> Cut(std::vector<uint8_t> file, size_t size) {
    file.resize(size);
    return file;
}

// A 2 x 2 GIF, pixels 0 1 / 1 0 over a black and white global table, with
// `blocks` before each of its `frames` images.
std::vector<uint8_t> TinyGif(const char* version, const std::vector<uint8_t>& blocks, int frames = 1) {
    std::vector<uint8_t> gif = {'G', 'I', 'F'};
    gif.insert(gif.end(), version, version + 3);
    for (uint8_t b : {2, 0, 2, 0, 0x80, 0, 0, 0, 0, 0, 255, 255, 255}) gif.push_back(b);
    for (int i = 0; i < frames; ++i) {
        gif.insert(gif.end(), blocks.begin(), blocks.end());
        // Codes Clear, 0, 1, 1 in three bits, 0 and End in four.
        for (uint8_t b : {0x2C, 0, 0, 0, 0, 2, 0, 2, 0, 0, 2, 3, 0x44, 0x02, 0x05, 0}) gif.push_back(b);
    }
    gif.push_back(0x3B);
    return gif;
}

TEST(GifRead, DamagedFilesGiveTheirErrors) {
    const std::vector<uint8_t> none;
    std::vector<uint8_t> noTable = TinyGif("89a", none);
    noTable[10] = 0;
    noTable.erase(noTable.begin() + 13, noTable.begin() + 19);
    struct {
        const char* what;
        std::vector<uint8_t> file;
        uint32_t frame;
        uint32_t code;  // 0: read, and `damaged` tells whether the data was whole
        bool damaged;
    } const kCases[] = {
        {"the tiny file itself", TinyGif("89a", none), 1, 0, false},
        {"second of two frames", TinyGif("87a", none, 2), 2, 0, false},
        {"third of two frames", TinyGif("89a", none, 2), 3, 0x02000003, false},
        {"no signature", With(TinyGif("89a", none), 2, 'X'), 1, 0x02000002, false},
        {"version 90a", With(TinyGif("89a", none), 3, '9'), 1, 0x0200001B, false},
        {"87a with an aspect byte", With(TinyGif("87a", none), 12, 49), 1, 0x02000004, false},
        {"89a with an aspect byte", With(TinyGif("89a", none), 12, 49), 1, 0, false},
        {"zero screen width", With(TinyGif("89a", none), 6, 0), 1, 0x02000004, false},
        {"screen descriptor cut", Cut(TinyGif("89a", none), 10), 1, 0x02000004, false},
        {"unknown block", TinyGif("89a", {0x99}), 1, 0x02000004, false},
        {"unknown extension", TinyGif("89a", {0x21, 0x77, 0}), 1, 0x02000004, false},
        {"graphic control of 5 bytes", TinyGif("89a", {0x21, 0xF9, 5, 0, 0, 0, 0, 0, 0}), 1, 0x02000004, false},
        {"graphic control", TinyGif("89a", {0x21, 0xF9, 4, 1, 0, 0, 1, 0}), 1, 0, false},
        {"application of 10 bytes", TinyGif("89a", {0x21, 0xFF, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), 1, 0x02000004,
         false},
        {"plain text on the frame",
         TinyGif("89a", {0x21, 0x01, 12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 'h', 'i', 0}), 1, 0x02000005, false},
        {"plain text on another frame",
         With(TinyGif("89a", {0x21, 0x01, 12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 2), 52, 0xFE), 2, 0, false},
        {"comment cut short", Cut(TinyGif("89a", {0x21, 0xFE, 9, 'a'}), 23), 1, 0x02000004, false},
        {"no colour table", noTable, 1, 0x02000005, false},
        {"image data cut", Cut(TinyGif("89a", none), 32), 1, 0, true},
        {"code beyond the table", With(TinyGif("89a", none), 31, 0x7F), 1, 0, true},
        {"minimum code size 12", With(TinyGif("89a", none), 29, 12), 1, 0, true},
        {"zero frame width", With(TinyGif("89a", none), 24, 0), 1, 0x02000004, false},
    };
    for (const auto& c : kCases) {
        FileStream stream(c.file);
        GifReader reader;
        ErrorRecord record;
        Dib dib{reader.Open(stream.get(), &record) ? reader.ReadFrame(c.frame, nullptr, &record) : nullptr};
        EXPECT_EQ(record.code, c.code) << c.what;
        EXPECT_EQ(dib.handle != nullptr, c.code == 0) << c.what;
        if (dib.handle == nullptr) continue;
        EXPECT_EQ(reader.damaged(), c.damaged) << c.what;
        if (!c.damaged) {
            ImageLock lock(dib.handle);
            const uint8_t* bits = lock.bits();  // bottom row first, 4-byte stride
            EXPECT_TRUE(bits[0] == 1 && bits[1] == 0 && bits[4] == 0 && bits[5] == 1) << c.what;
        }
    }
}

TEST_F(GifPcxRead, DamagedPcxFilesGiveTheirErrors) {
    const std::vector<uint8_t> grey = Corpus("grey.pcx");  // version 5, 8 bits, trailing table
    const std::vector<uint8_t> rgb = Corpus("rgb31.pcx");  // three planes
    const std::vector<uint8_t> planar = Corpus("planar16.pcx");
    struct {
        const char* what;
        std::vector<uint8_t> file;
        uint32_t code;
        bool damaged;
    } const kCases[] = {
        {"short header", Cut(rgb, 100), 0x02000004, false},
        {"no PCX mark", With(rgb, 0, 11), 0x02000002, false},
        {"version 4", With(rgb, 1, 4), 0x02000002, false},
        {"not run-length coded", With(rgb, 2, 0), 0x02000002, false},
        {"two planes of 8 bits", With(rgb, 65, 2), 0x02000005, false},
        {"two bits per plane", With(planar, 3, 2), 0x02000005, false},
        {"too few bytes per line", With(With(rgb, 66, 30), 67, 0), 0x02000004, false},
        {"Xmax below Xmin", With(With(rgb, 8, 0), 4, 1), 0x02000004, false},
        {"no palette marker", With(grey, grey.size() - 769, 0), 0x02000004, false},
        {"too short for a palette", Cut(grey, 128 + 896), 0x02000004, false},
        {"version 3 is grey", With(planar, 1, 3), 0, false},
        {"data cut", Cut(rgb, 128 + 50), 0, true},
        {"run across the end of a line", With(With(planar, 128, 0xFF), 129, 0), 0, true},
    };
    for (const auto& c : kCases) {
        FileStream stream(c.file);
        ErrorRecord record;
        bool damaged = false;
        Dib dib{ReadPcxImage(stream.get(), nullptr, &damaged, &record)};
        EXPECT_EQ(record.code, c.code) << c.what;
        EXPECT_EQ(dib.handle != nullptr, c.code == 0) << c.what;
        EXPECT_EQ(damaged, c.damaged) << c.what;
    }
    // A version 3 file's table is a grey ramp of its colour count.
    FileStream stream(With(planar, 1, 3));
    ErrorRecord record;
    Dib dib{ReadPcxDib(stream.get(), nullptr, &record)};
    ASSERT_NE(dib.handle, nullptr);
    ImageLock lock(dib.handle);
    ASSERT_EQ(ColorCount(lock.header()), 16u);
    EXPECT_EQ(ColorOf(ColorTable(lock.header())[7]), 0x777777u);
}

}  // namespace
}  // namespace velmora
