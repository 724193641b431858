#include "frame/error_record.h"

#include <cstdarg>
#include <cstring>

#include "frame/formatter.h"
#include "frame/resources.h"
#include "frame/text.h"
#include "platform/platform.h"

namespace velmora {
namespace {

// The last error is one process-wide pair, written without a lock: when
// several threads fail at once the survivor is undefined. Each thread also
// gets the code through its own system last error.
uint32_t g_lastCode = 0;
char16_t g_lastMessage[kMessageLength] = {};

constexpr uint32_t kOwnCodeBit = 0x02000000;
constexpr uint32_t kSharingViolation = 32;
constexpr uint16_t kMaxDetail = 256;

const char16_t kUnknownTemplate[] = u"Unknown error (%lu)";
const char16_t kNotEnoughStorageCommand[] = u"Not enough storage is available to process this command.";
const char16_t kNotEnoughStorageOperation[] = u"Not enough storage is available to complete this operation.";

size_t Length(const char16_t* text) {
    size_t n = 0;
    while (text[n] != 0) ++n;
    return n;
}

void Copy(char16_t* out, size_t size, const char16_t* text) {
    size_t n = 0;
    while (text[n] != 0 && n + 1 < size) {
        out[n] = text[n];
        ++n;
    }
    out[n] = 0;
}

// Looks the code up in the message table; the first row with the code wins.
bool MessageTableText(uint32_t code, char16_t* out, size_t size) {
    ResourceBytes table;
    uint16_t id = 0;
    if (!FindResourceBytes(kResourceTypeRawData, kMessageTableId, &table) || !MessageStringId(table, code, &id))
        return false;
    ErrorRecord ignored;
    return LoadText(id, out, size, &ignored) != 0;
}

}  // namespace

void BuildErrorMessage(uint32_t code, char16_t* out, size_t size) {
    out[0] = 0;
    if ((code & kOwnCodeBit) == 0 && code != kSharingViolation) {
        if (code == kErrCallNotImplemented) {
            FormatWide(out, size, kUnknownTemplate, code);
            return;
        }
        if (code != kUnexpectedError && platform::SystemErrorText(code, out, size)) {
            size_t n = Length(out);
            while (n > 0 && (out[n - 1] == u'\r' || out[n - 1] == u'\n')) out[--n] = 0;
            return;
        }
    }
    if (MessageTableText(code, out, size)) return;
    if (code == kErrNotEnoughMemory) {
        Copy(out, size, kNotEnoughStorageCommand);
    } else if (code == kErrOutOfMemory) {
        Copy(out, size, kNotEnoughStorageOperation);
    } else {
        FormatWide(out, size, kUnknownTemplate, code);
    }
}

namespace {

void AppendDetail(ErrorRecord* record, const char16_t* detail) {
    size_t n = Length(record->message);
    bool endsWithBreak = n >= 2 && record->message[n - 2] == u'\r' && record->message[n - 1] == u'\n';
    if (!endsWithBreak && n + 2 < kMessageLength) {
        record->message[n++] = u'\r';
        record->message[n++] = u'\n';
        record->message[n] = 0;
    }
    Copy(record->message + n, kMessageLength - n, detail);
}

}  // namespace

void SetRecordError(ErrorRecord* record, uint32_t code, uint32_t detailId, ...) {
    if (record == nullptr || record->failed()) return;
    if (code == 0) code = kErrCallNotImplemented;
    BuildErrorMessage(code, record->message, kMessageLength);
    if (detailId != 0) {
        char16_t templ[kMaxDetail];
        ErrorRecord ignored;
        if (LoadText(static_cast<uint16_t>(detailId), templ, kMaxDetail, &ignored) != 0) {
            char16_t detail[kMessageLength];
            va_list args;
            va_start(args, detailId);
            FormatWideV(detail, kMessageLength, templ, args);
            va_end(args);
            AppendDetail(record, detail);
        }
    }
    record->code = code;
}

void SetRecordCancelled(ErrorRecord* record) { SetRecordError(record, kErrCancelled, 0); }

uint32_t SetErrorCode(uint32_t code) {
    g_lastMessage[0] = 0;
    g_lastCode = code;
    platform::SetSystemError(code);
    return code;
}

uint32_t SetErrorFromRecord(const ErrorRecord& record) {
    if (record.ok()) return 0xFFFFFFFFu;
    Copy(g_lastMessage, kMessageLength, record.message);
    g_lastCode = record.code;
    platform::SetSystemError(record.code);
    return record.code;
}

int FinishWithRecord(const ErrorRecord& record) {
    if (record.ok()) return 1;
    SetErrorFromRecord(record);
    return 0;
}

uint32_t LastErrorCode() { return g_lastCode; }
const char16_t* LastErrorMessage() { return g_lastMessage; }

void SetLastErrorCodeOnly(uint32_t code) {
    g_lastMessage[0] = 0;
    g_lastCode = code;
}

}  // namespace velmora
