// PackBits, ThunderScan and run-length (50000) strips, chosen by the first
// byte: a clean status, never a crash.
#include "byte_codec_fuzz.h"
#include "codecs/byte_decoders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    std::unique_ptr<velmora::StripDecoder> decoder;
    uint16_t compression;
    switch (data[0] % 3) {
        case 0:
            decoder = velmora::CreatePackBitsDecoder();
            compression = 32773;
            break;
        case 1:
            decoder = velmora::CreateThunderScanDecoder();
            compression = 32809;
            break;
        default:
            decoder = velmora::CreateRunLengthDecoder();
            compression = 50000;
            break;
    }
    velmora::FuzzByteDecoder(*decoder, compression, data + 1, size - 1);
    return 0;
}
