// JPEG-compressed TIFF pages, as strips or tiles for the page pipeline.
//
// Compression 7: every strip or tile is a JPEG stream of its own, usually
// abbreviated, with the tables in the page's JPEGTables.
//
// Compression 6 (the old TIFF 6.0 JPEG): when JPEGInterchangeFormat points
// at a complete JPEG stream, that stream is the whole image; it is decoded
// once and the strips are cut from the result. Otherwise the tables come
// from JPEGQTables, JPEGDCTables and JPEGACTables (offsets of 64 zig-zag
// quantiser bytes, and of 16 code counts followed by their symbols), and
// every strip or tile is bare entropy-coded data of one interleaved scan,
// with the luma sampling from YCbCrSubSampling.
//
// Rows come out as finished pixels: grey, or blue-green-red triples.
#pragma once

#include <memory>

#include "codecs/codec.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"

namespace velmora {

std::unique_ptr<StripDecoder> CreateTiffJpegDecoder(TiffFile* tiff, const TiffPageInfo& info);

}  // namespace velmora
