// The library's process-wide life: module entry, the initialisation gate that
// every exported function passes, full initialisation, termination, and the
// shared values they set up.
#pragma once

#include <cstdint>
#include <string>

#include "frame/error_record.h"
#include "platform/platform.h"

namespace velmora {

// Initialisation flags a host may set with InitVelmoraEx before its first call.
constexpr uint32_t kInitHostManagesOle = 0x1;
constexpr uint32_t kInitNoShell = 0x2;

// The module events declared by the platform layer are implemented here:
// process attach stores the module and creates the library lock, process detach
// terminates.

// The gate: runs full initialisation once per load. 1 when the library is
// ready; 0 when initialisation failed, with its error copied into the last
// error. A failed initialisation is not retried until termination.
int EnsureLibraryInitialized();
bool IsLibraryInitialized();
// Undoes initialisation in reverse order; the next gated call initialises
// again.
void TerminateLibrary();

uint32_t InitFlags();
bool SetInitFlags(uint32_t flags);
void SetStartupLanguage(uint16_t language);

platform::RecursiveLock* SharedObjectLock();

// "<ProductName> <ProductVersion>" of the version resource, built once.
std::u16string VersionText();
// The product name of messages: the host's override, else the resource's.
std::u16string ProductName();
void SetProductNameOverride(const char16_t* name);  // null removes it
// The directory of the library's own file, with a trailing separator.
std::u16string LibraryDirectory();
// The directory for temporary files: the "Temp Dir" setting when it works,
// else the system's.
std::u16string TempDirectory();

// Defaults of the PDF and TIFF conversions, filled at load.
struct ConversionDefaults {
    uint32_t flags;
    uint8_t byteOptions[10];
    uint32_t resolution;  // thousandths of a dot per inch
    HGLOBAL owned;        // freed at termination
    uint32_t reserved[16];
};
ConversionDefaults* DefaultConversionOptions();

// Makes the next full initialisation fail with `code`, as a failing system
// service would; 0 turns it off. For tests of the gate.
void SimulateInitializationFailure(uint32_t code);

}  // namespace velmora
