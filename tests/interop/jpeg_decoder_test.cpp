// The JPEG decoder against libjpeg-turbo on streams made at test time.
//
// Pictures rendered by ImageMagick are compressed by cjpeg (grey and colour,
// 4:4:4, 4:2:2, 4:2:0, 4:1:1, 1x2, odd sizes from 1x1 to 4097 wide, restart
// intervals, progressive, optimised tables, RGB-stored, quality 100), by
// jpegtran (restart markers, progressive, separate scans per component) and
// by ImageMagick (Adobe CMYK); YCCK streams are written through libjpeg
// itself. Every stream is decoded by the library, from memory and through a
// stream, and by libjpeg with the integer inverse DCT and its default
// interpolated upsampling (what `djpeg -dct int` does): grey samples must be
// identical, colour channels within 1. Truncated and damaged copies must
// fail with the library's errors, never worse.
#include <unistd.h>

#include <cstdio>  // jpeglib.h needs FILE and size_t first

#include <jpeglib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "jpeg/jpeg_decoder.h"
#include "dib/image.h"
#include "io/stream.h"
#include "support/peers.h"

namespace {

namespace fs = std::filesystem;
using namespace velmora;
using namespace velmora::jpeg;

constexpr const char* kConvert = "/usr/bin/convert";
constexpr const char* kCjpeg = "/usr/bin/cjpeg";
constexpr const char* kJpegtran = "/usr/bin/jpegtran";


using velmora::peers::ReadFile;

// Pixels top row first: grey, or red-green-blue triples.
struct Picture {
    uint32_t width = 0, height = 0, channels = 0;
    std::vector<uint8_t> pixels;
};

// libjpeg's decoding: islow IDCT, replicating upsampling. CMYK streams come
// back as the stored (Adobe-inverted) values and are turned into RGB as
// red = c * k / 255 and so on.
bool PeerDecode(const std::vector<uint8_t>& data, Picture* out) {
    // The peer streams are valid: libjpeg's default error handling (exit)
    // never runs.
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr error;
    cinfo.err = jpeg_std_error(&error);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, data.data(), static_cast<unsigned long>(data.size()));
    jpeg_read_header(&cinfo, TRUE);
    cinfo.dct_method = JDCT_ISLOW;
    cinfo.do_block_smoothing = FALSE;
    bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    if (cmyk) cinfo.out_color_space = JCS_CMYK;
    jpeg_start_decompress(&cinfo);
    uint32_t components = cinfo.output_components;
    out->width = cinfo.output_width;
    out->height = cinfo.output_height;
    out->channels = components == 1 ? 1 : 3;
    out->pixels.assign(size_t{out->width} * out->height * out->channels, 0);
    std::vector<uint8_t> row(size_t{out->width} * components);
    while (cinfo.output_scanline < cinfo.output_height) {
        uint32_t y = cinfo.output_scanline;
        JSAMPROW rows[1] = {row.data()};
        jpeg_read_scanlines(&cinfo, rows, 1);
        uint8_t* target = &out->pixels[size_t{y} * out->width * out->channels];
        if (!cmyk) {
            std::memcpy(target, row.data(), row.size());
            continue;
        }
        for (uint32_t x = 0; x < out->width; ++x) {
            const uint8_t* p = &row[x * 4];
            for (int c = 0; c < 3; ++c) target[x * 3 + c] = static_cast<uint8_t>(p[c] * p[3] / 255);
        }
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return error.num_warnings == 0;
}

// The library's decoding into a new DIB, read back top row first.
bool OurDecode(const JpegSource& source, Picture* out, ErrorRecord* record) {
    HGLOBAL dib = DecodeJpegToDib(source, nullptr, record);
    if (dib == nullptr) return false;
    ImageLock lock(dib);
    BITMAPINFOHEADER* header = lock.header();
    out->width = static_cast<uint32_t>(header->biWidth);
    out->height = static_cast<uint32_t>(header->biHeight);
    out->channels = header->biBitCount / 8;
    size_t stride = (size_t{out->width} * header->biBitCount + 31) / 32 * 4;
    const uint8_t* bits = lock.bits();
    out->pixels.resize(size_t{out->width} * out->height * out->channels);
    for (uint32_t y = 0; y < out->height; ++y) {
        const uint8_t* row = bits + (out->height - 1 - y) * stride;
        uint8_t* target = &out->pixels[size_t{y} * out->width * out->channels];
        for (uint32_t x = 0; x < out->width; ++x) {
            for (uint32_t c = 0; c < out->channels; ++c) {
                // DIB rows are blue-green-red.
                target[x * out->channels + c] = row[x * out->channels + (out->channels == 3 ? 2 - c : 0)];
            }
        }
    }
    HGLOBAL copy = dib;
    FreeImage(&copy);
    return true;
}

// The largest channel difference and how many channels differ at all.
void Compare(const Picture& ours, const Picture& peer, int* largest, size_t* differing) {
    *largest = 0;
    *differing = 0;
    for (size_t i = 0; i < ours.pixels.size() && i < peer.pixels.size(); ++i) {
        int d = std::abs(int{ours.pixels[i]} - int{peer.pixels[i]});
        *largest = std::max(*largest, d);
        if (d != 0) ++*differing;
    }
}

class JpegDecoderCorpus : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        char pattern[] = "/tmp/velmora-jpegdec-XXXXXX";
        if (mkdtemp(pattern) != nullptr) dir_ = pattern;
    }
    static void TearDownTestSuite() {
        if (!dir_.empty()) fs::remove_all(dir_);
    }
    void SetUp() override {
        REQUIRE_PEER(velmora::peers::Have(kConvert) && velmora::peers::Have(kCjpeg) && velmora::peers::Have(kJpegtran),
                     "convert, cjpeg or jpegtran");
        ASSERT_FALSE(dir_.empty());
    }

    // A picture with smooth areas, edges and noise, as PPM.
    std::string Source(uint32_t width, uint32_t height) {
        std::string path = dir_ + "/src_" + std::to_string(width) + "x" + std::to_string(height) + ".ppm";
        if (!fs::exists(path)) {
            std::string command =
                std::string(kConvert) + " -size " + std::to_string(width) + "x" + std::to_string(height) +
                " -seed 11 plasma:tomato-steelblue -fill black -draw 'line 0,0 " + std::to_string(width) + "," +
                std::to_string(height) + "' -seed 3 -attenuate 0.4 +noise Gaussian " + path;
            EXPECT_TRUE(velmora::peers::Run(command)) << command;
        }
        return path;
    }

    std::string Run(const std::string& name, const std::string& command) {
        std::string path = dir_ + "/" + name + ".jpg";
        std::string full = command;
        size_t at;
        while ((at = full.find("@OUT")) != std::string::npos) full.replace(at, 4, path);
        EXPECT_TRUE(velmora::peers::Run(full)) << full;
        return path;
    }

    // Decodes with both and compares; grey must be exact.
    void Check(const std::string& name, const std::string& path, int tolerance) {
        SCOPED_TRACE(name);
        std::vector<uint8_t> data = ReadFile(path);
        ASSERT_FALSE(data.empty());
        Picture peer, ours, streamed;
        ASSERT_TRUE(PeerDecode(data, &peer));
        ErrorRecord record;
        ASSERT_TRUE(OurDecode(JpegSource::Memory(data.data(), data.size()), &ours, &record)) << std::hex << record.code;
        ASSERT_EQ(ours.width, peer.width);
        ASSERT_EQ(ours.height, peer.height);
        ASSERT_EQ(ours.channels, peer.channels);
        int largest = 0;
        size_t differing = 0;
        Compare(ours, peer, &largest, &differing);
        EXPECT_LE(largest, peer.channels == 1 ? 0 : tolerance) << differing << " channels differ";

        // The same through a stream's 2048-byte buffer.
        Stream* stream = OpenFixedMemoryStream(data.data(), static_cast<uint32_t>(data.size()), &record);
        ASSERT_NE(stream, nullptr);
        ASSERT_TRUE(OurDecode(JpegSource::FromStream(stream), &streamed, &record)) << std::hex << record.code;
        CloseStream(stream, nullptr);
        EXPECT_EQ(streamed.pixels, ours.pixels);
    }

    static std::string dir_;
};

std::string JpegDecoderCorpus::dir_;

TEST_F(JpegDecoderCorpus, GreyIsIdenticalToLibjpeg) {
    const std::pair<uint32_t, uint32_t> sizes[] = {{1, 1}, {17, 9}, {4097, 5}, {301, 203}, {8, 8}, {9, 16}};
    for (auto [w, h] : sizes) {
        std::string src = Source(w, h);
        std::string tag = std::to_string(w) + "x" + std::to_string(h);
        Check("grey " + tag, Run("grey" + tag, std::string(kCjpeg) + " -grayscale -outfile @OUT " + src), 0);
    }
    std::string src = Source(301, 203);
    Check("grey q100", Run("greyq100", std::string(kCjpeg) + " -grayscale -quality 100 -outfile @OUT " + src), 0);
    Check("grey progressive", Run("greyprog", std::string(kCjpeg) + " -grayscale -progressive -outfile @OUT " + src),
          0);
    Check("grey restart", Run("greyrst", std::string(kCjpeg) + " -grayscale -restart 3B -outfile @OUT " + src), 0);
}

TEST_F(JpegDecoderCorpus, ColourSamplingWithinOneOfLibjpeg) {
    const char* samplings[] = {"1x1", "2x1", "2x2", "4x1", "1x2", "2x2,2x1,1x1", "4x2", "1x4"};
    const std::pair<uint32_t, uint32_t> sizes[] = {{1, 1}, {17, 9}, {301, 203}, {4097, 3}};
    for (auto [w, h] : sizes) {
        std::string src = Source(w, h);
        for (const char* sampling : samplings) {
            std::string tag = std::string(sampling) + "_" + std::to_string(w) + "x" + std::to_string(h);
            std::replace(tag.begin(), tag.end(), ',', '_');
            Check(tag, Run(tag, std::string(kCjpeg) + " -sample " + sampling + " -outfile @OUT " + src), 1);
        }
    }
}

TEST_F(JpegDecoderCorpus, CodingVariantsWithinOneOfLibjpeg) {
    std::string src = Source(333, 251);
    std::string base = Run("base", std::string(kCjpeg) + " -outfile @OUT " + src);
    const std::pair<const char*, std::string> cases[] = {
        {"restart rows", std::string(kCjpeg) + " -restart 1 -outfile @OUT " + src},
        {"restart blocks", std::string(kCjpeg) + " -restart 7B -sample 1x1 -outfile @OUT " + src},
        {"progressive", std::string(kCjpeg) + " -progressive -outfile @OUT " + src},
        {"progressive 444 restart", std::string(kCjpeg) + " -progressive -sample 1x1 -restart 2B -outfile @OUT " + src},
        {"optimised", std::string(kCjpeg) + " -optimize -outfile @OUT " + src},
        {"quality 100", std::string(kCjpeg) + " -quality 100 -sample 1x1 -outfile @OUT " + src},
        {"quality 5", std::string(kCjpeg) + " -quality 5 -outfile @OUT " + src},
        {"rgb stored", std::string(kCjpeg) + " -rgb -outfile @OUT " + src},
        {"jpegtran restart", std::string(kJpegtran) + " -restart 3B -outfile @OUT " + base},
        {"jpegtran progressive", std::string(kJpegtran) + " -progressive -outfile @OUT " + base},
        {"imagemagick cmyk", std::string(kConvert) + " " + src + " -colorspace CMYK -quality 90 @OUT"},
        {"imagemagick progressive", std::string(kConvert) + " " + src + " -interlace JPEG -sampling-factor 2x2 @OUT"},
    };
    int index = 0;
    for (const auto& [name, command] : cases) Check(name, Run("variant" + std::to_string(index++), command), 1);
}

// Sequential streams with one scan per component (or per pair) go through
// the collecting path; jpegtran makes them from a scan script.
TEST_F(JpegDecoderCorpus, SeparateScansPerComponent) {
    std::string src = Source(203, 97);
    std::string base = Run("sepbase", std::string(kCjpeg) + " -outfile @OUT " + src);
    const std::pair<const char*, const char*> scripts[] = {{"sep3", "0;\n1;\n2;\n"}, {"sep21", "0,1;\n2;\n"}};
    for (auto [name, script] : scripts) {
        std::string scriptPath = dir_ + "/" + name + ".txt";
        std::ofstream(scriptPath) << script;
        Check(name, Run(name, std::string(kJpegtran) + " -scans " + scriptPath + " -outfile @OUT " + base), 1);
    }
    // A progressive script with refinement of both DC and AC.
    std::string scriptPath = dir_ + "/refine.txt";
    std::ofstream(scriptPath) << "0,1,2: 0 0 0 2;\n0: 1 5 0 1;\n1: 1 63 0 0;\n2: 1 63 0 0;\n0: 6 63 0 1;\n"
                                 "0,1,2: 0 0 2 1;\n0,1,2: 0 0 1 0;\n0: 1 63 1 0;\n";
    Check("refine", Run("refine", std::string(kJpegtran) + " -scans " + scriptPath + " -outfile @OUT " + base), 1);
}

// YCCK and CMYK written through libjpeg, with and without subsampling.
TEST_F(JpegDecoderCorpus, FourComponentStreams) {
    const uint32_t width = 45, height = 29;
    std::vector<uint8_t> cmyk(width * height * 4);
    std::mt19937 random(5);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            uint8_t* p = &cmyk[(y * width + x) * 4];
            p[0] = static_cast<uint8_t>(x * 5);
            p[1] = static_cast<uint8_t>(y * 8);
            p[2] = static_cast<uint8_t>(random() & 0xFF);
            p[3] = static_cast<uint8_t>(128 + x + y);
        }
    }
    for (J_COLOR_SPACE space : {JCS_CMYK, JCS_YCCK}) {
        jpeg_compress_struct cinfo;
        jpeg_error_mgr error;
        cinfo.err = jpeg_std_error(&error);
        jpeg_create_compress(&cinfo);
        unsigned char* buffer = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&cinfo, &buffer, &size);
        cinfo.image_width = width;
        cinfo.image_height = height;
        cinfo.input_components = 4;
        cinfo.in_color_space = JCS_CMYK;
        jpeg_set_defaults(&cinfo);
        jpeg_set_colorspace(&cinfo, space);
        if (space == JCS_YCCK) cinfo.comp_info[1].h_samp_factor = cinfo.comp_info[1].v_samp_factor = 1;
        cinfo.comp_info[0].h_samp_factor = cinfo.comp_info[0].v_samp_factor = space == JCS_YCCK ? 2 : 1;
        cinfo.comp_info[3].h_samp_factor = cinfo.comp_info[3].v_samp_factor = space == JCS_YCCK ? 2 : 1;
        jpeg_set_quality(&cinfo, 92, TRUE);
        jpeg_start_compress(&cinfo, TRUE);
        while (cinfo.next_scanline < height) {
            JSAMPROW row[1] = {&cmyk[cinfo.next_scanline * width * 4]};
            jpeg_write_scanlines(&cinfo, row, 1);
        }
        jpeg_finish_compress(&cinfo);
        jpeg_destroy_compress(&cinfo);
        std::string path = dir_ + (space == JCS_CMYK ? "/cmyk.jpg" : "/ycck.jpg");
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(size));
        free(buffer);
        Check(space == JCS_CMYK ? "cmyk" : "ycck", path, 1);
    }
}

TEST_F(JpegDecoderCorpus, InformationOfPeerStreams) {
    std::string src = Source(120, 80);
    std::string jfif = dir_ + "/dense.jpg";
    ASSERT_TRUE(velmora::peers::Run(std::string(kConvert) + " " + src + " -units PixelsPerInch -density 300x150 " + jfif));
    std::vector<uint8_t> data = ReadFile(jfif);
    JpegInfo info;
    ErrorRecord record;
    ASSERT_TRUE(ReadJpegInfo(JpegSource::Memory(data.data(), data.size()), kInfoWhole, &info, &record));
    EXPECT_EQ(info.width, 120u);
    EXPECT_EQ(info.height, 80u);
    EXPECT_EQ(info.components, 3);
    EXPECT_EQ(info.precision, 8);
    EXPECT_EQ(info.densityUnit, 2);  // inch, in TIFF's numbering
    EXPECT_EQ(info.xDensityNumerator, 300u);
    EXPECT_EQ(info.yDensityNumerator, 150u);
    EXPECT_EQ(info.flags & (kHasJfif | kSingleTables), kHasJfif | kSingleTables);

    std::string progressive =
        Run("infoprog", std::string(kCjpeg) + " -progressive -restart 2B -sample 2x1 -outfile @OUT " + src);
    data = ReadFile(progressive);
    ASSERT_TRUE(ReadJpegInfo(JpegSource::Memory(data.data(), data.size()), kInfoWhole, &info, &record));
    EXPECT_EQ(info.process, kProcessProgressive);
    EXPECT_EQ(info.restartInterval, 2);
    EXPECT_EQ(info.mcuWidth, 16);
    EXPECT_EQ(info.mcuHeight, 8);
    EXPECT_EQ(info.flags & kSingleTables, 0u);  // tables follow the first scan
    // Only up to the first scan, the later tables are unseen.
    ASSERT_TRUE(ReadJpegInfo(JpegSource::Memory(data.data(), data.size()), 0, &info, &record));
    EXPECT_NE(info.flags & kSingleTables, 0u);
}

// Cut and damaged copies of peer streams: the library's errors, no crash.
TEST_F(JpegDecoderCorpus, TruncatedAndDamagedStreamsFailCleanly) {
    std::string src = Source(97, 61);
    const std::string files[] = {
        Run("cutbase", std::string(kCjpeg) + " -outfile @OUT " + src),
        Run("cutprog", std::string(kCjpeg) + " -progressive -outfile @OUT " + src),
        Run("cutrst", std::string(kCjpeg) + " -restart 1 -outfile @OUT " + src),
    };
    std::mt19937 random(17);
    for (const std::string& file : files) {
        std::vector<uint8_t> data = ReadFile(file);
        ASSERT_GT(data.size(), 1000u);
        // Cut inside the entropy-coded data: every such stream lacks MCUs.
        for (size_t cut = data.size() / 2; cut + 16 < data.size(); cut += data.size() / 7) {
            ErrorRecord record;
            Picture ours;
            EXPECT_FALSE(OurDecode(JpegSource::Memory(data.data(), cut), &ours, &record)) << file << " " << cut;
            EXPECT_EQ(record.code, kErrBadFileData) << file << " " << cut;
        }
        for (int trial = 0; trial < 300; ++trial) {
            std::vector<uint8_t> damaged = data;
            int changes = 1 + static_cast<int>(random() % 4);
            for (int i = 0; i < changes; ++i) damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
            ErrorRecord record;
            Picture ours;
            if (!OurDecode(JpegSource::Memory(damaged.data(), damaged.size()), &ours, &record)) {
                EXPECT_TRUE(record.code == kErrBadFileData || record.code == kErrUnrecognizedFormat ||
                            record.code == kErrUnsupportedImageType)
                    << std::hex << record.code;
            }
        }
    }
}

}  // namespace
