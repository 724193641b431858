#include "tiff/compression.h"

#include "velmora/velmora.h"

namespace velmora {
namespace {

static const TiffCompression kCompressions[] = {
    {1, VELMORA_COMPRESSION_NONE, StripCoding::Stored},
    {2, VELMORA_COMPRESSION_CCITT_RLE, StripCoding::Fax},
    {3, VELMORA_COMPRESSION_GROUP3, StripCoding::Fax},
    {4, VELMORA_COMPRESSION_GROUP4, StripCoding::Fax},
    {5, VELMORA_COMPRESSION_LZW, StripCoding::Lzw},
    {6, VELMORA_COMPRESSION_OJPEG, StripCoding::Jpeg},  // the old TIFF 6.0 JPEG
    {7, VELMORA_COMPRESSION_JPEG, StripCoding::Jpeg},
    {8, VELMORA_COMPRESSION_OTHER, StripCoding::Deflate},
    {32771, VELMORA_COMPRESSION_CCITT_RLEW, StripCoding::Fax},  // Modified Huffman, word-aligned rows
    {32773, VELMORA_COMPRESSION_PACKBITS, StripCoding::PackBits},
    {32809, VELMORA_COMPRESSION_THUNDERSCAN, StripCoding::ThunderScan},
    {32946, VELMORA_COMPRESSION_OTHER, StripCoding::Deflate},  // Deflate as early writers marked it
    {50000, VELMORA_COMPRESSION_OTHER, StripCoding::RunLength},  // the library's own run-length code
};

}  // namespace

const TiffCompression* FindCompression(uint16_t tag) {
    for (const TiffCompression& entry : kCompressions) {
        if (entry.tag == tag) return &entry;
    }
    return nullptr;
}

}  // namespace velmora
