// Speed of the JPEG sample pipeline (inverse DCT, upsampling, colour
// conversion) against libjpeg-turbo on the same files. A 2048 x 1536
// photograph-like picture is compressed by libjpeg at quality 85 in 4:4:4
// and 4:2:0 when the benchmark starts. libjpeg decodes it three ways:
// fully (integer IDCT, interpolated chroma, RGB out), to YCbCr (no
// colour conversion) and scaled to 1/8 (entropy decoding and a trivial
// DC-only transform of 1/64 of the pixels: its cost is nearly all entropy
// decoding). The differences isolate the stages we implement; ours run
// over the coefficients libjpeg read.
//
//   cmake -S . -B build/bench -DVELMORA_BENCH=ON -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/bench --target jpeg_pixels_bench && build/bench/bench/jpeg_pixels_bench
//
// Compare per-pixel times: Velmora/Pipeline against
// Libjpeg/full - Libjpeg/eighth; Velmora/Convert against
// Libjpeg/full - Libjpeg/to YCbCr for 4:4:4. VelmoraConvertBy runs the
// conversion by each route this processor has (portable, SSE2, SSSE3,
// AVX2); VelmoraConvert takes the one the library chooses.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <jpeglib.h>

#include "jpeg/jpeg_color.h"
#include "jpeg/jpeg_color_routes.h"
#include "jpeg/jpeg_idct.h"

namespace velmora::jpeg {
namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint32_t kWidth = 2048, kHeight = 1536;

// Smooth colour fields, edges and fine texture, like a photograph of a
// document on a desk.
Bytes Picture() {
    std::mt19937 random(5);
    Bytes rgb(size_t{kWidth} * kHeight * 3);
    for (uint32_t y = 0; y < kHeight; ++y) {
        for (uint32_t x = 0; x < kWidth; ++x) {
            uint8_t* p = &rgb[(size_t{y} * kWidth + x) * 3];
            const double u = double(x) / kWidth, v = double(y) / kHeight;
            double r = 180 + 60 * std::sin(6 * u + 2 * v), g = 150 + 80 * std::cos(5 * v - u), b = 120 + 90 * u * v;
            if ((x / 24 + y / 40) % 7 == 0 && (y % 40) < 30) r = g = b = 30;  // dark strokes
            const double noise = int(random() % 17) - 8;
            p[0] = static_cast<uint8_t>(std::clamp(r + noise, 0.0, 255.0));
            p[1] = static_cast<uint8_t>(std::clamp(g + noise, 0.0, 255.0));
            p[2] = static_cast<uint8_t>(std::clamp(b + noise, 0.0, 255.0));
        }
    }
    return rgb;
}

Bytes Compress(const Bytes& rgb, int h, int v) {
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr error{};
    cinfo.err = jpeg_std_error(&error);
    jpeg_create_compress(&cinfo);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = kWidth;
    cinfo.image_height = kHeight;
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 85, TRUE);
    cinfo.comp_info[0].h_samp_factor = h;
    cinfo.comp_info[0].v_samp_factor = v;
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<uint8_t*>(&rgb[size_t{cinfo.next_scanline} * kWidth * 3]);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    Bytes file(buffer, buffer + size);
    free(buffer);
    jpeg_destroy_compress(&cinfo);
    return file;
}

const Bytes& File(bool subsampled) {
    static const Bytes picture = Picture();
    static const Bytes full = Compress(picture, 1, 1), half = Compress(picture, 2, 2);
    return subsampled ? half : full;
}

// ---- libjpeg-turbo --------------------------------------------------------------

// Decodes with libjpeg to `space`, at 1/8 scale when `eighth`.
void LibjpegDecode(const Bytes& file, J_COLOR_SPACE space, bool eighth, Bytes& out) {
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr error{};
    cinfo.err = jpeg_std_error(&error);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, file.data(), file.size());
    jpeg_read_header(&cinfo, TRUE);
    {
        if (eighth) cinfo.scale_denom = 8;
        cinfo.dct_method = JDCT_ISLOW;
        cinfo.out_color_space = space;
        jpeg_start_decompress(&cinfo);
        const size_t rowBytes = size_t{cinfo.output_width} * cinfo.output_components;
        out.resize(rowBytes * cinfo.output_height);
        while (cinfo.output_scanline < cinfo.output_height) {
            JSAMPROW rows[16];
            for (int i = 0; i < 16; ++i) rows[i] = out.data() + (cinfo.output_scanline + i) * rowBytes;
            jpeg_read_scanlines(&cinfo, rows, std::min<JDIMENSION>(16, cinfo.output_height - cinfo.output_scanline));
        }
        jpeg_finish_decompress(&cinfo);
    }
    jpeg_destroy_decompress(&cinfo);
}

enum Mode { kFull, kYCbCr, kEighth };

void BM_Libjpeg(benchmark::State& state) {
    const Bytes& file = File(state.range(0) != 0);
    const Mode mode = static_cast<Mode>(state.range(1));
    Bytes out;
    for (auto _ : state) {
        LibjpegDecode(file, mode == kYCbCr ? JCS_YCbCr : JCS_RGB, mode == kEighth, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["ns/pixel"] = benchmark::Counter(
        double(kWidth) * kHeight, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetLabel(std::string(state.range(0) ? "4:2:0 " : "4:4:4 ") + (mode == kFull    ? "full"
                                                                        : mode == kYCbCr ? "to YCbCr"
                                                                                         : "eighth"));
}
BENCHMARK(BM_Libjpeg)->ArgsProduct({{0, 1}, {kFull, kYCbCr, kEighth}})->Unit(benchmark::kMillisecond);

// ---- Ours, over libjpeg's coefficients ---------------------------------------------

struct Coefficients {
    struct Component {
        uint8_t h, v;
        uint32_t blocksAcross, blocksDown;
        std::vector<int16_t> blocks;  // 64 per block, natural order
        uint16_t table[64];
        Bytes plane;  // blocksAcross * 8 samples per row
    };
    std::vector<Component> components;
    uint8_t hMax = 1, vMax = 1;
};

Coefficients& Read(bool subsampled) {
    static Coefficients cache[2];
    Coefficients& c = cache[subsampled];
    if (!c.components.empty()) return c;
    const Bytes& file = File(subsampled);
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr error{};
    cinfo.err = jpeg_std_error(&error);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, file.data(), file.size());
    jpeg_read_header(&cinfo, TRUE);
    jvirt_barray_ptr* arrays = jpeg_read_coefficients(&cinfo);
    c.hMax = static_cast<uint8_t>(cinfo.max_h_samp_factor);
    c.vMax = static_cast<uint8_t>(cinfo.max_v_samp_factor);
    for (int i = 0; i < cinfo.num_components; ++i) {
        const jpeg_component_info& info = cinfo.comp_info[i];
        Coefficients::Component component;
        component.h = static_cast<uint8_t>(info.h_samp_factor);
        component.v = static_cast<uint8_t>(info.v_samp_factor);
        component.blocksAcross =
            (info.width_in_blocks + info.h_samp_factor - 1) / info.h_samp_factor * info.h_samp_factor;
        component.blocksDown =
            (info.height_in_blocks + info.v_samp_factor - 1) / info.v_samp_factor * info.v_samp_factor;
        component.blocks.assign(size_t{component.blocksAcross} * component.blocksDown * 64, 0);
        for (int k = 0; k < 64; ++k) component.table[k] = info.quant_table->quantval[k];
        for (uint32_t y = 0; y < info.height_in_blocks; ++y) {
            JBLOCKARRAY row =
                cinfo.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&cinfo), arrays[i], y, 1, FALSE);
            for (uint32_t x = 0; x < info.width_in_blocks; ++x) {
                std::copy(row[0][x], row[0][x] + 64, &component.blocks[(size_t{y} * component.blocksAcross + x) * 64]);
            }
        }
        component.plane.resize(size_t{component.blocksAcross} * 8 * component.blocksDown * 8);
        c.components.push_back(std::move(component));
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return c;
}

void TransformAll(Coefficients& c) {
    for (auto& component : c.components) {
        const ptrdiff_t stride = ptrdiff_t{component.blocksAcross} * 8;
        for (uint32_t y = 0; y < component.blocksDown; ++y) {
            for (uint32_t x = 0; x < component.blocksAcross; ++x) {
                InverseDct8(&component.blocks[(size_t{y} * component.blocksAcross + x) * 64], component.table,
                            component.plane.data() + y * 8 * stride + x * 8, stride);
            }
        }
    }
}

void ConvertAll(Coefficients& c, Bytes& out, Bytes& scratch, ColorRoute route = BestColorRoute()) {
    const ptrdiff_t stride = ptrdiff_t{kWidth} * 3;
    const uint32_t bandRows = 8 * c.vMax;
    ComponentBand bands[3];
    for (uint32_t top = 0; top < kHeight; top += bandRows) {
        for (int i = 0; i < 3; ++i) {
            const auto& component = c.components[i];
            const ptrdiff_t planeStride = ptrdiff_t{component.blocksAcross} * 8;
            bands[i] = {component.plane.data() + (top / bandRows) * 8 * component.v * planeStride, planeStride,
                        component.h, component.v};
        }
        ConvertBandBy(route, ColorKind::YCbCr, bands, kWidth, std::min(bandRows, kHeight - top), c.hMax, c.vMax,
                      out.data() + (kHeight - 1 - top) * stride, -stride, scratch.data());
    }
}

void PerPixel(benchmark::State& state, const char* label) {
    state.counters["ns/pixel"] = benchmark::Counter(
        double(kWidth) * kHeight, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetLabel(std::string(state.range(0) ? "4:2:0 " : "4:4:4 ") + label);
}

void BM_VelmoraInverseDct(benchmark::State& state) {
    Coefficients& c = Read(state.range(0) != 0);
    size_t blocks = 0;
    for (const auto& component : c.components) blocks += size_t{component.blocksAcross} * component.blocksDown;
    for (auto _ : state) {
        TransformAll(c);
        benchmark::DoNotOptimize(c.components[0].plane.data());
    }
    PerPixel(state, "inverse DCT");
    state.counters["ns/block"] =
        benchmark::Counter(double(blocks), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_VelmoraInverseDct)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_VelmoraConvert(benchmark::State& state) {
    Coefficients& c = Read(state.range(0) != 0);
    TransformAll(c);
    Bytes out(size_t{kWidth} * kHeight * 3), scratch(4 * kWidth);
    for (auto _ : state) {
        ConvertAll(c, out, scratch);
        benchmark::DoNotOptimize(out.data());
    }
    PerPixel(state, "upsampling and colour");
}
BENCHMARK(BM_VelmoraConvert)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_VelmoraConvertBy(benchmark::State& state) {
    const auto route = static_cast<ColorRoute>(state.range(1));
    static const char* const kNames[] = {"portable", "SSE2", "SSSE3", "AVX2"};
    if (!ColorRouteAvailable(route)) {
        state.SkipWithError("route not available on this processor");
        return;
    }
    Coefficients& c = Read(state.range(0) != 0);
    TransformAll(c);
    Bytes out(size_t{kWidth} * kHeight * 3), scratch(4 * kWidth);
    for (auto _ : state) {
        ConvertAll(c, out, scratch, route);
        benchmark::DoNotOptimize(out.data());
    }
    PerPixel(state, (std::string("upsampling and colour, ") + kNames[state.range(1)]).c_str());
}
BENCHMARK(BM_VelmoraConvertBy)->ArgsProduct({{0, 1}, {0, 1, 2, 3}})->Unit(benchmark::kMillisecond);

// As a decoder runs: one MCU row of blocks transformed into a band
// buffer, then converted, so that the samples stay in the cache.
void PipelineByBand(Coefficients& c, std::vector<Bytes>& bandPlanes, Bytes& out, Bytes& scratch) {
    const ptrdiff_t stride = ptrdiff_t{kWidth} * 3;
    const uint32_t bandRows = 8 * c.vMax;
    ComponentBand bands[3];
    for (uint32_t top = 0, mcuRow = 0; top < kHeight; top += bandRows, ++mcuRow) {
        for (int i = 0; i < 3; ++i) {
            auto& component = c.components[i];
            const ptrdiff_t planeStride = ptrdiff_t{component.blocksAcross} * 8;
            for (uint32_t r = 0; r < component.v; ++r) {
                const uint32_t y = mcuRow * component.v + r;
                for (uint32_t x = 0; x < component.blocksAcross; ++x) {
                    InverseDct8(&component.blocks[(size_t{y} * component.blocksAcross + x) * 64], component.table,
                                bandPlanes[i].data() + r * 8 * planeStride + x * 8, planeStride);
                }
            }
            bands[i] = {bandPlanes[i].data(), planeStride, component.h, component.v};
        }
        ConvertBand(ColorKind::YCbCr, bands, kWidth, std::min(bandRows, kHeight - top), c.hMax, c.vMax,
                    out.data() + (kHeight - 1 - top) * stride, -stride, scratch.data());
    }
}

void BM_VelmoraPipeline(benchmark::State& state) {
    Coefficients& c = Read(state.range(0) != 0);
    Bytes out(size_t{kWidth} * kHeight * 3), scratch(4 * kWidth);
    std::vector<Bytes> bandPlanes;
    for (const auto& component : c.components)
        bandPlanes.emplace_back(size_t{component.blocksAcross} * 64 * component.v);
    for (auto _ : state) {
        PipelineByBand(c, bandPlanes, out, scratch);
        benchmark::DoNotOptimize(out.data());
    }
    PerPixel(state, "inverse DCT, upsampling and colour");
}
BENCHMARK(BM_VelmoraPipeline)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velmora::jpeg

BENCHMARK_MAIN();
