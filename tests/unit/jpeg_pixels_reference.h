// Double-precision transforms of T.81 Annex A and the example quantisation
// tables of Annex K, for making realistic coefficient blocks and checking
// the integer inverse transform against the exact one.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace velmora::testing {

// The basis of T.81 A.3.3: C(u) cos((2x + 1) u pi / 16) / 2, so that the
// 2-D transforms below are separable sums over it.
inline const double* DctBasis() {
    static const auto* basis = [] {
        static double table[8][8];
        const double pi = std::acos(-1.0);
        for (int u = 0; u < 8; ++u) {
            for (int x = 0; x < 8; ++x) {
                table[u][x] = (u == 0 ? 1 / std::sqrt(2.0) : 1.0) * std::cos((2 * x + 1) * u * pi / 16) / 2;
            }
        }
        return &table[0][0];
    }();
    return basis;
}

// Forward DCT of 64 level-shifted samples, natural order.
inline void ForwardDct(const double* samples, double* out) {
    const double* basis = DctBasis();
    double rows[64];
    for (int y = 0; y < 8; ++y) {
        for (int u = 0; u < 8; ++u) {
            double sum = 0;
            for (int x = 0; x < 8; ++x) sum += samples[y * 8 + x] * basis[u * 8 + x];
            rows[y * 8 + u] = sum;
        }
    }
    for (int v = 0; v < 8; ++v) {
        for (int u = 0; u < 8; ++u) {
            double sum = 0;
            for (int y = 0; y < 8; ++y) sum += rows[y * 8 + u] * basis[v * 8 + y];
            out[v * 8 + u] = sum;
        }
    }
}

// The exact inverse DCT of dequantised coefficients; samples still
// level-shifted (around zero), unrounded.
inline void ReferenceIdct(const double* coefficients, double* samples) {
    const double* basis = DctBasis();
    double columns[64];
    for (int y = 0; y < 8; ++y) {
        for (int u = 0; u < 8; ++u) {
            double sum = 0;
            for (int v = 0; v < 8; ++v) sum += coefficients[v * 8 + u] * basis[v * 8 + y];
            columns[y * 8 + u] = sum;
        }
    }
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            double sum = 0;
            for (int u = 0; u < 8; ++u) sum += columns[y * 8 + u] * basis[u * 8 + x];
            samples[y * 8 + x] = sum;
        }
    }
}

// T.81 Table K.1 and K.2, natural order.
inline const uint16_t kLuminanceTable[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                                             14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                                             18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                                             49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
inline const uint16_t kChrominanceTable[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                               24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                               99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                               99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// A table scaled by a percentage, limited to 1..limit.
inline std::vector<uint16_t> ScaledTable(const uint16_t* base, int percent, int limit = 255) {
    std::vector<uint16_t> table(64);
    for (int i = 0; i < 64; ++i) table[i] = static_cast<uint16_t>(std::clamp((base[i] * percent + 50) / 100, 1, limit));
    return table;
}

// A block of `maxSample + 1`-level samples with structure (a gradient, an
// edge) and noise, transformed and quantised as an encoder would.
inline std::vector<int16_t> RealisticBlock(std::mt19937& random, const std::vector<uint16_t>& table, int maxSample) {
    double samples[64], coefficients[64];
    const double centre = (maxSample + 1) / 2.0;
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double base = unit(random) * maxSample, slopeX = (unit(random) - 0.5) * maxSample / 4,
                 slopeY = (unit(random) - 0.5) * maxSample / 4, noise = unit(random) * maxSample / 3;
    const int edge = static_cast<int>(random() % 10);  // 8 and 9: no edge
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) {
            double value = base + slopeX * x + slopeY * y + (unit(random) - 0.5) * noise;
            if (edge < 8 && x >= edge) value = maxSample - value;
            // Extremes: whole blocks at either end of the range occur in
            // every document image.
            samples[y * 8 + x] = std::clamp(std::round(value), 0.0, double(maxSample)) - centre;
        }
    }
    if (random() % 8 == 0) std::fill(samples, samples + 64, (random() % 2 ? maxSample : 0) - centre);
    ForwardDct(samples, coefficients);
    std::vector<int16_t> block(64);
    for (int i = 0; i < 64; ++i) block[i] = static_cast<int16_t>(std::lround(coefficients[i] / table[i]));
    return block;
}

}  // namespace velmora::testing
