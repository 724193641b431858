#include "frame/library.h"

#include <atomic>
#include <cstring>
#include <memory>

#include "frame/formatter.h"
#include "frame/language.h"
#include "frame/settings.h"
#include "frame/system_libraries.h"
#include "frame/text.h"
#include "platform/text_raster.h"

namespace velmora {
namespace {

constexpr uint16_t kOsTooOld = 435;            // "%s requires Windows NT 4.0 or later ..."
constexpr uint16_t kUnableToInitOle = 410;     // "Unable to initialize OLE"
constexpr uint16_t kUnableToCreateFont = 209;  // "Unable to create font (%s)"
constexpr uint16_t kUiFontFace = 211;          // "MS Sans Serif"
constexpr uint16_t kVersionTemplate = 10203;   // "%s %s"
constexpr uint16_t kTempFilePrefix = 10135;    // "vlm"
constexpr uint16_t kSectionGeneral = 10099;
constexpr uint16_t kValueTempDir = 10277;
constexpr uint32_t kNtPlatform = 2;
constexpr size_t kMaxPath = 260;

// Process-wide state. The library lock guards initialisation, termination and the
// window list; SharedObjectLock the lazily built shared values.
void* g_moduleHandle = nullptr;
platform::RecursiveLock* g_libraryLock = nullptr;
platform::RecursiveLock* g_sharedObjectLock = nullptr;
// The gate's fast path reads these two without the lock; both are written
// only under it and stay set until termination.
std::atomic<uint32_t> g_initialized{0};
ErrorRecord g_initError;
std::atomic<uint32_t> g_initFlags{0};
uint16_t g_startupLanguage = 0;
bool g_oleInitializedByLibrary = false;
uint16_t g_osVersionWord = 0;
uint32_t g_osPlatformId = 0;
std::u16string* g_tempDirectory = nullptr;
std::u16string* g_versionText = nullptr;
std::u16string* g_productName = nullptr;
std::u16string* g_productNameOverride = nullptr;
ConversionDefaults g_conversionDefaults;
uint32_t g_simulatedFailure = 0;

// The helper-process service of later subsystems waits under this lock.
platform::RecursiveLock* g_helperProcessLock = nullptr;

void FillConversionDefaults() {
    std::memset(&g_conversionDefaults, 0, sizeof g_conversionDefaults);
    g_conversionDefaults.flags = 0x1483;
    static const uint8_t kByteOptions[10] = {2, 6, 0, 1, 1, 2, 1, 1, 4, 1};
    std::memcpy(g_conversionDefaults.byteOptions, kByteOptions, sizeof kByteOptions);
    g_conversionDefaults.resolution = 300000;
}

// Tests the configured temporary directory by creating and deleting a file in
// it; any failure leaves the system's directory in use.
void SetUpTempDirectory() {
    char16_t value[kMaxPath];
    ErrorRecord ignored;
    ReadSetting(kSectionGeneral, kValueTempDir, true, value, kMaxPath, &ignored);
    if (value[0] == 0) return;
    std::u16string directory(value);
    std::u16string file;
    uint32_t error = 0;
    if (!platform::CreateTempFile(directory, TextString(kTempFilePrefix), &file, &error)) return;
    if (!platform::FileDelete(file, &error)) return;
    if (!platform::IsPathSeparator(directory.back())) directory.push_back(platform::PathSeparator());
    g_tempDirectory = new std::u16string(directory);
}

bool FullInitialization(void* moduleHandle, uint16_t startupLanguage, ErrorRecord* record) {
    g_moduleHandle = moduleHandle;
    platform::SetQuietErrorMode();
    if (g_sharedObjectLock == nullptr) g_sharedObjectLock = new platform::RecursiveLock;

    ErrorRecord languageRecord;
    if (!SelectLanguage(startupLanguage != 0 ? startupLanguage : platform::UserDefaultLanguage(), &languageRecord) &&
        GetCurrentLanguage() != kEnglishUs) {
        SelectLanguage(kEnglishUs, &languageRecord);
    }

    if (g_helperProcessLock == nullptr) g_helperProcessLock = new platform::RecursiveLock;

    if (!(g_initFlags & kInitNoShell)) LoadSystemLibraries(record);

    if (record->ok()) {
        platform::OsVersion(&g_osVersionWord, &g_osPlatformId);
        if (g_osPlatformId == kNtPlatform && (g_osVersionWord >> 8) < 4) {
            // The message is the whole text, with the library's general error code.
            if (FormatText(kOsTooOld, record->message, kMessageLength, record, ProductName().c_str())) {
                record->code = kErrGeneral;
            }
        }
    }

    platform::RegisterWheelMessage();

    if (!(g_initFlags & kInitHostManagesOle)) {
        if (record->ok()) {
            int32_t result = g_simulatedFailure != 0 ? static_cast<int32_t>(g_simulatedFailure) : platform::OleInit();
            if (result < 0 || g_simulatedFailure != 0) {
                SetRecordError(record, static_cast<uint32_t>(result), kUnableToInitOle);
            }
        }
        g_oleInitializedByLibrary = record->ok();
    }

    if (record->ok()) SetUpTempDirectory();

    if (record->ok()) {
        std::u16string face = TextString(kUiFontFace);
        uint32_t error = 0;
        if (!platform::CreateUiFont(face, &error)) SetRecordError(record, error, kUnableToCreateFont, face.c_str());
    }
    if (record->ok()) {
        uint32_t error = 0;
        if (!platform::LoadCursors(&error)) SetRecordError(record, error, 0);
    }
    if (record->ok()) {
        platform::LockGuard guard(g_sharedObjectLock);
        uint32_t error = 0;
        if (!platform::RegisterProgressBarClass(&error)) SetRecordError(record, error, 0);
    }
    return record->ok();
}

void GlobalCleanup() {
    // Each subsystem releases only what it created.
    delete g_helperProcessLock;
    g_helperProcessLock = nullptr;
    platform::DeleteUiFont();
    if (g_oleInitializedByLibrary) platform::OleUninit();
    g_oleInitializedByLibrary = false;
    delete g_tempDirectory;
    g_tempDirectory = nullptr;
    if (!(g_initFlags & kInitNoShell)) FreeSystemLibraries();
    delete g_versionText;
    g_versionText = nullptr;
    delete g_productName;
    g_productName = nullptr;
    UnloadLanguageModule();
    delete g_sharedObjectLock;
    g_sharedObjectLock = nullptr;
}

}  // namespace

void ProcessAttach(void* moduleHandle) {
    g_moduleHandle = moduleHandle;
    if (g_libraryLock == nullptr) g_libraryLock = new platform::RecursiveLock;
    FillConversionDefaults();
}

void ProcessDetach() {
    TerminateLibrary();
    platform::ReleaseTextFaces();
    delete g_libraryLock;
    g_libraryLock = nullptr;
}

int EnsureLibraryInitialized() {
    if (g_initialized.load(std::memory_order_acquire) && g_initError.ok()) return 1;
    if (g_libraryLock == nullptr) ProcessAttach(g_moduleHandle);
    platform::LockGuard guard(g_libraryLock);
    if (!g_initialized.load(std::memory_order_relaxed)) {
        g_initError = ErrorRecord();
        FullInitialization(g_moduleHandle, g_startupLanguage, &g_initError);
        g_initialized.store(1, std::memory_order_release);
    }
    if (g_initError.failed()) {
        SetErrorFromRecord(g_initError);
        return 0;
    }
    return 1;
}

bool IsLibraryInitialized() { return g_initialized.load(std::memory_order_acquire) != 0; }

void TerminateLibrary() {
    if (g_libraryLock == nullptr) return;
    platform::LockGuard guard(g_libraryLock);
    if (!g_initialized.load(std::memory_order_relaxed)) return;
    platform::UnregisterPrintWindowClass();
    {
        platform::LockGuard shared(g_sharedObjectLock);
        if (g_conversionDefaults.owned != nullptr) {
            platform::MemFree(g_conversionDefaults.owned);
            g_conversionDefaults.owned = nullptr;
        }
    }
    GlobalCleanup();
    g_initialized.store(0, std::memory_order_release);
}

uint32_t InitFlags() { return g_initFlags.load(); }

bool SetInitFlags(uint32_t flags) {
    if (flags >= 4) return false;
    g_initFlags.store(flags);
    return true;
}

void SetStartupLanguage(uint16_t language) { g_startupLanguage = language; }

platform::RecursiveLock* SharedObjectLock() { return g_sharedObjectLock; }

std::u16string VersionText() {
    platform::LockGuard guard(g_sharedObjectLock);
    if (g_versionText == nullptr) {
        std::u16string name, version;
        platform::ReadVersionResource(&name, &version);
        char16_t text[512];
        std::u16string templ = TextString(kVersionTemplate);
        FormatWide(text, 512, templ.c_str(), name.c_str(), version.c_str());
        g_versionText = new std::u16string(text);
    }
    return *g_versionText;
}

std::u16string ProductName() {
    platform::LockGuard guard(g_sharedObjectLock);
    if (g_productNameOverride != nullptr) return *g_productNameOverride;
    if (g_productName == nullptr) {
        std::u16string name, version;
        platform::ReadVersionResource(&name, &version);
        g_productName = new std::u16string(name);
    }
    return *g_productName;
}

void SetProductNameOverride(const char16_t* name) {
    platform::LockGuard guard(g_sharedObjectLock);
    delete g_productNameOverride;
    g_productNameOverride = name != nullptr ? new std::u16string(name) : nullptr;
}

std::u16string LibraryDirectory() {
    std::u16string path = platform::ModulePath();
    size_t cut = path.size();
    while (cut > 0 && !platform::IsPathSeparator(path[cut - 1])) --cut;
    return path.substr(0, cut);
}

std::u16string TempDirectory() {
    if (g_tempDirectory != nullptr) return *g_tempDirectory;
    return platform::SystemTempDirectory();
}

ConversionDefaults* DefaultConversionOptions() { return &g_conversionDefaults; }

void SimulateInitializationFailure(uint32_t code) { g_simulatedFailure = code; }

}  // namespace velmora
