// Byte streams: one interface for reading and writing files, windows onto
// another stream, fixed read-only memory, growable memory and component
// object model streams.
//
// A stream lives in a movable memory block that stays locked while the
// stream is open, so a Stream pointer is stable and StreamHandle() gives the
// handle a host may hold. Every operation takes an ErrorRecord last and does
// nothing once it holds an error. Reads past the end are not errors unless the
// caller passes a short-read code: parsers pass 0x02000002 ("Unrecognized
// file format.") while reading a header and 0x02000004 ("Bad file data.")
// elsewhere, so that a truncated file is reported as bad data.
#pragma once

#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// Access bits (GENERIC_READ and GENERIC_WRITE).
constexpr uint32_t kStreamRead = 0x80000000u;
constexpr uint32_t kStreamWrite = 0x40000000u;

enum class StreamKind : uint32_t {
    File = 0,
    Window = 1,    // a 32-bit range of another stream, read only
    Window64 = 2,  // the same with 64-bit start and length
    FixedMemory = 3,
    Memory = 4,  // growable, read/write; its data is handed back at close
    Com = 5,     // an IStream (Windows only)
};

struct Stream;

// Opens or creates a file. Read only opens an existing file; write only
// always creates it anew; read/write creates it when `create` is set and it
// does not exist, else opens an existing one. `share` lets other processes
// read the file meanwhile (advisory outside Windows).
Stream* OpenFileStream(const char16_t* path, uint32_t access, bool share, bool create, ErrorRecord* record);

// Reads the whole file at `path` into `bytes`; a file of 4 GiB or more is
// refused with 0x02000009 ("Error.").
bool ReadWholeFile(const char16_t* path, CheckedArray<uint8_t>* bytes, ErrorRecord* record);
// Wraps an open platform file that the caller keeps owning (access 0).
Stream* OpenHandleStream(intptr_t file, ErrorRecord* record);
// A read-only window of `length` bytes from `start` of `inner`; the inner
// stream stays open when the window closes. Opening seeks the inner stream to
// `start`.
Stream* OpenWindowStream(Stream* inner, uint32_t start, uint32_t length, ErrorRecord* record);
Stream* OpenWindowStream64(Stream* inner, uint64_t start, uint64_t length, ErrorRecord* record);
// A read-only stream over the caller's block, which must outlive the stream.
Stream* OpenFixedMemoryStream(const void* data, uint32_t size, ErrorRecord* record);
// An empty growable memory stream. With `discard` its data is freed at close
// instead of handed back.
Stream* OpenMemoryStream(bool discard, ErrorRecord* record);
// Wraps an IStream; `takeReference` adds a reference released at close.
// Fails with 120 where no IStream exists.
Stream* OpenComStream(IStream* com, bool takeReference, ErrorRecord* record);

// Reads up to `count` bytes; returns the number read. Fewer than `count`
// with a non-zero `shortCode` sets that code.
uint32_t StreamRead(Stream* stream, void* buffer, uint32_t count, uint32_t shortCode, ErrorRecord* record);
// Writes all bytes or fails (5 on read-only kinds).
void StreamWrite(Stream* stream, const void* buffer, uint32_t count, ErrorRecord* record);
// Absolute positioning. Memory and window positions may lie past the end.
void StreamSeek(Stream* stream, uint32_t offset, ErrorRecord* record);
void StreamSeek64(Stream* stream, uint64_t offset, ErrorRecord* record);
uint64_t StreamTell(const Stream* stream);
// The size; StreamSize gives its low 32 bits, StreamSize64 all of it.
uint32_t StreamSize(Stream* stream, ErrorRecord* record);
uint64_t StreamSize64(Stream* stream, ErrorRecord* record);
// Truncates or extends (5 on read-only kinds). A growable memory stream
// reallocates to exactly the new size when it grows past its capacity.
void StreamSetSize(Stream* stream, uint32_t size, ErrorRecord* record);
// Sets `code` with the stream's name as detail: for parsers that find bad
// data in this stream.
void StreamFail(const Stream* stream, uint32_t code, ErrorRecord* record);
bool StreamIsMemory(const Stream* stream);
bool StreamCreated(const Stream* stream);
StreamKind StreamKindOf(const Stream* stream);
// The file's full path or the IStream's name; empty otherwise.
const char16_t* StreamName(const Stream* stream);
// Growable memory only: reserves `capacity` bytes (the size is unchanged) and
// stores `reserve` unless it is -2. Other kinds are left alone.
void SetMemoryStreamSize(Stream* stream, uint32_t capacity, int32_t reserve, ErrorRecord* record);
uint32_t MemoryStreamReserve(const Stream* stream);
// Hands an owned memory handle to the stream, freed when it closes.
void SetStreamAuxiliary(Stream* stream, HGLOBAL handle);

// Releases the stream; `record` may be null. A growable memory stream hands
// back its data trimmed to its size (the caller owns the block), or null when
// it is empty or discarded. Window streams leave their inner stream open.
HGLOBAL CloseStream(Stream* stream, ErrorRecord* record);

// The handle behind a stream, and back (null when `handle` is no stream).
HGLOBAL StreamHandle(const Stream* stream);
Stream* StreamFromHandle(HGLOBAL handle);

}  // namespace velmora
