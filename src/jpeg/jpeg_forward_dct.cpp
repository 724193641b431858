#include "jpeg/jpeg_forward_dct.h"

#include <cmath>

namespace velmora::jpeg {
namespace {

// One eight-point pass over data[0], data[step], ... data[7 * step].
inline void Transform8(float* data, int step) {
    float d0 = data[0], d1 = data[step], d2 = data[2 * step], d3 = data[3 * step];
    float d4 = data[4 * step], d5 = data[5 * step], d6 = data[6 * step], d7 = data[7 * step];

    float s07 = d0 + d7, t07 = d0 - d7;
    float s16 = d1 + d6, t16 = d1 - d6;
    float s25 = d2 + d5, t25 = d2 - d5;
    float s34 = d3 + d4, t34 = d3 - d4;

    // Even half: a four-point transform of the sums.
    float e0 = s07 + s34, e3 = s07 - s34;
    float e1 = s16 + s25, e2 = s16 - s25;
    data[0] = e0 + e1;
    data[4 * step] = e0 - e1;
    float rotated = (e2 + e3) * 0.707106781f;  // cos(pi/4)
    data[2 * step] = e3 + rotated;
    data[6 * step] = e3 - rotated;

    // Odd half: the differences through the rotation network.
    float o0 = t34 + t25;
    float o1 = t25 + t16;
    float o2 = t16 + t07;
    float z5 = (o0 - o2) * 0.382683433f;  // cos(3pi/8)
    float z2 = 0.541196100f * o0 + z5;    // cos(pi/8) - cos(3pi/8)
    float z4 = 1.306562965f * o2 + z5;    // cos(pi/8) + cos(3pi/8)
    float z3 = o1 * 0.707106781f;
    float z11 = t07 + z3;
    float z13 = t07 - z3;
    data[5 * step] = z13 + z2;
    data[3 * step] = z13 - z2;
    data[1 * step] = z11 + z4;
    data[7 * step] = z11 - z4;
}

}  // namespace

void MakeDctDivisors(const uint16_t* quantiser, DctDivisors* divisors) {
    double scale[8];
    scale[0] = 1.0;
    for (int k = 1; k < 8; ++k) scale[k] = std::sqrt(2.0) * std::cos(k * 3.14159265358979323846 / 16.0);
    for (int u = 0; u < 8; ++u) {
        for (int v = 0; v < 8; ++v) {
            double q = quantiser[u * 8 + v] == 0 ? 1.0 : quantiser[u * 8 + v];
            divisors->reciprocal[u * 8 + v] = static_cast<float>(1.0 / (q * scale[u] * scale[v] * 8.0));
        }
    }
}

void ForwardDctQuantise(const uint8_t* samples, ptrdiff_t stride, const DctDivisors& divisors, int16_t* coefficients) {
    float block[64];
    for (int y = 0; y < 8; ++y) {
        const uint8_t* row = samples + y * stride;
        for (int x = 0; x < 8; ++x) block[y * 8 + x] = static_cast<float>(row[x]) - 128.0f;
    }
    for (int y = 0; y < 8; ++y) Transform8(block + y * 8, 1);
    for (int x = 0; x < 8; ++x) Transform8(block + x, 8);
    for (int i = 0; i < 64; ++i) {
        // Rounds to the nearest integer, halves upwards: the offset makes
        // every value positive, so the truncating conversion is a floor.
        float value = block[i] * divisors.reciprocal[i];
        int rounded = static_cast<int>(value + 16384.5f) - 16384;
        if (rounded > 1023) rounded = 1023;
        if (rounded < -1024) rounded = -1024;
        if (i != 0 && rounded < -1023) rounded = -1023;
        coefficients[i] = static_cast<int16_t>(rounded);
    }
}

}  // namespace velmora::jpeg
