// The JPEG exports as a host uses them, on streams cjpeg and jpegtran make
// at test time: describing a stream, decoding it, and cutting rectangles of
// MCUs out of it, which must show exactly the pixels of the same region of
// the whole image.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tuple>

#include "jpeg/jpeg_handle.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "velmora/velmora.h"
#include "support/jpeg_segments.h"
#include "support/last_error.h"
#include "support/pictures.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Pixels = velmora::peers::Picture;
using velmora::testing_support::ErrorOf;
using velmora::testing_support::JpegPayloads;

// A host's JPEG handle: a movable block holding the stream.
HGLOBAL HostBlock(const Bytes& bytes) {
    HGLOBAL block = velmora::platform::MemAlloc(GMEM_MOVEABLE, bytes.size());
    std::memcpy(velmora::platform::MemLock(block), bytes.data(), bytes.size());
    velmora::platform::MemUnlock(block);
    return block;
}

Pixels Decode(HGLOBAL jpeg) {
    HGLOBAL dib = ReadVelmoraJPEGDIBProgress(jpeg, nullptr, 0);
    if (dib == nullptr) return Pixels();
    Pixels pixels = velmora::peers::FromDib(dib);
    velmora::platform::MemFree(dib);
    return pixels;
}

// The copy shows the region's pixels; with subsampled chroma, whose
// interpolation reads across the region's edges in the whole image, the
// outermost pixels of the copy are left out.
bool SameRegion(const Pixels& whole, const RECT& r, const Pixels& part, int border) {
    if (int(part.width) != r.right - r.left || int(part.height) != r.bottom - r.top) return false;
    const int n = static_cast<int>(whole.channels), width = static_cast<int>(whole.width);
    for (int y = border; y < int(part.height) - border; ++y) {
        const uint8_t* a = whole.pixels.data() + ((r.top + y) * width + r.left + border) * n;
        const uint8_t* b = part.pixels.data() + (y * int(part.width) + border) * n;
        if (std::memcmp(a, b, static_cast<size_t>(part.width - 2 * border) * n) != 0) return false;
    }
    return true;
}

class JpegExports : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* tool : {"/usr/bin/cjpeg", "/usr/bin/djpeg", "/usr/bin/jpegtran", "/usr/bin/convert"}) {
            REQUIRE_PEER(velmora::peers::Have(tool), tool);
        }
        ASSERT_TRUE(velmora::peers::Run("/usr/bin/convert -size 165x99 -seed 3 plasma:green-yellow -depth 8 " +
                                        Path("source.ppm") + " 2>/dev/null"));
    }
    std::string Path(const std::string& name) const { return directory_.Path(name); }
    Bytes Make(const std::string& options) {
        const std::string out = Path("made.jpg");
        EXPECT_TRUE(velmora::peers::Run("/usr/bin/cjpeg " + options + " -outfile " + out + " " + Path("source.ppm")));
        return velmora::peers::ReadFile(out);
    }

    velmora::peers::TempDir directory_{"velmora-jpeg-exports"};
};

TEST_F(JpegExports, InformationRecordAndItsChecks) {
    HGLOBAL jpeg = HostBlock(Make("-quality 80 -sample 2x1 -restart 2"));
    VelmoraJPEGInfo info = {};
    info.size = VELMORA_JPEG_INFO_SIZE_V1;
    info.request = VELMORA_JPEG_INFO_WHOLE;
    ASSERT_TRUE(GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, &info)) << std::hex << GetLastVelmoraErrorCode();
    EXPECT_EQ(std::tuple(info.width, info.height, info.components, info.precision, info.process, info.mcuWidth,
                         info.mcuHeight),
              std::tuple(165, 99, 3, 8, VELMORA_JPEG_BASELINE, 16, 8));
    EXPECT_NE(info.restartInterval, 0);
    EXPECT_EQ(info.flags & (VELMORA_JPEG_HAS_JFIF | VELMORA_JPEG_SINGLE_TABLES),
              VELMORA_JPEG_HAS_JFIF | VELMORA_JPEG_SINGLE_TABLES);
    EXPECT_EQ(info.densityUnit, VELMORA_UNIT_NONE);

    VelmoraJPEGInfo bad = info;
    bad.size = VELMORA_JPEG_INFO_SIZE_V1 - 1;
    EXPECT_EQ(ErrorOf(!GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, &bad)), 87u);
    bad = info;
    bad.request = 4;
    EXPECT_EQ(ErrorOf(!GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, &bad)), 87u);
    EXPECT_EQ(ErrorOf(!GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, nullptr)), 998u);
    EXPECT_EQ(ErrorOf(!GetVelmoraJPEGInfoProgress(nullptr, nullptr, 0, &info)), 6u);
    EXPECT_TRUE(CloseVelmoraJPEG(jpeg));
    EXPECT_EQ(ErrorOf(!CloseVelmoraJPEG(jpeg)), 6u);

    // A block that holds no JPEG stream.
    HGLOBAL other = HostBlock(Bytes(64, 0x42));
    info.request = 0;
    EXPECT_EQ(ErrorOf(!GetVelmoraJPEGInfoProgress(other, nullptr, 0, &info)), 0x02000002u);
    EXPECT_TRUE(CloseVelmoraJPEG(other));
}

// A handle the library made over a stream keeps what it read: a question
// with fewer request bits is answered from an earlier, wider one. A
// progressive stream from cjpeg redefines its Huffman tables between scans,
// which only a read to the end sees.
TEST_F(JpegExports, LibraryHandlesAnswerFromTheirRecord) {
    const Bytes bytes = Make("-quality 60 -progressive");
    velmora::ErrorRecord record;
    velmora::Stream* stream =
        velmora::OpenFixedMemoryStream(bytes.data(), static_cast<uint32_t>(bytes.size()), &record);
    ASSERT_NE(stream, nullptr);
    HGLOBAL jpeg = velmora::jpeg::CreateJpegHandle(stream, bytes.size(), &record);
    ASSERT_NE(jpeg, nullptr);
    VelmoraJPEGInfo info = {};
    info.size = VELMORA_JPEG_INFO_SIZE_V1;
    info.request = 0;
    ASSERT_TRUE(GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, &info));
    EXPECT_EQ(info.process, VELMORA_JPEG_PROGRESSIVE);
    EXPECT_NE(info.flags & VELMORA_JPEG_SINGLE_TABLES, 0u);  // nothing seen after the first scan yet
    info.request = VELMORA_JPEG_INFO_WHOLE;
    ASSERT_TRUE(GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, &info));
    EXPECT_EQ(info.flags & VELMORA_JPEG_SINGLE_TABLES, 0u);
    info.request = 0;
    ASSERT_TRUE(GetVelmoraJPEGInfoProgress(jpeg, nullptr, 0, &info));
    EXPECT_EQ(info.flags & VELMORA_JPEG_SINGLE_TABLES, 0u);
    EXPECT_EQ(info.request, 0);

    // Such a stream cannot be cut: its coefficients depend on tables that
    // change on the way.
    const RECT rect = {0, 0, 16, 16};
    DWORD cut = 0;
    EXPECT_EQ(ErrorOf(GetVelmoraJPEGMCUDataProgress(jpeg, &rect, nullptr, 0, &cut) == nullptr), 0x02000005u);

    DWORD size = 0;
    VelmoraJPEGMCURequest whole = {VELMORA_JPEG_MCU_REQUEST_SIZE_V1, VELMORA_JPEG_MCU_MODE1, nullptr, 0, nullptr};
    HGLOBAL copy = GetVelmoraJPEGMCUData(jpeg, &whole, &size);
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(size, bytes.size());
    EXPECT_EQ(std::memcmp(velmora::platform::MemLock(copy), bytes.data(), size), 0);
    velmora::platform::MemUnlock(copy);
    velmora::platform::MemFree(copy);
    EXPECT_TRUE(CloseVelmoraJPEG(jpeg));

    // A sequential stream that starts part-way into the library's stream is
    // spliced from where it starts: the copy equals the one of a host's block.
    const Bytes sequential = Make("-quality 70 -restart 2B");
    Bytes padded(37, 0xAB);
    padded.insert(padded.end(), sequential.begin(), sequential.end());
    stream = velmora::OpenFixedMemoryStream(padded.data(), static_cast<uint32_t>(padded.size()), &record);
    ASSERT_NE(stream, nullptr);
    velmora::StreamSeek64(stream, 37, &record);
    jpeg = velmora::jpeg::CreateJpegHandle(stream, sequential.size(), &record);
    ASSERT_NE(jpeg, nullptr);
    HGLOBAL host = HostBlock(sequential);
    const RECT inner = {16, 16, 64, 48};
    DWORD ours = 0, theirs = 0;
    HGLOBAL fromStream = GetVelmoraJPEGMCUDataProgress(jpeg, &inner, nullptr, 0, &ours);
    HGLOBAL fromBlock = GetVelmoraJPEGMCUDataProgress(host, &inner, nullptr, 0, &theirs);
    ASSERT_NE(fromStream, nullptr) << std::hex << GetLastVelmoraErrorCode();
    ASSERT_NE(fromBlock, nullptr);
    ASSERT_EQ(ours, theirs);
    EXPECT_EQ(std::memcmp(velmora::platform::MemLock(fromStream), velmora::platform::MemLock(fromBlock), ours), 0);
    velmora::platform::MemUnlock(fromStream);
    velmora::platform::MemUnlock(fromBlock);
    CloseVelmoraJPEG(fromStream);
    CloseVelmoraJPEG(fromBlock);
    CloseVelmoraJPEG(host);
    EXPECT_TRUE(CloseVelmoraJPEG(jpeg));
}

// Rectangles of MCUs out of sequential streams of every sampling: each copy is a stream
// djpeg reads and our decoder shows exactly the region of the whole image.
// Copies keep the source's Huffman tables when their MCUs are spliced out of
// the source's entropy-coded data: mode 1 of sequential streams whose tables
// can code every DC difference the copy needs (cjpeg's standard tables can).
// Progressive streams and mode 2 are coded again; every copy must show
// exactly the pixels of its region, whatever way it was made.
TEST_F(JpegExports, CopiedRectanglesShowTheSamePixels) {
    const struct {
        const char* name;
        const char* options;
        int mcuWidth, mcuHeight;
        bool spliced;
    } kStreams[] = {
        {"4:2:0", "-quality 75", 16, 16, true},
        {"4:2:2 with restarts", "-quality 90 -sample 2x1 -restart 1", 16, 8, true},
        {"4:2:0 restarts every third MCU", "-quality 80 -restart 3B", 16, 16, true},
        {"4:4:4 optimised", "-quality 95 -sample 1x1 -optimize", 8, 8, false},
        {"grey", "-quality 50 -grayscale", 8, 8, true},
    };
    for (const auto& kind : kStreams) {
        SCOPED_TRACE(kind.name);
        const Bytes bytes = Make(kind.options);
        HGLOBAL jpeg = HostBlock(bytes);
        const Pixels whole = Decode(jpeg);
        ASSERT_EQ(whole.width, 165u) << std::hex << GetLastVelmoraErrorCode();
        const int w = kind.mcuWidth, h = kind.mcuHeight;
        const RECT rects[] = {
            {0, 0, w, h}, {w, h, 4 * w, 3 * h}, {0, 0, 165 / w * w, 99 / h * h}, {2 * w, 0, 3 * w, 99 / h * h}};
        for (const RECT& rect : rects) {
            for (WORD mode : {WORD{VELMORA_JPEG_MCU_MODE1}, WORD{VELMORA_JPEG_MCU_MODE2}}) {
                VelmoraJPEGMCURequest request = {VELMORA_JPEG_MCU_REQUEST_SIZE_V1, mode, &rect, 0, nullptr};
                DWORD size = 0;
                HGLOBAL copy = GetVelmoraJPEGMCUData(jpeg, &request, &size);
                ASSERT_NE(copy, nullptr) << std::hex << GetLastVelmoraErrorCode();
                const int border = w > 8 || h > 8 ? 1 : 0;
                EXPECT_TRUE(SameRegion(whole, rect, Decode(copy), border))
                    << rect.left << "," << rect.top << " mode " << mode;
                const auto* copied = static_cast<const uint8_t*>(velmora::platform::MemLock(copy));
                const Bytes copyBytes(copied, copied + size);
                velmora::platform::MemUnlock(copy);
                if (kind.spliced && mode == VELMORA_JPEG_MCU_MODE1) {
                    EXPECT_EQ(JpegPayloads(copyBytes, 0xC4), JpegPayloads(bytes, 0xC4));
                }
                velmora::peers::WriteFile(Path("copy.jpg"), copyBytes);
                EXPECT_TRUE(velmora::peers::Run("/usr/bin/djpeg -outfile /dev/null " + Path("copy.jpg")));
                CloseVelmoraJPEG(copy);
            }
        }
        // Unaligned, empty and outside rectangles.
        for (const RECT& rect : {RECT{1, 0, w + 1, h}, RECT{0, 0, 0, h}, RECT{0, 0, 176, h}, RECT{-w, 0, w, h}}) {
            DWORD size = 0;
            EXPECT_EQ(ErrorOf(GetVelmoraJPEGMCUDataProgress(jpeg, &rect, nullptr, 0, &size) == nullptr), 87u);
        }
        CloseVelmoraJPEG(jpeg);
    }
}

}  // namespace
