// Pages that claim more memory than the process may have must fail with
// "Not enough memory." (8), never end the host. Each page is read in a child
// process whose address space is limited (under AddressSanitizer, which needs
// its own address space, the allocator's size limit of ASAN_OPTIONS does the
// same: ctest sets it for this suite); the parent requires a normal exit
// with the library's error, not a signal.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "tiff_builder.h"
#include "velmora/velmora.h"
#include "temp_names.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELMORA_TEST_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VELMORA_TEST_ASAN 1
#endif

namespace velmora {
namespace {

using testing::Long;
using testing::Short;

constexpr rlim_t kLimit = rlim_t{512} << 20;

// Reads page 1 of `bytes` in a child limited to kLimit; the child's exit
// status: 0 for "Not enough memory.", 1 for another error of the library, 2
// for a page read.
int ReadLimited(const std::vector<uint8_t>& bytes, const char* name) {
    const std::string path = testing::WriteBytes(testing::TempPath(std::string("limits-") + name), bytes);
    const pid_t child = fork();
    if (child == 0) {
#if !defined(VELMORA_TEST_ASAN)
        rlimit limit{kLimit, kLimit};
        setrlimit(RLIMIT_AS, &limit);
#endif
        HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), VELMORA_TIFF_READ, 0);
        HGLOBAL dib = tiff != nullptr ? ReadVelmoraOpenTIFFDIB(tiff, 1) : nullptr;
        if (dib == nullptr && GetLastVelmoraErrorCode() != 8) {
            std::fprintf(stderr, "%s: error 0x%lx\n", name, static_cast<unsigned long>(GetLastVelmoraErrorCode()));
        }
        _exit(dib != nullptr ? 2 : GetLastVelmoraErrorCode() == 8 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::remove(path.c_str());
    if (WIFSIGNALED(status)) ADD_FAILURE() << name << ": ended by signal " << WTERMSIG(status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// One page whose one strip or tile is a few bytes of data.
std::vector<uint8_t> Page(std::vector<testing::Field> fields, bool tiled) {
    testing::TiffBuilder b(false, false);
    b.bytes().resize(64, 0x55);
    fields.push_back(Long(tiled ? 324 : 273, {16}));
    fields.push_back(Long(tiled ? 325 : 279, {32}));
    std::sort(fields.begin(), fields.end(), [](const auto& a, const auto& b) { return a.tag < b.tag; });
    b.SetFirst(b.AddDirectory(fields));
    return b.bytes();
}

TEST(MemoryLimits, HugePagesFailWithTheLibrarysError) {
#if defined(VELMORA_TEST_ASAN)
    const char* options = std::getenv("ASAN_OPTIONS");
    if (options == nullptr || std::strstr(options, "max_allocation_size_mb") == nullptr) {
        GTEST_SKIP() << "needs the allocator's size limit in ASAN_OPTIONS";
    }
#endif
    // A page of 40,000 x 40,000 grey pixels: 1.6 GB of bitmap.
    EXPECT_EQ(ReadLimited(Page({Long(256, {40000}), Long(257, {40000}), Short(258, {8}), Short(259, {1}),
                                Short(262, {1}), Long(278, {40000})},
                               false),
                          "huge-page.tif"),
              0);
    // A small page in one tile of 32768 x 32768 grey pixels: a 1 GB tile buffer.
    EXPECT_EQ(ReadLimited(Page({Long(256, {100}), Long(257, {100}), Short(258, {8}), Short(259, {1}),
                                Short(262, {1}), Long(322, {32768}), Long(323, {32768})},
                               true),
                          "huge-tile.tif"),
              0);
}

}  // namespace
}  // namespace velmora
