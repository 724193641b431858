// Progress reports to a host's callback, shared by every long operation.
//
// A loop takes a ProgressReporter built from the host's callback and user
// value (a null callback means no reports) and calls Row() after each row it
// finishes. The host is called at most once per 50 milliseconds of tick
// time, with row * 100 / total (64-bit, truncating; a total of 0 reports
// 0xFFFFFFFF), counting the rows finished before the current one. A callback
// that returns 0 cancels: Row() then returns false and the record holds 1223.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "velmora/velmora.h"

namespace velmora {

class ProgressReporter {
public:
    ProgressReporter() = default;
    ProgressReporter(VelmoraProgressProc callback, UINT_PTR user);

    bool active() const { return callback_ != nullptr; }

    // Call after finishing row `row` (0-based) of `total`; false once the
    // host cancelled (the record then holds 1223).
    bool Row(uint32_t row, uint32_t total, ErrorRecord* record);
    // Reports a percentage directly, under the same 50 ms rule.
    bool Percent(uint32_t percent, ErrorRecord* record);

private:
    bool Call(uint32_t percent, ErrorRecord* record);

    VelmoraProgressProc callback_ = nullptr;
    UINT_PTR user_ = 0;
    uint32_t start_ = 0;
};

}  // namespace velmora
