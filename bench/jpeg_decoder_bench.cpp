// JPEG decoding speed against libjpeg-turbo on the same in-memory files, in
// one run.
//
// At start the benchmark renders an A4 page at 300 dpi (2480 x 3508 pixels)
// with ImageMagick, a soft colour background under 70 lines of text:
//   convert -size 2480x3508 -seed 4 plasma:white-lightsteelblue -font DejaVu-Sans
//           -pointsize 11 -fill black -annotate +120+160 '<text>' page.ppm
// and compresses it with cjpeg at quality 75: colour 4:2:0, grey
// (-grayscale) and progressive colour (-progressive). Each benchmark decodes
// the whole page from memory: the library into 24-bit (or 8-bit) rows;
// libjpeg with jpeg_read_scanlines, once with the integer inverse DCT and
// interpolated chroma (what the library does: Islow) and once with its
// default settings (Default). Compare the items/s of the rows of one
// file.
//
//   cmake -S . -B build/jpeg-decoder-bench -DVELMORA_BENCH=ON -DVELMORA_TESTS=OFF -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/jpeg-decoder-bench --target jpeg_decoder_bench
//   build/jpeg-decoder-bench/bench/jpeg_decoder_bench
#include <unistd.h>

#include <cstdio>  // jpeglib.h needs FILE and size_t first

#include <jpeglib.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "jpeg/jpeg_decoder.h"

namespace {

namespace fs = std::filesystem;

std::string g_dir;
std::map<std::string, std::vector<uint8_t>> g_files;

bool MakeInput() {
    char pattern[] = "/tmp/velmora-jpegbench-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return false;
    g_dir = pattern;
    std::string text;
    std::mt19937 random(300);
    const char* words[] = {"The",  "quick",      "brown",  "fox", "jumps", "over",       "lazy", "dogs",   "colour",
                           "page", "scanned",    "at",     "300", "dots",  "per",        "inch", "with",   "JPEG",
                           "and",  "subsampled", "chroma", "in",  "both",  "directions", "of",   "blocks", "text."};
    for (int line = 0; line < 70; ++line) {
        for (int w = 0; w < 15; ++w) text += std::string(words[random() % 27]) + " ";
        text += "\\n";
    }
    std::string page = g_dir + "/page.ppm";
    std::string command =
        "/usr/bin/convert -size 2480x3508 -seed 4 plasma:white-lightsteelblue -font DejaVu-Sans -pointsize 11 "
        "-fill black -annotate +120+160 '" +
        text + "' " + page + " >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) return false;
    const std::pair<const char*, const char*> codings[] = {
        {"Colour420", "-quality 75"}, {"Grey", "-quality 75 -grayscale"}, {"Progressive", "-quality 75 -progressive"}};
    for (auto [name, options] : codings) {
        std::string path = g_dir + "/" + name + ".jpg";
        command = std::string("/usr/bin/cjpeg ") + options + " -outfile " + path + " " + page;
        if (std::system(command.c_str()) != 0) return false;
        std::ifstream in(path, std::ios::binary);
        g_files[name] = std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
    return true;
}

void Velmora(benchmark::State& state, const char* name) {
    const std::vector<uint8_t>& file = g_files.at(name);
    velmora::jpeg::JpegInfo info;
    velmora::ErrorRecord record;
    velmora::jpeg::JpegSource source = velmora::jpeg::JpegSource::Memory(file.data(), file.size());
    if (!velmora::jpeg::ReadJpegInfo(source, 0, &info, &record)) {
        state.SkipWithError("ReadJpegInfo failed");
        return;
    }
    uint32_t channels = info.components == 1 ? 1 : 3;
    size_t stride = (size_t{info.width} * channels + 3) & ~size_t{3};
    std::vector<uint8_t> rows(stride * info.height);
    velmora::jpeg::JpegDecoder decoder;
    velmora::jpeg::JpegDecodeOptions options;
    options.output = velmora::jpeg::JpegOutput{rows.data(), static_cast<ptrdiff_t>(stride), info.width, info.height};
    for (auto _ : state) {
        if (!decoder.Decode(source, options, &record)) {
            state.SkipWithError("Decode failed");
            break;
        }
        benchmark::DoNotOptimize(rows.data());
    }
    state.SetItemsProcessed(state.iterations());  // pages
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.size()));
}

void Libjpeg(benchmark::State& state, const char* name, bool islow) {
    const std::vector<uint8_t>& file = g_files.at(name);
    std::vector<uint8_t> rows;
    for (auto _ : state) {
        jpeg_decompress_struct cinfo;
        jpeg_error_mgr error;
        cinfo.err = jpeg_std_error(&error);
        jpeg_create_decompress(&cinfo);
        jpeg_mem_src(&cinfo, file.data(), static_cast<unsigned long>(file.size()));
        jpeg_read_header(&cinfo, TRUE);
        if (islow) cinfo.dct_method = JDCT_ISLOW;
        jpeg_start_decompress(&cinfo);
        size_t stride = (size_t{cinfo.output_width} * cinfo.output_components + 3) & ~size_t{3};
        rows.resize(stride * cinfo.output_height);
        while (cinfo.output_scanline < cinfo.output_height) {
            JSAMPROW row[1] = {rows.data() + cinfo.output_scanline * stride};
            jpeg_read_scanlines(&cinfo, row, 1);
        }
        jpeg_finish_decompress(&cinfo);
        jpeg_destroy_decompress(&cinfo);
        benchmark::DoNotOptimize(rows.data());
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.size()));
}

}  // namespace

int main(int argc, char** argv) {
    if (!MakeInput()) {
        std::fprintf(stderr, "could not make the input page (needs /usr/bin/convert and /usr/bin/cjpeg)\n");
        return 1;
    }
    for (const char* name : {"Colour420", "Grey", "Progressive"}) {
        benchmark::RegisterBenchmark((std::string("Velmora/") + name).c_str(), Velmora, name);
        benchmark::RegisterBenchmark((std::string("Libjpeg/Islow/") + name).c_str(), Libjpeg, name, true);
        benchmark::RegisterBenchmark((std::string("Libjpeg/Default/") + name).c_str(), Libjpeg, name, false);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    fs::remove_all(g_dir);
    return 0;
}
