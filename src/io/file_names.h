// File-name helpers of the streams and writers: full paths, temporary files,
// deleting, moving and replacing a file through a temporary one. Every
// failure carries the system's code and a message naming the files.
#pragma once

#include <cstdint>
#include <string>

#include "frame/error_record.h"

namespace velmora {

// The string id of the library's temporary-file prefix ("vlm").
constexpr uint16_t kTempPrefixId = 10135;

// The absolute form of `path`.
bool FullPath(const char16_t* path, std::u16string* full, ErrorRecord* record);

// Creates a new, empty temporary file and returns its name. `directory` null
// means the library's temporary directory. Without an extension the system
// picks the name; with one the name is directory + prefix + a five-digit
// hexadecimal counter + extension, the counter being a process-wide 20-bit
// value that moves on after each use and past names that are taken.
bool MakeTempFile(const char16_t* directory, uint16_t prefixId, const char16_t* extension, std::u16string* name,
                  ErrorRecord* record);

bool DeleteFileName(const char16_t* path, ErrorRecord* record);
// Moves a file; fails when `to` exists.
bool MoveFileName(const char16_t* from, const char16_t* to, ErrorRecord* record);
bool FileNameExists(const char16_t* path);
// The directory part of `path`, with its trailing separator (empty when the
// path has none).
std::u16string DirectoryOf(const std::u16string& path);

// Replaces `target` by `source`: the target is first moved to a temporary
// name in its own directory, then the source is moved to the target; when
// that fails the target is moved back. The temporary file is deleted unless
// `keepTemporary` is set; its name goes to `temporary` when not null.
bool ReplaceThroughTemp(const char16_t* target, const char16_t* source, bool keepTemporary, std::u16string* temporary,
                        ErrorRecord* record);

// The temporary-name counter, for tests: its current value, and setting it.
uint32_t TempNameCounter();
void SetTempNameCounter(uint32_t value);

}  // namespace velmora
