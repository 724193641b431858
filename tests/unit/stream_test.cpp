// Streams and file-name helpers: the behaviour parsers and writers rely on.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/error_record.h"
#include "io/file_names.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "../support/memory_stream.h"

namespace velmora {
namespace {

class TempDir {
public:
    TempDir() {
        uint32_t error = 0;
        std::u16string file;
        EXPECT_TRUE(platform::CreateTempFile(platform::SystemTempDirectory(), u"vst", &file, &error));
        platform::FileDelete(file, &error);
        path_ = file + platform::PathSeparator();
        EXPECT_TRUE(platform::CreateDirectories(file, &error));
    }
    ~TempDir() {
        uint32_t error = 0;
        for (const std::u16string& f : files_) platform::FileDelete(f, &error);
        std::string dir = platform::Utf8FromWide(path_);
        std::remove(dir.c_str());
    }
    std::u16string File(const char16_t* name) {
        files_.push_back(path_ + name);
        return path_ + name;
    }
    const std::u16string& path() const { return path_; }

private:
    std::u16string path_;
    std::vector<std::u16string> files_;
};

std::u16string Detail(const ErrorRecord& record) {
    std::u16string message(record.message);
    size_t at = message.find(u"\r\n");
    return at == std::u16string::npos ? u"" : message.substr(at + 2);
}

TEST(Streams, MemoryStreamReadsShortAndGrowsToExactSize) {
    ErrorRecord record;
    Stream* stream = OpenMemoryStream(false, &record);
    ASSERT_NE(stream, nullptr);
    EXPECT_TRUE(StreamCreated(stream));
    EXPECT_TRUE(StreamIsMemory(stream));
    uint8_t data[100];
    for (int i = 0; i < 100; ++i) data[i] = static_cast<uint8_t>(i);
    StreamWrite(stream, data, 60, &record);
    StreamWrite(stream, data + 60, 40, &record);
    EXPECT_EQ(StreamSize(stream, &record), 100u);

    // Reading past the end is silent without a short-read code.
    uint8_t out[10] = {};
    StreamSeek(stream, 95, &record);
    EXPECT_EQ(StreamRead(stream, out, 10, 0, &record), 5u);
    EXPECT_TRUE(record.ok());
    EXPECT_EQ(out[0], 95);
    StreamSeek(stream, 95, &record);
    EXPECT_EQ(StreamRead(stream, out, 10, kErrBadFileData, &record), 5u);
    EXPECT_EQ(record.code, kErrBadFileData);
    EXPECT_EQ(std::u16string(record.message), u"Bad file data.");

    // A position beyond the end reads nothing; a write there extends.
    ErrorRecord more;
    StreamSeek(stream, 500, &more);
    EXPECT_EQ(StreamRead(stream, out, 10, 0, &more), 0u);
    StreamSeek(stream, 990, &more);
    StreamWrite(stream, data, 10, &more);
    EXPECT_EQ(StreamSize(stream, &more), 1000u);
    StreamSetSize(stream, 10, &more);
    EXPECT_EQ(StreamSize(stream, &more), 10u);
    StreamSetSize(stream, 1000, &more);  // within the capacity: the size only
    std::vector<uint8_t> bytes = testing_support::CloseAndTake(stream, &more);
    ASSERT_TRUE(more.ok());
    ASSERT_EQ(bytes.size(), 1000u);
    EXPECT_EQ(bytes[3], 3);

    // An empty stream, and a discarding one, hand nothing back.
    EXPECT_EQ(CloseStream(OpenMemoryStream(false, &more), &more), nullptr);
    Stream* discard = OpenMemoryStream(true, &more);
    StreamWrite(discard, data, 10, &more);
    EXPECT_EQ(CloseStream(discard, &more), nullptr);
}

TEST(Streams, ReservedCapacityKeepsSizeAndContents) {
    ErrorRecord record;
    Stream* stream = OpenMemoryStream(false, &record);
    StreamWrite(stream, "abcd", 4, &record);
    SetMemoryStreamSize(stream, 4096, 77, &record);
    EXPECT_EQ(StreamSize(stream, &record), 4u);
    EXPECT_EQ(MemoryStreamReserve(stream), 77u);
    SetMemoryStreamSize(stream, 10, -2, &record);  // smaller: nothing changes
    EXPECT_EQ(MemoryStreamReserve(stream), 77u);
    StreamWrite(stream, "efgh", 4, &record);
    EXPECT_EQ(testing_support::CloseAndTake(stream, &record),
              (std::vector<uint8_t>{'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}));
    EXPECT_TRUE(record.ok());
}

TEST(Streams, ReadOnlyKindsAndWindows) {
    static const uint8_t kData[] = "0123456789";
    ErrorRecord record;
    Stream* fixed = OpenFixedMemoryStream(kData, 10, &record);
    StreamWrite(fixed, "x", 1, &record);
    EXPECT_EQ(record.code, static_cast<uint32_t>(ERROR_ACCESS_DENIED));

    ErrorRecord r2;
    Stream* window = OpenWindowStream(fixed, 3, 4, &r2);
    EXPECT_EQ(StreamSize(window, &r2), 4u);
    char out[8] = {};
    EXPECT_EQ(StreamRead(window, out, 8, 0, &r2), 4u);
    EXPECT_STREQ(out, "3456");
    StreamSeek(window, 2, &r2);
    EXPECT_EQ(StreamRead(window, out, 1, 0, &r2), 1u);
    EXPECT_EQ(out[0], '5');
    StreamSetSize(window, 1, &r2);
    EXPECT_EQ(r2.code, static_cast<uint32_t>(ERROR_ACCESS_DENIED));

    ErrorRecord r3;
    Stream* empty = OpenWindowStream64(fixed, 5, 0, &r3);
    EXPECT_EQ(StreamSize64(empty, &r3), 0u);
    EXPECT_EQ(StreamRead(empty, out, 4, 0, &r3), 0u);
    EXPECT_EQ(StreamRead(empty, out, 4, kErrBadFileData, &r3), 0u);
    EXPECT_EQ(r3.code, kErrBadFileData);
    CloseStream(empty, nullptr);
    CloseStream(window, nullptr);
    // The inner stream outlives its windows.
    ErrorRecord r4;
    StreamSeek(fixed, 0, &r4);
    EXPECT_EQ(StreamRead(fixed, out, 2, 0, &r4), 2u);
    CloseStream(fixed, nullptr);
}

TEST(Streams, FilesOpenCreateAndReportTheirNames) {
    TempDir dir;
    std::u16string name = dir.File(u"a.bin");
    ErrorRecord record;
    EXPECT_EQ(OpenFileStream(name.c_str(), kStreamRead, true, false, &record), nullptr);
    EXPECT_EQ(record.code, static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(Detail(record), u"Unable to open or create file (" + name + u")");

    ErrorRecord r2;
    Stream* created = OpenFileStream(name.c_str(), kStreamRead | kStreamWrite, true, true, &r2);
    ASSERT_NE(created, nullptr);
    EXPECT_TRUE(StreamCreated(created));
    EXPECT_EQ(std::u16string(StreamName(created)), name);
    StreamWrite(created, "hello", 5, &r2);
    StreamFail(created, kErrBadFileData, &r2);
    EXPECT_EQ(Detail(r2), name);
    CloseStream(created, nullptr);

    ErrorRecord r3;
    Stream* again = OpenFileStream(name.c_str(), kStreamRead | kStreamWrite, true, true, &r3);
    ASSERT_NE(again, nullptr);
    EXPECT_FALSE(StreamCreated(again));
    EXPECT_EQ(StreamSize(again, &r3), 5u);
    StreamSetSize(again, 2, &r3);
    EXPECT_EQ(StreamSize(again, &r3), 2u);
    CloseStream(again, &r3);
    EXPECT_TRUE(r3.ok());

    // Write only starts afresh.
    Stream* fresh = OpenFileStream(name.c_str(), kStreamWrite, false, false, &r3);
    ASSERT_NE(fresh, nullptr);
    EXPECT_TRUE(StreamCreated(fresh));
    EXPECT_EQ(StreamSize(fresh, &r3), 0u);
    CloseStream(fresh, &r3);
}

TEST(Streams, FileSeeksBeyondTwoGigabytes) {
    TempDir dir;
    std::u16string name = dir.File(u"sparse.bin");
    ErrorRecord record;
    Stream* stream = OpenFileStream(name.c_str(), kStreamRead | kStreamWrite, false, true, &record);
    ASSERT_NE(stream, nullptr);
    StreamSeek(stream, 0x80000010u, &record);
    StreamWrite(stream, "wxyz", 4, &record);
    ASSERT_TRUE(record.ok()) << platform::Utf8FromWide(record.message);
    EXPECT_EQ(StreamSize(stream, &record), 0x80000014u);
    EXPECT_EQ(StreamTell(stream), 0x80000014u);
    char out[4] = {};
    StreamSeek(stream, 0x80000011u, &record);
    EXPECT_EQ(StreamRead(stream, out, 4, 0, &record), 3u);
    EXPECT_EQ(std::string(out, 3), "xyz");
    CloseStream(stream, &record);
}

#if !defined(_WIN32)
TEST(Streams, ComStreamsAreRefusedWithoutCom) {
    ErrorRecord record;
    EXPECT_EQ(OpenComStream(reinterpret_cast<IStream*>(&record), true, &record), nullptr);
    EXPECT_EQ(record.code, static_cast<uint32_t>(ERROR_CALL_NOT_IMPLEMENTED));
}
#endif

TEST(FileNames, TemporaryNamesSkipTakenOnesAndCount) {
    TempDir dir;
    // Names with an extension follow the counter: a taken name (file or
    // directory) moves on to the next value.
    SetTempNameCounter(0x1234E);
    std::u16string taken = dir.File(u"vlm1234E.tif");
    uint32_t error = 0;
    platform::FileHandle f = platform::FileOpen(taken, platform::FileAccess::CreateNew, &error);
    platform::FileClose(f);
    std::u16string sub = dir.path() + u"vlm1234F.tif";
    ASSERT_TRUE(platform::CreateDirectories(sub, &error));
    ErrorRecord record;
    std::u16string name;
    ASSERT_TRUE(MakeTempFile(dir.path().c_str(), kTempPrefixId, u".tif", &name, &record));
    EXPECT_EQ(name, dir.path() + u"vlm12350.tif");
    EXPECT_EQ(TempNameCounter(), 0x12351u);
    // The counter wraps at 20 bits; 0 reseeds it from the tick count.
    SetTempNameCounter(0xFFFFF);
    std::u16string last;
    ASSERT_TRUE(MakeTempFile(dir.path().c_str(), kTempPrefixId, u".tif", &last, &record));
    EXPECT_EQ(last, dir.path() + u"vlmFFFFF.tif");
    EXPECT_EQ(TempNameCounter(), 0u);
    DeleteFileName(last.c_str(), &record);
    DeleteFileName(name.c_str(), &record);
    std::remove(platform::Utf8FromWide(sub).c_str());

    // Without an extension the system names it, in the directory asked for.
    ASSERT_TRUE(MakeTempFile(dir.path().c_str(), kTempPrefixId, nullptr, &name, &record));
    EXPECT_EQ(DirectoryOf(name), dir.path());
    EXPECT_TRUE(FileNameExists(name.c_str()));
    EXPECT_TRUE(DeleteFileName(name.c_str(), &record));
    EXPECT_FALSE(DeleteFileName(name.c_str(), &record));
    EXPECT_EQ(record.code, static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST(FileNames, ReplaceThroughTemporaryAndMove) {
    TempDir dir;
    std::u16string target = dir.File(u"target.tif"), source = dir.File(u"source.tif");
    auto write = [](const std::u16string& path, const char* text) {
        uint32_t error = 0;
        platform::FileHandle f = platform::FileOpen(path, platform::FileAccess::CreateReadWrite, &error);
        platform::FileWrite(f, text, std::strlen(text), &error);
        platform::FileClose(f);
    };
    write(target, "old");
    write(source, "new");
    ErrorRecord record;
    std::u16string temporary;
    ASSERT_TRUE(ReplaceThroughTemp(target.c_str(), source.c_str(), false, &temporary, &record));
    EXPECT_FALSE(FileNameExists(source.c_str()));
    EXPECT_FALSE(FileNameExists(temporary.c_str()));
    EXPECT_EQ(DirectoryOf(temporary), dir.path());
    Stream* s = OpenFileStream(target.c_str(), kStreamRead, true, false, &record);
    char out[4] = {};
    StreamRead(s, out, 3, 0, &record);
    EXPECT_STREQ(out, "new");
    CloseStream(s, &record);

    // A source that is missing leaves the target where it was.
    ErrorRecord failed;
    EXPECT_FALSE(ReplaceThroughTemp(target.c_str(), source.c_str(), false, nullptr, &failed));
    EXPECT_EQ(failed.code, static_cast<uint32_t>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(FileNameExists(target.c_str()));

    // Moving onto an existing file fails and names both files.
    write(source, "x");
    ErrorRecord move;
    EXPECT_FALSE(MoveFileName(source.c_str(), target.c_str(), &move));
    EXPECT_EQ(Detail(move), u"Unable to move file (" + source + u" to " + target + u")");
}

TEST(FileNames, FullPathsAreAbsoluteAndNormalised) {
    ErrorRecord record;
    std::u16string full;
    std::u16string sep(1, platform::PathSeparator());
    std::u16string relative = u"a" + sep + u"." + sep + u"b" + sep + u".." + sep + u"c.tif";
    ASSERT_TRUE(FullPath(relative.c_str(), &full, &record));
    std::u16string tail = sep + u"a" + sep + u"c.tif";
    ASSERT_GT(full.size(), tail.size());
    EXPECT_EQ(full.substr(full.size() - tail.size()), tail);
    EXPECT_EQ(full.find(u".."), std::u16string::npos);
}

}  // namespace
}  // namespace velmora
