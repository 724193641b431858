// Every page of a corpus of TIFF files, made at test time by libtiff itself,
// must be copied and coded again by the library's writer into files libtiff
// reads back unchanged, and must decode through the library's exported
// reader to exactly the pixels libtiff decodes, with libtiff's resolution:
// every compression the reader supports, both fill orders, both byte
// orders, classic and BigTIFF, one strip, many strips with an uneven last
// strip, tiles with uneven edges, all eight orientations, and 1, 2, 4, 8 and
// 16-bit grey, palette, RGB chunky and planar (with and without alpha), grey
// and palette pages with alpha, CMYK and subsampled YCbCr pages, and
// JPEG-compressed grey, RGB and CMYK pages. The velmora program describes
// every file as libtiff does and renders a page of each to a bitmap with the
// same pixels.
#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "velmora/velmora.h"
#include "support/peers.h"

namespace {

enum class Kind {
    kBlack1,
    kWhite1,
    kGrey2,
    kGrey4,
    kGrey8,
    kGrey16,
    kPalette4,
    kPalette8,
    kRgb,
    kRgbPlanar,
    kRgba,
    kCmyk,
    kYcbcr22,
    kYcbcr21,
    // Grey and palette pages with an alpha sample, as office suites write them.
    kGrey4Alpha,
    kGrey8Alpha,
    kGrey16Alpha,
    kGrey8AlphaPlanar,
    kPalette4Alpha,
    kPalette8Alpha
};

struct Variant {
    Kind kind;
    uint16_t compression;
    uint32_t t4Options = 0;
    uint16_t predictor = 1;
    uint32_t rowsPerStrip = 0;  // 0: the whole page in one strip
    uint32_t tileSize = 0;      // non-zero: square tiles
    uint16_t orientation = 1;
    bool bigEndian = false;
    bool bigTiff = false;
    bool lsbFirst = false;  // FillOrder 2
};

struct Rgb {
    uint8_t r, g, b;
    bool operator==(const Rgb& o) const { return r == o.r && g == o.g && b == o.b; }
};

// A page of rows top first.
struct Image {
    uint32_t width = 0, height = 0;
    std::vector<Rgb> pixels;
    Rgb at(uint32_t x, uint32_t y) const { return pixels[size_t{y} * width + x]; }
};

uint32_t Hash(uint32_t x) {
    x ^= x >> 16;
    x *= 0x7feb352dU;
    x ^= x >> 15;
    x *= 0x846ca68bU;
    x ^= x >> 16;
    return x;
}

// A sample value for pixel (x, y) of channel c: gradients, blocks and noise,
// so that every coder sees runs as well as detail.
uint32_t Sample(uint32_t x, uint32_t y, uint32_t c, uint32_t bits, uint32_t seed) {
    uint32_t max = (bits >= 32) ? 0xFFFFFFFFu : ((1u << bits) - 1);
    uint32_t region = ((x / 37) + (y / 23) + seed) % 4;
    uint64_t v;
    switch (region) {
        case 0: v = (uint64_t{x} * max) / 400; break;                             // horizontal ramp
        case 1: v = ((x / 8 + y / 8 + c) % 2) ? max : 0; break;                   // checks
        case 2: v = Hash(x * 7919u + y * 104729u + c * 31u + seed) & max; break;  // noise
        default: v = (uint64_t{y + c * 40} * max) / 300; break;                   // vertical ramp
    }
    return static_cast<uint32_t>(v > max ? max : v);
}

struct Layout {
    const char* name;
    uint16_t bits = 8, samples = 1, photometric = 1, planar = 1, extra = 0;
    uint16_t subH = 1, subV = 1;
    bool palette = false;
    Kind plain;  // the same page without its alpha sample: the reference for pages with one
};

// Every kind's samples, in the order of Kind.
const Layout kLayouts[] = {
    {"black1", 1, 1, PHOTOMETRIC_MINISBLACK, 1, 0, 1, 1, false, Kind::kBlack1},
    {"white1", 1, 1, PHOTOMETRIC_MINISWHITE, 1, 0, 1, 1, false, Kind::kWhite1},
    {"grey2", 2, 1, PHOTOMETRIC_MINISBLACK, 1, 0, 1, 1, false, Kind::kGrey2},
    {"grey4", 4, 1, PHOTOMETRIC_MINISWHITE, 1, 0, 1, 1, false, Kind::kGrey4},
    {"grey8", 8, 1, PHOTOMETRIC_MINISBLACK, 1, 0, 1, 1, false, Kind::kGrey8},
    {"grey16", 16, 1, PHOTOMETRIC_MINISBLACK, 1, 0, 1, 1, false, Kind::kGrey16},
    {"pal4", 4, 1, PHOTOMETRIC_PALETTE, 1, 0, 1, 1, true, Kind::kPalette4},
    {"pal8", 8, 1, PHOTOMETRIC_PALETTE, 1, 0, 1, 1, true, Kind::kPalette8},
    {"rgb", 8, 3, PHOTOMETRIC_RGB, 1, 0, 1, 1, false, Kind::kRgb},
    {"rgbplanar", 8, 3, PHOTOMETRIC_RGB, PLANARCONFIG_SEPARATE, 0, 1, 1, false, Kind::kRgbPlanar},
    {"rgba", 8, 4, PHOTOMETRIC_RGB, 1, 1, 1, 1, false, Kind::kRgba},
    {"cmyk", 8, 4, PHOTOMETRIC_SEPARATED, 1, 0, 1, 1, false, Kind::kCmyk},
    {"ycbcr22", 8, 3, PHOTOMETRIC_YCBCR, 1, 0, 2, 2, false, Kind::kYcbcr22},
    {"ycbcr21", 8, 3, PHOTOMETRIC_YCBCR, 1, 0, 2, 1, false, Kind::kYcbcr21},
    // Grey and palette pages with an alpha sample.
    {"grey4a", 4, 2, PHOTOMETRIC_MINISWHITE, 1, 1, 1, 1, false, Kind::kGrey4},
    {"grey8a", 8, 2, PHOTOMETRIC_MINISBLACK, 1, 1, 1, 1, false, Kind::kGrey8},
    {"grey16a", 16, 2, PHOTOMETRIC_MINISBLACK, 1, 1, 1, 1, false, Kind::kGrey16},
    {"grey8aplanar", 8, 2, PHOTOMETRIC_MINISBLACK, PLANARCONFIG_SEPARATE, 1, 1, 1, false, Kind::kGrey8},
    {"pal4a", 4, 2, PHOTOMETRIC_PALETTE, 1, 1, 1, 1, true, Kind::kPalette4},
    {"pal8a", 8, 2, PHOTOMETRIC_PALETTE, 1, 1, 1, 1, true, Kind::kPalette8},
};
const Layout& LayoutOf(Kind kind) { return kLayouts[static_cast<int>(kind)]; }
Kind WithoutAlpha(Kind kind) { return LayoutOf(kind).plain; }
const char* KindName(Kind kind) { return LayoutOf(kind).name; }

// Packs one stored row (or one plane's row) of samples.
void PackRow(const Layout& l, uint32_t width, uint32_t y, int plane, uint32_t seed, std::vector<uint8_t>* out) {
    int samples = plane < 0 ? l.samples : 1;
    uint64_t bitsTotal = uint64_t{width} * samples * l.bits;
    out->assign((bitsTotal + 7) / 8, 0);
    uint64_t bit = 0;
    for (uint32_t x = 0; x < width; ++x) {
        for (int s = 0; s < samples; ++s) {
            uint32_t channel = plane < 0 ? s : plane;
            uint32_t v = Sample(x, y, channel, l.bits, seed);
            if (l.bits == 16) {
                uint16_t w = static_cast<uint16_t>(v);
                std::memcpy(out->data() + bit / 8, &w, 2);  // libtiff swaps on write when needed
            } else {
                for (int b = l.bits - 1; b >= 0; --b, ++bit) {
                    if ((v >> b) & 1) (*out)[bit / 8] |= static_cast<uint8_t>(0x80 >> (bit % 8));
                }
                continue;
            }
            bit += 16;
        }
    }
}

// Data units of a subsampled YCbCr row band (subV rows).
void PackYcbcrBand(const Layout& l, uint32_t width, uint32_t height, uint32_t y0, uint32_t seed,
                   std::vector<uint8_t>* out) {
    out->clear();
    for (uint32_t x0 = 0; x0 < width; x0 += l.subH) {
        for (uint32_t dy = 0; dy < l.subV; ++dy) {
            for (uint32_t dx = 0; dx < l.subH; ++dx) {
                uint32_t x = x0 + dx < width ? x0 + dx : width - 1;
                uint32_t y = y0 + dy < height ? y0 + dy : height - 1;
                out->push_back(static_cast<uint8_t>(16 + Sample(x, y, 0, 8, seed) * 219 / 255));
            }
        }
        out->push_back(static_cast<uint8_t>(Sample(x0, y0, 1, 8, seed)));
        out->push_back(static_cast<uint8_t>(Sample(x0, y0, 2, 8, seed)));
    }
}

std::string ModeOf(const Variant& v) {
    std::string mode = "w";
    mode += v.bigEndian ? "b" : "l";
    if (v.bigTiff) mode += "8";
    return mode;
}

// Writes one page into the open TIFF; the page's size depends on its number.
bool WritePage(TIFF* tif, const Variant& v, int page, int pages) {
    const Layout& l = LayoutOf(v.kind);
    const uint32_t width = page == 0 ? 301 : 123;
    const uint32_t height = page == 0 ? 207 : 95;
    const uint32_t seed = page * 17 + static_cast<uint32_t>(WithoutAlpha(v.kind));  // alpha twins share pixels
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, l.bits);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, l.samples);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, l.photometric);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, l.planar);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, v.compression);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, v.orientation);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, 200.0f);
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, 100.0f);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, page == 0 ? RESUNIT_INCH : RESUNIT_CENTIMETER);
    TIFFSetField(tif, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(tif, TIFFTAG_PAGENUMBER, page, pages);
    if (v.lsbFirst) TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
    if (v.compression == COMPRESSION_CCITTFAX3) TIFFSetField(tif, TIFFTAG_GROUP3OPTIONS, v.t4Options);
    if (v.predictor != 1) TIFFSetField(tif, TIFFTAG_PREDICTOR, v.predictor);
    if (l.extra) {
        // An extra sample, of unspecified meaning beside colour and an alpha
        // beside grey or palette indexes: readers skip it.
        uint16_t extra = l.samples == 2 ? EXTRASAMPLE_UNASSALPHA : EXTRASAMPLE_UNSPECIFIED;
        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    if (l.subH != 1 || l.subV != 1) {
        TIFFSetField(tif, TIFFTAG_YCBCRSUBSAMPLING, l.subH, l.subV);
        float refBlackWhite[6] = {16, 235, 128, 240, 128, 240};
        TIFFSetField(tif, TIFFTAG_REFERENCEBLACKWHITE, refBlackWhite);
    }
    if (l.palette) {
        uint32_t n = 1u << l.bits;
        std::vector<uint16_t> r(n), g(n), b(n);
        for (uint32_t i = 0; i < n; ++i) {
            r[i] = static_cast<uint16_t>((Hash(i + seed) & 0xFF) * 257);
            g[i] = static_cast<uint16_t>(((Hash(i * 3 + seed) >> 8) & 0xFF) * 257);
            b[i] = static_cast<uint16_t>((i * 255 / (n - 1)) * 257);
        }
        TIFFSetField(tif, TIFFTAG_COLORMAP, r.data(), g.data(), b.data());
    }

    const int planes = l.planar == PLANARCONFIG_SEPARATE ? l.samples : 1;
    std::vector<uint8_t> row;
    if (v.tileSize != 0) {
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, v.tileSize);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, v.tileSize);
        tmsize_t tileBytes = TIFFTileSize(tif);
        std::vector<uint8_t> tile(static_cast<size_t>(tileBytes));
        for (int plane = 0; plane < planes; ++plane) {
            for (uint32_t ty = 0; ty < height; ty += v.tileSize) {
                for (uint32_t tx = 0; tx < width; tx += v.tileSize) {
                    std::fill(tile.begin(), tile.end(), 0);
                    size_t tileRow = static_cast<size_t>(tileBytes) / v.tileSize;
                    for (uint32_t y = 0; y < v.tileSize && ty + y < height; ++y) {
                        PackRow(l, width, ty + y, planes > 1 ? plane : -1, seed, &row);
                        uint64_t bitsPerPixel = uint64_t{l.bits} * (planes > 1 ? 1 : l.samples);
                        uint64_t from = tx * bitsPerPixel / 8;
                        uint64_t bytes = std::min<uint64_t>(tileRow, row.size() - from);
                        std::memcpy(tile.data() + y * tileRow, row.data() + from, bytes);
                    }
                    ttile_t index = TIFFComputeTile(tif, tx, ty, 0, static_cast<uint16_t>(plane));
                    if (TIFFWriteEncodedTile(tif, index, tile.data(), tileBytes) < 0) return false;
                }
            }
        }
    } else if (l.subH != 1 || l.subV != 1) {
        uint32_t rows = v.rowsPerStrip == 0 ? height : ((v.rowsPerStrip + l.subV - 1) / l.subV) * l.subV;
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rows);
        uint32_t strip = 0;
        for (uint32_t y0 = 0; y0 < height; y0 += rows, ++strip) {
            std::vector<uint8_t> data, band;
            for (uint32_t y = y0; y < y0 + rows && y < height; y += l.subV) {
                PackYcbcrBand(l, width, height, y, seed, &band);
                data.insert(data.end(), band.begin(), band.end());
            }
            if (TIFFWriteEncodedStrip(tif, strip, data.data(), static_cast<tmsize_t>(data.size())) < 0) return false;
        }
    } else {
        uint32_t rows = v.rowsPerStrip == 0 ? height : v.rowsPerStrip;
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rows);
        uint32_t stripsPerPlane = (height + rows - 1) / rows;
        for (int plane = 0; plane < planes; ++plane) {
            for (uint32_t s = 0; s < stripsPerPlane; ++s) {
                std::vector<uint8_t> data;
                for (uint32_t y = s * rows; y < (s + 1) * rows && y < height; ++y) {
                    PackRow(l, width, y, planes > 1 ? plane : -1, seed, &row);
                    data.insert(data.end(), row.begin(), row.end());
                }
                if (TIFFWriteEncodedStrip(tif, plane * stripsPerPlane + s, data.data(),
                                          static_cast<tmsize_t>(data.size())) < 0) {
                    return false;
                }
            }
        }
    }
    return TIFFWriteDirectory(tif) != 0;
}

std::string NameOf(const Variant& v, int index) {
    char name[160];
    std::snprintf(name, sizeof name, "%03d-%s-c%u-t%u-p%u-r%u-t%u-o%u-%s%s%s.tif", index, KindName(v.kind),
                  v.compression, v.t4Options, v.predictor, v.rowsPerStrip, v.tileSize, v.orientation,
                  v.bigEndian ? "mm" : "ii", v.bigTiff ? "-big" : "", v.lsbFirst ? "-lsb" : "");
    return name;
}

std::vector<Variant> Corpus() {
    std::vector<Variant> corpus;
    const Kind bilevel[] = {Kind::kBlack1, Kind::kWhite1};
    const Kind others[] = {Kind::kGrey2,         Kind::kGrey4,
                           Kind::kGrey8,         Kind::kGrey16,
                           Kind::kPalette4,      Kind::kPalette8,
                           Kind::kRgb,           Kind::kRgbPlanar,
                           Kind::kRgba,          Kind::kCmyk,
                           Kind::kGrey4Alpha,    Kind::kGrey8Alpha,
                           Kind::kGrey16Alpha,   Kind::kGrey8AlphaPlanar,
                           Kind::kPalette4Alpha, Kind::kPalette8Alpha};
    struct Coding {
        uint16_t compression;
        uint32_t t4Options;
        uint16_t predictor;
    };
    const Coding bilevelCodings[] = {
        {COMPRESSION_NONE, 0, 1},      {COMPRESSION_CCITTRLE, 0, 1},  {COMPRESSION_CCITTRLEW, 0, 1},
        {COMPRESSION_CCITTFAX3, 0, 1}, {COMPRESSION_CCITTFAX3, 1, 1}, {COMPRESSION_CCITTFAX3, 5, 1},
        {COMPRESSION_CCITTFAX4, 0, 1}, {COMPRESSION_LZW, 0, 1},       {COMPRESSION_ADOBE_DEFLATE, 0, 1},
        {COMPRESSION_PACKBITS, 0, 1},
    };
    const Coding otherCodings[] = {
        {COMPRESSION_NONE, 0, 1},          {COMPRESSION_LZW, 0, 1},           {COMPRESSION_LZW, 0, 2},
        {COMPRESSION_ADOBE_DEFLATE, 0, 1}, {COMPRESSION_ADOBE_DEFLATE, 0, 2}, {COMPRESSION_PACKBITS, 0, 1},
    };
    struct Placement {
        uint32_t rows, tile;
    };
    const Placement placements[] = {{0, 0}, {16, 0}, {1, 0}, {0, 64}};
    int n = 0;
    auto add = [&](Variant v) {
        // Byte order, BigTIFF and fill order rotate through the corpus.
        v.bigEndian = (n % 2) == 1;
        v.bigTiff = (n % 3) == 2;
        v.lsbFirst = v.lsbFirst || ((n % 5) == 3 && LayoutOf(v.kind).bits == 1);
        ++n;
        corpus.push_back(v);
    };
    for (Kind kind : bilevel) {
        for (const Coding& c : bilevelCodings) {
            for (const Placement& p : placements)
                add(Variant{kind, c.compression, c.t4Options, c.predictor, p.rows, p.tile});
        }
    }
    for (Kind kind : others) {
        for (const Coding& c : otherCodings) {
            if (c.predictor == 2 && LayoutOf(kind).bits != 8) continue;  // the predictor is for 8-bit samples
            for (const Placement& p : placements)
                add(Variant{kind, c.compression, c.t4Options, c.predictor, p.rows, p.tile});
        }
    }
    // Byte codings with the predictor in FillOrder 2.
    for (uint16_t compression : {COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE}) {
        add(Variant{Kind::kGrey8, compression, 0, 2, 16, 0, 1, false, false, true});
    }
    // JPEG pages stored as grey, RGB or CMYK samples (no colour transform,
    // no subsampling) decode exactly as libtiff decodes them through libjpeg.
    for (Kind kind : {Kind::kGrey8, Kind::kRgb, Kind::kCmyk}) {
        for (const Placement& p : {placements[0], placements[1], placements[3]}) {
            add(Variant{kind, COMPRESSION_JPEG, 0, 1, p.rows, p.tile});
        }
        add(Variant{kind, COMPRESSION_JPEG, 0, 1, 16, 0, 6});
    }
    for (Kind kind : {Kind::kYcbcr22, Kind::kYcbcr21}) {
        for (uint32_t rows : {0u, 16u}) add(Variant{kind, COMPRESSION_NONE, 0, 1, rows, 0});
    }
    // Every orientation, stored as one strip and as many.
    for (uint16_t o = 1; o <= 8; ++o) {
        for (uint32_t rows : {0u, 16u}) {
            add(Variant{Kind::kGrey8, COMPRESSION_LZW, 0, 1, rows, 0, o});
            add(Variant{Kind::kBlack1, COMPRESSION_CCITTFAX4, 0, 1, rows, 0, o});
            add(Variant{Kind::kRgb, COMPRESSION_NONE, 0, 1, rows, 0, o});
        }
        add(Variant{Kind::kPalette8, COMPRESSION_PACKBITS, 0, 1, 0, 64, o});
    }
    return corpus;
}

// The page as libtiff presents it, rows and columns as stored.
bool Reference(TIFF* tif, Image* image) {
    uint32_t w = 0, h = 0;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    std::vector<uint32_t> raster(size_t{w} * h);
    if (!TIFFReadRGBAImageOriented(tif, w, h, raster.data(), ORIENTATION_TOPLEFT, 0)) return false;
    image->width = w;
    image->height = h;
    image->pixels.resize(raster.size());
    for (size_t i = 0; i < raster.size(); ++i) {
        image->pixels[i] = Rgb{static_cast<uint8_t>(TIFFGetR(raster[i])), static_cast<uint8_t>(TIFFGetG(raster[i])),
                               static_cast<uint8_t>(TIFFGetB(raster[i]))};
    }
    return true;
}

// Turns the stored image as the reader presents it: the full orientation
// when strips were placed one by one, or only the recorded rotation when the
// page was one strip or tile.
Image Oriented(const Image& in, uint16_t orientation, bool wholePage) {
    if (wholePage) {
        static const uint16_t kRotation[9] = {1, 1, 1, 3, 3, 8, 6, 6, 8};
        orientation = kRotation[orientation];
    }
    bool exchange = orientation >= 5;
    Image out;
    out.width = exchange ? in.height : in.width;
    out.height = exchange ? in.width : in.height;
    out.pixels.resize(in.pixels.size());
    for (uint32_t y = 0; y < in.height; ++y) {
        for (uint32_t x = 0; x < in.width; ++x) {
            // Where the stored pixel goes: mirrored across, down, or both,
            // with rows and columns exchanged from orientation 5 on.
            const uint32_t lastX = in.width - 1, lastY = in.height - 1;
            const bool flipX = orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7;
            const bool flipY = orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8;
            uint32_t ox = exchange ? (flipX ? lastY - y : y) : (flipX ? lastX - x : x);
            uint32_t oy = exchange ? (flipY ? lastX - x : x) : (flipY ? lastY - y : y);
            out.pixels[size_t{oy} * out.width + ox] = in.at(x, y);
        }
    }
    return out;
}

// The DIB's pixels, top row first.
bool FromDib(HGLOBAL dib, Image* image) {
    auto* bytes = static_cast<const uint8_t*>(velmora::platform::MemLock(dib));
    if (bytes == nullptr) return false;
    BITMAPINFOHEADER header;
    std::memcpy(&header, bytes, sizeof header);
    uint32_t colours = header.biBitCount <= 8 ? (header.biClrUsed ? header.biClrUsed : 1u << header.biBitCount) : 0;
    const uint8_t* table = bytes + header.biSize;
    const uint8_t* rows = table + 4 * colours;
    size_t stride = ((size_t{header.biBitCount} * header.biWidth + 7) / 8 + 3) / 4 * 4;
    image->width = static_cast<uint32_t>(header.biWidth);
    image->height = static_cast<uint32_t>(header.biHeight);
    image->pixels.resize(size_t{image->width} * image->height);
    for (uint32_t y = 0; y < image->height; ++y) {
        const uint8_t* row = rows + stride * (image->height - 1 - y);
        for (uint32_t x = 0; x < image->width; ++x) {
            Rgb c{0, 0, 0};
            if (header.biBitCount == 24) {
                c = Rgb{row[3 * x + 2], row[3 * x + 1], row[3 * x]};
            } else {
                uint32_t index = 0;
                if (header.biBitCount == 1) index = (row[x / 8] >> (7 - x % 8)) & 1;
                if (header.biBitCount == 4) index = (row[x / 2] >> (x % 2 ? 0 : 4)) & 15;
                if (header.biBitCount == 8) index = row[x];
                if (index < colours) c = Rgb{table[4 * index + 2], table[4 * index + 1], table[4 * index]};
            }
            image->pixels[size_t{y} * image->width + x] = c;
        }
    }
    velmora::platform::MemUnlock(dib);
    return true;
}

// The numbers following every `"key": ` of a JSON text, in order.
std::vector<long> Numbers(const std::string& json, const std::string& key) {
    std::vector<long> values;
    const std::string pattern = "\"" + key + "\": ";
    for (size_t at = json.find(pattern); at != std::string::npos; at = json.find(pattern, at + 1)) {
        values.push_back(std::strtol(json.c_str() + at + pattern.size(), nullptr, 10));
    }
    return values;
}

// A BMP file as a DIB in a movable block.
HGLOBAL LoadBmp(const std::string& path) {
    const std::vector<uint8_t> bytes = velmora::peers::ReadFile(path);
    const size_t kFileHeader = 14;
    if (bytes.size() <= kFileHeader + sizeof(BITMAPINFOHEADER) || bytes[0] != 'B' || bytes[1] != 'M') return nullptr;
    HGLOBAL dib = velmora::platform::MemAlloc(GMEM_MOVEABLE, bytes.size() - kFileHeader);
    std::memcpy(velmora::platform::MemLock(dib), bytes.data() + kFileHeader, bytes.size() - kFileHeader);
    velmora::platform::MemUnlock(dib);
    return dib;
}

// Compares a DIB's pixels with the expected ones, channel by channel.
void ExpectSamePixels(HGLOBAL dib, const Image& expected, int tolerance, const std::string& what) {
    Image actual;
    ASSERT_TRUE(FromDib(dib, &actual)) << what;
    ASSERT_EQ(actual.width, expected.width) << what;
    ASSERT_EQ(actual.height, expected.height) << what;
    size_t mismatches = 0, first = 0;
    for (size_t p = 0; p < expected.pixels.size(); ++p) {
        const Rgb& a = actual.pixels[p];
        const Rgb& e = expected.pixels[p];
        if (std::abs(a.r - e.r) > tolerance || std::abs(a.g - e.g) > tolerance || std::abs(a.b - e.b) > tolerance) {
            if (mismatches++ == 0) first = p;
        }
    }
    const Rgb& a = actual.pixels[first];
    const Rgb& e = expected.pixels[first];
    EXPECT_EQ(mismatches, 0u) << what << ": first at x=" << first % expected.width << " y=" << first / expected.width
                              << ": " << int(a.r) << "," << int(a.g) << "," << int(a.b) << " instead of " << int(e.r)
                              << "," << int(e.g) << "," << int(e.b);
}

class TiffReadCorpus : public ::testing::Test {
protected:
    void SetUp() override { REQUIRE_PEER(velmora::peers::Have("/usr/bin/tiffcp"), "tiffcp"); }
    static void SetUpTestSuite() { TIFFSetWarningHandler(nullptr); }
    // Writes corpus file `i` (two pages) with libtiff; empty on failure.
    static std::string MakeFile(const Variant& v, size_t i) {
        static velmora::peers::TempDir directory("velmora-tiff-corpus");
        const std::string path = directory.Path(NameOf(v, static_cast<int>(i)));
        TIFF* out = TIFFOpen(path.c_str(), ModeOf(v).c_str());
        if (out == nullptr) return std::string();
        bool written = WritePage(out, v, 0, 2) && WritePage(out, v, 1, 2);
        TIFFClose(out);
        return written ? path : std::string();
    }
};

TEST_F(TiffReadCorpus, EveryPageMatchesLibtiff) {
    std::vector<Variant> corpus = Corpus();
    int files = 0, pages = 0;
    const std::string velmora = VELMORA_CLI;
    for (size_t i = 0; i < corpus.size(); ++i) {
        const Variant& v = corpus[i];
        const std::string path = MakeFile(v, i);
        ASSERT_FALSE(path.empty()) << NameOf(v, static_cast<int>(i));

        // libtiff's RGBA reader does not read every kind of tiled page; tiled
        // pages are compared with libtiff's own conversion of them to strips.
        std::string referencePath = path;
        if (v.compression == COMPRESSION_CCITTRLEW || WithoutAlpha(v.kind) != v.kind) {
            // libtiff misreads word-aligned rows whose strip starts at an odd
            // offset, and grey and palette pages with alpha are not what its
            // RGBA reader shows: these pages are compared with the same pages
            // (without the alpha) stored uncompressed.
            Variant plain = v;
            plain.compression = COMPRESSION_NONE;
            if (WithoutAlpha(v.kind) != v.kind)
                plain = Variant{WithoutAlpha(v.kind), COMPRESSION_NONE, 0, 1, 0, 0, v.orientation};
            referencePath = path + ".plain.tif";
            TIFF* twin = TIFFOpen(referencePath.c_str(), ModeOf(plain).c_str());
            ASSERT_NE(twin, nullptr);
            ASSERT_TRUE(WritePage(twin, plain, 0, 2) && WritePage(twin, plain, 1, 2));
            TIFFClose(twin);
        } else if (v.tileSize != 0) {
            referencePath = path + ".strips.tif";
            ASSERT_TRUE(velmora::peers::Run("tiffcp -s -c none '" + path + "' '" + referencePath + "'"));
        }
        // "c": strips as stored, not cut into smaller ones for reading.
        TIFF* original = TIFFOpen(path.c_str(), "rc");
        TIFF* in = TIFFOpen(referencePath.c_str(), "r");
        ASSERT_NE(original, nullptr) << path;
        ASSERT_NE(in, nullptr) << referencePath;
        HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), 0x80000000u, 0);
        ASSERT_NE(tiff, nullptr) << path << ": error " << std::hex << GetLastVelmoraErrorCode();
        for (int page = 0; page < 2; ++page) {
            ASSERT_TRUE(TIFFSetDirectory(in, static_cast<tdir_t>(page)));
            ASSERT_TRUE(TIFFSetDirectory(original, static_cast<tdir_t>(page)));
            uint32_t parts = TIFFIsTiled(original) ? TIFFNumberOfTiles(original) : TIFFNumberOfStrips(original);
            uint32_t planes = LayoutOf(v.kind).planar == 2 ? LayoutOf(v.kind).samples : 1;
            bool wholePage = parts == planes;
            Image stored;
            ASSERT_TRUE(Reference(in, &stored)) << path;
            Image expected = Oriented(stored, v.orientation, wholePage);

            HGLOBAL dib = ReadVelmoraOpenTIFFDIB(tiff, static_cast<DWORD>(page + 1));
            ASSERT_NE(dib, nullptr) << path << " page " << page + 1 << ": error " << std::hex
                                    << GetLastVelmoraErrorCode();
            // YCbCr: the reader converts in double precision, libtiff cuts its
            // intermediate luma and chroma values to integers first, which moves
            // a channel by up to three steps (1 + 1.772 before rounding).
            const int tolerance = v.kind == Kind::kYcbcr22 || v.kind == Kind::kYcbcr21 ? 3 : 0;
            ExpectSamePixels(dib, expected, tolerance, path + " page " + std::to_string(page + 1));
            velmora::platform::MemFree(dib);
            // The resolution as libtiff reads it.
            float x = 0, y = 0;
            uint16_t unit = 0;
            VelmoraResolutionScale resolution = {};
            TIFFGetField(original, TIFFTAG_XRESOLUTION, &x);
            TIFFGetField(original, TIFFTAG_YRESOLUTION, &y);
            TIFFGetField(original, TIFFTAG_RESOLUTIONUNIT, &unit);
            ASSERT_EQ(GetVelmoraTIFFResolution(tiff, static_cast<DWORD>(page + 1), &resolution), 1) << path;
            EXPECT_EQ(double(resolution.xNumerator) / resolution.xDenominator, x) << path;
            EXPECT_EQ(double(resolution.yNumerator) / resolution.yDenominator, y) << path;
            EXPECT_EQ(resolution.unit, unit) << path;
            // The program renders one page of every file, alternately the first
            // and the second.
            if (page == static_cast<int>(i % 2)) {
                const std::string bmp = path + ".bmp";
                ASSERT_EQ(velmora::peers::Output("'" + velmora + "' render '" + path + "' --page " +
                                                 std::to_string(page + 1) + " -o '" + bmp + "' 2>&1"),
                          "")
                    << path;
                HGLOBAL rendered = LoadBmp(bmp);
                ASSERT_NE(rendered, nullptr) << bmp;
                ExpectSamePixels(rendered, expected, tolerance, "velmora render " + path);
                velmora::platform::MemFree(rendered);
            }
            ++pages;
        }
        // What the program says of the file: its two pages with libtiff's
        // dimensions and orientation.
        const std::string json = velmora::peers::Output("'" + velmora + "' info '" + path + "' --json");
        uint32_t width = 0, length = 0;
        TIFFGetField(original, TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(original, TIFFTAG_IMAGELENGTH, &length);
        ASSERT_EQ(Numbers(json, "page"), (std::vector<long>{1, 2})) << path << ": " << json;
        EXPECT_EQ(Numbers(json, "width").back(), static_cast<long>(width)) << path;
        EXPECT_EQ(Numbers(json, "length").back(), static_cast<long>(length)) << path;
        EXPECT_EQ(Numbers(json, "orientation"), (std::vector<long>{v.orientation, v.orientation})) << path;
        CloseVelmoraTIFF(tiff);
        TIFFClose(in);
        TIFFClose(original);
        ++files;
    }
    std::printf("%d files, %d pages compared\n", files, pages);
}

// The raw strips or tiles of libtiff's current directory.
std::vector<std::vector<uint8_t>> RawParts(TIFF* tif) {
    std::vector<std::vector<uint8_t>> parts;
    const bool tiled = TIFFIsTiled(tif);
    const uint32_t count = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
    uint64_t* sizes = nullptr;
    TIFFGetField(tif, tiled ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS, &sizes);
    for (uint32_t i = 0; i < count && sizes != nullptr; ++i) {
        std::vector<uint8_t> bytes(static_cast<size_t>(sizes[i]));
        tmsize_t got = tiled ? TIFFReadRawTile(tif, i, bytes.data(), static_cast<tmsize_t>(bytes.size()))
                             : TIFFReadRawStrip(tif, i, bytes.data(), static_cast<tmsize_t>(bytes.size()));
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        parts.push_back(std::move(bytes));
    }
    return parts;
}

// What tiffinfo and tiffdump report of a file on their error streams; empty
// for a clean file.
std::string TiffinfoComplaints(const std::string& path) {
    std::string complaints;
    const bool ran = velmora::peers::Output(
        "tiffinfo -D '" + path + "' 2>&1 >/dev/null && tiffdump '" + path + "' 2>&1 >/dev/null", &complaints);
    return ran ? complaints : "failed: " + complaints;
}

// Writes the DIB as the only page of a new memory TIFF with the compression
// given and saves it at `path`; the error code, or 0.
DWORD WriteDibFile(HGLOBAL dib, WORD compression, const std::string& path) {
    HGLOBAL tiff = OpenVelmoraTIFF(nullptr, 0xC0000000u, 1);
    if (tiff == nullptr) return GetLastVelmoraErrorCode();
    VelmoraAppendTIFF append = {};
    append.size = VELMORA_APPEND_TIFF_SIZE_V1;
    append.dib = dib;
    append.compression = compression;
    DWORD error = AppendVelmoraOpenTIFFEx(tiff, &append) ? 0 : GetLastVelmoraErrorCode();
    HGLOBAL memory = nullptr;
    DWORD size = 0;
    CloseMemoryVelmoraTIFF(tiff, &memory, &size);
    if (error == 0) {
        auto* bytes = static_cast<const uint8_t*>(velmora::platform::MemLock(memory));
        velmora::peers::WriteFile(path, std::vector<uint8_t>(bytes, bytes + size));
        velmora::platform::MemUnlock(memory);
    }
    if (memory != nullptr) velmora::platform::MemFree(memory);
    return error;
}

TEST_F(TiffReadCorpus, EveryPageWritesBackForLibtiff) {
    REQUIRE_PEER(velmora::peers::Have("/usr/bin/tiffinfo"), "tiffinfo");
    std::vector<Variant> corpus = Corpus();
    int copies = 0, codings = 0;
    for (size_t i = 0; i < corpus.size(); ++i) {
        const Variant& v = corpus[i];
        const std::string path = MakeFile(v, i);
        ASSERT_FALSE(path.empty()) << NameOf(v, static_cast<int>(i));

        // Both pages appended to a new file keep their coding: libtiff finds
        // the same strips or tiles, byte for byte, and the same pixels.
        const std::string copy = path + ".copy.tif";
        ASSERT_TRUE(AppendVelmoraTIFF(copy.c_str(), path.c_str()))
            << path << ": error " << std::hex << GetLastVelmoraErrorCode();
        // libtiff cannot read word-aligned Modified Huffman pages, its own
        // included: their copies are compared strip for strip only.
        if (v.compression != COMPRESSION_CCITTRLEW) EXPECT_EQ(TiffinfoComplaints(copy), "") << copy;
        TIFF* original = TIFFOpen(path.c_str(), "rc");
        TIFF* copied = TIFFOpen(copy.c_str(), "rc");
        ASSERT_NE(original, nullptr);
        ASSERT_NE(copied, nullptr) << copy;
        ASSERT_EQ(TIFFNumberOfDirectories(copied), 2) << copy;
        for (tdir_t page = 0; page < 2; ++page) {
            ASSERT_TRUE(TIFFSetDirectory(original, page) && TIFFSetDirectory(copied, page)) << copy;
            uint16_t before = 0, after = 0;
            TIFFGetField(original, TIFFTAG_COMPRESSION, &before);
            TIFFGetField(copied, TIFFTAG_COMPRESSION, &after);
            const bool wide = LayoutOf(v.kind).bits > 8;
            if (!wide || !v.bigEndian) {
                ASSERT_EQ(after, before) << copy;
                EXPECT_TRUE(RawParts(original) == RawParts(copied)) << copy << " page " << page + 1;
            }
            Image want, got;
            if (v.tileSize == 0 && Reference(original, &want)) {
                ASSERT_TRUE(Reference(copied, &got)) << copy;
                EXPECT_TRUE(want.pixels == got.pixels) << copy << " page " << page + 1;
            }
            ++copies;
        }
        TIFFClose(copied);
        TIFFClose(original);

        // The first page, decoded, coded again with every writable
        // compression: libtiff decodes what was coded.
        HGLOBAL tiff = OpenVelmoraTIFF(path.c_str(), 0x80000000u, 0);
        ASSERT_NE(tiff, nullptr);
        HGLOBAL dib = ReadVelmoraOpenTIFFDIB(tiff, 1);
        CloseVelmoraTIFF(tiff);
        ASSERT_NE(dib, nullptr) << path;
        const auto* header = static_cast<const BITMAPINFOHEADER*>(velmora::platform::MemLock(dib));
        const uint16_t bits = header->biBitCount;
        velmora::platform::MemUnlock(dib);
        const WORD compressions[] = {
            VELMORA_COMPRESSION_NONE,      VELMORA_COMPRESSION_PACKBITS, VELMORA_COMPRESSION_LZW,
            VELMORA_COMPRESSION_GROUP4,    VELMORA_COMPRESSION_GROUP3,   VELMORA_COMPRESSION_GROUP3_2D,
            VELMORA_COMPRESSION_CCITT_RLE, VELMORA_COMPRESSION_JPEG,     VELMORA_COMPRESSION_DEFLATE};
        for (WORD compression : compressions) {
            const bool fax = compression == VELMORA_COMPRESSION_GROUP4 || compression == VELMORA_COMPRESSION_GROUP3 ||
                             compression == VELMORA_COMPRESSION_GROUP3_2D ||
                             compression == VELMORA_COMPRESSION_CCITT_RLE;
            const bool jpeg = compression == VELMORA_COMPRESSION_JPEG;
            const std::string coded = path + ".c" + std::to_string(compression) + ".tif";
            const DWORD error = WriteDibFile(dib, compression, coded);
            // Fax codings take bi-level pages only, JPEG colour and grey ones.
            if ((fax && bits != 1) || (jpeg && bits != 24 && error != 0)) {
                EXPECT_EQ(error, 87u) << path << " compression " << compression;
                continue;
            }
            ASSERT_EQ(error, 0u) << path << " compression " << compression;
            EXPECT_EQ(TiffinfoComplaints(coded), "") << coded;
            TIFF* in = TIFFOpen(coded.c_str(), "r");
            ASSERT_NE(in, nullptr) << coded;
            Image decoded;
            ASSERT_TRUE(Reference(in, &decoded)) << coded;
            TIFFClose(in);
            if (jpeg) {
                // A lossy page: libtiff and the library decode the same
                // stream, grey exactly (the same integer transform), colour
                // within 1 (the colour conversion).
                HGLOBAL written = OpenVelmoraTIFF(coded.c_str(), 0x80000000u, 0);
                HGLOBAL ours = ReadVelmoraOpenTIFFDIB(written, 1);
                CloseVelmoraTIFF(written);
                ASSERT_NE(ours, nullptr) << coded;
                const bool colour =
                    static_cast<const BITMAPINFOHEADER*>(velmora::platform::MemLock(ours))->biBitCount == 24;
                velmora::platform::MemUnlock(ours);
                ExpectSamePixels(ours, decoded, colour ? 1 : 0, coded);
                velmora::platform::MemFree(ours);
            } else {
                ExpectSamePixels(dib, decoded, 0, coded);
            }
            ++codings;
        }
        velmora::platform::MemFree(dib);
    }
    std::printf("%d pages copied, %d pages coded again\n", copies, codings);
}

}  // namespace
