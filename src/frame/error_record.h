// Errors: the record every internal function fills, the process-wide last
// error, and the message building shared by all of them.
//
// An ErrorRecord keeps the first error set on it: setting a second error does
// nothing, and internal functions test the code before they do any work, so a
// chain of calls stops at its first failure. Internal functions take the record
// as their last argument and return a plain value that counts only while the
// record holds no error.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {

constexpr size_t kMessageLength = 512;

struct ErrorRecord {
    uint32_t code = 0;
    char16_t message[kMessageLength] = {};

    bool ok() const { return code == 0; }
    bool failed() const { return code != 0; }
};

// Library error codes (bit 25 set).
enum : uint32_t {
    kErrUnknownImageType = 0x02000001,
    kErrUnrecognizedFormat = 0x02000002,
    kErrIfdNotFound = 0x02000003,
    kErrBadFileData = 0x02000004,
    kErrUnsupportedImageType = 0x02000005,
    kErrBadImageData = 0x02000006,
    kErrGeneral = 0x02000009,
    kErrFunctionDisabled = 0x02000019,
    kErrUnsupportedAnnotations = 0x02000026,
};

// System codes the library reports itself.
enum : uint32_t {
    kErrFileNotFound = 2,
    kErrInvalidHandle = 6,
    kErrNotEnoughMemory = 8,
    kErrOutOfMemory = 14,
    kErrInvalidParameter = 87,
    kErrCallNotImplemented = 120,
    kErrNoAccess = 998,
    kErrCancelled = 1223,
    kErrInvalidWindow = 1400,
    kUnexpectedError = 0x8000FFFF,
};

// Fills `record` with `code` and its message; `detailId` (0 for none) names a
// string-table template appended on a new line, formatted printf-style with
// the remaining arguments. Does nothing when record is null or already failed.
void SetRecordError(ErrorRecord* record, uint32_t code, uint32_t detailId, ...);
void SetRecordCancelled(ErrorRecord* record);

// Builds the message of a code (no detail) into `out` of `size` characters.
void BuildErrorMessage(uint32_t code, char16_t* out, size_t size);

// The process-wide last error.
uint32_t SetErrorCode(uint32_t code);                    // clears the message; sets the thread's error too
uint32_t SetErrorFromRecord(const ErrorRecord& record);  // -1 when the record holds no error
int FinishWithRecord(const ErrorRecord& record);         // 1, or 0 after publishing the error
uint32_t LastErrorCode();
const char16_t* LastErrorMessage();
void SetLastErrorCodeOnly(uint32_t code);  // message cleared, thread error untouched

}  // namespace velmora
