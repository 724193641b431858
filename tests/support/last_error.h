// What an export left behind: its last error code when the call failed, 0
// when it succeeded, so that a refusal and its reason are one check.
#pragma once

#include "velmora/velmora.h"

namespace velmora::testing_support {

inline DWORD ErrorOf(bool failed) { return failed ? GetLastVelmoraErrorCode() : 0u; }

}  // namespace velmora::testing_support
