// TIFF documents on files built byte by byte: how IFDs group into pages,
// displayed sizes, damaged chains, and the exports' checks.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <tuple>

#include "platform/platform.h"
#include "tiff/document.h"
#include "tiff_builder.h"
#include "velmora/velmora.h"
#include "temp_names.h"
#include "../support/last_error.h"

namespace velmora {
namespace {

using testing::Long;
using testing::Short;
using testing::TiffBuilder;
using testing_support::ErrorOf;

// One IFD: its subfile type (NewSubfileType, or SubfileType with `old`) and
// its PageNumber pair when `total` is not negative.
struct Ifd {
    uint32_t subfile;
    int index = -1;
    int total = -1;
    bool old = false;
};

std::vector<uint8_t> BuildFile(const std::vector<Ifd>& ifds) {
    TiffBuilder b(false, false);
    for (const Ifd& ifd : ifds) {
        std::vector<testing::Field> fields = {Long(ifd.old ? 255 : 254, {ifd.subfile}), Long(256, {40}),
                                              Long(257, {30})};
        if (ifd.total >= 0) fields.push_back(Short(297, {uint64_t(ifd.index), uint64_t(ifd.total)}));
        b.AddDirectory(fields);
    }
    return b.bytes();
}

// A document over a TIFF in memory; null with the record set on failure.
struct Document {
    explicit Document(const std::vector<uint8_t>& bytes, ProgressReporter* progress = nullptr) : bytes(bytes) {
        TiffFile* tiff = OpenTiffFromMemory(this->bytes.data(), uint32_t(this->bytes.size()), &record);
        if (tiff != nullptr && (document = BuildTiffDocument(tiff, true, progress, &record)) == nullptr) {
            Stream* stream = CloseTiff(tiff, nullptr);
            if (stream != nullptr) CloseStream(stream, nullptr);
        }
    }
    ~Document() {
        if (document != nullptr) CloseTiffDocument(document, nullptr);
    }
    std::vector<uint32_t> Pages() const {
        std::vector<uint32_t> pages;
        for (uint32_t i = 0; i < document->rowCount; ++i) pages.push_back(document->rows[i].page);
        return pages;
    }

    std::vector<uint8_t> bytes;
    ErrorRecord record;
    TiffDocument* document = nullptr;
};

TEST(TiffDocumentPages, NumberedFromTheFileOrCountedInOrder) {
    struct Case {
        const char* what;
        std::vector<Ifd> ifds;
        std::vector<uint32_t> pages;
        uint32_t pageCount;
        bool pageNumbersOk;
    };
    const Case kCases[] = {
        {"no PageNumber, a thumbnail between two pages", {{0}, {1}, {0}}, {1, 1, 2}, 2, false},
        {"one page with a thumbnail and a mask", {{0}, {1}, {4}}, {1, 1, 1}, 1, false},
        {"masks follow their pages", {{0}, {4}, {0}, {4}, {5}}, {1, 1, 2, 2, 1}, 2, false},
        {"SubfileType 2 is a thumbnail",
         {{1, -1, -1, true}, {2, -1, -1, true}, {1, -1, -1, true}},
         {1, 1, 2},
         2,
         false},
        {"PageNumber out of file order", {{0, 1, 3}, {0, 0, 3}, {0, 2, 3}}, {2, 1, 3}, 3, true},
        {"a thumbnail sharing its page's number", {{0, 0, 2}, {1, 0, 2}, {0, 1, 2}}, {1, 1, 2}, 2, true},
        {"a missing page is closed up", {{0, 0, 3}, {0, 2, 3}}, {1, 2}, 2, false},
        {"pages missing at the end", {{0, 0, 5}, {0, 1, 5}}, {1, 2}, 2, false},
        {"totals that disagree", {{0, 1, 2}, {0, 0, 3}}, {2, 1}, 2, false},
        {"a total below the pages numbered", {{0, 0, 1}, {0, 1, 1}}, {1, 2}, 2, false},
        {"a total of 0", {{0, 1, 0}, {0, 0, 0}}, {2, 1}, 2, true},
        {"two pages claiming one number", {{0, 0, 2}, {0, 0, 2}}, {1, 2}, 2, false},
        {"PageNumber on some IFDs only", {{0, 1, 2}, {0}}, {1, 2}, 2, false},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.what);
        Document d(BuildFile(c.ifds));
        ASSERT_NE(d.document, nullptr) << std::hex << d.record.code;
        EXPECT_EQ(d.Pages(), c.pages);
        EXPECT_EQ(d.document->pageCount, c.pageCount);
        EXPECT_EQ((d.document->flags & kDocumentPageNumbersOk) != 0, c.pageNumbersOk);
        EXPECT_NE(d.document->flags & kDocumentHasFullImage, 0u);
    }
    // Thumbnails alone are the pages.
    Document d(BuildFile({{1}, {1}, {1}}));
    ASSERT_NE(d.document, nullptr);
    EXPECT_EQ(d.Pages(), (std::vector<uint32_t>{1, 2, 3}));
    EXPECT_EQ(d.document->flags & kDocumentHasFullImage, 0u);
    for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(d.document->rows[i].subfileType, 0u);
}

TEST(TiffDocumentChain, EndsAtDamageAndRefusesLoops) {
    TiffBuilder b(true, false);
    b.AddDirectory({Long(256, {8}), Long(257, {8})});
    b.AddDirectory({Long(256, {8}), Long(257, {8})});
    {
        Document d(b.bytes());
        ASSERT_NE(d.document, nullptr);
        EXPECT_EQ(d.document->flags & kDocumentDamagedChain, 0u);
    }
    // The last IFD points past the end of the file, then at a directory
    // without entries: the document keeps the IFDs before the damage.
    b.SetNext(1, 1u << 20);
    for (int damage = 0; damage < 2; ++damage) {
        Document d(b.bytes());
        ASSERT_NE(d.document, nullptr) << std::hex << d.record.code;
        EXPECT_EQ(d.document->rowCount, 2u);
        EXPECT_NE(d.document->flags & kDocumentDamagedChain, 0u);
        b.SetNext(1, b.bytes().size());
        b.Put(0, 2);
    }
    // A loop and a file without IFDs end the build with the reader's error.
    b.SetNext(1, b.directory(0));
    EXPECT_EQ(Document(b.bytes()).record.code, kErrBadFileData);
    EXPECT_EQ(Document(TiffBuilder(false, false).bytes()).record.code, kErrBadFileData);
}

BOOL VELMORA_CALLBACK Cancel(DWORD, UINT_PTR calls) {
    ++*reinterpret_cast<int*>(calls);
    return FALSE;
}

TEST(TiffDocumentChain, ProgressCancelsAndCompanionIsNamed) {
    int calls = 0;
    ProgressReporter progress(Cancel, reinterpret_cast<UINT_PTR>(&calls));
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    Document d(BuildFile({{0}, {0}}), &progress);
    EXPECT_EQ(d.document, nullptr);
    EXPECT_EQ(d.record.code, kErrCancelled);
    EXPECT_EQ(calls, 1);

    EXPECT_EQ(CompanionPath(u"scans/a.b.tiff"), u"scans/a.b.art");
    EXPECT_EQ(CompanionPath(u"scans.v2/page"), u"scans.v2/page.art");
}

// ---- The exports, on files -------------------------------------------------

class TiffDocumentExports : public ::testing::Test {
protected:
    // IFD i (1 to 8) has Orientation i, IFD 9 none; each is 30 wide and 20
    // long. IFD 3 carries an annotation block and IFD 4 the scale tags.
    static void SetUpTestSuite() {
        TiffBuilder b(false, false);
        for (uint64_t orientation = 1; orientation <= 9; ++orientation) {
            std::vector<testing::Field> fields = {Long(256, {30}), Long(257, {20}), Short(262, {1})};
            if (orientation <= 8) fields.push_back(Short(274, {orientation}));
            if (orientation == 3) fields.push_back({33938, 7, 4, {1, 2, 3, 4}});
            if (orientation == 4) fields.push_back(testing::Rational(33941, 300, 1));
            b.AddDirectory(fields);
        }
        path_ = new std::string(testing::WriteBytes(testing::TempPath("document-orientations.tif"), b.bytes()));
    }
    static void TearDownTestSuite() {
        std::remove(path_->c_str());
        delete path_;
    }
    void SetUp() override {
        document_ = OpenVelmoraTIFFDocument(path_->c_str());
        ASSERT_NE(document_, nullptr) << std::hex << GetLastVelmoraErrorCode();
    }
    void TearDown() override { EXPECT_EQ(CloseVelmoraTIFFDocument(document_), 1); }

    static std::string* path_;
    HGLOBAL document_ = nullptr;
};
std::string* TiffDocumentExports::path_ = nullptr;

TEST_F(TiffDocumentExports, DisplayedSizesFollowTheOrientation) {
    EXPECT_EQ(GetVelmoraTIFFDocumentIFDCount(document_), 9u);
    EXPECT_EQ(GetVelmoraTIFFDocumentPageCount(document_), 9);
    for (DWORD ifd = 1; ifd <= 9; ++ifd) {
        SCOPED_TRACE(ifd);
        VelmoraTIFFDocumentIFDInfo info = {};
        info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3;
        ASSERT_EQ(GetVelmoraTIFFDocumentIFDInfo(document_, ifd, &info), 1);
        const bool exchanged = ifd >= 5 && ifd <= 8;
        EXPECT_EQ(
            std::tuple(info.page, info.width, info.height, info.photometric, info.exchanged, info.orientation),
            std::tuple(ifd, exchanged ? 20u : 30u, exchanged ? 30u : 20u, 1u, exchanged ? -1 : 0, ifd == 9 ? 1u : ifd));
    }
    const TiffDocument* document = TiffDocumentFromHandle(document_);
    EXPECT_EQ(document->rows[2].flags, kIfdHasAnnotations);
    EXPECT_EQ(document->rows[3].flags, kIfdHasScale);

    // Shorter records are filled only as far as their size.
    VelmoraTIFFDocumentIFDInfo info;
    std::memset(&info, 0x5A, sizeof info);
    info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V1;
    ASSERT_EQ(GetVelmoraTIFFDocumentIFDInfo(document_, 6, &info), 1);
    EXPECT_EQ(info.width, 20u);
    EXPECT_EQ(info.exchanged, 0x5A5A5A5A);
    info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V2;
    ASSERT_EQ(GetVelmoraTIFFDocumentIFDInfo(document_, 6, &info), 1);
    EXPECT_EQ(info.exchanged, -1);
    EXPECT_EQ(info.orientation, 0x5A5A5A5Au);
}

TEST_F(TiffDocumentExports, ChecksInTheirOrder) {
    VelmoraTIFFDocumentIFDInfo info = {};
    info.size = 20;
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDocumentIFDInfo(document_, 1, &info) == 0), 87u);
    info.size = VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3;
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDocumentIFDInfo(document_, 10, &info) == 0), 87u);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDocumentIFDInfo(document_, 1, nullptr) == 0), 998u);
    // A TIFF handle is not a document, nor a document a TIFF.
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDocumentPageCount(GetVelmoraTIFFDocumentTIFF(document_)) == -1), 6u);
    EXPECT_EQ(ErrorOf(OpenVelmoraTIFFDocumentTIFF(document_, 0) == nullptr), 6u);

    VelmoraOpenTIFFDocument open = {};
    open.size = VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1;
    open.name = path_->c_str();
    for (WORD flags : {6, 8}) {
        open.flags = flags;
        EXPECT_EQ(ErrorOf(OpenVelmoraTIFFDocumentEx(&open) == nullptr), 87u);
    }
    open.flags = 0;
    open.name = nullptr;
    EXPECT_EQ(ErrorOf(OpenVelmoraTIFFDocumentEx(&open) == nullptr), 998u);
    // A wide name with a companion mode.
    std::u16string wide = platform::WideFromUtf8(*path_);
    open.flags = VELMORA_TIFF_DOCUMENT_WIDE_NAME | VELMORA_TIFF_DOCUMENT_COMPANION_REPLACE;
    open.name = wide.c_str();
    HGLOBAL again = OpenVelmoraTIFFDocumentEx(&open);
    ASSERT_NE(again, nullptr) << std::hex << GetLastVelmoraErrorCode();
    EXPECT_EQ(TiffDocumentFromHandle(again)->companionMode, kCompanionReplace);
    EXPECT_EQ(CloseVelmoraTIFFDocument(again), 1);
}

TEST_F(TiffDocumentExports, PageNumbersOkKeepsTheEarlierError) {
    // The thread's error from before the call becomes the last error.
    SetLastVelmoraError(5);
    platform::SetSystemError(1234);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDocumentPageNumbersOK(document_) == 0), 1234u);
    EXPECT_EQ(ErrorOf(GetVelmoraTIFFDocumentPageNumbersOK(nullptr) == 0), 6u);

    TiffBuilder b(false, false);
    b.AddDirectory({Long(256, {8}), Long(257, {8}), Short(297, {0, 1})});
    std::string path = testing::WriteBytes(testing::TempPath("document-numbered.tif"), b.bytes());
    HGLOBAL numbered = OpenVelmoraTIFFDocument(path.c_str());
    ASSERT_NE(numbered, nullptr);
    EXPECT_EQ(GetVelmoraTIFFDocumentPageNumbersOK(numbered), -1);
    EXPECT_EQ(CloseVelmoraTIFFDocument(numbered), 1);
    std::remove(path.c_str());
}

TEST_F(TiffDocumentExports, DocumentsOnAnOpenTiff) {
    HGLOBAL tiff = OpenVelmoraTIFF(path_->c_str(), VELMORA_TIFF_READ, 0);
    ASSERT_NE(tiff, nullptr);
    // Without ownership the TIFF outlives the document; with it, it does not.
    HGLOBAL borrowed = OpenVelmoraTIFFDocumentTIFF(tiff, 0);
    ASSERT_NE(borrowed, nullptr);
    EXPECT_EQ(GetVelmoraTIFFDocumentTIFF(borrowed), tiff);
    EXPECT_EQ(CloseVelmoraTIFFDocument(borrowed), 1);
    DWORD width = 0, length = 0;
    EXPECT_EQ(GetVelmoraTIFFSize(tiff, 1, &width, &length), 1);
    HGLOBAL owner = OpenVelmoraTIFFDocumentTIFF(tiff, VELMORA_TIFF_DOCUMENT_OWN_TIFF);
    ASSERT_NE(owner, nullptr);
    EXPECT_EQ(CloseVelmoraTIFFDocument(owner), 1);
    EXPECT_EQ(CloseVelmoraTIFF(tiff), 0);

    // A failed build leaves the TIFF to the caller.
    HGLOBAL memory = OpenVelmoraTIFF(nullptr, VELMORA_TIFF_READ, 0);
    EXPECT_EQ(ErrorOf(OpenVelmoraTIFFDocumentTIFF(memory, VELMORA_TIFF_DOCUMENT_OWN_TIFF) == nullptr), 0x02000004u);
    EXPECT_EQ(CloseVelmoraTIFF(memory), 1);
}

}  // namespace
}  // namespace velmora
