// Fax decoding and encoding speed against libtiff on the same data, in one run.
//
// At start the benchmark renders an A4 page of text at 300 dpi (2480 x 3508
// pixels) with ImageMagick:
//   convert -size 2480x3508 -density 300 xc:white -font DejaVu-Sans -pointsize 11
//           -fill black -annotate +120+160 '<70 lines of words>' -monochrome -depth 1
//           -compress none page.tif
// and compresses it with tiffcp as one strip: -c g4, -c g3:2d, -c g3 (and
// -c g4 -f lsb2msb). Each benchmark decodes the whole page: the library's
// decoder from the raw strip (clearing the output rows first, as its callers
// do), libtiff with TIFFReadEncodedStrip on the same file. Compare the
// items/s of the Velmora and Libtiff rows of one coding.
//
// The Encode rows code the same page (as libtiff decodes it) into a file in
// the same directory: the library's encoder through a file stream, libtiff
// with TIFFWriteEncodedStrip (each run opens, writes and closes a file).
//
//   cmake -S . -B build/fax-bench -DVELMORA_BENCH=ON -DVELMORA_TESTS=OFF -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/fax-bench --target fax_bench && build/fax-bench/bench/fax_bench
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "codecs/fax_decoder.h"
#include "codecs/fax_encoder.h"
#include "io/stream.h"

namespace {

namespace fs = std::filesystem;

struct FaxPage {
    std::string path;
    uint32_t width = 0, height = 0;
    uint16_t compression = 0, fillOrder = 1;
    uint32_t t4Options = 0;
    std::vector<uint8_t> raw;
};

std::string g_dir;
std::map<std::string, FaxPage> g_pages;

bool MakeInput() {
    char pattern[] = "/tmp/velmora-faxbench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return false;
    g_dir = pattern;
    std::string text;
    std::mt19937 random(300);
    const char* words[] = {"The",   "quick",     "brown", "fox",          "jumps",      "over",      "lazy",
                           "dogs",  "facsimile", "page",  "transmission", "of",         "documents", "1994",
                           "Group", "coding",    "and",   "scanning",     "resolution", "is",        "about",
                           "300",   "dots",      "per",   "inch,",        "with",       "text."};
    for (int line = 0; line < 70; ++line) {
        for (int w = 0; w < 15; ++w) text += std::string(words[random() % 27]) + " ";
        text += "\\n";
    }
    std::string page = g_dir + "/page.tif";
    std::string command =
        "/usr/bin/convert -size 2480x3508 -density 300 xc:white -font DejaVu-Sans -pointsize 11 "
        "-fill black -annotate +120+160 '" +
        text + "' -monochrome -depth 1 -compress none " + page + " >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) return false;
    const std::pair<const char*, const char*> codings[] = {
        {"G4", "-c g4"}, {"G3_2D", "-c g3:2d"}, {"G3_1D", "-c g3"}, {"G4_FillOrder2", "-c g4 -f lsb2msb"}};
    for (auto [name, option] : codings) {
        FaxPage fax;
        fax.path = g_dir + "/" + name + ".tif";
        command = std::string("/usr/bin/tiffcp -r 4000 ") + option + " " + page + " " + fax.path;
        if (std::system(command.c_str()) != 0) return false;
        TIFF* tif = TIFFOpen(fax.path.c_str(), "r");
        if (tif == nullptr) return false;
        TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &fax.width);
        TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &fax.height);
        TIFFGetField(tif, TIFFTAG_COMPRESSION, &fax.compression);
        TIFFGetFieldDefaulted(tif, TIFFTAG_FILLORDER, &fax.fillOrder);
        if (fax.compression == COMPRESSION_CCITTFAX3) TIFFGetField(tif, TIFFTAG_GROUP3OPTIONS, &fax.t4Options);
        fax.raw.resize(TIFFRawStripSize(tif, 0));
        bool ok = TIFFNumberOfStrips(tif) == 1 &&
                  TIFFReadRawStrip(tif, 0, fax.raw.data(), fax.raw.size()) == static_cast<tmsize_t>(fax.raw.size());
        TIFFClose(tif);
        if (!ok) return false;
        g_pages[name] = std::move(fax);
    }
    return true;
}

void Velmora(benchmark::State& state, const char* name) {
    const FaxPage& fax = g_pages.at(name);
    size_t rowBytes = (fax.width + 7) / 8;
    std::vector<uint8_t> rows(rowBytes * fax.height);
    auto decoder = velmora::CreateFaxDecoder(fax.compression);
    velmora::CodecPage page;
    page.imageWidth = page.outputWidth = fax.width;
    page.imageLength = page.rowsPerStrip = fax.height;
    page.stripCount = 1;
    page.compression = fax.compression;
    page.fillOrder = fax.fillOrder;
    page.t4Options = fax.t4Options;
    velmora::ErrorRecord record;
    if (!decoder->Begin(page, &record)) {
        state.SkipWithError("Begin failed");
        return;
    }
    velmora::CodecStrip strip;
    strip.data = fax.raw.data();
    strip.size = fax.raw.size();
    strip.rows = fax.height;
    strip.topRow = rows.data();
    strip.stride = static_cast<ptrdiff_t>(rowBytes);
    for (auto _ : state) {
        std::memset(rows.data(), 0, rows.size());
        if (!decoder->Decode(strip, &record)) {
            state.SkipWithError("Decode failed");
            break;
        }
        benchmark::DoNotOptimize(rows.data());
    }
    decoder->End();
    state.SetItemsProcessed(state.iterations());  // pages
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fax.raw.size()));
}

void Libtiff(benchmark::State& state, const char* name) {
    const FaxPage& fax = g_pages.at(name);
    TIFF* tif = TIFFOpen(fax.path.c_str(), "r");
    std::vector<uint8_t> rows(TIFFStripSize(tif));
    for (auto _ : state) {
        if (TIFFReadEncodedStrip(tif, 0, rows.data(), rows.size()) < 0) {
            state.SkipWithError("TIFFReadEncodedStrip failed");
            break;
        }
        benchmark::DoNotOptimize(rows.data());
    }
    TIFFClose(tif);
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * fax.raw.size()));
}

// The page as rows, 1 = black, read back by libtiff from the Group 4 file.
std::vector<uint8_t> PageRows(const FaxPage& fax) {
    TIFF* tif = TIFFOpen(fax.path.c_str(), "r");
    std::vector<uint8_t> rows(TIFFStripSize(tif));
    TIFFReadEncodedStrip(tif, 0, rows.data(), rows.size());
    TIFFClose(tif);
    return rows;
}

struct EncodeCase {
    uint16_t compression;
    uint32_t t4Options;
};

EncodeCase EncodeCaseOf(const char* name) {
    if (std::strcmp(name, "G3_2D") == 0) return {3, 1};
    if (std::strcmp(name, "G3_1D") == 0) return {3, 0};
    return {4, 0};
}

void VelmoraEncode(benchmark::State& state, const char* name) {
    const FaxPage& fax = g_pages.at("G4");
    EncodeCase coding = EncodeCaseOf(name);
    std::vector<uint8_t> rows = PageRows(fax);
    std::u16string path;
    for (char c : g_dir + "/ours.fax") path.push_back(static_cast<char16_t>(c));
    uint64_t bytes = 0;
    for (auto _ : state) {
        velmora::ErrorRecord record;
        velmora::Stream* out = velmora::OpenFileStream(path.c_str(), velmora::kStreamWrite, false, true, &record);
        velmora::FaxEncoder encoder;
        velmora::FaxEncoderPage page;
        page.compression = coding.compression;
        page.t4Options = coding.t4Options;
        page.width = fax.width;
        page.yResolution = 300;
        velmora::EncoderStrip strip;
        strip.topRow = rows.data();
        strip.stride = static_cast<ptrdiff_t>((fax.width + 7) / 8);
        strip.rows = fax.height;
        strip.out = out;
        if (encoder.Begin(page, &record)) bytes = encoder.Encode(strip, &record);
        encoder.End();
        velmora::CloseStream(out, &record);
        if (record.failed()) {
            state.SkipWithError("encoding failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["bytes"] = static_cast<double>(bytes);
}

void LibtiffEncode(benchmark::State& state, const char* name) {
    const FaxPage& fax = g_pages.at("G4");
    EncodeCase coding = EncodeCaseOf(name);
    std::vector<uint8_t> rows = PageRows(fax);
    std::string path = g_dir + "/theirs.tif";
    for (auto _ : state) {
        TIFF* tif = TIFFOpen(path.c_str(), "w");
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, fax.width);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, fax.height);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, coding.compression);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, fax.height);
        if (coding.compression == 3) TIFFSetField(tif, TIFFTAG_GROUP3OPTIONS, coding.t4Options);
        if (TIFFWriteEncodedStrip(tif, 0, rows.data(), rows.size()) < 0) {
            state.SkipWithError("TIFFWriteEncodedStrip failed");
            TIFFClose(tif);
            break;
        }
        TIFFClose(tif);
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    if (!MakeInput()) {
        std::fprintf(stderr, "could not make the input page (needs /usr/bin/convert and /usr/bin/tiffcp)\n");
        return 1;
    }
    for (const char* name : {"G4", "G3_2D", "G3_1D", "G4_FillOrder2"}) {
        benchmark::RegisterBenchmark((std::string("Velmora/") + name).c_str(), Velmora, name);
        benchmark::RegisterBenchmark((std::string("Libtiff/") + name).c_str(), Libtiff, name);
    }
    for (const char* name : {"G4", "G3_2D", "G3_1D"}) {
        benchmark::RegisterBenchmark((std::string("VelmoraEncode/") + name).c_str(), VelmoraEncode, name);
        benchmark::RegisterBenchmark((std::string("LibtiffEncode/") + name).c_str(), LibtiffEncode, name);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    fs::remove_all(g_dir);
    return 0;
}
