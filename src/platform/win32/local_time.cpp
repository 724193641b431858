// Local time and the zone's standard bias from the system's time-zone data.
#include <windows.h>

#include "platform/local_time.h"

namespace velmora::platform {

void UtcNow(SYSTEMTIME* now) { ::GetSystemTime(now); }

void LocalNow(SYSTEMTIME* now) { ::GetLocalTime(now); }

bool StandardZoneBias(int32_t* minutes) {
    TIME_ZONE_INFORMATION zone;
    if (::GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID) return false;
    *minutes = static_cast<int32_t>(zone.Bias + zone.StandardBias);
    return true;
}

}  // namespace velmora::platform
