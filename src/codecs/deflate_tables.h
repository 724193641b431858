// The fixed tables of the Deflate format (RFC 1951), shared by the inflater
// and the encoder.
#pragma once

#include <cstdint>

namespace velmora {

// Section 3.2.5: lengths 3 to 258 as symbols 257 to 285 with extra bits, and
// distances 1 to 32768 as symbols 0 to 29 with extra bits.
inline constexpr uint16_t kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                             31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
inline constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                             2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
inline constexpr uint16_t kDistanceBase[30] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                               33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                               1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
inline constexpr uint8_t kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                               6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
// Section 3.2.7: the order in which the code-length code's lengths are sent.
inline constexpr uint8_t kCodeLengthOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

}  // namespace velmora
