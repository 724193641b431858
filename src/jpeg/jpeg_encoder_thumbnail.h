// The JFIF APP0 segment and the thumbnail segments that follow it.
#pragma once

#include "jpeg/jpeg_encoder.h"

namespace velmora::jpeg {

// Writes APP0 "JFIF" (version 1.02, the settings' density) and, when the
// settings carry a thumbnail, the thumbnail as jpeg_encoder.h describes:
// inside the JFIF segment, or in a following APP0 "JFXX" segment.
bool WriteJfifSegments(const JpegEncoderSettings& settings, Stream* stream, ErrorRecord* record);

}  // namespace velmora::jpeg
