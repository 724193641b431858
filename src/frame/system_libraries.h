// The system's user-interface libraries (shell, common controls, common
// dialogs) loaded at run time with tables of the entry points the viewer and
// dialogs call.
#pragma once

#include "frame/error_record.h"
#include "platform/platform.h"

namespace velmora {

enum class SystemLibrary { kShell, kCommonControls, kCommonDialogs };

// Loads the three libraries in the order shell, common controls (kept), common
// controls again for its version and InitCommonControls, common dialogs.
void LoadSystemLibraries(ErrorRecord* record);
void FreeSystemLibraries();
// An entry point resolved at initialisation, or null.
void* SystemFunction(SystemLibrary library, const char* name);
uint32_t CommonControlsVersion();

}  // namespace velmora
