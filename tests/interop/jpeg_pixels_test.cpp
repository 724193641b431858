// The JPEG sample pipeline against libjpeg-turbo. libjpeg writes files
// whose quantised coefficients we choose (jpeg_write_coefficients) and
// decodes them with its integer inverse DCT and its default interpolated
// upsampling (JDCT_ISLOW, as `djpeg -dct int`); our
// transform of the same coefficients must give identical samples, and our
// band conversion of those samples its colours within one.
#include <stdio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <jpeglib.h>

#include "../unit/jpeg_pixels_reference.h"
#include "jpeg/jpeg_color.h"
#include "jpeg/jpeg_idct.h"
#include "support/pictures.h"

namespace velmora::jpeg {
namespace {

using Bytes = std::vector<uint8_t>;
using Block = std::vector<int16_t>;
using Table = std::vector<uint16_t>;
using velmora::testing::kChrominanceTable;
using velmora::testing::kLuminanceTable;
using velmora::testing::ScaledTable;

// ---- Files with chosen coefficients ----------------------------------------------

struct Component {
    uint8_t h = 1, v = 1;
    Table table;                // natural order
    uint32_t blocksAcross = 0;  // padded to whole MCUs
    uint32_t blocksDown = 0;
    std::vector<Block> blocks;  // row by row, blocksAcross per row
    const Block& at(uint32_t x, uint32_t y) const { return blocks[size_t{y} * blocksAcross + x]; }
};

struct Image {
    uint32_t width = 0, height = 0;
    J_COLOR_SPACE space = JCS_GRAYSCALE;  // the colour space of the file
    std::vector<Component> components;
    uint8_t hMax() const {
        uint8_t m = 1;
        for (const auto& c : components) m = std::max(m, c.h);
        return m;
    }
    uint8_t vMax() const {
        uint8_t m = 1;
        for (const auto& c : components) m = std::max(m, c.v);
        return m;
    }
};

// Sizes the components' block grids for the image's MCUs and fills every
// block with `make(component, x, y)`.
template <typename Make>
void FillBlocks(Image& image, Make make) {
    const uint32_t mcusAcross = (image.width + 8 * image.hMax() - 1) / (8 * image.hMax());
    const uint32_t mcusDown = (image.height + 8 * image.vMax() - 1) / (8 * image.vMax());
    for (size_t i = 0; i < image.components.size(); ++i) {
        Component& c = image.components[i];
        c.blocksAcross = mcusAcross * c.h;
        c.blocksDown = mcusDown * c.v;
        c.blocks.clear();
        for (uint32_t y = 0; y < c.blocksDown; ++y) {
            for (uint32_t x = 0; x < c.blocksAcross; ++x) c.blocks.push_back(make(i, x, y));
        }
    }
}

Bytes WriteCoefficients(const Image& image) {
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr error{};
    cinfo.err = jpeg_std_error(&error);
    jpeg_create_compress(&cinfo);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = image.width;
    cinfo.image_height = image.height;
    cinfo.input_components = static_cast<int>(image.components.size());
    cinfo.in_color_space = image.components.size() == 1   ? JCS_GRAYSCALE
                           : image.components.size() == 3 ? JCS_RGB
                                                          : JCS_CMYK;
    jpeg_set_defaults(&cinfo);
    jpeg_set_colorspace(&cinfo, image.space);
    cinfo.optimize_coding = TRUE;
    jvirt_barray_ptr arrays[4] = {};
    for (size_t i = 0; i < image.components.size(); ++i) {
        const Component& c = image.components[i];
        unsigned int table[64];
        std::copy(c.table.begin(), c.table.end(), table);
        jpeg_add_quant_table(&cinfo, static_cast<int>(i), table, 100, FALSE);
        cinfo.comp_info[i].h_samp_factor = c.h;
        cinfo.comp_info[i].v_samp_factor = c.v;
        cinfo.comp_info[i].quant_tbl_no = static_cast<int>(i);
        arrays[i] = cinfo.mem->request_virt_barray(reinterpret_cast<j_common_ptr>(&cinfo), JPOOL_IMAGE, TRUE,
                                                   c.blocksAcross, c.blocksDown, c.v);
    }
    jpeg_write_coefficients(&cinfo, arrays);
    for (size_t i = 0; i < image.components.size(); ++i) {
        const Component& c = image.components[i];
        for (uint32_t y = 0; y < c.blocksDown; y += c.v) {
            JBLOCKARRAY rows =
                cinfo.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&cinfo), arrays[i], y, c.v, TRUE);
            for (uint32_t r = 0; r < c.v; ++r) {
                for (uint32_t x = 0; x < c.blocksAcross; ++x) {
                    std::copy(c.at(x, y + r).begin(), c.at(x, y + r).end(), rows[r][x]);
                }
            }
        }
    }
    jpeg_finish_compress(&cinfo);
    Bytes file(buffer, buffer + size);
    free(buffer);
    jpeg_destroy_compress(&cinfo);
    return file;
}

// libjpeg's decoding: interleaved samples of `out` colour space, top row
// first.
Bytes DecodeWithLibjpeg(const Bytes& file, J_COLOR_SPACE out, int* channels) {
    velmora::peers::Picture picture;
    EXPECT_TRUE(velmora::peers::LibjpegDecode(file, &picture, nullptr,
                                              [&](jpeg_decompress_struct& info) { info.out_color_space = out; }));
    *channels = static_cast<int>(picture.channels);
    return picture.pixels;
}

// Our transform of a component: a plane of blocksAcross * 8 samples per row.
Bytes TransformComponent(const Component& c) {
    const size_t stride = size_t{c.blocksAcross} * 8;
    Bytes plane(stride * c.blocksDown * 8);
    for (uint32_t y = 0; y < c.blocksDown; ++y) {
        for (uint32_t x = 0; x < c.blocksAcross; ++x) {
            InverseDct8(c.at(x, y).data(), c.table.data(), plane.data() + y * 8 * stride + x * 8,
                        static_cast<ptrdiff_t>(stride));
        }
    }
    return plane;
}

// ---- Blocks ------------------------------------------------------------------------

// The kinds of block the transform must get right: what encoders make from
// real samples, blocks with a DC term only, blocks whose columns have no AC
// term (the column shortcut), sparse ones, and dense ones at the largest
// values the entropy coder takes (AC up to 1023, DC kept within +-1023 so
// that the DC differences stay encodable), limited so that the
// dequantised values stay within `limit`.
Block MixedBlock(std::mt19937& random, const Table& table, int limit) {
    auto bound = [&](int i, int cap) { return std::min(cap, limit / table[i]); };
    auto uniform = [&](int range) { return static_cast<int16_t>(int(random() % (2 * range + 1)) - range); };
    Block block(64, 0);
    switch (random() % 10) {
        case 0:
        case 1:
        case 2:
        case 3: return velmora::testing::RealisticBlock(random, table, 255);
        case 4: block[0] = uniform(bound(0, 1023)); break;
        case 5:
            for (int i = 0; i < 8; ++i) block[i] = uniform(bound(i, i == 0 ? 1023 : 1023) / 4);
            break;
        case 6:
        case 7: {
            block[0] = uniform(bound(0, 1023));
            const int count = 1 + static_cast<int>(random() % 6);
            for (int n = 0; n < count; ++n) {
                const int i = 1 + static_cast<int>(random() % 63);
                block[i] = uniform(bound(i, 1023) / 2);
            }
            break;
        }
        case 8:
            for (int i = 0; i < 64; ++i) block[i] = uniform(bound(i, 1023) / 8);
            break;
        default:
            // At the bounds, with random signs.
            for (int i = 0; i < 64; ++i)
                block[i] = static_cast<int16_t>(random() % 2 ? bound(i, 1023) : -bound(i, 1023));
            break;
    }
    return block;
}

// ---- The inverse DCT ---------------------------------------------------------------

// The synthetic blocks keep their dequantised values within `limit`: 1023
// keeps every intermediate value of the transform within 16 bits; 32767
// (the range in which the transform is exact) also reaches blocks whose
// column pass leaves 16 bits, which take the general code on SSE2 builds.
struct IdctCase {
    const char* name;
    Table table;
    int limit;
};

std::vector<IdctCase> IdctCases() {
    std::mt19937 random(99);
    Table randomTable(64);
    for (auto& q : randomTable) q = static_cast<uint16_t>(1 + random() % 255);
    return {
        {"all ones", Table(64, 1), 1023},
        {"luminance quality 50", ScaledTable(kLuminanceTable, 100), 1023},
        {"luminance quality 90", ScaledTable(kLuminanceTable, 20), 1023},
        {"chrominance quality 75", ScaledTable(kChrominanceTable, 50), 1023},
        {"luminance quality 10", ScaledTable(kLuminanceTable, 500), 32767},
        {"random 1..255", randomTable, 32767},
    };
}

// Whether the exact transform of a block stays inside the range-limiting
// window (+-512 around the level shift) with a margin for rounding. Blocks
// that leave it come only from coefficients no real samples give; there
// libjpeg-turbo's SIMD transform saturates where its C transform, like
// ours, wraps through the 10-bit window.
bool InsideWindow(const Block& block, const Table& table) {
    double dequantised[64], exact[64];
    for (int i = 0; i < 64; ++i) dequantised[i] = double(block[i]) * table[i];
    velmora::testing::ReferenceIdct(dequantised, exact);
    for (double value : exact) {
        if (value < -500 || value > 500) return false;
    }
    return true;
}

struct BlockCount {
    int differing = 0;         // blocks inside the window that differ
    int outsideDiffering = 0;  // blocks outside it that differ
    int outside = 0;
};

// Compares our samples with a grey decoding of the whole image, block by
// block.
BlockCount CompareGreyBlocks(const Image& image, const Bytes& decoded, bool reportOutside) {
    const Component& c = image.components[0];
    const Bytes ours = TransformComponent(c);
    const size_t stride = size_t{c.blocksAcross} * 8;
    BlockCount count;
    for (uint32_t by = 0; by < image.height / 8; ++by) {
        for (uint32_t bx = 0; bx < image.width / 8; ++bx) {
            bool same = true;
            for (uint32_t y = by * 8; y < by * 8 + 8; ++y) {
                same = same &&
                       std::equal(decoded.begin() + y * image.width + bx * 8,
                                  decoded.begin() + y * image.width + bx * 8 + 8, ours.begin() + y * stride + bx * 8);
            }
            const bool inside = InsideWindow(c.at(bx, by), c.table);
            count.outside += !inside;
            if (same) continue;
            int& counter = inside ? count.differing : count.outsideDiffering;
            if (counter++ < 3 && (inside || reportOutside)) {
                std::string coefficients;
                for (int16_t v : c.at(bx, by)) coefficients += std::to_string(v) + " ";
                ADD_FAILURE() << "block " << bx << "," << by << " differs; coefficients " << coefficients;
            }
        }
    }
    return count;
}


// `djpeg -dct int -nosmooth -grayscale` of a file, with libjpeg-turbo's
// SIMD code switched off so that its C transform runs.
bool DecodeWithPlainDjpeg(const Bytes& file, const velmora::peers::TempDir& dir, Bytes* pixels) {
    velmora::peers::Picture picture;
    const std::string in = dir.Path("coefficients.jpg"), out = dir.Path("samples.pgm");
    velmora::peers::WriteFile(in, file);
    if (!velmora::peers::Run("JSIMD_FORCENONE=1 /usr/bin/djpeg -dct int -nosmooth -grayscale -outfile " + out + " " +
                             in) ||
        !velmora::peers::ReadPnm(out, &picture)) {
        return false;
    }
    *pixels = picture.pixels;
    return true;
}

TEST(JpegIdctInterop, IdenticalToLibjpegIslowForEveryBlock) {
    const bool haveDjpeg = velmora::peers::Have("/usr/bin/djpeg");
    const velmora::peers::TempDir dir("velmora-jpeg-pixels");
    std::mt19937 random(2024);
    for (const IdctCase& test : IdctCases()) {
        Image image;
        image.width = 8 * 64;
        image.height = 8 * 64;
        image.space = JCS_GRAYSCALE;
        image.components.resize(1);
        image.components[0].table = test.table;
        FillBlocks(image, [&](size_t, uint32_t, uint32_t) { return MixedBlock(random, test.table, test.limit); });
        const Bytes file = WriteCoefficients(image);

        // libjpeg as linked, with whatever SIMD code the machine runs.
        int channels = 0;
        const Bytes decoded = DecodeWithLibjpeg(file, JCS_GRAYSCALE, &channels);
        ASSERT_EQ(channels, 1);
        const BlockCount linked = CompareGreyBlocks(image, decoded, false);
        EXPECT_EQ(linked.differing, 0) << test.name << ": of " << 64 * 64 - linked.outside << " blocks";
        std::printf("  %-24s linked libjpeg: %d of %d blocks inside the window differ; %d of %d outside\n", test.name,
                    linked.differing, 64 * 64 - linked.outside, linked.outsideDiffering, linked.outside);

        // libjpeg's C transform: identical everywhere, the wrapping
        // outside the window included.
        Bytes plain;
        if (!haveDjpeg) continue;
        ASSERT_TRUE(DecodeWithPlainDjpeg(file, dir, &plain));
        const BlockCount c = CompareGreyBlocks(image, plain, true);
        EXPECT_EQ(c.differing + c.outsideDiffering, 0) << test.name << " against djpeg without SIMD";
    }
    REQUIRE_PEER(haveDjpeg, "djpeg");
}

// ---- Upsampling and colour ------------------------------------------------------------

// Coefficients of smooth colour content with noise, edges and saturated
// patches, quantised per component, so that the decoded samples cover the
// whole range and the conversion's clamps are reached.
Block ColourBlock(std::mt19937& random, const Table& table) {
    return velmora::testing::RealisticBlock(random, table, 255);
}

struct ColourCase {
    const char* name;
    J_COLOR_SPACE space;
    ColorKind kind;
    std::vector<std::pair<uint8_t, uint8_t>> factors;
    uint32_t width, height;
};

struct Difference {
    int worst = 0;
    size_t differing = 0;  // channel values that differ at all
    size_t total = 0;
};

// The reference for four-component files: libjpeg's CMYK samples (the
// stored values; for YCCK, after its YCC conversion) darkened by K.
Bytes DarkenByBlack(const Bytes& cmyk) {
    Bytes bgr(cmyk.size() / 4 * 3);
    for (size_t i = 0; i < cmyk.size() / 4; ++i) {
        const int k = cmyk[4 * i + 3];
        bgr[3 * i + 2] = static_cast<uint8_t>(cmyk[4 * i] * k / 255);
        bgr[3 * i + 1] = static_cast<uint8_t>(cmyk[4 * i + 1] * k / 255);
        bgr[3 * i] = static_cast<uint8_t>(cmyk[4 * i + 2] * k / 255);
    }
    return bgr;
}

Difference CompareColour(const ColourCase& test, std::mt19937& random) {
    Image image;
    image.width = test.width;
    image.height = test.height;
    image.space = test.space;
    for (size_t i = 0; i < test.factors.size(); ++i) {
        Component c;
        c.h = test.factors[i].first;
        c.v = test.factors[i].second;
        c.table = ScaledTable(i == 0 || i == 3 ? kLuminanceTable : kChrominanceTable, 50);
        image.components.push_back(c);
    }
    FillBlocks(image, [&](size_t i, uint32_t, uint32_t) { return ColourBlock(random, image.components[i].table); });
    const Bytes file = WriteCoefficients(image);

    int channels = 0;
    Bytes expected;
    if (test.factors.size() == 4) {
        expected = DarkenByBlack(DecodeWithLibjpeg(file, JCS_CMYK, &channels));
    } else {
        expected = DecodeWithLibjpeg(file, JCS_RGB, &channels);
        for (size_t i = 0; i + 2 < expected.size(); i += 3) std::swap(expected[i], expected[i + 2]);
    }

    std::vector<Bytes> planes;
    std::vector<ComponentBand> bands;
    for (const Component& c : image.components) planes.push_back(TransformComponent(c));
    for (size_t i = 0; i < planes.size(); ++i) {
        const Component& c = image.components[i];
        bands.push_back({planes[i].data(), static_cast<ptrdiff_t>(c.blocksAcross) * 8, c.h, c.v});
    }
    // In bands of one MCU row, as a decoder converts them, into a
    // bottom-up buffer.
    const ptrdiff_t stride = ptrdiff_t{image.width} * 3;
    Bytes output(stride * image.height), scratch(4 * size_t{image.width});
    const uint32_t bandRows = 8 * image.vMax();
    for (uint32_t top = 0; top < image.height; top += bandRows) {
        std::vector<ComponentBand> band = bands;
        const bool last = top + bandRows >= image.height;
        for (size_t i = 0; i < band.size(); ++i) {
            // The rows around the band, as the decoder hands them over.
            ComponentBand& b = band[i];
            const uint32_t rows = 8u * b.v, first = top / bandRows * rows;
            const uint32_t realRows = (image.height * b.v + image.vMax() - 1) / image.vMax();
            b.samples += first * b.stride;
            b.above = top == 0 ? nullptr : b.samples - b.stride;
            b.below = last ? nullptr : b.samples + rows * b.stride;
            b.lastRow = last ? realRows - first - 1 : rows - 1;
            b.samplesWide = (image.width * b.h + image.hMax() - 1) / image.hMax();
        }
        ConvertBand(test.kind, band.data(), image.width, std::min(bandRows, image.height - top), image.hMax(),
                    image.vMax(), output.data() + (image.height - 1 - top) * stride, -stride, scratch.data());
    }

    Difference d;
    for (uint32_t y = 0; y < image.height; ++y) {
        const uint8_t* ours = output.data() + (image.height - 1 - y) * stride;
        const uint8_t* theirs = expected.data() + y * stride;
        for (ptrdiff_t i = 0; i < stride; ++i) {
            const int delta = std::abs(ours[i] - theirs[i]);
            d.worst = std::max(d.worst, delta);
            d.differing += delta != 0;
            ++d.total;
        }
    }
    return d;
}

TEST(JpegColorInterop, WithinOneOfLibjpegForEverySampling) {
    using Factors = std::vector<std::pair<uint8_t, uint8_t>>;
    const Factors s444 = {{1, 1}, {1, 1}, {1, 1}}, s422 = {{2, 1}, {1, 1}, {1, 1}}, s420 = {{2, 2}, {1, 1}, {1, 1}},
                  s411 = {{4, 1}, {1, 1}, {1, 1}}, s440 = {{1, 2}, {1, 1}, {1, 1}};
    std::vector<ColourCase> cases;
    const std::pair<uint32_t, uint32_t> sizes[] = {{64, 64}, {37, 29}, {101, 67}, {250, 9}};
    for (auto [w, h] : sizes) {
        cases.push_back({"YCbCr 4:4:4", JCS_YCbCr, ColorKind::YCbCr, s444, w, h});
        cases.push_back({"YCbCr 4:2:2", JCS_YCbCr, ColorKind::YCbCr, s422, w, h});
        cases.push_back({"YCbCr 4:2:0", JCS_YCbCr, ColorKind::YCbCr, s420, w, h});
        cases.push_back({"YCbCr 4:1:1", JCS_YCbCr, ColorKind::YCbCr, s411, w, h});
        cases.push_back({"YCbCr 4:4:0", JCS_YCbCr, ColorKind::YCbCr, s440, w, h});
        cases.push_back({"RGB", JCS_RGB, ColorKind::Rgb, s444, w, h});
        cases.push_back({"CMYK", JCS_CMYK, ColorKind::Cmyk, {{1, 1}, {1, 1}, {1, 1}, {1, 1}}, w, h});
        cases.push_back({"YCCK 4:2:0", JCS_YCCK, ColorKind::Ycck, {{2, 2}, {1, 1}, {1, 1}, {2, 2}}, w, h});
    }
    std::mt19937 random(1402);
    for (const ColourCase& test : cases) {
        const Difference d = CompareColour(test, random);
        EXPECT_LE(d.worst, 1) << test.name << " " << test.width << "x" << test.height;
        std::printf("  %-12s %3ux%-3u  %zu of %zu channel values differ (by at most %d)\n", test.name, test.width,
                    test.height, d.differing, d.total, d.worst);
    }
}

}  // namespace
}  // namespace velmora::jpeg
