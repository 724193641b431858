#include "io/stream.h"

#include <cstring>
#include <string>

#include "frame/memory_handle.h"
#include "io/file_names.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint32_t kStreamSignature = 0x5354524Du;  // "STRM"

constexpr uint16_t kTextOpenFile = 53;      // "Unable to open or create file (%s)"
constexpr uint16_t kTextReadFile = 54;      // "Unable to read file (%s)"
constexpr uint16_t kTextSeekFile = 55;      // "Unable to seek file (%s)"
constexpr uint16_t kTextReallocate = 68;    // "Unable to reallocate memory"
constexpr uint16_t kTextFileSize = 106;     // "Unable to get file size (%s)"
constexpr uint16_t kTextChangeSize = 114;   // "Unable to change file size (%s)"
constexpr uint16_t kTextWriteFile = 191;    // "Unable to write file (%s)"
constexpr uint16_t kTextQueryStream = 423;  // "Unable to query stream"
constexpr uint16_t kTextWriteStream = 427;  // "Unable to write stream"
constexpr uint16_t kTextName = 10191;       // "%s"

constexpr uint32_t kErrorWriteFault = 29;
constexpr uint32_t kStgmWrite = 0x1;
constexpr uint32_t kStgmReadWrite = 0x2;

}  // namespace

// The record behind a stream handle. It is plain data in a zero-filled
// block; the name follows it in the same block.
struct Stream {
    uint32_t signature;
    uint32_t created;
    uint32_t access;
    StreamKind kind;
    HGLOBAL self;
    HGLOBAL auxiliary;
    uint32_t failedOnce;  // an operating-system call failed on this stream
    uint64_t position;    // every kind but the IStream keeps its own position
    // File.
    platform::FileHandle file;
    uint32_t ownsFile;
    // Windows.
    Stream* inner;
    uint64_t windowStart;
    uint64_t windowLength;
    // Fixed memory.
    const uint8_t* fixedData;
    // Fixed and growable memory: the logical size.
    uint32_t size;
    // Growable memory.
    uint32_t discard;
    uint32_t reserve;
    uint32_t capacity;
    HGLOBAL data;
    // IStream.
    IStream* com;
    uint32_t ownsReference;
    uint32_t nameLength;
    char16_t name[1];
};

namespace {

Stream* NewStream(StreamKind kind, uint32_t access, const std::u16string& name, ErrorRecord* record) {
    HGLOBAL handle = AllocHandle(sizeof(Stream) + name.size() * sizeof(char16_t), GMEM_ZEROINIT, record);
    if (handle == nullptr) return nullptr;
    auto* stream = static_cast<Stream*>(platform::MemLock(handle));
    stream->signature = kStreamSignature;
    stream->kind = kind;
    stream->access = access;
    stream->self = handle;
    stream->file = platform::kNoFile;
    stream->nameLength = static_cast<uint32_t>(name.size());
    if (!name.empty()) std::memcpy(stream->name, name.data(), name.size() * sizeof(char16_t));
    stream->name[name.size()] = 0;
    return stream;
}

void FreeStreamRecord(Stream* stream) {
    HGLOBAL self = stream->self;
    stream->signature = 0;
    platform::MemUnlock(self);
    platform::MemFree(self);
}

// An operating-system failure on this stream, with its name in the message.
void FailSystem(Stream* stream, uint32_t error, uint16_t detailId, ErrorRecord* record) {
    stream->failedOnce = 1;
    SetRecordError(record, error != 0 ? error : kUnexpectedError, detailId, stream->name);
}

// Grows or shrinks the logical size of a growable memory stream.
void MemorySetSize(Stream* stream, uint32_t size, ErrorRecord* record) {
    if (size <= stream->capacity) {
        stream->size = size;
        return;
    }
    HGLOBAL grown = stream->data == nullptr ? platform::MemAlloc(GMEM_MOVEABLE, size)
                                            : platform::MemReAlloc(stream->data, size, GMEM_MOVEABLE);
    if (grown == nullptr) {
        uint32_t error = platform::GetSystemError();
        SetRecordError(record, error != 0 ? error : kErrNotEnoughMemory, kTextReallocate);
        return;
    }
    stream->data = grown;
    stream->capacity = size;
    stream->size = size;
}

uint32_t CopyOut(const uint8_t* data, uint32_t size, uint64_t position, void* buffer, uint32_t count) {
    if (position >= size) return 0;
    uint64_t available = size - position;
    uint32_t n = available < count ? static_cast<uint32_t>(available) : count;
    if (n != 0) std::memcpy(buffer, data + position, n);
    return n;
}

}  // namespace

Stream* OpenFileStream(const char16_t* path, uint32_t access, bool share, bool create, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    std::u16string full;
    if (!FullPath(path, &full, record)) return nullptr;
    // Read only opens an existing file; write only replaces it; read/write
    // opens it, creating it first when asked.
    bool read = (access & kStreamWrite) == 0 || (access & kStreamRead) != 0;
    bool write = (access & kStreamWrite) != 0;
    bool created = false;
    uint32_t error = 0;
    platform::FileHandle file = platform::kNoFile;
    if (!write) {
        file = platform::FileOpen(full, platform::FileAccess::Read, &error);
    } else if (!read) {
        file = platform::FileOpen(full, platform::FileAccess::CreateReadWrite, &error);
        created = true;
    } else {
        file = platform::FileOpen(full, platform::FileAccess::ReadWrite, &error);
        if (file == platform::kNoFile && create && error == ERROR_FILE_NOT_FOUND) {
            error = 0;
            file = platform::FileOpen(full, platform::FileAccess::CreateNew, &error);
            created = file != platform::kNoFile;
            if (file == platform::kNoFile && error == 80) {  // created meanwhile by someone else
                error = 0;
                file = platform::FileOpen(full, platform::FileAccess::ReadWrite, &error);
            }
        }
    }
    (void)share;  // the platform always lets others read a file we write
    if (file == platform::kNoFile) {
        SetRecordError(record, error != 0 ? error : kUnexpectedError, kTextOpenFile, full.c_str());
        return nullptr;
    }
    Stream* stream = NewStream(StreamKind::File, access, full, record);
    if (stream == nullptr) {
        platform::FileClose(file);
        return nullptr;
    }
    stream->file = file;
    stream->ownsFile = 1;
    stream->created = created ? 1 : 0;
    return stream;
}

bool ReadWholeFile(const char16_t* path, CheckedArray<uint8_t>* bytes, ErrorRecord* record) {
    Stream* stream = OpenFileStream(path, kStreamRead, true, false, record);
    if (stream == nullptr) return false;
    const uint64_t size = StreamSize64(stream, record);
    if (record->ok() && size > 0xFFFFFFFFu) SetRecordError(record, kErrGeneral, 0);
    if (record->ok() && bytes->Sized(size, record)) {
        StreamRead(stream, bytes->data(), static_cast<uint32_t>(size), kErrBadFileData, record);
    }
    CloseStream(stream, record);
    return record->ok();
}

Stream* OpenHandleStream(intptr_t file, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    Stream* stream = NewStream(StreamKind::File, 0, std::u16string(), record);
    if (stream != nullptr) stream->file = file;
    return stream;
}

Stream* OpenWindowStream64(Stream* inner, uint64_t start, uint64_t length, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    StreamSeek64(inner, start, record);
    if (record->failed()) return nullptr;
    Stream* stream = NewStream(StreamKind::Window64, kStreamRead, std::u16string(), record);
    if (stream == nullptr) return nullptr;
    stream->inner = inner;
    stream->windowStart = start;
    stream->windowLength = length;
    return stream;
}

Stream* OpenWindowStream(Stream* inner, uint32_t start, uint32_t length, ErrorRecord* record) {
    Stream* stream = OpenWindowStream64(inner, start, length, record);
    if (stream != nullptr) stream->kind = StreamKind::Window;
    return stream;
}

Stream* OpenFixedMemoryStream(const void* data, uint32_t size, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    Stream* stream = NewStream(StreamKind::FixedMemory, kStreamRead, std::u16string(), record);
    if (stream == nullptr) return nullptr;
    stream->fixedData = static_cast<const uint8_t*>(data);
    stream->size = size;
    return stream;
}

Stream* OpenMemoryStream(bool discard, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    Stream* stream = NewStream(StreamKind::Memory, kStreamRead | kStreamWrite, std::u16string(), record);
    if (stream == nullptr) return nullptr;
    stream->created = 1;
    stream->discard = discard ? 1 : 0;
    return stream;
}

Stream* OpenComStream(IStream* com, bool takeReference, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    uint64_t size = 0;
    uint32_t mode = 0, error = 0;
    std::u16string name;
    if (com == nullptr || !platform::ComStreamStat(com, &size, &name, &mode, &error)) {
        SetRecordError(record, com == nullptr ? kErrInvalidParameter : error, com == nullptr ? 0 : kTextQueryStream);
        return nullptr;
    }
    uint32_t access = (mode & kStgmWrite) != 0 ? 0 : kStreamRead;
    if ((mode & (kStgmWrite | kStgmReadWrite)) != 0) access |= kStreamWrite;
    Stream* stream = NewStream(StreamKind::Com, access, name, record);
    if (stream == nullptr) return nullptr;
    stream->com = com;
    if (takeReference) {
        platform::ComStreamAddRef(com);
        stream->ownsReference = 1;
    }
    return stream;
}

uint32_t StreamRead(Stream* stream, void* buffer, uint32_t count, uint32_t shortCode, ErrorRecord* record) {
    if (record->failed()) return 0;
    uint32_t done = 0;
    switch (stream->kind) {
        case StreamKind::File: {
            size_t got = 0;
            uint32_t error = 0;
            if (!platform::FileRead(stream->file, buffer, count, &got, &error)) {
                FailSystem(stream, error, kTextReadFile, record);
                return 0;
            }
            done = static_cast<uint32_t>(got);
            stream->position += done;
            break;
        }
        case StreamKind::Window:
        case StreamKind::Window64: {
            // The inner stream was positioned by the window's last seek.
            uint64_t left = stream->position < stream->windowLength ? stream->windowLength - stream->position : 0;
            uint32_t want = left < count ? static_cast<uint32_t>(left) : count;
            done = want == 0 ? 0 : StreamRead(stream->inner, buffer, want, 0, record);
            stream->position += done;
            break;
        }
        case StreamKind::FixedMemory:
            done = CopyOut(stream->fixedData, stream->size, stream->position, buffer, count);
            stream->position += done;
            break;
        case StreamKind::Memory:
            if (stream->data != nullptr) {
                const auto* data = static_cast<const uint8_t*>(platform::MemLock(stream->data));
                done = CopyOut(data, stream->size, stream->position, buffer, count);
                platform::MemUnlock(stream->data);
            }
            stream->position += done;
            break;
        case StreamKind::Com: {
            uint32_t error = 0;
            if (!platform::ComStreamRead(stream->com, buffer, count, &done, &error)) {
                FailSystem(stream, error, 0, record);
                return 0;
            }
            stream->position += done;
            break;
        }
    }
    if (done < count && shortCode != 0) SetRecordError(record, shortCode, 0);
    return done;
}

void StreamWrite(Stream* stream, const void* buffer, uint32_t count, ErrorRecord* record) {
    if (record->failed() || count == 0) return;
    switch (stream->kind) {
        case StreamKind::File: {
            uint32_t error = 0;
            if (!platform::FileWrite(stream->file, buffer, count, &error)) {
                FailSystem(stream, error, kTextWriteFile, record);
                return;
            }
            stream->position += count;
            return;
        }
        case StreamKind::Window:
        case StreamKind::Window64:
        case StreamKind::FixedMemory: SetRecordError(record, ERROR_ACCESS_DENIED, 0); return;
        case StreamKind::Memory: {
            uint64_t end = stream->position + count;
            if (end > 0xFFFFFFFFu) {
                SetRecordError(record, kErrNotEnoughMemory, kTextReallocate);
                return;
            }
            if (end > stream->size) MemorySetSize(stream, static_cast<uint32_t>(end), record);
            if (record->failed()) return;
            auto* data = static_cast<uint8_t*>(platform::MemLock(stream->data));
            std::memcpy(data + stream->position, buffer, count);
            platform::MemUnlock(stream->data);
            stream->position = end;
            return;
        }
        case StreamKind::Com: {
            const auto* bytes = static_cast<const uint8_t*>(buffer);
            uint32_t written = 0;
            while (written < count) {
                uint32_t put = 0, error = 0;
                if (!platform::ComStreamWrite(stream->com, bytes + written, count - written, &put, &error)) {
                    FailSystem(stream, error, kTextWriteStream, record);
                    return;
                }
                if (put == 0) {
                    FailSystem(stream, kErrorWriteFault, kTextWriteStream, record);
                    return;
                }
                written += put;
            }
            stream->position += count;
            return;
        }
    }
}

void StreamSeek64(Stream* stream, uint64_t offset, ErrorRecord* record) {
    if (record->failed()) return;
    uint32_t error = 0;
    switch (stream->kind) {
        case StreamKind::File:
            // The platform positions with a 64-bit absolute offset, so the
            // whole unsigned range is reachable in one move.
            if (!platform::FileSeek(stream->file, offset, &error)) {
                FailSystem(stream, error, kTextSeekFile, record);
                return;
            }
            stream->position = offset;
            return;
        case StreamKind::Window:
        case StreamKind::Window64:
            if (offset > UINT64_MAX - stream->windowStart) {
                SetRecordError(record, ERROR_INVALID_PARAMETER, 0);
                return;
            }
            StreamSeek64(stream->inner, stream->windowStart + offset, record);
            if (record->ok()) stream->position = offset;
            return;
        case StreamKind::FixedMemory:
        case StreamKind::Memory: stream->position = offset; return;
        case StreamKind::Com:
            if (!platform::ComStreamSeek(stream->com, offset, &error))
                FailSystem(stream, error, 0, record);
            else
                stream->position = offset;
            return;
    }
}

void StreamSeek(Stream* stream, uint32_t offset, ErrorRecord* record) { StreamSeek64(stream, offset, record); }

uint64_t StreamTell(const Stream* stream) { return stream->position; }

uint64_t StreamSize64(Stream* stream, ErrorRecord* record) {
    if (record->failed()) return 0;
    uint32_t error = 0;
    uint64_t size = 0;
    switch (stream->kind) {
        case StreamKind::File:
            if (!platform::FileSize(stream->file, &size, &error)) FailSystem(stream, error, kTextFileSize, record);
            return size;
        case StreamKind::Window:
        case StreamKind::Window64: return stream->windowLength;
        case StreamKind::FixedMemory:
        case StreamKind::Memory: return stream->size;
        case StreamKind::Com:
            if (!platform::ComStreamStat(stream->com, &size, nullptr, nullptr, &error))
                FailSystem(stream, error, kTextQueryStream, record);
            return size;
    }
    return 0;
}

uint32_t StreamSize(Stream* stream, ErrorRecord* record) { return static_cast<uint32_t>(StreamSize64(stream, record)); }

void StreamSetSize(Stream* stream, uint32_t size, ErrorRecord* record) {
    if (record->failed()) return;
    uint32_t error = 0;
    switch (stream->kind) {
        case StreamKind::File:
            if (!platform::FileTruncate(stream->file, size, &error) ||
                !platform::FileSeek(stream->file, size, &error)) {
                FailSystem(stream, error, kTextChangeSize, record);
                return;
            }
            stream->position = size;
            return;
        case StreamKind::Window:
        case StreamKind::Window64:
        case StreamKind::FixedMemory: SetRecordError(record, ERROR_ACCESS_DENIED, 0); return;
        case StreamKind::Memory: MemorySetSize(stream, size, record); return;
        case StreamKind::Com:
            if (!platform::ComStreamSetSize(stream->com, size, &error)) FailSystem(stream, error, 0, record);
            return;
    }
}

void StreamFail(const Stream* stream, uint32_t code, ErrorRecord* record) {
    SetRecordError(record, code, kTextName, stream->name);
}

bool StreamIsMemory(const Stream* stream) {
    return stream->kind == StreamKind::FixedMemory || stream->kind == StreamKind::Memory;
}

bool StreamCreated(const Stream* stream) { return stream->created != 0; }
StreamKind StreamKindOf(const Stream* stream) { return stream->kind; }
const char16_t* StreamName(const Stream* stream) { return stream->name; }

void SetMemoryStreamSize(Stream* stream, uint32_t capacity, int32_t reserve, ErrorRecord* record) {
    if (record->failed() || stream->kind != StreamKind::Memory) return;
    if (reserve != -2) stream->reserve = static_cast<uint32_t>(reserve);
    if (capacity <= stream->capacity) return;
    uint32_t size = stream->size;
    MemorySetSize(stream, capacity, record);
    if (record->ok()) stream->size = size;
}

uint32_t MemoryStreamReserve(const Stream* stream) { return stream->reserve; }

void SetStreamAuxiliary(Stream* stream, HGLOBAL handle) {
    FreeHandle(&stream->auxiliary);
    stream->auxiliary = handle;
}

HGLOBAL CloseStream(Stream* stream, ErrorRecord* record) {
    ErrorRecord ignored;
    if (record == nullptr) record = &ignored;
    HGLOBAL result = nullptr;
    switch (stream->kind) {
        case StreamKind::File:
            // The platform's close cannot fail in a way a caller could act on.
            if (stream->ownsFile != 0) platform::FileClose(stream->file);
            break;
        case StreamKind::Memory:
            if (stream->data != nullptr && stream->size != 0 && stream->discard == 0) {
                HGLOBAL trimmed = platform::MemReAlloc(stream->data, stream->size, GMEM_MOVEABLE);
                result = trimmed != nullptr ? trimmed : stream->data;
            } else {
                FreeHandle(&stream->data);
            }
            break;
        case StreamKind::Com:
            if (stream->ownsReference != 0) platform::ComStreamRelease(stream->com);
            break;
        default: break;
    }
    FreeHandle(&stream->auxiliary);
    FreeStreamRecord(stream);
    return result;
}

HGLOBAL StreamHandle(const Stream* stream) { return stream->self; }

Stream* StreamFromHandle(HGLOBAL handle) {
    if (!platform::IsValidHandle(handle) || platform::MemSize(handle) < sizeof(Stream)) return nullptr;
    auto* stream = static_cast<Stream*>(platform::MemLock(handle));
    if (stream == nullptr) return nullptr;
    platform::MemUnlock(handle);
    return stream->signature == kStreamSignature && stream->self == handle ? stream : nullptr;
}

}  // namespace velmora
