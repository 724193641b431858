// Bi-level pages and the fax-coded TIFF files the fax interop tests make of
// them: libtiff's reading of every raw strip and the library's decoding of it.
#pragma once

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "codecs/fax_decoder.h"
#include "support/peers.h"

namespace velmora::peers {

// A bi-level page, rows top first, 1 = black, padded to whole bytes.
struct Page {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> bits;
    size_t RowBytes() const { return (width + 7) / 8; }
    void Set(uint32_t x, uint32_t y) { bits[y * RowBytes() + x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8)); }
};

inline Page MakePage(uint32_t width, uint32_t height) {
    Page page;
    page.width = width;
    page.height = height;
    page.bits.assign(page.RowBytes() * height, 0);
    return page;
}

struct Strip {
    std::vector<uint8_t> raw;
    std::vector<uint8_t> expected;  // libtiff's decoding
    uint32_t rows = 0;
};

struct FaxFile {
    uint32_t width = 0, height = 0, rowsPerStrip = 0;
    uint16_t compression = 0, fillOrder = 1;
    uint32_t t4Options = 0, t6Options = 0;
    std::vector<Strip> strips;
};

// Reads the raw strips, and libtiff's decoding of them unless `rawOnly`.
inline bool ReadFaxFile(const std::string& path, FaxFile* file, bool rawOnly = false) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return false;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &file->width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &file->height);
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &file->rowsPerStrip);
    TIFFGetField(tif, TIFFTAG_COMPRESSION, &file->compression);
    TIFFGetFieldDefaulted(tif, TIFFTAG_FILLORDER, &file->fillOrder);
    if (file->compression == COMPRESSION_CCITTFAX3) TIFFGetField(tif, TIFFTAG_GROUP3OPTIONS, &file->t4Options);
    if (file->compression == COMPRESSION_CCITTFAX4) TIFFGetField(tif, TIFFTAG_GROUP4OPTIONS, &file->t6Options);
    file->rowsPerStrip = std::min(file->rowsPerStrip, file->height);
    size_t rowBytes = (file->width + 7) / 8;
    bool ok = true;
    for (uint32_t s = 0; s < TIFFNumberOfStrips(tif) && ok; ++s) {
        Strip strip;
        strip.rows = std::min(file->rowsPerStrip, file->height - s * file->rowsPerStrip);
        strip.raw.resize(TIFFRawStripSize(tif, s));
        ok = TIFFReadRawStrip(tif, s, strip.raw.data(), strip.raw.size()) == static_cast<tmsize_t>(strip.raw.size());
        strip.expected.assign(rowBytes * strip.rows, 0);
        ok = ok && (rawOnly || TIFFReadEncodedStrip(tif, s, strip.expected.data(), strip.expected.size()) ==
                                   static_cast<tmsize_t>(strip.expected.size()));
        file->strips.push_back(std::move(strip));
    }
    TIFFClose(tif);
    return ok;
}

struct Decoded {
    bool ok = false;
    uint32_t error = 0;
    std::vector<uint8_t> rows;
};

// Decodes one strip with the library into zeroed rows of `outputWidth` pixels.
inline Decoded DecodeStrip(const FaxFile& file, uint32_t index, const std::vector<uint8_t>& raw, uint32_t outputWidth) {
    Decoded result;
    size_t rowBytes = (outputWidth + 7) / 8;
    uint32_t rows = file.strips[index].rows;
    result.rows.assign(rowBytes * rows + 1, 0);  // one guard byte
    velmora::ErrorRecord record;
    auto decoder = velmora::CreateFaxDecoder(file.compression);
    if (decoder == nullptr) return result;
    velmora::CodecPage page;
    page.imageWidth = file.width;
    page.outputWidth = outputWidth;
    page.imageLength = file.height;
    page.rowsPerStrip = file.rowsPerStrip;
    page.stripCount = static_cast<uint32_t>(file.strips.size());
    page.compression = file.compression;
    page.fillOrder = file.fillOrder;
    page.t4Options = file.t4Options;
    page.t6Options = file.t6Options;
    if (!decoder->Begin(page, &record)) {
        result.error = record.code;
        return result;
    }
    velmora::CodecStrip strip;
    strip.data = raw.data();
    strip.size = raw.size();
    strip.firstRow = index * file.rowsPerStrip;
    strip.rows = rows;
    strip.index = index;
    strip.topRow = result.rows.data();
    strip.stride = static_cast<ptrdiff_t>(rowBytes);
    result.ok = decoder->Decode(strip, &record);
    decoder->End();
    result.error = record.code;
    EXPECT_EQ(result.rows.back(), 0) << "wrote past the last row";
    result.rows.pop_back();
    return result;
}

}  // namespace velmora::peers
