// The TIFF horizontal differencing predictor (Predictor 2, TIFF 6.0 section
// 14), undone row by row after LZW and Deflate decoding.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codecs/codec.h"
#include "frame/error_record.h"

namespace velmora {

// Work done on every decoded row once it is complete, in place.
using RowRoutine = void (*)(uint8_t* row, size_t bytes);

// Chooses the routine that undoes the page's predictor: null for Predictor 1.
// False with the record set when the page's predictor cannot be undone
// (0x02000005 for unsupported sample layouts, 0x02000001 for unknown values).
bool SelectPredictor(const CodecPage& page, RowRoutine* routine, ErrorRecord* record);

// Undoes horizontal differencing of 8-bit samples in a row of `bytes` bytes
// whose pixels have `samples` (1 to 4) samples: every byte is added to the one
// `samples` positions after it, left to right, modulo 256. A row shorter than
// two pixels is left alone.
void UndoHorizontalDifferencing(uint8_t* row, size_t bytes, unsigned samples);

}  // namespace velmora
