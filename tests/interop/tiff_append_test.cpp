// Appends under stress, checked with libtiff: a process killed at every point
// of an append leaves a file whose old pages libtiff reads; a write that fails
// at any point, or a disk that fills up, leaves the file byte for byte as it
// was; big-endian files grow
// by big-endian pages; and the memory an append needs does not grow with the
// number of pages.
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/peers.h"
#include "velmora/velmora.h"

namespace {

using velmora::peers::ReadFile;
using velmora::peers::TempDir;
using velmora::peers::WriteFile;

// Writes `pages` pages with libtiff: bi-level Group 4 pages in strips of 64
// rows alternating with RGB LZW pages, each with its own pattern.
void WriteSource(const std::string& path, int pages, uint32_t width, uint32_t height, const char* mode = "w") {
    TIFF* tif = TIFFOpen(path.c_str(), mode);
    ASSERT_NE(tif, nullptr) << path;
    for (int page = 0; page < pages; ++page) {
        const bool bilevel = page % 2 == 0;
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bilevel ? 1 : 8);
        TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, bilevel ? 1 : 3);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, bilevel ? PHOTOMETRIC_MINISWHITE : PHOTOMETRIC_RGB);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, bilevel ? COMPRESSION_CCITTFAX4 : COMPRESSION_LZW);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 64);
        TIFFSetField(tif, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        TIFFSetField(tif, TIFFTAG_PAGENUMBER, page, pages);
        const size_t rowBytes = bilevel ? (width + 7) / 8 : size_t{width} * 3;
        std::vector<uint8_t> row(rowBytes);
        for (uint32_t y = 0; y < height; ++y) {
            for (size_t i = 0; i < rowBytes; ++i) {
                row[i] = static_cast<uint8_t>(((i / 3 + y / 5 + page) % 7 == 0 ? 0xF0 : 0) ^ (y * 13 + i * page));
            }
            ASSERT_EQ(TIFFWriteScanline(tif, row.data(), y, 0), 1);
        }
        ASSERT_TRUE(TIFFWriteDirectory(tif));
    }
    TIFFClose(tif);
}

// The pages libtiff reads in full from `path` (0 when it cannot open it),
// each page's pixels appended to `pixels`.
int ReadablePages(const std::string& path, std::vector<uint32_t>* pixels = nullptr) {
    TIFFSetWarningHandler(nullptr);
    TIFFSetErrorHandler(nullptr);
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return 0;
    int pages = 0;
    do {
        uint32_t w = 0, h = 0;
        TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
        TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
        std::vector<uint32_t> raster(size_t{w} * h);
        if (!TIFFReadRGBAImage(tif, w, h, raster.data(), 0)) break;
        if (pixels != nullptr) pixels->insert(pixels->end(), raster.begin(), raster.end());
        ++pages;
    } while (TIFFReadDirectory(tif));
    TIFFClose(tif);
    return pages;
}

// Runs `work` in a child process whose files may not grow past `limit`
// bytes: with `killed` the first write past it ends the process (SIGXFSZ),
// otherwise that write fails. Returns the child's wait status.
template <typename Work>
int WithFileSizeLimit(uint64_t limit, bool killed, Work work) {
    pid_t child = fork();
    if (child == 0) {
        rlimit rl{static_cast<rlim_t>(limit), static_cast<rlim_t>(limit)};
        setrlimit(RLIMIT_FSIZE, &rl);
        if (!killed) signal(SIGXFSZ, SIG_IGN);
        _exit(work() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

class TiffAppend : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir_.ok());
        WriteSource(destination_, 2, 300, 200);
        WriteSource(source_, 2, 640, 480);
        original_ = ReadFile(destination_);
        ASSERT_EQ(ReadablePages(destination_, &originalPixels_), 2);
    }
    TempDir dir_{"velmora-append"};
    const std::string destination_ = dir_.Path("destination.tif"), source_ = dir_.Path("source.tif"),
                      work_ = dir_.Path("work.tif");
    std::vector<uint8_t> original_;
    std::vector<uint32_t> originalPixels_;
};

// Appends every page of the source, or only its second page coded again.
bool AppendAll(const std::string& destination, const std::string& source) {
    HGLOBAL tiff = OpenVelmoraTIFF(destination.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 0);
    if (tiff == nullptr) return false;
    BOOL ok = AppendVelmoraOpenTIFF(tiff, source.c_str());
    return CloseVelmoraTIFF(tiff) && ok;
}

bool AppendOnePage(const std::string& destination, const std::string& source, WORD compression) {
    HGLOBAL tiff = OpenVelmoraTIFF(destination.c_str(), VELMORA_TIFF_READ | VELMORA_TIFF_WRITE, 0);
    if (tiff == nullptr) return false;
    VelmoraAppendTIFF append = {};
    append.size = VELMORA_APPEND_TIFF_SIZE_V1;
    append.sourceName = source.c_str();
    append.sourcePage = 2;
    append.compression = compression;
    BOOL ok = AppendVelmoraOpenTIFFEx(tiff, &append);
    return CloseVelmoraTIFF(tiff) && ok;
}

TEST_F(TiffAppend, KilledAtAnyPointTheOldPagesStayReadable) {
    WriteFile(work_, original_);
    ASSERT_TRUE(AppendAll(work_, source_));
    const uint64_t start = original_.size(), end = ReadFile(work_).size();
    ASSERT_EQ(ReadablePages(work_), 4);
    int kills = 0;
    for (uint64_t limit = start; limit < end; limit += (end - start) / 97 + 1) {
        WriteFile(work_, original_);
        int status = WithFileSizeLimit(limit, true, [&] { return AppendAll(work_, source_); });
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << "limit " << limit;
        std::vector<uint32_t> pixels;
        int pages = ReadablePages(work_, &pixels);
        ASSERT_GE(pages, 2) << "killed at " << limit << " bytes";
        pixels.resize(originalPixels_.size());
        EXPECT_TRUE(pixels == originalPixels_) << "killed at " << limit << " bytes";
        ++kills;
    }
    EXPECT_GT(kills, 90);
}

TEST_F(TiffAppend, AWriteFailingAtAnyPointLeavesTheFileAsItWas) {
    for (WORD compression : {WORD{VELMORA_COMPRESSION_DEFAULT}, WORD{VELMORA_COMPRESSION_JPEG}}) {
        WriteFile(work_, original_);
        ASSERT_TRUE(AppendOnePage(work_, source_, compression));
        const uint64_t start = original_.size(), end = ReadFile(work_).size();
        for (uint64_t limit = start; limit < end; limit += (end - start) / 61 + 1) {
            WriteFile(work_, original_);
            int status = WithFileSizeLimit(limit, false, [&] { return AppendOnePage(work_, source_, compression); });
            ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << "limit " << limit;
            ASSERT_TRUE(ReadFile(work_) == original_) << "compression " << compression << ", failed at " << limit;
        }
    }
}

// A small file system of its own (tmpfs, so root only): the destination sits
// on it with less room left than the append needs, in steps from none to
// almost enough; every append fails with "disk full" and leaves the file as
// it was, both in place and through the temporary copy AppendVelmoraTIFF
// makes beside it.
TEST_F(TiffAppend, AFullDiskLeavesTheFileAsItWas) {
    TempDir mount("velmora-full-disk");
    ASSERT_TRUE(mount.ok());
    const std::string options = "size=" + std::to_string(original_.size() * 4 + (1 << 20));
    if (geteuid() != 0 || ::mount("tmpfs", mount.Path("").c_str(), "tmpfs", 0, options.c_str()) != 0) {
        GTEST_SKIP() << "no small file system can be mounted here";
    }
    struct Unmount {
        std::string path;
        ~Unmount() { umount(path.c_str()); }
    } unmount{mount.Path("")};
    WriteFile(work_, original_);
    ASSERT_TRUE(AppendOnePage(work_, source_, VELMORA_COMPRESSION_DEFAULT));
    const uint64_t needed = ReadFile(work_).size() - original_.size();
    const std::string destination = mount.Path("destination.tif"), filler = mount.Path("filler");
    int failures = 0;
    for (uint64_t room = 0; room < needed; room += needed / 13 + 1) {
        for (bool inPlace : {true, false}) {
            unlink(filler.c_str());
            WriteFile(destination, original_);
            struct statvfs fs {};
            ASSERT_EQ(statvfs(destination.c_str(), &fs), 0);
            const uint64_t free = uint64_t{fs.f_bavail} * fs.f_frsize;
            ASSERT_GT(free, room);
            WriteFile(filler, std::vector<uint8_t>(free - room));
            const bool appended = inPlace ? AppendOnePage(destination, source_, VELMORA_COMPRESSION_DEFAULT)
                                          : AppendVelmoraTIFF(destination.c_str(), source_.c_str()) != 0;
            ASSERT_FALSE(appended) << room << " bytes free";
            EXPECT_EQ(GetLastVelmoraErrorCode(), 112u) << room << " bytes free";
            ASSERT_TRUE(ReadFile(destination) == original_) << room << " bytes free, in place " << inPlace;
            ++failures;
        }
    }
    unlink(filler.c_str());
    unlink(destination.c_str());
    EXPECT_GT(failures, 20);
}

TEST_F(TiffAppend, BigEndianFilesGrowByBigEndianPages) {
    WriteSource(work_, 1, 120, 90, "wb");
    ASSERT_TRUE(AppendOnePage(work_, source_, VELMORA_COMPRESSION_DEFAULT));
    ASSERT_TRUE(AppendOnePage(work_, source_, VELMORA_COMPRESSION_PACKBITS));
    const std::vector<uint8_t> bytes = ReadFile(work_);
    ASSERT_EQ(bytes[0], 'M');
    EXPECT_EQ(velmora::peers::Output("tiffinfo -D '" + work_ + "' 2>&1 >/dev/null"), "");
    std::vector<uint32_t> pixels, sourcePixels;
    ASSERT_EQ(ReadablePages(work_, &pixels), 3);
    ASSERT_EQ(ReadablePages(source_, &sourcePixels), 2);
    const size_t first = size_t{120} * 90, page = size_t{640} * 480;
    ASSERT_EQ(pixels.size(), first + 2 * page);
    EXPECT_TRUE(std::equal(pixels.begin() + first, pixels.begin() + first + page, sourcePixels.begin() + page));
    EXPECT_TRUE(std::equal(pixels.begin() + first + page, pixels.end(), sourcePixels.begin() + page));
}

// The largest resident size of `velmora convert` over a source of `pages`,
// as GNU time measures it: a child forked from this (large) test process
// would count the pages it shared with it before its exec.
long ConvertPeakKilobytes(const TempDir& dir, int pages) {
    const std::string source = dir.Path("pages" + std::to_string(pages) + ".tif"), out = source + ".out.tif";
    WriteSource(source, pages, 1728, 256);
    // Under AddressSanitizer freed blocks wait in a quarantine and every
    // allocation's call stack is kept: neither is the program's memory.
    const std::string peak = velmora::peers::Output(
        "ASAN_OPTIONS=quarantine_size_mb=0:detect_leaks=0:malloc_context_size=0 /usr/bin/time -f %M '" VELMORA_CLI
        "' convert '" +
        source + "' '" + out + "' --compression lzw 2>&1 >/dev/null");
    EXPECT_EQ(ReadablePages(out), pages);
    return std::strtol(peak.c_str(), nullptr, 10);
}

TEST_F(TiffAppend, PeakMemoryDoesNotGrowWithThePageCount) {
    REQUIRE_PEER(velmora::peers::Have("/usr/bin/time"), "GNU time");
    const long ten = ConvertPeakKilobytes(dir_, 10), thousand = ConvertPeakKilobytes(dir_, 1000);
    EXPECT_LE(thousand, ten + ten / 10) << "10 pages: " << ten << " kB, 1000 pages: " << thousand << " kB";
}

}  // namespace
