// Copying a 500-page fax document page by page: the library's appender
// against libtiff copying the raw strips of every page (its fastest way) and
// against the tiffcp program, in one run.
//
// At start libtiff writes 500 Group 4 pages of 1728 x 2200 pixels with lines
// of text-like marks. Each row copies the whole document into a new file;
// compare the items/s (pages per second) of the rows.
//
//   cmake -S . -B build/bench -DVELMORA_BENCH=ON -DVELMORA_TESTS=OFF -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/bench --target tiff_copy_bench && build/bench/bench/tiff_copy_bench
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "tiff/page_writer.h"
#include "tiff/tiff_file.h"

namespace {

constexpr int kPages = 500;
constexpr uint32_t kWidth = 1728, kHeight = 2200;
std::string g_directory, g_source;

uint32_t Hash(uint32_t x) {
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    return x ^ (x >> 16);
}

bool MakeInput() {
    char pattern[] = "/tmp/velmora-copybench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return false;
    g_directory = pattern;
    g_source = g_directory + "/fax.tif";
    TIFF* tif = TIFFOpen(g_source.c_str(), "w");
    if (tif == nullptr) return false;
    std::vector<uint8_t> row(kWidth / 8);
    for (int page = 0; page < kPages; ++page) {
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kWidth);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kHeight);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, kHeight);
        TIFFSetField(tif, TIFFTAG_XRESOLUTION, 204.0);
        TIFFSetField(tif, TIFFTAG_YRESOLUTION, 196.0);
        TIFFSetField(tif, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        TIFFSetField(tif, TIFFTAG_PAGENUMBER, page, kPages);
        for (uint32_t y = 0; y < kHeight; ++y) {
            const bool textLine = (y / 24) % 2 == 1 && y % 24 < 16;
            for (uint32_t i = 0; i < row.size(); ++i) {
                row[i] = textLine && i > 20 && i < 200
                             ? static_cast<uint8_t>(Hash(page * 7919 + y / 3 * 131 + i) & 0x7E)
                             : 0;
            }
            if (TIFFWriteScanline(tif, row.data(), y, 0) != 1) return false;
        }
        TIFFWriteDirectory(tif);
    }
    TIFFClose(tif);
    return true;
}

void Velmora(benchmark::State& state) {
    const std::u16string source(g_source.begin(), g_source.end());
    const std::string out = g_directory + "/velmora.tif";
    const std::u16string target(out.begin(), out.end());
    for (auto _ : state) {
        velmora::ErrorRecord record;
        velmora::TiffFile* in = velmora::OpenTiffFile(source.c_str(), 0x80000000u, false, &record);
        velmora::TiffFile* copy = velmora::OpenTiffFile(target.c_str(), 0xC0000000u, true, &record);
        velmora::PageWriteOptions options;
        for (uint32_t page = 1; page <= kPages && record.ok(); ++page) {
            velmora::AppendTiffPage(copy, in, page, options, &record);
        }
        if (copy != nullptr) velmora::CloseTiff(copy, &record);
        if (in != nullptr) velmora::CloseTiff(in, &record);
        if (record.failed()) state.SkipWithError("copy failed");
    }
    state.SetItemsProcessed(state.iterations() * kPages);
}

// libtiff's own fastest copy: the tags of each page set again, its strips
// moved raw.
void LibtiffRaw(benchmark::State& state) {
    const std::string out = g_directory + "/libtiff.tif";
    std::vector<uint8_t> strip;
    for (auto _ : state) {
        TIFF* in = TIFFOpen(g_source.c_str(), "r");
        TIFF* copy = TIFFOpen(out.c_str(), "w");
        do {
            uint32_t width = 0, height = 0, rows = 0;
            uint16_t bits = 0, photometric = 0, compression = 0, unit = 2, number = 0, total = 0;
            float x = 0, y = 0;
            TIFFGetField(in, TIFFTAG_IMAGEWIDTH, &width);
            TIFFGetField(in, TIFFTAG_IMAGELENGTH, &height);
            TIFFGetField(in, TIFFTAG_BITSPERSAMPLE, &bits);
            TIFFGetField(in, TIFFTAG_PHOTOMETRIC, &photometric);
            TIFFGetField(in, TIFFTAG_COMPRESSION, &compression);
            TIFFGetField(in, TIFFTAG_ROWSPERSTRIP, &rows);
            TIFFGetField(in, TIFFTAG_XRESOLUTION, &x);
            TIFFGetField(in, TIFFTAG_YRESOLUTION, &y);
            TIFFGetField(in, TIFFTAG_RESOLUTIONUNIT, &unit);
            TIFFGetField(in, TIFFTAG_PAGENUMBER, &number, &total);
            TIFFSetField(copy, TIFFTAG_IMAGEWIDTH, width);
            TIFFSetField(copy, TIFFTAG_IMAGELENGTH, height);
            TIFFSetField(copy, TIFFTAG_BITSPERSAMPLE, bits);
            TIFFSetField(copy, TIFFTAG_PHOTOMETRIC, photometric);
            TIFFSetField(copy, TIFFTAG_COMPRESSION, compression);
            TIFFSetField(copy, TIFFTAG_ROWSPERSTRIP, rows);
            TIFFSetField(copy, TIFFTAG_XRESOLUTION, x);
            TIFFSetField(copy, TIFFTAG_YRESOLUTION, y);
            TIFFSetField(copy, TIFFTAG_RESOLUTIONUNIT, unit);
            TIFFSetField(copy, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
            TIFFSetField(copy, TIFFTAG_PAGENUMBER, number, total);
            for (uint32_t s = 0; s < TIFFNumberOfStrips(in); ++s) {
                strip.resize(static_cast<size_t>(TIFFRawStripSize(in, s)));
                tmsize_t got = TIFFReadRawStrip(in, s, strip.data(), static_cast<tmsize_t>(strip.size()));
                TIFFWriteRawStrip(copy, s, strip.data(), got);
            }
            TIFFWriteDirectory(copy);
        } while (TIFFReadDirectory(in));
        TIFFClose(copy);
        TIFFClose(in);
    }
    state.SetItemsProcessed(state.iterations() * kPages);
}

// The tiffcp program as users run it.
void Tiffcp(benchmark::State& state) {
    const std::string command = "tiffcp '" + g_source + "' '" + g_directory + "/tiffcp.tif'";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) state.SkipWithError("tiffcp failed");
    }
    state.SetItemsProcessed(state.iterations() * kPages);
}

}  // namespace

int main(int argc, char** argv) {
    if (!MakeInput()) {
        std::fprintf(stderr, "cannot write the input document\n");
        return 1;
    }
    benchmark::RegisterBenchmark("CopyFaxDocument/velmora", Velmora)->Unit(benchmark::kMillisecond)->UseRealTime();
    benchmark::RegisterBenchmark("CopyFaxDocument/libtiff_raw_strips", LibtiffRaw)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("CopyFaxDocument/tiffcp", Tiffcp)->Unit(benchmark::kMillisecond)->UseRealTime();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::system(("rm -rf '" + g_directory + "'").c_str());
    return 0;
}
