#include "codecs/adler32.h"

namespace velmora {
namespace {

constexpr uint32_t kBase = 65521;
// The most bytes whose sums fit 32 bits before they must be reduced
// (255 n (n + 1) / 2 + (n + 1) (kBase - 1) < 2^32).
constexpr size_t kMaxRun = 5552;
constexpr unsigned kBlock = 32;

}  // namespace

uint32_t Adler32Update(uint32_t adler, const uint8_t* bytes, size_t count) {
    uint32_t a = adler & 0xFFFF;
    uint32_t b = adler >> 16;
    while (count > 0) {
        size_t run = count < kMaxRun ? count : kMaxRun;
        count -= run;
        // Blocks of 32 bytes: b gains 32 a plus each byte weighted by the
        // number of sums it enters; the compiler vectorises both sums.
        for (; run >= kBlock; run -= kBlock, bytes += kBlock) {
            uint32_t sum = 0, weighted = 0;
            for (unsigned i = 0; i < kBlock; ++i) {
                sum += bytes[i];
                weighted += (kBlock - i) * bytes[i];
            }
            b += a * kBlock + weighted;
            a += sum;
        }
        for (; run > 0; --run) {
            a += *bytes++;
            b += a;
        }
        a %= kBase;
        b %= kBase;
    }
    return (b << 16) | a;
}

}  // namespace velmora
