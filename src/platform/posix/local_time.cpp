// The time of day and the zone's standard offset from the C library's zone
// data.
#include "platform/local_time.h"

#include <time.h>

namespace velmora::platform {

namespace {

void Now(bool utc, SYSTEMTIME* now) {
    timespec clock;
    clock_gettime(CLOCK_REALTIME, &clock);
    tm parts;
    if (utc) {
        gmtime_r(&clock.tv_sec, &parts);
    } else {
        localtime_r(&clock.tv_sec, &parts);
    }
    now->wYear = static_cast<WORD>(parts.tm_year + 1900);
    now->wMonth = static_cast<WORD>(parts.tm_mon + 1);
    now->wDayOfWeek = static_cast<WORD>(parts.tm_wday);
    now->wDay = static_cast<WORD>(parts.tm_mday);
    now->wHour = static_cast<WORD>(parts.tm_hour);
    now->wMinute = static_cast<WORD>(parts.tm_min);
    now->wSecond = static_cast<WORD>(parts.tm_sec);
    now->wMilliseconds = static_cast<WORD>(clock.tv_nsec / 1000000);
}

}  // namespace

void UtcNow(SYSTEMTIME* now) { Now(true, now); }

void LocalNow(SYSTEMTIME* now) { Now(false, now); }

bool StandardZoneBias(int32_t* minutes) {
    tzset();
    // `timezone` counts the seconds west of UTC of the zone's standard time.
    *minutes = static_cast<int32_t>(timezone / 60);
    return true;
}

}  // namespace velmora::platform
