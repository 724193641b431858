// The TIFF compressions the library reads: each Compression tag value with
// the code the interface reports it by and the way its strips are decoded.
#pragma once

#include <cstdint>

namespace velmora {

enum class StripCoding : uint8_t { Stored, Fax, Lzw, Deflate, PackBits, ThunderScan, RunLength, Jpeg };

struct TiffCompression {
    uint16_t tag;       // the Compression value in a file
    uint16_t reported;  // the VELMORA_COMPRESSION_... code of GetVelmoraTIFFCompression
    StripCoding coding;
};

// The entry for a Compression value; null for one the library does not know.
const TiffCompression* FindCompression(uint16_t tag);

}  // namespace velmora
