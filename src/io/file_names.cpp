#include "io/file_names.h"

#include "frame/formatter.h"
#include "frame/library.h"
#include "frame/text.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint16_t kTextMoveFile = 29;         // "Unable to move file (%s to %s)"
constexpr uint16_t kTextOpenFile = 53;         // "Unable to open or create file (%s)"
constexpr uint16_t kTextFullPath = 394;        // "Unable to get full path (%s)"
constexpr uint16_t kTextCreateTemp = 519;      // "Unable to create temporary file (%s,%s)"
constexpr uint32_t kErrorFileExists = 80;      // ERROR_FILE_EXISTS
constexpr uint32_t kErrorAlreadyExists = 183;  // ERROR_ALREADY_EXISTS
constexpr uint32_t kCounterMask = 0xFFFFF;     // 20 bits

uint32_t g_tempCounter = 0;

// The next counter value, seeded from the tick count on first use.
uint32_t TakeCounter() {
    platform::LockGuard guard(SharedObjectLock());
    if (g_tempCounter == 0) g_tempCounter = platform::TickCount() & kCounterMask;
    uint32_t value = g_tempCounter;
    g_tempCounter = (g_tempCounter + 1) & kCounterMask;
    return value;
}

}  // namespace

uint32_t TempNameCounter() {
    platform::LockGuard guard(SharedObjectLock());
    return g_tempCounter;
}

void SetTempNameCounter(uint32_t value) {
    platform::LockGuard guard(SharedObjectLock());
    g_tempCounter = value & kCounterMask;
}

bool FullPath(const char16_t* path, std::u16string* full, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t error = 0;
    if (!platform::FullPathName(path, full, &error)) {
        SetRecordError(record, error, kTextFullPath, path);
        return false;
    }
    return true;
}

bool MakeTempFile(const char16_t* directory, uint16_t prefixId, const char16_t* extension, std::u16string* name,
                  ErrorRecord* record) {
    if (record->failed()) return false;
    std::u16string dir = directory != nullptr ? std::u16string(directory) : TempDirectory();
    std::u16string prefix = TextString(prefixId);
    uint32_t error = 0;
    if (extension == nullptr) {
        if (!platform::CreateTempFile(dir, prefix, name, &error)) {
            SetRecordError(record, error, kTextCreateTemp, dir.c_str(), prefix.c_str());
            return false;
        }
        return true;
    }
    if (!dir.empty() && !platform::IsPathSeparator(dir.back())) dir.push_back(platform::PathSeparator());
    // Every counter value at most once: a directory full of our names ends.
    for (uint32_t attempt = 0; attempt <= kCounterMask; ++attempt) {
        char16_t number[16];
        FormatWide(number, 16, u"%05lX", TakeCounter());
        std::u16string candidate = dir + prefix + number + extension;
        error = 0;
        platform::FileHandle file = platform::FileOpen(candidate, platform::FileAccess::CreateNew, &error);
        if (file != platform::kNoFile) {
            platform::FileClose(file);
            *name = candidate;
            return true;
        }
        if (error == kErrorFileExists || error == kErrorAlreadyExists) continue;
        if (error == ERROR_ACCESS_DENIED && platform::IsDirectory(candidate)) continue;
        SetRecordError(record, error, kTextOpenFile, candidate.c_str());
        return false;
    }
    SetRecordError(record, kErrorFileExists, kTextCreateTemp, dir.c_str(), prefix.c_str());
    return false;
}

bool DeleteFileName(const char16_t* path, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t error = 0;
    if (!platform::FileDelete(path, &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    return true;
}

bool MoveFileName(const char16_t* from, const char16_t* to, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t error = 0;
    if (platform::FileExists(to, &error)) {
        error = kErrorAlreadyExists;
    } else if (platform::FileReplace(from, to, &error)) {
        return true;
    }
    SetRecordError(record, error, kTextMoveFile, from, to);
    return false;
}

bool FileNameExists(const char16_t* path) {
    uint32_t error = 0;
    return platform::FileExists(path, &error);
}

std::u16string DirectoryOf(const std::u16string& path) {
    size_t i = path.size();
    while (i > 0 && !platform::IsPathSeparator(path[i - 1])) --i;
    return path.substr(0, i);
}

bool ReplaceThroughTemp(const char16_t* target, const char16_t* source, bool keepTemporary, std::u16string* temporary,
                        ErrorRecord* record) {
    if (record->failed()) return false;
    std::u16string full;
    if (!FullPath(target, &full, record)) return false;
    std::u16string directory = DirectoryOf(full);
    std::u16string temp;
    if (!MakeTempFile(directory.c_str(), kTempPrefixId, nullptr, &temp, record)) return false;
    if (temporary != nullptr) *temporary = temp;
    DeleteFileName(temp.c_str(), record);
    if (!MoveFileName(target, temp.c_str(), record)) return false;
    if (!MoveFileName(source, target, record)) {
        ErrorRecord rollback;
        MoveFileName(temp.c_str(), target, &rollback);
        return false;
    }
    if (!keepTemporary) DeleteFileName(temp.c_str(), record);
    return record->ok();
}

}  // namespace velmora
