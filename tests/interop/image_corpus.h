// Corpora of image files that peers write and decode (the *_corpus.py
// scripts of this folder, helped by peer_images.py), read back through
// ReadVelmoraDIBEx and compared page by page with the peers' pixels.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/pixel_fetch.h"
#include "support/peers.h"
#include "velmora/velmora.h"

namespace velmora {

// Runs `script` of this folder with `arguments`; false (and the script's
// output as a test failure) when it fails.
inline bool RunCorpusScript(const std::string& script, const std::string& arguments) {
    std::string log;
    const bool ok = peers::Output(
        std::string(VELMORA_PYTHON) + " " VELMORA_TEST_SOURCE_DIR "/interop/" + script + " " + arguments + " 2>&1",
        &log);
    if (!ok) ADD_FAILURE() << script << ": " << log;
    return ok;
}

// The first difference between a DIB and rows of red, green, blue from the
// top; empty when there is none.
inline std::string DifferenceFrom(const BITMAPINFOHEADER* h, const std::vector<uint8_t>& rgb, int32_t width,
                                  int32_t height) {
    if (h->biSize != 40 || h->biWidth != width || h->biHeight != height || h->biCompression != BI_RGB) {
        return "header " + std::to_string(h->biWidth) + " x " + std::to_string(h->biHeight);
    }
    if (rgb.size() != size_t{3} * static_cast<uint32_t>(width) * static_cast<uint32_t>(height)) return "no pixels";
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            const uint8_t* p = rgb.data() + 3 * (size_t{static_cast<uint32_t>(y)} * width + x);
            const COLORREF ours = PixelColor(h, PackedBits(h), x, y);
            if (ours != (p[0] | p[1] << 8 | uint32_t{p[2]} << 16)) {
                std::ostringstream where;
                where << "pixel " << x << "," << y << ": " << std::hex << ours;
                return where.str();
            }
        }
    }
    return "";
}

// Checks every page that `listing` in `dir` names. Each line reads
//   file page width height bits xres yres raw
// the page must read as a DIB of that size and depth (bits 0: any), of that
// resolution (unless it is "*"), with the colours of the file `raw`, and
// report no damage; raw "-" names a page past the last (0x02000003).
// Returns the number of pages read.
inline int CheckCorpusPages(const peers::TempDir& dir, const std::string& listing) {
    std::ifstream lines(dir.Path(listing));
    std::string line;
    int pages = 0;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string file, xres, yres, raw;
        DWORD page = 0;
        int32_t width = 0, height = 0, bits = 0;
        if (!(fields >> file >> page >> width >> height >> bits >> xres >> yres >> raw)) {
            ADD_FAILURE() << "unreadable line: " << line;
            break;
        }
        SCOPED_TRACE(line);
        const std::string path = dir.Path(file);
        VelmoraReadDIB read = {VELMORA_READ_DIB_SIZE_V3, 0, path.c_str(), page};
        read.flags = VELMORA_READ_DIB_OPTIONS;
        read.options = VELMORA_READ_DIB_REPORT_DAMAGE;
        HGLOBAL dib = ReadVelmoraDIBEx(&read);
        if (raw == "-") {
            EXPECT_EQ(dib, nullptr);
            EXPECT_EQ(GetLastVelmoraErrorCode(), 0x02000003u);
            FreeImage(&dib);
            continue;
        }
        EXPECT_EQ(GetLastVelmoraErrorCode(), 0u);
        if (dib == nullptr) continue;
        {
            ImageLock lock(dib);
            const BITMAPINFOHEADER* h = lock.header();
            if (bits != 0) EXPECT_EQ(h->biBitCount, bits);
            if (xres != "*")
                EXPECT_EQ(std::to_string(h->biXPelsPerMeter) + " " + std::to_string(h->biYPelsPerMeter),
                          xres + " " + yres);
            EXPECT_EQ(DifferenceFrom(h, peers::ReadFile(dir.Path(raw)), width, height), "");
        }
        FreeImage(&dib);
        ++pages;
    }
    return pages;
}

}  // namespace velmora
