#include "frame/progress.h"

#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint32_t kReportIntervalMs = 50;

}  // namespace

ProgressReporter::ProgressReporter(VelmoraProgressProc callback, UINT_PTR user)
    : callback_(callback), user_(user), start_(platform::TickCount()) {}

bool ProgressReporter::Call(uint32_t percent, ErrorRecord* record) {
    if (record->failed()) return false;
    if (callback_ == nullptr) return true;
    if (platform::TickCount() - start_ < kReportIntervalMs) return true;
    bool goOn = callback_(percent, user_) != 0;
    start_ = platform::TickCount();
    if (!goOn) SetRecordCancelled(record);
    return goOn;
}

bool ProgressReporter::Row(uint32_t row, uint32_t total, ErrorRecord* record) {
    uint32_t percent = total == 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(uint64_t{row} * 100 / total);
    return Call(percent, record);
}

bool ProgressReporter::Percent(uint32_t percent, ErrorRecord* record) { return Call(percent, record); }

}  // namespace velmora
