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
// identical, colour channels within 1. Truncated copies must be bad data.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "jpeg/jpeg_decoder.h"
#include "dib/image.h"
#include "io/stream.h"
#include "support/pictures.h"

namespace {

using namespace velmora;
using namespace velmora::jpeg;
using velmora::peers::Picture;
using velmora::peers::ReadFile;

constexpr const char* kConvert = "/usr/bin/convert";
constexpr const char* kCjpeg = "/usr/bin/cjpeg";
constexpr const char* kJpegtran = "/usr/bin/jpegtran";

// libjpeg's decoding as `djpeg -dct int -nosmooth` gives it. CMYK streams
// come back as the stored (Adobe-inverted) values and are turned into RGB as
// red = c * k / 255 and so on.
bool PeerDecode(const std::vector<uint8_t>& data, Picture* out) {
    bool cmyk = false;
    auto adjust = [&](jpeg_decompress_struct& info) {
        info.do_block_smoothing = FALSE;
        cmyk = info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK;
        if (cmyk) info.out_color_space = JCS_CMYK;
    };
    if (!velmora::peers::LibjpegDecode(data, out, nullptr, adjust)) return false;
    if (!cmyk) return true;
    std::vector<uint8_t> rgb;
    for (size_t i = 0; i < out->pixels.size(); i += 4) {
        for (int c = 0; c < 3; ++c) rgb.push_back(static_cast<uint8_t>(out->pixels[i + c] * out->pixels[i + 3] / 255));
    }
    out->pixels = std::move(rgb);
    out->channels = 3;
    return true;
}

// The library's decoding into a new DIB, read back top row first.
bool OurDecode(const JpegSource& source, Picture* out, ErrorRecord* record) {
    HGLOBAL dib = DecodeJpegToDib(source, nullptr, record);
    if (dib == nullptr) return false;
    {
        ImageLock lock(dib);
        *out = velmora::peers::FromDib(lock.header());
    }
    FreeImage(&dib);
    return true;
}

class JpegDecoderCorpus : public ::testing::Test {
protected:
    void SetUp() override {
        REQUIRE_PEER(velmora::peers::Have(kConvert) && velmora::peers::Have(kCjpeg) && velmora::peers::Have(kJpegtran),
                     "convert, cjpeg or jpegtran");
        ASSERT_TRUE(dir().ok());
    }
    static const velmora::peers::TempDir& dir() {
        static velmora::peers::TempDir directory("velmora-jpegdec");
        return directory;
    }

    // A picture with smooth areas, edges and noise, as PPM.
    std::string Source(uint32_t width, uint32_t height) {
        const std::string size = std::to_string(width) + "x" + std::to_string(height);
        std::string path = dir().Path("src_" + size + ".ppm");
        std::string command = std::string(kConvert) + " -size " + size +
                              " -seed 11 plasma:tomato-steelblue -fill black -draw 'line 0,0 " + std::to_string(width) +
                              "," + std::to_string(height) + "' -seed 3 -attenuate 0.4 +noise Gaussian " + path;
        if (!std::ifstream(path)) EXPECT_TRUE(velmora::peers::Run(command)) << command;
        return path;
    }

    std::string Run(const std::string& name, const std::string& command) {
        std::string path = dir().Path(name + ".jpg");
        std::string full = command;
        for (size_t at; (at = full.find("@OUT")) != std::string::npos;) full.replace(at, 4, path);
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
        const int largest = velmora::peers::LargestDifference(ours, peer);
        EXPECT_GE(largest, 0) << "sizes differ";
        EXPECT_LE(largest, peer.channels == 1 ? 0 : tolerance);

        // The same through a stream's 2048-byte buffer.
        Stream* stream = OpenFixedMemoryStream(data.data(), static_cast<uint32_t>(data.size()), &record);
        ASSERT_NE(stream, nullptr);
        ASSERT_TRUE(OurDecode(JpegSource::FromStream(stream), &streamed, &record)) << std::hex << record.code;
        CloseStream(stream, nullptr);
        EXPECT_EQ(streamed.pixels, ours.pixels);
    }
};

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
        std::string scriptPath = dir().Path(std::string(name) + ".txt");
        std::ofstream(scriptPath) << script;
        Check(name, Run(name, std::string(kJpegtran) + " -scans " + scriptPath + " -outfile @OUT " + base), 1);
    }
    // A progressive script with refinement of both DC and AC.
    std::string scriptPath = dir().Path("refine.txt");
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
        std::string path = dir().Path(space == JCS_CMYK ? "cmyk.jpg" : "ycck.jpg");
        velmora::peers::WriteFile(path, std::vector<uint8_t>(buffer, buffer + size));
        free(buffer);
        Check(space == JCS_CMYK ? "cmyk" : "ycck", path, 1);
    }
}

// The density of a JFIF stream ImageMagick wrote. (The other fields, and
// what a read to the end adds, are checked through the exports.)
TEST_F(JpegDecoderCorpus, DensityOfAPeerStream) {
    std::string src = Source(120, 80);
    std::string jfif = dir().Path("dense.jpg");
    ASSERT_TRUE(
        velmora::peers::Run(std::string(kConvert) + " " + src + " -units PixelsPerInch -density 300x150 " + jfif));
    std::vector<uint8_t> data = ReadFile(jfif);
    JpegInfo info;
    ErrorRecord record;
    ASSERT_TRUE(ReadJpegInfo(JpegSource::Memory(data.data(), data.size()), kInfoWhole, &info, &record));
    EXPECT_EQ(info.densityUnit, 2);  // inch, in TIFF's numbering
    EXPECT_EQ(info.xDensityNumerator, 300u);
    EXPECT_EQ(info.yDensityNumerator, 150u);
    EXPECT_EQ(info.flags & (kHasJfif | kSingleTables), kHasJfif | kSingleTables);
}

// Copies of peer streams cut inside their entropy-coded data lack MCUs: bad
// data. (Damaged bytes anywhere, which may only give the library's errors,
// are the decoder fuzz target's.)
TEST_F(JpegDecoderCorpus, TruncatedStreamsAreBadData) {
    std::string src = Source(97, 61);
    const std::string files[] = {
        Run("cutbase", std::string(kCjpeg) + " -outfile @OUT " + src),
        Run("cutprog", std::string(kCjpeg) + " -progressive -outfile @OUT " + src),
        Run("cutrst", std::string(kCjpeg) + " -restart 1 -outfile @OUT " + src),
    };
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
    }
}

}  // namespace
