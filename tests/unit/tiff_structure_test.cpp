// The TIFF structure reader on files built byte by byte: headers, chains,
// damage, limits, and the same page in every byte order and TIFF form.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/error_record.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"
#include "tiff_builder.h"
#include "../support/memory_stream.h"
#include "temp_names.h"

namespace velmora {
namespace {

using testing::Ascii;
using testing::Field;
using testing::Long;
using testing::Rational;
using testing::Short;
using testing::TiffBuilder;

// A TIFF over bytes held by the test.
class Opened {
public:
    explicit Opened(const std::vector<uint8_t>& bytes) : bytes_(bytes) {
        tiff = OpenTiffFromMemory(bytes_.data(), static_cast<uint32_t>(bytes_.size()), &record);
    }
    ~Opened() {
        if (tiff != nullptr) CloseTiff(tiff, nullptr);
    }
    TiffFile* tiff = nullptr;
    ErrorRecord record;

private:
    std::vector<uint8_t> bytes_;
};

uint32_t OpenCode(const std::vector<uint8_t>& bytes) {
    Opened t(bytes);
    return t.record.code;
}

std::u16string Detail(const ErrorRecord& record) {
    std::u16string message(record.message);
    size_t at = message.find(u"\r\n");
    return at == std::u16string::npos ? u"" : message.substr(at + 2);
}

// A one-strip 8-bit grey page of 10 x 4 pixels whose data sits at 8.
std::vector<Field> GreyPage(uint64_t dataOffset = 8) {
    return {Short(256, {10}), Short(257, {4}),         Short(258, {8}),       Short(259, {1}),
            Short(262, {1}),  Long(273, {dataOffset}), Short(277, {1}),       Short(278, {4}),
            Long(279, {40}),  Rational(282, 300, 1),   Rational(283, 150, 1), Short(296, {2})};
}

std::vector<uint8_t> PagesFile(int pages) {
    TiffBuilder b(false, false);
    for (int i = 0; i < 40; ++i) b.Put(static_cast<uint64_t>(i), 1);
    for (int i = 0; i < pages; ++i) b.AddDirectory(GreyPage());
    return b.bytes();
}

TEST(TiffHeader, RefusesWhatIsNotATiff) {
    std::vector<uint8_t> empty = {'I', 'I', 42, 0, 0, 0, 0, 0};
    EXPECT_EQ(OpenCode(empty), 0u);
    {
        // No pages yet: page 1 is bad data, or "IFD not found." when asked.
        Opened t(empty);
        LocatePage(t.tiff, 1, 0, &t.record);
        EXPECT_EQ(t.record.code, kErrBadFileData);
        ErrorRecord r2;
        LocatePage(t.tiff, 1, kLocateIfdNotFound, &r2);
        EXPECT_EQ(r2.code, kErrIfdNotFound);
        ErrorRecord r3;
        EXPECT_EQ(CountPages(t.tiff, &r3), 0u);
    }
    EXPECT_EQ(OpenCode({'I', 'I', 42, 0, 4, 0, 0, 0}), kErrUnrecognizedFormat);
    EXPECT_EQ(OpenCode({'I', 'I', 42, 0, 8}), kErrUnrecognizedFormat);  // truncated
    EXPECT_EQ(OpenCode({'I', 'M', 42, 0, 8, 0, 0, 0}), kErrUnrecognizedFormat);
    EXPECT_EQ(OpenCode({'I', 'I', 44, 0, 8, 0, 0, 0}), kErrUnrecognizedFormat);
    EXPECT_EQ(OpenCode({'B', 'V', 42, 0, 8, 0, 0, 0}), kErrUnrecognizedFormat);  // only as a working file
    EXPECT_EQ(OpenCode({'M', 'M', 0, 43, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16}), kErrUnsupportedFileType);
    EXPECT_EQ(OpenCode({'I', 'I', 43, 0, 8, 0, 1, 0, 16, 0, 0, 0, 0, 0, 0, 0}), kErrUnrecognizedFormat);
    EXPECT_EQ(OpenCode({'I', 'I', 43, 0, 8, 0, 0, 0, 12, 0, 0, 0, 0, 0, 0, 0}), kErrUnrecognizedFormat);
    EXPECT_EQ(OpenCode({'I', 'I', 43, 0, 8, 0, 0, 0, 16, 0}), kErrUnrecognizedFormat);  // truncated
}

TEST(TiffChain, MissingPagesNameTheFileAndPage) {
    Opened t(PagesFile(2));
    ASSERT_TRUE(t.record.ok());
    EXPECT_TRUE(LocatePage(t.tiff, 2, 0, &t.record));
    EXPECT_EQ(CountPages(t.tiff, &t.record), 2u);
    LocatePage(t.tiff, 3, 0, &t.record);
    EXPECT_EQ(t.record.code, kErrIfdNotFound);
    EXPECT_EQ(Detail(t.record), u"(3)");  // a memory stream has no name

    // A file's name appears in the detail.
    std::u16string path =
        platform::SystemTempDirectory() + u"vlm_chain_test" + platform::WideFromUtf8(testing::ProcessTag()) + u".tif";
    {
        ErrorRecord record;
        Stream* s = OpenFileStream(path.c_str(), kStreamWrite, false, true, &record);
        std::vector<uint8_t> bytes = PagesFile(2);
        StreamWrite(s, bytes.data(), static_cast<uint32_t>(bytes.size()), &record);
        CloseStream(s, &record);
        TiffFile* tiff = OpenTiffFile(path.c_str(), kStreamRead, false, &record);
        ASSERT_NE(tiff, nullptr);
        LocatePage(tiff, 3, 0, &record);
        EXPECT_EQ(Detail(record), path + u"(3)");
        CloseTiff(tiff, nullptr);
        uint32_t error = 0;
        platform::FileDelete(path, &error);
    }
}

TEST(TiffChain, LoopsAreBadDataNeverHangs) {
    for (size_t target : {0, 1, 2}) {
        TiffBuilder b(false, false);
        for (int i = 0; i < 3; ++i) b.AddDirectory(GreyPage());
        b.SetNext(2, b.directory(target));
        Opened t(b.bytes());
        EXPECT_TRUE(LocatePage(t.tiff, 3, 0, &t.record)) << target;
        ErrorRecord count;
        EXPECT_EQ(CountPages(t.tiff, &count), 0u);
        EXPECT_EQ(count.code, kErrBadFileData) << target;
        ErrorRecord beyond;
        LocatePage(t.tiff, 4, 0, &beyond);
        EXPECT_EQ(beyond.code, kErrBadFileData);
    }
    // A directory that names itself, read from an explicit offset.
    TiffBuilder b(false, false);
    b.AddDirectory(GreyPage());
    b.SetNext(0, b.directory(0));
    Opened t(b.bytes());
    LocateDirectoryAt(t.tiff, b.directory(0), 5, 0, &t.record);
    EXPECT_EQ(t.record.code, kErrBadFileData);
}

TEST(TiffChain, TruncationAndLyingOffsets) {
    // The next offset of page 1 points past the end: page 2 does not exist.
    {
        TiffBuilder b(false, false);
        b.AddDirectory(GreyPage());
        b.SetNext(0, 1u << 30);
        Opened t(b.bytes());
        EXPECT_EQ(CountPages(t.tiff, &t.record), 1u);
        LocatePage(t.tiff, 2, 0, &t.record);
        EXPECT_EQ(t.record.code, kErrIfdNotFound);
    }
    // A directory cut short: bad data for page 1.
    {
        std::vector<uint8_t> bytes = PagesFile(1);
        bytes.resize(bytes.size() - 20);
        Opened t(bytes);
        LocatePage(t.tiff, 1, 0, &t.record);
        EXPECT_EQ(t.record.code, kErrBadFileData);
    }
    // A next offset of 1 to 7 is damage.
    {
        TiffBuilder b(false, false);
        b.AddDirectory(GreyPage());
        b.SetNext(0, 3);
        Opened t(b.bytes());
        LocatePage(t.tiff, 2, 0, &t.record);
        EXPECT_EQ(t.record.code, kErrBadFileData);
    }
    // Values outside the file, and counts no file could hold, fail before
    // anything is allocated for them.
    for (uint64_t count : {uint64_t{3}, uint64_t{0x40000000}, uint64_t{0xFFFFFFFF}}) {
        TiffBuilder b(false, false);
        b.AddDirectory({Short(256, {10}), Short(257, {4}), Field{273, 4, count, {}, 0x7FFFFFF0}, Long(279, {40})});
        Opened t(b.bytes());
        TiffPageInfo info;
        SetWanted(&info, kFieldDataOffsets);
        EXPECT_FALSE(ReadPageInfo(t.tiff, 1, 0, &info, &t.record));
        EXPECT_EQ(t.record.code, kErrBadFileData) << count;
        EXPECT_EQ(info.offsets.handle, nullptr);
    }
}

TEST(TiffPage, WrongTypesAndHugeDimensionsAreBadImageData) {
    auto code = [](std::vector<Field> fields, uint32_t flags, bool check) {
        TiffBuilder b(false, false);
        for (int i = 0; i < 40; ++i) b.Put(0, 1);
        b.AddDirectory(fields);
        Opened t(b.bytes());
        TiffPageInfo info;
        SetWantedList(&info, kFieldImageWidth, kFieldImageLength, kFieldListEnd);
        if (ReadPageInfo(t.tiff, 1, flags, &info, &t.record) && check) CheckImageStructure(t.tiff, &info, &t.record);
        FreePageInfo(&info);
        return t.record.code;
    };
    std::vector<Field> page = GreyPage();
    EXPECT_EQ(code(page, kReadStructure, true), 0u);
    page[0] = Short(256, {10, 10});  // ImageWidth with count 2
    EXPECT_EQ(code(page, 0, false), kErrBadImageData);
    page[0] = Field{256, 5, 1, {10, 1}};  // a RATIONAL width
    EXPECT_EQ(code(page, 0, false), kErrBadImageData);
    page[0] = Long(256, {0x7FFFFFFF});  // fine as information, too big to decode
    EXPECT_EQ(code(page, kReadStructure, false), 0u);
    EXPECT_EQ(code(page, kReadStructure, true), kErrBadImageData);
    page = GreyPage();
    page[7] = Short(278, {1});  // four strips needed, one given
    EXPECT_EQ(code(page, kReadStructure, true), kErrBadImageData);
    page = GreyPage();
    page[4] = Short(262, {3});  // a palette page without a colour map
    EXPECT_EQ(code(page, kReadStructure, true), kErrBadImageData);
}

TEST(TiffPage, DuplicateTagsAreReadButNotConformant) {
    TiffBuilder b(false, false);
    std::vector<Field> page = GreyPage();
    page.insert(page.begin() + 1, Short(256, {99}));
    b.AddDirectory(page);
    Opened t(b.bytes());
    EXPECT_TRUE(LocatePage(t.tiff, 1, 0, &t.record));
    EXPECT_FALSE(LocatePage(t.tiff, 1, kLocateStrict, &t.record));
    EXPECT_TRUE(t.record.ok());
    TiffPageInfo info;
    SetWanted(&info, kFieldImageWidth);
    ASSERT_TRUE(ReadPageInfo(t.tiff, 1, kReadStrict, &info, &t.record));
    EXPECT_FALSE(info.conformant);
    EXPECT_EQ(info.width, 10u);  // the first of the two
    // Unsorted directories are still searched in any order.
    EXPECT_NE(FindEntry(t.tiff, 296), nullptr);
    EXPECT_NE(FindEntry(t.tiff, 257), nullptr);
    FreePageInfo(&info);
}

// The same two pages in every byte order and form, 16-byte BigTIFF entries
// among them, read the same. (Pages of the forms libtiff writes are read
// against libtiff in the TIFF corpus.)
class TiffForms : public ::testing::TestWithParam<std::tuple<bool, bool, uint32_t>> {};

TEST_P(TiffForms, PagesReadTheSame) {
    auto [bigEndian, big, entrySize] = GetParam();
    TiffBuilder b(bigEndian, big, entrySize);
    for (int i = 0; i < 600; ++i) b.Put(static_cast<uint64_t>(i & 0xFF), 1);
    std::vector<Field> page = GreyPage(big ? 16 : 8);
    page[2] = Short(258, {8, 8, 8});
    page[6] = Short(277, {3});
    page[7] = Short(278, {2});
    page[5] = big ? Field{273, 16, 2, {16, 136}} : Long(273, {8, 128});
    page[8] = Long(279, {120, 120});
    page.push_back(Ascii(305, "velmora test"));
    page.push_back(Short(297, {1, 2}));
    page.push_back(Rational(33941, 1200, 7));
    b.AddDirectory(page);
    b.AddDirectory(GreyPage());
    Opened t(b.bytes());
    ASSERT_TRUE(t.record.ok());
    EXPECT_EQ(TiffIsBig(t.tiff), big);
    EXPECT_EQ(CountPages(t.tiff, &t.record), 2u);

    TiffPageInfo info;
    SetWantedList(&info, kFieldSoftware, kFieldPageNumber, kFieldXScale, kFieldListEnd);
    ASSERT_TRUE(ReadPageInfo(t.tiff, 1, kReadStructure, &info, &t.record)) << platform::Utf8FromWide(t.record.message);
    ASSERT_TRUE(CheckImageStructure(t.tiff, &info, &t.record));
    // Fields libtiff does not read.
    EXPECT_FALSE(info.bitsPerSampleDiffer);
    EXPECT_EQ(info.yScale.numerator, 150u);
    EXPECT_EQ(info.xScale.numerator, 1200u);
    EXPECT_EQ(info.xScale.denominator, 7u);
    EXPECT_TRUE(info.hasPrivateScale);
    EXPECT_EQ(info.pageNumber[1], 2);
    ASSERT_TRUE(IsPresent(&info, kFieldSoftware));
    EXPECT_STREQ(static_cast<const char*>(platform::MemLock(info.software.handle)), "velmora test");
    platform::MemUnlock(info.software.handle);
    TiffStripBuffer buffer;
    uint32_t size = 0;
    const uint8_t* strip = buffer.Read(t.tiff, &info, 1, &size, &t.record);
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(size, 120u);
    EXPECT_EQ(strip[0], 120);
    FreePageInfo(&info);
    EXPECT_GT(GetPageDirectorySize(t.tiff, 1, &t.record), 240u);
}

INSTANTIATE_TEST_SUITE_P(TiffStructure, TiffForms,
                         ::testing::Values(std::make_tuple(false, false, 12u), std::make_tuple(true, false, 12u),
                                           std::make_tuple(false, true, 20u), std::make_tuple(true, true, 20u),
                                           std::make_tuple(false, true, 16u), std::make_tuple(true, true, 16u)));

TEST(TiffFileLifecycle, MemoryTiffStartsWithAHeaderAndBaseOffsetsWork) {
    ErrorRecord record;
    TiffFile* tiff = OpenMemoryTiff(&record);
    ASSERT_NE(tiff, nullptr);
    Stream* left = CloseTiff(tiff, &record);
    ASSERT_NE(left, nullptr);
    EXPECT_EQ(testing_support::CloseAndTake(left, &record), (std::vector<uint8_t>{'I', 'I', 42, 0, 0, 0, 0, 0}));

    // A TIFF embedded 100 bytes into another stream: offsets count from its start.
    std::vector<uint8_t> outer(100, 0xEE);
    std::vector<uint8_t> inner = PagesFile(1);
    outer.insert(outer.end(), inner.begin(), inner.end());
    Stream* stream = OpenFixedMemoryStream(outer.data(), static_cast<uint32_t>(outer.size()), &record);
    tiff = OpenTiffFromStream(stream, 100, false, false, false, &record);
    ASSERT_NE(tiff, nullptr);
    TiffPageInfo info;
    ASSERT_TRUE(ReadPageInfo(tiff, 1, kReadStructure, &info, &record));
    ASSERT_TRUE(CheckImageStructure(tiff, &info, &record));
    TiffStripBuffer buffer;
    uint32_t size = 0;
    const uint8_t* strip = buffer.Read(tiff, &info, 0, &size, &record);
    ASSERT_NE(strip, nullptr);
    EXPECT_EQ(strip[39], 39);
    EXPECT_EQ(TiffFromHandle(TiffHandle(tiff)), tiff);
    EXPECT_EQ(TiffFromHandle(StreamHandle(stream)), nullptr);
    FreePageInfo(&info);
    EXPECT_EQ(CloseTiff(tiff, &record), nullptr);
    CloseStream(stream, &record);
}

}  // namespace
}  // namespace velmora
