// The time of day: in UTC, in the user's time zone, and that zone's standard
// offset.
#pragma once

#include <cstdint>

#include "velmora/wintypes.h"

namespace velmora::platform {

// The current time in UTC.
void UtcNow(SYSTEMTIME* now);
// The current local time.
void LocalNow(SYSTEMTIME* now);
// The zone's standard bias in minutes (UTC = local time + bias), without any
// daylight-saving correction. False when the system cannot tell the zone.
bool StandardZoneBias(int32_t* minutes);

}  // namespace velmora::platform
