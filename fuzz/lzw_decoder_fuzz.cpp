// Lzw strips of any shape and content: a clean status, never a crash.
#include "byte_codec_fuzz.h"
#include "codecs/byte_decoders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto decoder = velmora::CreateLzwDecoder();
    velmora::FuzzByteDecoder(*decoder, 5, data, size);
    return 0;
}
