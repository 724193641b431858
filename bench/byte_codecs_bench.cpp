// Decoding and encoding speed of the byte codecs against their peers on one 300 dpi A4
// page (2480 x 3508) of rendered text and a greyscale picture, made with
// ImageMagick when the benchmark starts and compressed by tiffcp: each pair
// decodes the same strips, ours from the raw strip bytes, libtiff through
// TIFFReadEncodedStrip; raw zlib streams against zlib's inflate. Our strips
// go top-down into one buffer, as the page pipeline decodes them (and as
// libtiff's do); the "bottom_up" variants write rows apart, bottom-up as in a
// DIB, for comparison.
//
//   cmake -S . -B build/bench -DVELMORA_BENCH=ON -DCMAKE_BUILD_TYPE=Release
//   cmake --build build/bench --target byte_codecs_bench && build/bench/bench/byte_codecs_bench
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <tiffio.h>
#include <zlib.h>

#include "codecs/byte_decoders.h"
#include "codecs/byte_encoders.h"
#include "codecs/inflater.h"

namespace velmora {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

bool Shell(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// The page files, made once: the grey page, a colour version, and their
// compressed copies, named by their tiffcp options.
class PageFiles {
public:
    static PageFiles& Get() {
        static PageFiles files;
        return files;
    }
    ~PageFiles() {
        std::error_code ignored;
        if (!dir_.empty()) fs::remove_all(dir_, ignored);
    }
    bool ok() const { return ok_; }
    // The page compressed with `options`, in grey or colour.
    std::string Compressed(const std::string& options, bool colour) {
        std::string key = options + (colour ? " rgb" : " grey");
        auto found = made_.find(key);
        if (found != made_.end()) return found->second;
        std::string out = (dir_ / ("page" + std::to_string(made_.size()) + ".tif")).string();
        std::string in = (dir_ / (colour ? "rgb.tif" : "grey.tif")).string();
        if (!Shell("tiffcp " + options + " " + in + " " + out)) out.clear();
        made_[key] = out;
        return out;
    }
    const Bytes& GreyPixels() const { return grey_; }
    // A file name in the benchmark's directory.
    std::string Scratch(const char* name) const { return (dir_ / name).string(); }

private:
    PageFiles() {
        char name[] = "/tmp/velmora-bench-XXXXXX";
        if (mkdtemp(name) == nullptr) return;
        dir_ = name;
        std::string text;
        for (int i = 0; i < 70; ++i)
            text += " -annotate +150+" + std::to_string(250 + i * 34) + " 'Line " + std::to_string(i) +
                    " of the page: Lorem ipsum dolor sit amet, consectetur adipiscing elit, sed do eiusmod tempor "
                    "0123456789.'";
        std::string grey = (dir_ / "grey.tif").string();
        ok_ = Shell("convert -size 2480x3508 -density 300 xc:white -font DejaVu-Serif -pointsize 9 -fill black" + text +
                    " \\( -size 1800x900 gradient:gray20-gray90 -swirl 120 -attenuate 0.3 +noise Gaussian \\)"
                    " -geometry +340+2650 -composite -alpha off -colorspace Gray -type Grayscale -depth 8"
                    " -compress none " +
                    grey) &&
              Shell("convert " + grey +
                    " -colorspace sRGB +level-colors navy,ivory -type TrueColor -depth 8"
                    " -compress none " +
                    (dir_ / "rgb.tif").string());
        if (!ok_) return;
        TIFF* tif = TIFFOpen(grey.c_str(), "r");
        if (tif == nullptr) {
            ok_ = false;
            return;
        }
        grey_.resize(size_t{2480} * 3508);
        for (uint32_t row = 0; row < 3508; ++row) TIFFReadScanline(tif, grey_.data() + size_t{row} * 2480, row, 0);
        TIFFClose(tif);
    }

    fs::path dir_;
    bool ok_ = false;
    std::map<std::string, std::string> made_;
    Bytes grey_;
};

// One compressed TIFF page held open by libtiff, with its raw strips.
struct TiffPage {
    explicit TiffPage(const std::string& file) {
        TIFFSetWarningHandler(nullptr);
        tif = TIFFOpen(file.c_str(), "r");
        if (tif == nullptr) return;
        uint16_t compression = 1, predictor = 1;
        TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &page.imageWidth);
        TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &page.imageLength);
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &page.rowsPerStrip);
        TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &page.bitsPerSample);
        TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &page.samplesPerPixel);
        TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
        if (compression != COMPRESSION_PACKBITS) TIFFGetFieldDefaulted(tif, TIFFTAG_PREDICTOR, &predictor);
        page.compression = compression;
        page.predictor = predictor;
        page.outputWidth = page.imageWidth;
        page.stripCount = TIFFNumberOfStrips(tif);
        uint64_t* counts = nullptr;
        TIFFGetField(tif, TIFFTAG_STRIPBYTECOUNTS, &counts);
        for (uint32_t s = 0; s < page.stripCount; ++s) {
            strips.emplace_back(static_cast<size_t>(counts[s]));
            TIFFReadRawStrip(tif, s, strips.back().data(), static_cast<tmsize_t>(strips.back().size()));
        }
        rowBytes = static_cast<size_t>(StoredRowBytes(page.imageWidth, page.bitsPerSample, page.samplesPerPixel));
        image.resize(rowBytes * page.imageLength);
    }
    ~TiffPage() {
        if (tif != nullptr) TIFFClose(tif);
    }
    std::unique_ptr<StripDecoder> Decoder() const {
        switch (page.compression) {
            case COMPRESSION_LZW: return CreateLzwDecoder();
            case COMPRESSION_PACKBITS: return CreatePackBitsDecoder();
            default: return CreateDeflateDecoder();
        }
    }
    TIFF* tif = nullptr;
    CodecPage page;
    std::vector<Bytes> strips;
    size_t rowBytes = 0;
    Bytes image;
};

void Decode(benchmark::State& state, const char* options, bool colour, bool bottomUp) {
    PageFiles& files = PageFiles::Get();
    if (!files.ok()) return state.SkipWithError("ImageMagick or tiffcp failed");
    TiffPage tiff(files.Compressed(options, colour));
    if (tiff.tif == nullptr) return state.SkipWithError("no page");
    auto decoder = tiff.Decoder();
    for (auto _ : state) {
        ErrorRecord record;
        decoder->Begin(tiff.page, &record);
        for (uint32_t s = 0; s < tiff.page.stripCount; ++s) {
            CodecStrip strip;
            strip.data = tiff.strips[s].data();
            strip.size = tiff.strips[s].size();
            strip.index = s;
            strip.firstRow = s * tiff.page.rowsPerStrip;
            strip.rows = tiff.page.rowsPerStrip;
            if (bottomUp) {
                strip.topRow = tiff.image.data() + tiff.rowBytes * (tiff.page.imageLength - 1 - strip.firstRow);
                strip.stride = -static_cast<ptrdiff_t>(tiff.rowBytes);
            } else {
                strip.topRow = tiff.image.data() + tiff.rowBytes * strip.firstRow;
                strip.stride = static_cast<ptrdiff_t>(tiff.rowBytes);
            }
            if (!decoder->Decode(strip, &record)) return state.SkipWithError("decode failed");
        }
        decoder->End();
        benchmark::DoNotOptimize(tiff.image.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(tiff.image.size()));
}

void Ours(benchmark::State& state, const char* options, bool colour) { Decode(state, options, colour, false); }
void OursBottomUp(benchmark::State& state, const char* options, bool colour) { Decode(state, options, colour, true); }

void Libtiff(benchmark::State& state, const char* options, bool colour) {
    PageFiles& files = PageFiles::Get();
    if (!files.ok()) return state.SkipWithError("ImageMagick or tiffcp failed");
    TiffPage tiff(files.Compressed(options, colour));
    if (tiff.tif == nullptr) return state.SkipWithError("no page");
    tmsize_t stripSize = TIFFStripSize(tiff.tif);
    for (auto _ : state) {
        for (uint32_t s = 0; s < tiff.page.stripCount; ++s) {
            size_t at = size_t{s} * tiff.page.rowsPerStrip * tiff.rowBytes;
            if (TIFFReadEncodedStrip(tiff.tif, s, tiff.image.data() + at,
                                     std::min<tmsize_t>(stripSize, tiff.image.size() - at)) < 0)
                return state.SkipWithError("libtiff failed");
        }
        benchmark::DoNotOptimize(tiff.image.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(tiff.image.size()));
}

#define PAIR(name, options, colour)                                                \
    BENCHMARK_CAPTURE(Ours, name, options, colour)->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(Libtiff, name, options, colour)->Unit(benchmark::kMillisecond);

PAIR(lzw_predictor_grey, "-c lzw:2 -r 64", false)
PAIR(lzw_predictor_rgb, "-c lzw:2 -r 16", true)
PAIR(lzw_grey, "-c lzw -r 64", false)
PAIR(deflate_grey, "-c zip -r 64", false)
PAIR(deflate_predictor_rgb, "-c zip:2 -r 16", true)
PAIR(packbits_grey, "-c packbits -r 64", false)
BENCHMARK_CAPTURE(OursBottomUp, deflate_grey, "-c zip -r 64", false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(OursBottomUp, deflate_predictor_rgb, "-c zip:2 -r 16", true)->Unit(benchmark::kMillisecond);

// ---- Raw zlib streams ----------------------------------------------------------
class CopySink final : public InflateSink {
public:
    explicit CopySink(Bytes* out) : out_(out) {}
    bool Take(const uint8_t* bytes, size_t count, ErrorRecord*) override {
        size_t n = std::min(count, out_->size() - at_);
        std::memcpy(out_->data() + at_, bytes, n);
        at_ += n;
        return true;
    }

private:
    Bytes* out_;
    size_t at_ = 0;
};

Bytes ZlibPage(int level) {
    const Bytes& page = PageFiles::Get().GreyPixels();
    Bytes out(compressBound(page.size()));
    uLongf length = out.size();
    compress2(out.data(), &length, page.data(), page.size(), level);
    out.resize(length);
    return out;
}

void OursZlib(benchmark::State& state) {
    if (!PageFiles::Get().ok()) return state.SkipWithError("ImageMagick failed");
    Bytes stream = ZlibPage(static_cast<int>(state.range(0)));
    Bytes out(PageFiles::Get().GreyPixels().size());
    Inflater inflater;
    for (auto _ : state) {
        CopySink sink(&out);
        ErrorRecord record;
        if (!inflater.DecodeZlibStream(stream.data(), stream.size(), &sink, &record))
            return state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size()));
}

void ZlibInflate(benchmark::State& state) {
    if (!PageFiles::Get().ok()) return state.SkipWithError("ImageMagick failed");
    Bytes stream = ZlibPage(static_cast<int>(state.range(0)));
    Bytes out(PageFiles::Get().GreyPixels().size());
    for (auto _ : state) {
        uLongf length = out.size();
        if (uncompress(out.data(), &length, stream.data(), stream.size()) != Z_OK)
            return state.SkipWithError("zlib failed");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(out.size()));
}

// Encoding the grey page in 16-row strips: the library's encoders into a
// file stream, libtiff's through TIFFWriteEncodedStrip into a file, in the
// same directory.
constexpr uint32_t kEncodeRowsPerStrip = 16;

void OursEncode(benchmark::State& state, uint16_t compression) {
    if (!PageFiles::Get().ok()) return state.SkipWithError("ImageMagick failed");
    const Bytes& grey = PageFiles::Get().GreyPixels();
    std::u16string path;
    for (char c : PageFiles::Get().Scratch("ours.bin")) path.push_back(static_cast<char16_t>(c));
    for (auto _ : state) {
        ErrorRecord record;
        Stream* out = OpenFileStream(path.c_str(), kStreamWrite, false, true, &record);
        for (uint32_t first = 0; first < 3508 && !record.failed(); first += kEncodeRowsPerStrip) {
            EncoderStrip strip;
            strip.topRow = grey.data() + size_t{first} * 2480;
            strip.stride = 2480;
            strip.rows = std::min<uint32_t>(kEncodeRowsPerStrip, 3508 - first);
            strip.rowBytes = 2480;
            strip.out = out;
            if (compression == COMPRESSION_LZW) {
                EncodeLzwStrip(strip, &record);
            } else if (compression == COMPRESSION_PACKBITS) {
                EncodePackBitsStrip(strip, &record);
            } else {
                EncodeDeflateStrip(strip, &record);
            }
        }
        CloseStream(out, &record);
        if (record.failed()) return state.SkipWithError("encoding failed");
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(grey.size()));
    state.counters["coded_bytes"] = static_cast<double>(std::filesystem::file_size(PageFiles::Get().Scratch("ours.bin")));
}

void LibtiffEncode(benchmark::State& state, uint16_t compression) {
    if (!PageFiles::Get().ok()) return state.SkipWithError("ImageMagick failed");
    const Bytes& grey = PageFiles::Get().GreyPixels();
    std::string path = PageFiles::Get().Scratch("theirs.tif");
    for (auto _ : state) {
        TIFF* tif = TIFFOpen(path.c_str(), "w");
        TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, 2480);
        TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 3508);
        TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, kEncodeRowsPerStrip);
        for (uint32_t s = 0, first = 0; first < 3508; ++s, first += kEncodeRowsPerStrip) {
            uint32_t rows = std::min<uint32_t>(kEncodeRowsPerStrip, 3508 - first);
            TIFFWriteEncodedStrip(tif, s, const_cast<uint8_t*>(grey.data()) + size_t{first} * 2480,
                                  tmsize_t{rows} * 2480);
        }
        TIFFClose(tif);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(grey.size()));
    state.counters["coded_bytes"] = static_cast<double>(std::filesystem::file_size(path));
}

BENCHMARK_CAPTURE(OursEncode, lzw, uint16_t{COMPRESSION_LZW})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LibtiffEncode, lzw, uint16_t{COMPRESSION_LZW})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(OursEncode, packbits, uint16_t{COMPRESSION_PACKBITS})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LibtiffEncode, packbits, uint16_t{COMPRESSION_PACKBITS})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(OursEncode, deflate, uint16_t{COMPRESSION_ADOBE_DEFLATE})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(LibtiffEncode, deflate, uint16_t{COMPRESSION_ADOBE_DEFLATE})->Unit(benchmark::kMillisecond);

BENCHMARK(OursZlib)->Arg(1)->Arg(6)->Arg(9)->Unit(benchmark::kMillisecond);
BENCHMARK(ZlibInflate)->Arg(1)->Arg(6)->Arg(9)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace velmora

BENCHMARK_MAIN();
