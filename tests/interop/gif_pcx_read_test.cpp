// GIF and PCX files written by Pillow and ImageMagick (gif_pcx_corpus.py)
// must read pixel for pixel as Pillow reads them: every GIF frame at its own
// size, every PCX layout. Damaged files give their error codes.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/gif_reader.h"
#include "dib/image.h"
#include "dib/pcx_reader.h"
#include "image_corpus.h"
#include "io/stream.h"
#include "support/peers.h"

namespace velmora {
namespace {

using Bytes = std::vector<uint8_t>;

struct Dib {
    HGLOBAL handle = nullptr;
    ~Dib() { FreeImage(&handle); }
};

// A stream over `bytes` behind three other bytes, positioned at the file, so
// that every offset a reader uses must count from where the stream stood.
class FileStream {
public:
    explicit FileStream(const Bytes& bytes) : data_(3, 0xEE) {
        data_.insert(data_.end(), bytes.begin(), bytes.end());
        stream_ = OpenFixedMemoryStream(data_.data(), static_cast<uint32_t>(data_.size()), &record_);
        StreamSeek(stream_, 3, &record_);
    }
    ~FileStream() { CloseStream(stream_, nullptr); }
    Stream* get() const { return stream_; }

private:
    Bytes data_;
    ErrorRecord record_;
    Stream* stream_ = nullptr;
};

class GifPcxRead : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!peers::HavePillow(VELMORA_PYTHON) || !peers::Have("/usr/bin/convert")) return;
        corpus_ = new peers::TempDir("velmora-gifpcx");
        made_ = corpus_->ok() && RunCorpusScript("gif_pcx_corpus.py", corpus_->path());
    }
    static void TearDownTestSuite() {
        delete corpus_;
        corpus_ = nullptr;
    }
    void SetUp() override {
        REQUIRE_PEER(peers::HavePillow(VELMORA_PYTHON) && peers::Have("/usr/bin/convert"), "Pillow and ImageMagick");
        ASSERT_TRUE(made_);
    }
    static Bytes Corpus(const std::string& name) { return peers::ReadFile(corpus_->Path(name)); }

    static peers::TempDir* corpus_;
    static bool made_;
};

peers::TempDir* GifPcxRead::corpus_ = nullptr;
bool GifPcxRead::made_ = false;

TEST_F(GifPcxRead, EveryFrameAndImageReadsAsPillowReadsIt) { EXPECT_EQ(CheckCorpusPages(*corpus_, "cases.txt"), 35); }

// One reader going back and forth through an animation finds its frames
// through the offsets it remembers, with their comments.
TEST_F(GifPcxRead, OneReaderReadsFramesInAnyOrder) {
    FileStream stream(Corpus("magick_anim.gif"));
    GifReader reader;
    ErrorRecord record;
    ASSERT_TRUE(reader.Open(stream.get(), &record));
    for (uint32_t frame : {4, 2, 1, 3, 2}) {
        Dib dib{reader.ReadFrame(frame, nullptr, &record)};
        ASSERT_NE(dib.handle, nullptr) << std::hex << record.code;
        EXPECT_FALSE(reader.damaged());
        EXPECT_EQ(std::u16string(reader.comment()), u"frame comment");
        const Bytes rgb = Corpus("magick_anim.gif.p" + std::to_string(frame) + ".rgb");
        ImageLock lock(dib.handle);
        const BITMAPINFOHEADER* h = lock.header();
        EXPECT_EQ(DifferenceFrom(h, rgb, h->biWidth, h->biHeight), "") << frame;
        EXPECT_EQ(rgb.size(), size_t{3} * h->biWidth * h->biHeight);
    }
}

Bytes With(Bytes file, size_t at, uint8_t value) {
    file[at] = value;
    return file;
}

Bytes Cut(Bytes file, size_t size) {
    file.resize(size);
    return file;
}

// A 2 x 2 GIF, pixels 0 1 / 1 0 over a black and white global table, with
// `blocks` before each of its `frames` images.
Bytes TinyGif(const char* version, const Bytes& blocks = {}, int frames = 1) {
    Bytes gif = {'G', 'I', 'F'};
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
    const Bytes text = {0x21, 0x01, 12, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    Bytes noTable = TinyGif("89a");
    noTable[10] = 0;
    noTable.erase(noTable.begin() + 13, noTable.begin() + 19);
    const struct {
        const char* what;
        Bytes file;
        uint32_t frame;
        uint32_t code;  // 0: read, and `damaged` tells whether the data was whole
        bool damaged;
    } cases[] = {
        {"the tiny file itself", TinyGif("89a"), 1, 0, false},
        {"third of two frames", TinyGif("89a", {}, 2), 3, 0x02000003, false},
        {"no signature", With(TinyGif("89a"), 2, 'X'), 1, 0x02000002, false},
        {"version 90a", With(TinyGif("89a"), 3, '9'), 1, 0x0200001B, false},
        {"87a with an aspect byte", With(TinyGif("87a"), 12, 49), 1, 0x02000004, false},
        {"89a with an aspect byte", With(TinyGif("89a"), 12, 49), 1, 0, false},
        {"zero screen width", With(TinyGif("89a"), 6, 0), 1, 0x02000004, false},
        {"unknown block", TinyGif("89a", {0x99}), 1, 0x02000004, false},
        {"graphic control of 5 bytes", TinyGif("89a", {0x21, 0xF9, 5, 0, 0, 0, 0, 0, 0}), 1, 0x02000004, false},
        {"plain text on the frame", TinyGif("89a", text), 1, 0x02000005, false},
        {"plain text on another frame", With(TinyGif("89a", text, 2), 52, 0xFE), 2, 0, false},
        {"no colour table", noTable, 1, 0x02000005, false},
        {"image data cut", Cut(TinyGif("89a"), 32), 1, 0, true},
        {"code beyond the table", With(TinyGif("89a"), 31, 0x7F), 1, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        FileStream stream(c.file);
        ErrorRecord record;
        bool damaged = false;
        Dib dib{ReadGifDib(stream.get(), c.frame, nullptr, &damaged, &record)};
        EXPECT_EQ(record.code, c.code);
        EXPECT_EQ(dib.handle != nullptr, c.code == 0);
        EXPECT_EQ(damaged, c.damaged);
        if (dib.handle == nullptr || c.damaged) continue;
        ImageLock lock(dib.handle);
        const uint8_t* bits = lock.bits();  // bottom row first, 4-byte stride
        EXPECT_TRUE(bits[0] == 1 && bits[1] == 0 && bits[4] == 0 && bits[5] == 1);
    }
}

TEST_F(GifPcxRead, DamagedPcxFilesGiveTheirErrors) {
    const Bytes grey = Corpus("grey.pcx");  // version 5, 8 bits, trailing table
    const Bytes rgb = Corpus("rgb31.pcx");  // three planes
    const Bytes planar = Corpus("planar16.pcx");
    const struct {
        const char* what;
        Bytes file;
        uint32_t code;
        bool damaged;
    } cases[] = {
        {"short header", Cut(rgb, 100), 0x02000004, false},
        {"no PCX mark", With(rgb, 0, 11), 0x02000002, false},
        {"version 4", With(rgb, 1, 4), 0x02000002, false},
        {"two planes of 8 bits", With(rgb, 65, 2), 0x02000005, false},
        {"too few bytes per line", With(With(rgb, 66, 30), 67, 0), 0x02000004, false},
        {"no palette marker", With(grey, grey.size() - 769, 0), 0x02000004, false},
        {"version 3 is grey", With(planar, 1, 3), 0, false},
        {"data cut", Cut(rgb, 128 + 50), 0, true},
        {"run across the end of a line", With(With(planar, 128, 0xFF), 129, 0), 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        FileStream stream(c.file);
        ErrorRecord record;
        bool damaged = false;
        Dib dib{ReadPcxImage(stream.get(), nullptr, &damaged, &record)};
        EXPECT_EQ(record.code, c.code);
        EXPECT_EQ(dib.handle != nullptr, c.code == 0);
        EXPECT_EQ(damaged, c.damaged);
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
