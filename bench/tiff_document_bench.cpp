// Opening a many-page TIFF as a document against libtiff walking the same
// directories, in one run.
//
// At start libtiff writes a file of 2000 small pages (16 x 16 grey, each with
// Orientation, PageNumber and a reduced-resolution image after every second
// page: 3000 directories). The library builds its document from the file
// (every directory read once for its sizes, subfile type, orientation,
// photometric and page number); libtiff opens the file and reads the same
// fields of every directory with TIFFReadDirectory and TIFFGetField. Compare
// the items/s (directories per second) of the rows.
//
//   cmake -S . -B build/document-bench -DVELMORA_BENCH=ON -DVELMORA_TESTS=OFF -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/document-bench --target tiff_document_bench && build/document-bench/bench/tiff_document_bench
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/platform.h"
#include "tiff/document.h"

namespace {

constexpr int kPages = 2000;
std::string g_path;
int g_directories = 0;

bool MakeInput() {
    char pattern[] = "/tmp/velmora-documentbench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return false;
    g_path = std::string(pattern) + "/pages.tif";
    TIFF* tif = TIFFOpen(g_path.c_str(), "w");
    if (tif == nullptr) return false;
    std::vector<uint8_t> pixels(16 * 16, 0x80);
    for (int page = 0; page < kPages; ++page) {
        for (int thumbnail = 0; thumbnail < (page % 2 == 0 ? 2 : 1); ++thumbnail) {
            uint32_t side = thumbnail ? 8 : 16;
            TIFFSetField(tif, TIFFTAG_SUBFILETYPE, thumbnail ? FILETYPE_REDUCEDIMAGE : 0);
            TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, side);
            TIFFSetField(tif, TIFFTAG_IMAGELENGTH, side);
            TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
            TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
            TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
            TIFFSetField(tif, TIFFTAG_ORIENTATION, 1 + page % 8);
            TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, side);
            TIFFSetField(tif, TIFFTAG_PAGENUMBER, page, kPages);
            TIFFWriteEncodedStrip(tif, 0, pixels.data(), side * side);
            TIFFWriteDirectory(tif);
            ++g_directories;
        }
    }
    TIFFClose(tif);
    return true;
}

void Velmora(benchmark::State& state) {
    std::u16string path = velmora::platform::WideFromUtf8(g_path);
    for (auto _ : state) {
        velmora::ErrorRecord record;
        velmora::TiffDocument* document = velmora::OpenTiffDocumentFile(path.c_str(), 0, &record);
        if (document == nullptr || document->pageCount != kPages) {
            state.SkipWithError("the document did not open");
            break;
        }
        benchmark::DoNotOptimize(document->rows);
        velmora::CloseTiffDocument(document, nullptr);
    }
    state.SetItemsProcessed(state.iterations() * g_directories);
}

// libtiff maps a file it reads into memory unless told not to ("m"); the
// library reads through its file stream, so "rm" is the like-for-like row.
void Libtiff(benchmark::State& state, const char* mode) {
    TIFFSetWarningHandler(nullptr);
    for (auto _ : state) {
        TIFF* tif = TIFFOpen(g_path.c_str(), mode);
        if (tif == nullptr) {
            state.SkipWithError("libtiff did not open the file");
            break;
        }
        uint64_t sum = 0;
        do {
            uint32_t width = 0, length = 0, subfile = 0;
            uint16_t orientation = 1, photometric = 0, page = 0, total = 0;
            TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
            TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
            TIFFGetField(tif, TIFFTAG_SUBFILETYPE, &subfile);
            TIFFGetField(tif, TIFFTAG_ORIENTATION, &orientation);
            TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
            TIFFGetField(tif, TIFFTAG_PAGENUMBER, &page, &total);
            sum += width + length + subfile + orientation + photometric + page;
        } while (TIFFReadDirectory(tif));
        benchmark::DoNotOptimize(sum);
        TIFFClose(tif);
    }
    state.SetItemsProcessed(state.iterations() * g_directories);
}

BENCHMARK(Velmora)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Libtiff, Unmapped, "rm")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Libtiff, Mapped, "r")->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (!MakeInput()) {
        std::fprintf(stderr, "cannot make the input file\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::remove(g_path.c_str());
    rmdir(g_path.substr(0, g_path.rfind('/')).c_str());
    return 0;
}
