// JPEG encoding speed against libjpeg-turbo on the same pixels, in one run.
//
// The input is an A4 page at 300 dpi (2480 x 3508 pixels) synthesised at
// start: a colour page (a photograph-like area of smooth shading and edges,
// with lines of text-like strokes around it) and its grey version. Each
// benchmark encodes the whole page at quality 75 into memory, baseline with
// the standard Huffman tables, colour sampled 2x2: the library through
// EncodeJpegRows (JFIF segment on), libjpeg-turbo through jpeg_write_scanlines
// with jpeg_set_defaults and jpeg_set_quality(75) (its default integer
// transform, SIMD as built). The Optimised rows make Huffman tables for the
// image on both sides. Compare the items/s (pixels) of the Velmora and
// Libjpeg rows of one kind.
//
//   cmake -S . -B build/jpeg-bench -DVELMORA_BENCH=ON -DVELMORA_TESTS=OFF -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/jpeg-bench --target jpeg_encoder_bench && build/jpeg-bench/bench/jpeg_encoder_bench
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include <jpeglib.h>

#include "jpeg/jpeg_encoder.h"
#include "frame/error_record.h"
#include "io/stream.h"

namespace {

constexpr uint32_t kWidth = 2480;
constexpr uint32_t kHeight = 3508;

struct Page {
    std::vector<uint8_t> rgb;
    std::vector<uint8_t> grey;
};

const Page& ThePage() {
    static const Page page = [] {
        Page p;
        p.rgb.resize(size_t{kWidth} * kHeight * 3);
        p.grey.resize(size_t{kWidth} * kHeight);
        std::mt19937 random(75);
        for (uint32_t y = 0; y < kHeight; ++y) {
            for (uint32_t x = 0; x < kWidth; ++x) {
                bool picture = x > 300 && x < 2180 && y > 900 && y < 2300;
                uint8_t* out = &p.rgb[(size_t{y} * kWidth + x) * 3];
                for (int c = 0; c < 3; ++c) {
                    double v;
                    if (picture) {
                        v = 128 + 70 * std::sin(x / (41.0 + 13 * c)) * std::cos(y / 57.0) +
                            30 * std::sin((x + 2 * y) / 97.0) + int(random() % 7) - 3;
                    } else {
                        bool stroke = (x / 4 + y / 9) % 5 == 0 && y % 48 < 32 && x > 200 && x < 2280;
                        v = stroke ? 25 + 10 * c : 245 - 3 * c + int(random() % 5) - 2;
                    }
                    out[c] = static_cast<uint8_t>(std::lround(std::fmin(255, std::fmax(0, v))));
                }
                p.grey[size_t{y} * kWidth + x] = static_cast<uint8_t>((out[0] * 77 + out[1] * 150 + out[2] * 29) >> 8);
            }
        }
        return p;
    }();
    return page;
}

void VelmoraEncode(benchmark::State& state, bool colour, bool optimise) {
    const Page& page = ThePage();
    velmora::jpeg::JpegRows rows;
    rows.top = colour ? page.rgb.data() : page.grey.data();
    rows.width = kWidth;
    rows.height = kHeight;
    rows.bytesPerPixel = colour ? 3 : 1;
    rows.stride = static_cast<ptrdiff_t>(kWidth) * rows.bytesPerPixel;
    rows.redFirst = true;
    velmora::jpeg::JpegEncoderSettings settings;
    settings.quality = 75;
    settings.sampling = velmora::jpeg::ChromaSampling::H2V2;
    settings.writeJfif = true;
    settings.optimiseHuffman = optimise;
    uint64_t bytes = 0;
    for (auto _ : state) {
        velmora::ErrorRecord record;
        velmora::Stream* stream = velmora::OpenMemoryStream(true, &record);
        velmora::jpeg::EncodeJpegRows(rows, settings, stream, nullptr, &record);
        bytes = velmora::StreamSize(stream, &record);
        velmora::CloseStream(stream, nullptr);
        if (record.failed()) state.SkipWithError("encode failed");
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kWidth * kHeight);
    state.counters["bytes"] = double(bytes);
}

void LibjpegEncode(benchmark::State& state, bool colour, bool optimise) {
    const Page& page = ThePage();
    const uint8_t* pixels = colour ? page.rgb.data() : page.grey.data();
    int components = colour ? 3 : 1;
    unsigned long bytes = 0;
    for (auto _ : state) {
        jpeg_compress_struct info;
        jpeg_error_mgr error;
        info.err = jpeg_std_error(&error);
        jpeg_create_compress(&info);
        unsigned char* buffer = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&info, &buffer, &size);
        info.image_width = kWidth;
        info.image_height = kHeight;
        info.input_components = components;
        info.in_color_space = colour ? JCS_RGB : JCS_GRAYSCALE;
        jpeg_set_defaults(&info);
        jpeg_set_quality(&info, 75, TRUE);
        info.optimize_coding = optimise ? TRUE : FALSE;
        jpeg_start_compress(&info, TRUE);
        while (info.next_scanline < info.image_height) {
            JSAMPROW row = const_cast<JSAMPROW>(pixels + size_t{info.next_scanline} * kWidth * components);
            jpeg_write_scanlines(&info, &row, 1);
        }
        jpeg_finish_compress(&info);
        jpeg_destroy_compress(&info);
        bytes = size;
        std::free(buffer);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kWidth * kHeight);
    state.counters["bytes"] = double(bytes);
}

void Velmora_Colour(benchmark::State& state) { VelmoraEncode(state, true, false); }
void Libjpeg_Colour(benchmark::State& state) { LibjpegEncode(state, true, false); }
void Velmora_Grey(benchmark::State& state) { VelmoraEncode(state, false, false); }
void Libjpeg_Grey(benchmark::State& state) { LibjpegEncode(state, false, false); }
void Velmora_ColourOptimised(benchmark::State& state) { VelmoraEncode(state, true, true); }
void Libjpeg_ColourOptimised(benchmark::State& state) { LibjpegEncode(state, true, true); }

BENCHMARK(Velmora_Colour)->Unit(benchmark::kMillisecond);
BENCHMARK(Libjpeg_Colour)->Unit(benchmark::kMillisecond);
BENCHMARK(Velmora_Grey)->Unit(benchmark::kMillisecond);
BENCHMARK(Libjpeg_Grey)->Unit(benchmark::kMillisecond);
BENCHMARK(Velmora_ColourOptimised)->Unit(benchmark::kMillisecond);
BENCHMARK(Libjpeg_ColourOptimised)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
