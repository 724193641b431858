// Smooth reduction of a bi-level page and PNG decoding against their peers,
// on one 300 dpi A4 page (2480 x 3508) of text-like lines drawn when the
// benchmark starts.
//
// Scale-to-grey: our ResizeDib (the reduction alone, and with the colour
// optimisation ResizeVelmoraDIB adds), the same box count written plainly a
// pixel at a time, and ImageMagick's `convert -scale` on the page as a PBM
// file, one thread. convert's figure includes its start-up and the reading
// of the file, so the run also times `convert page.pbm null:` and the
// counter `scale_only_ms` holds the difference: the time of -scale itself.
//
// PNG: our reader against libpng (BGR rows, as ours) on the page coloured,
// with a photograph-like area, written by libpng at its default settings.
//
//   cmake -S . -B build/bench -DVELMORA_BENCH=ON -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/bench --target image_file_bench && build/bench/bench/image_file_bench
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <png.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/png_reader.h"
#include "dib/resize.h"
#include "io/stream.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kWidth = 2480, kHeight = 3508;

// A page of text-like lines: words of upright strokes with ascenders and
// descenders, bottom-up 1-bit rows with index 1 black.
class Page {
public:
    static Page& Get() {
        static Page page;
        return page;
    }
    uint32_t stride() const { return stride_; }
    const uint8_t* rows() const { return rows_.data(); }
    bool Black(uint32_t x, uint32_t y) const { return (rows_[size_t{y} * stride_ + x / 8] >> (7 - x % 8)) & 1; }
    // The page as a DIB with a white-black table.
    HGLOBAL Dib() const {
        ErrorRecord record;
        HGLOBAL dib = CreateImage(kWidth, kHeight, 1, 11811, 11811, 2, kStorageZeroInit, &record);
        ImageLock lock(dib);
        RGBQUAD* table = ColorTable(lock.header());
        table[0] = RGBQUAD{255, 255, 255, 0};
        table[1] = RGBQUAD{0, 0, 0, 0};
        std::memcpy(PackedBits(lock.header()), rows_.data(), rows_.size());
        return dib;
    }

private:
    Page() : stride_((kWidth + 31) / 32 * 4), rows_(size_t{stride_} * kHeight) {
        std::mt19937 random(2480);
        auto between = [&](uint32_t low, uint32_t high) { return low + random() % (high - low + 1); };
        for (uint32_t line = 250; line + 60 < kHeight - 250; line += 52) {
            uint32_t x = 240 + between(0, 40);
            while (x < kWidth - 400) {
                const uint32_t end = x + between(30, 220);
                for (; x < end; x += between(5, 8)) {
                    // Ascenders reach 30 rows above the x-height, descenders 10 below.
                    const uint32_t kind = between(0, 9);
                    const uint32_t top = line + (kind < 2 ? 0 : 12), bottom = line + (kind == 9 ? 46 : 36);
                    Fill(x, top, between(2, 4), bottom - top);
                    if (kind >= 5) Fill(x, top, between(4, 7), 3);
                }
                x = end + between(14, 26);
            }
        }
    }
    // Sets a rectangle given top-down.
    void Fill(uint32_t x0, uint32_t top, uint32_t width, uint32_t height) {
        for (uint32_t y = top; y < top + height; ++y) {
            uint8_t* row = rows_.data() + size_t{kHeight - 1 - y} * stride_;
            for (uint32_t x = x0; x < x0 + width; ++x) row[x / 8] |= static_cast<uint8_t>(0x80u >> (x % 8));
        }
    }

    uint32_t stride_;
    Bytes rows_;
};

// ---- Scale-to-grey ----------------------------------------------------------

uint32_t Reduced(uint32_t size, int64_t percent) { return static_cast<uint32_t>(size * percent / 100); }

void BM_ScaleToGrey_Ours(benchmark::State& state, ResizeColors colors) {
    HGLOBAL dib = Page::Get().Dib();
    ImageLock lock(dib);
    const uint32_t width = Reduced(kWidth, state.range(0)), height = Reduced(kHeight, state.range(0));
    for (auto _ : state) {
        ErrorRecord record;
        HGLOBAL result =
            ResizeDib(lock.header(), lock.bits(), width, height, ResizeQuality::Smooth, colors, nullptr, &record);
        if (result == nullptr) state.SkipWithError("resize failed");
        FreeImage(&result);
    }
    FreeImage(&dib);
}
void BM_ScaleToGrey_Ours_Reduction(benchmark::State& state) { BM_ScaleToGrey_Ours(state, ResizeColors::Keep); }
void BM_ScaleToGrey_Ours_Export(benchmark::State& state) { BM_ScaleToGrey_Ours(state, ResizeColors::Optimize); }
BENCHMARK(BM_ScaleToGrey_Ours_Reduction)->Arg(25)->Arg(33)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScaleToGrey_Ours_Export)->Arg(25)->Arg(33)->Unit(benchmark::kMillisecond);

// The same boxes counted pixel by pixel, as a plain C loop would.
void BM_ScaleToGrey_PlainC(benchmark::State& state) {
    const Page& page = Page::Get();
    const uint32_t width = Reduced(kWidth, state.range(0)), height = Reduced(kHeight, state.range(0));
    Bytes out(size_t{width} * height);
    for (auto _ : state) {
        for (uint32_t j = 0; j < height; ++j) {
            const uint32_t y0 = uint64_t{j} * kHeight / height, y1 = uint64_t{j + 1} * kHeight / height;
            for (uint32_t i = 0; i < width; ++i) {
                const uint32_t x0 = uint64_t{i} * kWidth / width, x1 = uint64_t{i + 1} * kWidth / width;
                uint32_t count = 0;
                for (uint32_t y = y0; y < y1; ++y)
                    for (uint32_t x = x0; x < x1; ++x) count += page.Black(x, y);
                out[size_t{j} * width + i] = static_cast<uint8_t>(count * 255 / ((x1 - x0) * (y1 - y0)));
            }
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_ScaleToGrey_PlainC)->Arg(25)->Arg(33)->Unit(benchmark::kMillisecond);

bool Shell(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

std::string Scratch() {
    static const std::string dir = [] {
        char name[] = "/tmp/velmora-bench-XXXXXX";
        return std::string(mkdtemp(name) != nullptr ? name : "");
    }();
    return dir;
}

std::string PagePbm() {
    static const std::string path = [] {
        const Page& page = Page::Get();
        std::string file = Scratch() + "/page.pbm";
        FILE* out = std::fopen(file.c_str(), "wb");
        if (out == nullptr) return std::string();
        std::fprintf(out, "P4\n%u %u\n", kWidth, kHeight);
        for (uint32_t y = kHeight; y-- > 0;)
            std::fwrite(page.rows() + size_t{y} * page.stride(), 1, (kWidth + 7) / 8, out);
        std::fclose(out);
        return file;
    }();
    return path;
}

double ConvertSeconds(const std::string& arguments) {
    const auto start = std::chrono::steady_clock::now();
    const bool ok = Shell("/usr/bin/convert -limit thread 1 " + PagePbm() + " " + arguments);
    return ok ? std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() : -1;
}

void BM_ScaleToGrey_ImageMagick(benchmark::State& state) {
    const std::string scale = "-scale " + std::to_string(state.range(0)) + "% " + Scratch() + "/out.pgm";
    if (PagePbm().empty() || ConvertSeconds("null:") < 0 || ConvertSeconds(scale) < 0) {
        state.SkipWithError("ImageMagick's convert did not run");
        return;
    }
    double scaled = 0, loaded = 0;
    for (auto _ : state) {
        const double seconds = ConvertSeconds(scale);
        state.SetIterationTime(seconds);
        scaled += seconds;
        state.PauseTiming();
        loaded += ConvertSeconds("null:");
        state.ResumeTiming();
    }
    state.counters["scale_only_ms"] = 1000 * (scaled - loaded) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_ScaleToGrey_ImageMagick)->Arg(25)->Arg(33)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

// ---- PNG decoding -------------------------------------------------------------

void AppendPng(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

// The page in dark blue on a cream background, with a smooth noisy picture
// in its lower third, as an RGB PNG.
const Bytes& ColourPng() {
    static const Bytes file = [] {
        const Page& page = Page::Get();
        std::mt19937 random(15948);
        Bytes rgb(size_t{kWidth} * 3);
        Bytes out;
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        if (setjmp(png_jmpbuf(png))) {
            png_destroy_write_struct(&png, &info);
            return Bytes();
        }
        png_set_write_fn(png, &out, AppendPng, nullptr);
        png_set_IHDR(png, info, kWidth, kHeight, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (uint32_t y = 0; y < kHeight; ++y) {
            for (uint32_t x = 0; x < kWidth; ++x) {
                uint8_t* p = &rgb[size_t{x} * 3];
                if (y > 2400 && y < 3300 && x > 300 && x < 2200) {
                    const int noise = static_cast<int>(random() % 9) - 4;
                    p[0] = static_cast<uint8_t>(60 + x / 12 + noise);
                    p[1] = static_cast<uint8_t>(40 + (y - 2400) / 5 + noise);
                    p[2] = static_cast<uint8_t>(120 + (x + y) % 100 + noise);
                } else if (page.Black(x, kHeight - 1 - y)) {
                    p[0] = 20, p[1] = 30, p[2] = 110;
                } else {
                    p[0] = 250, p[1] = 246, p[2] = 232;
                }
            }
            png_write_row(png, rgb.data());
        }
        png_write_end(png, info);
        png_destroy_write_struct(&png, &info);
        return out;
    }();
    return file;
}

HGLOBAL ReadOurs(const Bytes& file, bool* warning) {
    ErrorRecord record;
    Stream* stream = OpenFixedMemoryStream(file.data(), static_cast<uint32_t>(file.size()), &record);
    HGLOBAL dib = ReadPngDib(stream, nullptr, nullptr, warning, &record);
    CloseStream(stream, nullptr);
    return dib;
}

struct PngInput {
    const Bytes* file;
    size_t at;
};

void ReadPngBytes(png_structp png, png_bytep data, png_size_t length) {
    auto* input = static_cast<PngInput*>(png_get_io_ptr(png));
    if (input->at + length > input->file->size()) png_error(png, "short file");
    std::memcpy(data, input->file->data() + input->at, length);
    input->at += length;
}

// libpng into `image`: bottom-up BGR rows of the same stride as ours.
bool ReadLibpng(const Bytes& file, Bytes* image) {
    const size_t stride = (size_t{kWidth} * 3 + 3) / 4 * 4;
    image->resize(stride * kHeight);
    PngInput input{&file, 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_set_read_fn(png, &input, ReadPngBytes);
    png_read_info(png, info);
    png_set_bgr(png);
    for (uint32_t y = 0; y < kHeight; ++y) png_read_row(png, image->data() + (kHeight - 1 - y) * stride, nullptr);
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

void BM_PngDecode_Ours(benchmark::State& state) {
    const Bytes& file = ColourPng();
    // Timings only count when both readers agree on every pixel.
    Bytes peer;
    bool warning = true;
    HGLOBAL first = ReadOurs(file, &warning);
    const bool same = first != nullptr && !warning && ReadLibpng(file, &peer) &&
                      std::memcmp(ImageLock(first).bits(), peer.data(), peer.size()) == 0;
    FreeImage(&first);
    if (!same) {
        state.SkipWithError("our reader and libpng disagree");
        return;
    }
    for (auto _ : state) {
        HGLOBAL dib = ReadOurs(file, nullptr);
        if (dib == nullptr) state.SkipWithError("our reader failed");
        FreeImage(&dib);
    }
    state.counters["file_bytes"] = static_cast<double>(file.size());
}
BENCHMARK(BM_PngDecode_Ours)->Unit(benchmark::kMillisecond);

void BM_PngDecode_Libpng(benchmark::State& state) {
    const Bytes& file = ColourPng();
    Bytes image;
    for (auto _ : state) {
        if (!ReadLibpng(file, &image)) state.SkipWithError("libpng failed");
        benchmark::DoNotOptimize(image.data());
    }
}
BENCHMARK(BM_PngDecode_Libpng)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velmora

BENCHMARK_MAIN();
