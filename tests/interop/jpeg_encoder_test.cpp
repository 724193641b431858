// The JPEG encoder against libjpeg-turbo: a corpus of grey and colour images
// of awkward sizes, every sampling, quality and table choice, decoded by
// libjpeg in process, by djpeg and by Pillow; the quantisation and Huffman
// tables compared byte for byte with cjpeg's at the same quality and the
// decoded images compared with the decode of cjpeg's file; abbreviated
// streams after a tables-only stream, as TIFF keeps them; the JFIF density
// and a JFXX thumbnail read back by libjpeg. (No peer here decodes lossless
// JPEG; the unit tests check lossless scans with a reference decoder.)
#include <cmath>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "jpeg/jpeg_encoder.h"
#include "frame/error_record.h"
#include "io/stream.h"
#include "support/jpeg_segments.h"
#include "support/memory_stream.h"
#include "support/pictures.h"

namespace velmora::jpeg {
namespace {

using Bytes = std::vector<uint8_t>;
using velmora::peers::ReadFile;
using velmora::testing_support::JpegPayloads;
using TempDirectory = velmora::peers::TempDir;

// ---- Images ------------------------------------------------------------------

enum class Kind { Gradient, Text, Noise, Photo };

// Pixels top row first, `channels` bytes per pixel (red, green, blue).
using Image = velmora::peers::Picture;

Image MakeImage(Kind kind, uint32_t width, uint32_t height, uint8_t components, uint32_t seed) {
    Image image{width, height, components, Bytes(size_t{width} * height * components)};
    std::mt19937 random(seed);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (uint8_t c = 0; c < components; ++c) {
                double v = 0;
                switch (kind) {
                    case Kind::Gradient: v = 255.0 * (x + y * (c + 1)) / (width + height * (c + 1)); break;
                    case Kind::Text: v = ((x / 3 + y / 5) % 7 == 0 && y % 12 < 9) ? 30 + c * 20 : 235 - c * 10; break;
                    case Kind::Noise: v = random() % 256; break;
                    case Kind::Photo:
                        v = 128 + 60 * std::sin(x / (17.0 + 5 * c)) * std::cos(y / 23.0) +
                            40 * std::sin((x + y) / 61.0) +
                            ((x - width / 2) * (x - width / 2) + (y - height / 3) * (y - height / 3) < width * 9 ? 50
                                                                                                                 : 0) +
                            static_cast<int>(random() % 9) - 4;
                        break;
                }
                image.pixels[(size_t{y} * width + x) * components + c] =
                    static_cast<uint8_t>(std::lround(std::clamp(v, 0.0, 255.0)));
            }
        }
    }
    return image;
}

// Our encode of an image. `bottomUpBgr` passes the rows the way a DIB holds
// them (blue first, bottom row first) instead of TIFF's order.
Bytes Encode(const Image& image, const JpegEncoderSettings& settings, bool bottomUpBgr = false) {
    Bytes storage;
    JpegRows rows;
    rows.width = image.width;
    rows.height = image.height;
    rows.bytesPerPixel = image.channels;
    size_t rowBytes = size_t{image.width} * image.channels;
    if (bottomUpBgr && image.channels == 3) {
        storage.resize(rowBytes * image.height);
        for (uint32_t y = 0; y < image.height; ++y) {
            const uint8_t* in = image.pixels.data() + rowBytes * y;
            uint8_t* out = storage.data() + rowBytes * (image.height - 1 - y);
            for (uint32_t x = 0; x < image.width; ++x) {
                out[3 * x] = in[3 * x + 2];
                out[3 * x + 1] = in[3 * x + 1];
                out[3 * x + 2] = in[3 * x];
            }
        }
        rows.top = storage.data() + rowBytes * (image.height - 1);
        rows.stride = -static_cast<ptrdiff_t>(rowBytes);
    } else {
        rows.top = image.pixels.data();
        rows.stride = static_cast<ptrdiff_t>(rowBytes);
        rows.redFirst = true;
    }
    ErrorRecord record;
    Stream* stream = OpenMemoryStream(false, &record);
    EncodeJpegRows(rows, settings, stream, nullptr, &record);
    Bytes bytes = velmora::testing_support::CloseAndTake(stream, nullptr);
    EXPECT_EQ(record.code, 0u);
    return record.ok() ? bytes : Bytes();
}

// ---- libjpeg -----------------------------------------------------------------

struct Decoded {
    bool ok = false;
    std::string error;
    Image image;
    bool sawJfif = false;
    uint8_t jfifMinor = 0, densityUnit = 0;
    uint16_t xDensity = 0, yDensity = 0;
};

// Decodes with libjpeg; `tables` (optional) is a tables-only stream read
// first, as a TIFF reader does with JPEGTables.
Decoded DecodeWithLibjpeg(const Bytes& bytes, const Bytes* tables = nullptr) {
    Decoded result;
    auto jfif = [&](jpeg_decompress_struct& info) {
        result.sawJfif = info.saw_JFIF_marker;
        result.jfifMinor = info.JFIF_minor_version;
        result.densityUnit = info.density_unit;
        result.xDensity = info.X_density;
        result.yDensity = info.Y_density;
    };
    result.ok = velmora::peers::LibjpegDecode(bytes, &result.image, &result.error, jfif, tables);
    return result;
}

double MeanSquaredError(const Image& a, const Image& b) {
    double sum = 0;
    for (size_t i = 0; i < a.pixels.size(); ++i) {
        double d = double(a.pixels[i]) - b.pixels[i];
        sum += d * d;
    }
    return sum / a.pixels.size();
}

double Psnr(const Image& a, const Image& b) {
    double mse = MeanSquaredError(a, b);
    return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

double MeanAbsoluteDifference(const Image& a, const Image& b) {
    double sum = 0;
    for (size_t i = 0; i < a.pixels.size(); ++i) sum += std::abs(double(a.pixels[i]) - b.pixels[i]);
    return sum / a.pixels.size();
}

// ---- Corpus -----------------------------------------------------------------

struct CorpusCase {
    std::string name;
    Image source;
    JpegEncoderSettings settings;
    Bytes jpeg;
};

// The least PSNR a photo-like image keeps at a quality.
double PsnrFloor(int32_t quality) { return quality >= 100 ? 40 : quality >= 75 ? 30 : quality >= 50 ? 28 : 18; }

TEST(JpegEncoderInterop, CorpusDecodesWithLibjpegDjpegAndPillow) {
    struct Size {
        uint32_t width, height;
        Kind kind;
    };
    const Size sizes[] = {{1, 1, Kind::Gradient}, {17, 9, Kind::Noise}, {4097, 3, Kind::Text}, {640, 480, Kind::Photo}};
    std::vector<CorpusCase> corpus;
    uint32_t seed = 1;
    for (const Size& size : sizes) {
        for (uint8_t components : {1, 3}) {
            Image source = MakeImage(size.kind, size.width, size.height, components, seed++);
            for (ChromaSampling sampling : {ChromaSampling::H1V1, ChromaSampling::H2V1, ChromaSampling::H2V2}) {
                if (components == 1 && sampling != ChromaSampling::H1V1) continue;
                for (int32_t quality : {1, 50, 75, 100}) {
                    for (bool optimise : {false, true}) {
                        CorpusCase c;
                        c.name = std::to_string(size.width) + "x" + std::to_string(size.height) + "-c" +
                                 std::to_string(components) + "-s" + std::to_string(int(sampling)) + "-q" +
                                 std::to_string(quality) + (optimise ? "-opt" : "");
                        c.source = source;
                        c.settings.quality = quality;
                        c.settings.sampling = sampling;
                        c.settings.optimiseHuffman = optimise;
                        c.settings.writeJfif = quality == 75;
                        c.settings.writeResolution = optimise;
                        c.settings.resolution = {PrivateSegmentKind::Resolution, 2, 300, 1, 300, 1};
                        c.jpeg = Encode(c.source, c.settings, quality == 50);
                        corpus.push_back(std::move(c));
                    }
                }
            }
        }
    }

    for (const CorpusCase& c : corpus) {
        SCOPED_TRACE(c.name);
        ASSERT_FALSE(c.jpeg.empty());
        Decoded decoded = DecodeWithLibjpeg(c.jpeg);
        ASSERT_TRUE(decoded.ok) << decoded.error;
        ASSERT_EQ(decoded.image.width, c.source.width);
        ASSERT_EQ(decoded.image.height, c.source.height);
        ASSERT_EQ(decoded.image.channels, c.source.channels);
        EXPECT_EQ(decoded.sawJfif, c.settings.writeJfif);
        if (c.source.width == 640) {
            EXPECT_GT(Psnr(decoded.image, c.source), PsnrFloor(c.settings.quality));
        }
        if (c.settings.quality == 100 && c.source.width > 1 && c.source.channels == 1) {
            // Quantiser 1: only the transform's rounding is lost.
            EXPECT_GT(Psnr(decoded.image, c.source), 45);
        }
    }

    TempDirectory directory("velmora-jpegenc");
    REQUIRE_PEER(velmora::peers::Have("/usr/bin/djpeg"), "djpeg");
    std::string names;
    for (const CorpusCase& c : corpus) {
        std::string path = directory.Path(c.name + ".jpg");
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(c.jpeg.data()), c.jpeg.size());
        names += " '" + path + "'";
        std::string out;
        EXPECT_TRUE(velmora::peers::Output("djpeg -outfile /dev/null '" + path + "' 2>&1", &out))
            << c.name << ": " << out;
        EXPECT_EQ(out, "") << c.name;  // not even a warning
    }
    std::string pillowProbe = std::string(VELMORA_PYTHON) + " -c 'import PIL'";
    REQUIRE_PEER(velmora::peers::Run(pillowProbe), std::string("Pillow for ") + VELMORA_PYTHON);
    std::string script = directory.Path("sizes.py");
    std::ofstream(script) << "import sys\nfrom PIL import Image\nfor p in sys.argv[1:]:\n"
                             "    im = Image.open(p)\n    im.load()\n    print(im.size[0], im.size[1], im.mode)\n";
    std::string out;
    ASSERT_TRUE(velmora::peers::Output(std::string(VELMORA_PYTHON) + " '" + script + "'" + names + " 2>&1", &out))
        << out;
    std::string expected;
    for (const CorpusCase& c : corpus) {
        expected += std::to_string(c.source.width) + " " + std::to_string(c.source.height) +
                    (c.source.channels == 1 ? " L\n" : " RGB\n");
    }
    EXPECT_EQ(out, expected);
}

// ---- cjpeg at the same quality ----------------------------------------------

TEST(JpegEncoderInterop, TablesAndPixelsMatchCjpegAtTheSameQuality) {
    REQUIRE_PEER(velmora::peers::Run("cjpeg -version"), "cjpeg");
    TempDirectory directory("velmora-jpegenc");
    for (uint8_t components : {1, 3}) {
        Image source = MakeImage(Kind::Photo, 640, 480, components, 40 + components);
        std::string input = directory.Path(components == 1 ? "in.pgm" : "in.ppm");
        velmora::peers::WritePnm(source, input);
        for (int32_t quality : {5, 30, 50, 75, 90, 100}) {
            SCOPED_TRACE("components " + std::to_string(components) + " quality " + std::to_string(quality));
            std::string output = directory.Path("peer.jpg");
            std::string out;
            ASSERT_TRUE(velmora::peers::Output("cjpeg -quality " + std::to_string(quality) +
                                                   " -baseline -sample 2x2 -outfile '" + output + "' '" + input +
                                                   "' 2>&1",
                                               &out))
                << out;
            Bytes peer = ReadFile(output);
            JpegEncoderSettings settings;
            settings.quality = quality;
            settings.sampling = ChromaSampling::H2V2;
            Bytes ours = Encode(source, settings);
            ASSERT_FALSE(ours.empty());
            EXPECT_EQ(JpegPayloads(ours, 0xDB), JpegPayloads(peer, 0xDB));
            EXPECT_EQ(JpegPayloads(ours, 0xC4), JpegPayloads(peer, 0xC4));

            Decoded mine = DecodeWithLibjpeg(ours);
            Decoded theirs = DecodeWithLibjpeg(peer);
            ASSERT_TRUE(mine.ok && theirs.ok);
            // The same tables leave the same error: our floating-point
            // transform may differ from libjpeg's integer one by a level here
            // and there, never in kind.
            EXPECT_LT(MeanAbsoluteDifference(mine.image, theirs.image), 0.75);
            EXPECT_GT(Psnr(mine.image, source), Psnr(theirs.image, source) - 0.2);
            // Standard Huffman tables on the same coefficients: the same size
            // within a few per cent.
            EXPECT_NEAR(double(ours.size()) / peer.size(), 1.0, 0.04);
        }
    }
}

TEST(JpegEncoderInterop, OptimisedTablesAreNoLargerThanCjpegOptimize) {
    REQUIRE_PEER(velmora::peers::Run("cjpeg -version"), "cjpeg");
    TempDirectory directory("velmora-jpegenc");
    Image source = MakeImage(Kind::Photo, 640, 480, 3, 77);
    std::string input = directory.Path("in.ppm");
    velmora::peers::WritePnm(source, input);
    std::string output = directory.Path("peer.jpg");
    std::string out;
    ASSERT_TRUE(velmora::peers::Output(
        "cjpeg -quality 75 -optimize -sample 2x2 -outfile '" + output + "' '" + input + "' 2>&1", &out));
    Bytes peer = ReadFile(output);
    JpegEncoderSettings settings;
    settings.sampling = ChromaSampling::H2V2;
    Bytes standard = Encode(source, settings);
    settings.optimiseHuffman = true;
    Bytes optimised = Encode(source, settings);
    EXPECT_LT(optimised.size(), standard.size());
    EXPECT_LT(double(optimised.size()) / peer.size(), 1.02);
}

// ---- TIFF-style abbreviated streams -------------------------------------------

TEST(JpegEncoderInterop, AbbreviatedStreamsDecodeAfterTheirTables) {
    for (uint8_t components : {1, 3}) {
        for (bool optimise : {false, true}) {
            SCOPED_TRACE(std::to_string(components) + (optimise ? " optimised" : ""));
            Image source = MakeImage(Kind::Photo, 200, 64, components, 5);
            JpegEncoderSettings settings;
            settings.quality = 80;
            settings.sampling = ChromaSampling::H2V1;
            settings.optimiseHuffman = optimise;
            settings.writeComment = false;
            ErrorRecord record;
            Stream* stream = OpenMemoryStream(false, &record);
            ASSERT_TRUE(WriteJpegTables(components, settings, stream, &record));
            Bytes tables = velmora::testing_support::CloseAndTake(stream, nullptr);

            Bytes complete = Encode(source, settings);
            settings.omitTables = true;
            Bytes abbreviated = Encode(source, settings);
            EXPECT_LT(abbreviated.size(), complete.size());
            Decoded alone = DecodeWithLibjpeg(abbreviated);
            EXPECT_FALSE(alone.ok);  // the tables really are missing
            Decoded split = DecodeWithLibjpeg(abbreviated, &tables);
            Decoded whole = DecodeWithLibjpeg(complete);
            ASSERT_TRUE(split.ok) << split.error;
            ASSERT_TRUE(whole.ok) << whole.error;
            EXPECT_EQ(split.image.pixels, whole.image.pixels);
        }
    }
}

// ---- JFIF ---------------------------------------------------------------------

TEST(JpegEncoderInterop, JfifDensityAndJfxxThumbnailReadByLibjpeg) {
    Image source = MakeImage(Kind::Photo, 300, 200, 3, 9);
    Image small = MakeImage(Kind::Photo, 60, 40, 3, 9);
    // The thumbnail as a 24-bit DIB.
    uint32_t stride = (60 * 3 + 3) & ~3u;
    std::vector<uint32_t> words((40 + stride * 40 + 3) / 4);
    BITMAPINFOHEADER* header = reinterpret_cast<BITMAPINFOHEADER*>(words.data());
    *header = BITMAPINFOHEADER{40, 60, 40, 1, 24, BI_RGB, 0, 0, 0, 0, 0};
    uint8_t* bits = reinterpret_cast<uint8_t*>(words.data()) + 40;
    for (uint32_t y = 0; y < 40; ++y) {
        for (uint32_t x = 0; x < 60; ++x) {
            const uint8_t* rgb = small.pixels.data() + (size_t{y} * 60 + x) * 3;
            uint8_t* bgr = bits + size_t{39 - y} * stride + x * 3;
            bgr[0] = rgb[2];
            bgr[1] = rgb[1];
            bgr[2] = rgb[0];
        }
    }
    JpegEncoderSettings settings;
    settings.writeJfif = true;
    settings.densityUnit = 2;
    settings.xDensity = 118;
    settings.yDensity = 59;
    settings.thumbnail = header;
    settings.jfxxThumbnail = true;
    settings.quality = 90;
    Bytes jpeg = Encode(source, settings);
    Decoded decoded = DecodeWithLibjpeg(jpeg);
    ASSERT_TRUE(decoded.ok) << decoded.error;
    EXPECT_TRUE(decoded.sawJfif);
    EXPECT_EQ(std::tuple(decoded.jfifMinor, decoded.densityUnit, decoded.xDensity, decoded.yDensity),
              std::tuple(2, 2, 118, 59));
    std::vector<velmora::testing_support::JpegSegment> segments = velmora::testing_support::JpegSegments(jpeg);
    ASSERT_GT(segments.size(), 2u);
    ASSERT_EQ(segments[2].marker, 0xE0);
    const Bytes& jfxx = segments[2].data;
    ASSERT_GT(jfxx.size(), 6u);
    EXPECT_EQ(std::string(jfxx.begin(), jfxx.begin() + 4), "JFXX");
    EXPECT_EQ(jfxx[5], 0x10);
    Decoded thumbnail = DecodeWithLibjpeg(Bytes(jfxx.begin() + 6, jfxx.end()));
    ASSERT_TRUE(thumbnail.ok) << thumbnail.error;
    EXPECT_EQ(thumbnail.image.width, 60u);
    EXPECT_EQ(thumbnail.image.height, 40u);
    EXPECT_GT(Psnr(thumbnail.image, small), 30);
}

}  // namespace
}  // namespace velmora::jpeg
