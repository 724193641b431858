// An open TIFF: the header, the chain of image file directories with a cache
// of their offsets, and the entries of one loaded directory.
//
// Classic TIFF (magic 42) and BigTIFF (magic 43) are read in either byte
// order; BigTIFF files whose entries are 16 bytes long (u16 tag, u16 type,
// u32 count, u64 value) are recognised too. "BV" marks the library's own
// working files and is accepted only when asked for. Every count and offset
// read from the file is checked against the file's size before it is used,
// and a directory chain that loops is an error.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "io/stream.h"
#include "velmora/wintypes.h"

namespace velmora {

// Field types (TIFF 6.0, and the 64-bit types of BigTIFF).
enum : uint16_t {
    kTypeByte = 1,
    kTypeAscii = 2,
    kTypeShort = 3,
    kTypeLong = 4,
    kTypeRational = 5,
    kTypeSByte = 6,
    kTypeUndefined = 7,
    kTypeSShort = 8,
    kTypeSLong = 9,
    kTypeSRational = 10,
    kTypeFloat = 11,
    kTypeDouble = 12,
    kTypeIfd = 13,
    kTypeLong8 = 16,
    kTypeSLong8 = 17,
    kTypeIfd8 = 18,
};
// Bytes of one value of `type`; 0 for unknown types.
uint32_t TiffTypeSize(uint16_t type);

// TiffFile::flags.
constexpr uint32_t kTiffBigTiff = 0x01;
constexpr uint32_t kTiffEntries16 = 0x02;   // BigTIFF with 16-byte entries
constexpr uint32_t kTiffOwnsStream = 0x04;  // closing the TIFF closes the stream
constexpr uint32_t kTiffNewHeader = 0x08;   // we wrote the header; no directory yet
constexpr uint32_t kTiffBigEndian = 0x10;
constexpr uint32_t kTiffSorted = 0x20;  // the loaded entries ascend by tag
constexpr uint32_t kTiffWorkingFile = 0x40;
constexpr uint32_t kTiffEntrySizeKnown = 0x80;  // BigTIFF entry size decided

// Library error codes of the structure reader beyond the shared ones.
constexpr uint32_t kErrUnsupportedFileType = 0x0200001B;

// Hard limits on what a file may make us hold.
constexpr uint64_t kMaxValueBytes = 256u << 20;  // one tag's out-of-line value
constexpr uint32_t kMaxDirectories = 1u << 20;   // directories in one chain

// One directory entry in memory. Inline values (count x size fitting in the
// entry: 4 bytes classic, 8 BigTIFF) are in `value`, each element already in
// the machine's byte order; otherwise `offset` locates them (relative to the
// TIFF's base offset).
struct TiffEntry {
    uint16_t tag;
    uint16_t type;
    uint32_t inlined;  // 1 when the value lies in `value`
    uint64_t count;
    uint64_t offset;
    uint8_t value[8];
};

struct TiffDirectoryRow {
    uint64_t offset;
    uint64_t count;
};

struct TiffDocument;

struct TiffFile {
    uint32_t signature;
    uint32_t flags;
    uint32_t loadedPage;  // 1-based page whose entries are loaded; 0 = none
    uint32_t conformant;  // of the loaded directory
    uint64_t baseOffset;  // where the TIFF starts in its stream
    Stream* stream;
    // The loaded directory.
    HGLOBAL entriesHandle;
    TiffEntry* entries;  // entryCount entries, then one with tag 0
    uint32_t entryCapacity;
    uint32_t entryCount;
    uint32_t cursor;        // sorted lookups resume here
    uint64_t loadedOffset;  // the loaded directory's offset
    // The directories visited so far, in chain order, and a hash set of
    // their offsets for loop detection.
    HGLOBAL cacheHandle;
    TiffDirectoryRow* cache;
    uint32_t cacheCount;
    uint32_t cacheCapacity;
    HGLOBAL seenHandle;
    uint64_t* seen;
    uint32_t seenCapacity;
    uint64_t firstDirectory;
    uint64_t nextDirectory;  // the next-IFD offset of the last cached directory
    HGLOBAL self;
    // Pending writes: the writer keeps its state here and finishes it when
    // the TIFF closes.
    void* writer;
    void (*finishWriter)(TiffFile* tiff, ErrorRecord* record);
    // The document whose companion annotation file the annotation queries
    // of this TIFF consult, or null.
    const TiffDocument* document;
};

// Opens the TIFF at `baseOffset` of `stream`. A stream that existed before
// (and `create` not set) has its header read; otherwise a new 8-byte header
// is written and a stream that existed before is cut to it.
TiffFile* OpenTiffFromStream(Stream* stream, uint64_t baseOffset, bool ownsStream, bool create, bool workingFile,
                             ErrorRecord* record);
// Opens a TIFF file (others may read it meanwhile; write access implies
// read). With `create` a missing file is created and an existing one is
// emptied to a new header.
TiffFile* OpenTiffFile(const char16_t* path, uint32_t access, bool create, ErrorRecord* record);
// The same for the library's working files ("BV").
TiffFile* OpenWorkingFile(const char16_t* path, uint32_t access, bool create, ErrorRecord* record);
// A new, empty TIFF on a growable memory stream that the TIFF owns.
TiffFile* OpenMemoryTiff(ErrorRecord* record);
// A TIFF over the caller's bytes (read only). The memory stream is left to
// the caller: CloseTiff returns it.
TiffFile* OpenTiffFromMemory(const void* data, uint32_t size, ErrorRecord* record);

// Finishes pending writes and frees the TIFF. An owned file stream is closed
// with it; an owned memory stream is returned still open (the caller closes
// it and takes its data), else the result is null. `record` may be null.
Stream* CloseTiff(TiffFile* tiff, ErrorRecord* record);

HGLOBAL TiffHandle(const TiffFile* tiff);
// The TIFF behind a host's handle; null when it is not one.
TiffFile* TiffFromHandle(HGLOBAL handle);
Stream* GetTiffStream(const TiffFile* tiff);
bool TiffIsBig(const TiffFile* tiff);

// Read flags shared with ReadPageInfo that LocatePage honours.
constexpr uint32_t kLocateStrict = 0x001;       // report non-conformant directories
constexpr uint32_t kLocateIfdNotFound = 0x100;  // a missing first page is "IFD not found."

// Loads the entries of page `page` (1-based). Returns true when the
// directory is conformant (always, without kLocateStrict); false on failure
// too, so callers test the record. A chain that ends before the page gives
// "Bad file data." for page 1 and "IFD not found." (naming the file and the
// page) for later ones.
bool LocatePage(TiffFile* tiff, uint32_t page, uint32_t flags, ErrorRecord* record);
// Loads the directory `page` steps along the chain starting at the classic
// directory at `offset` (1 = that directory). BigTIFF: "Unsupported file
// type.". The directory cache is left alone.
bool LocateDirectoryAt(TiffFile* tiff, uint64_t offset, uint32_t page, uint32_t flags, ErrorRecord* record);
// Walks the whole chain; the number of pages.
uint32_t CountPages(TiffFile* tiff, ErrorRecord* record);
// Bytes the page's directory, its out-of-line values and its image data
// occupy.
uint64_t GetPageDirectorySize(TiffFile* tiff, uint32_t page, ErrorRecord* record);

// The entry of `tag` in the loaded directory, or null. With sorted entries a
// cursor moves forward, so asking in ascending tag order is one pass.
const TiffEntry* FindEntry(TiffFile* tiff, uint16_t tag);
// Fetches a count-1 BYTE, SHORT or LONG value: `*value` is `fallback` when
// the tag is absent. False when the tag has another type or count.
bool GetScalar(TiffFile* tiff, uint16_t tag, uint32_t fallback, uint32_t* value);
// The value of a count-1 BYTE, SHORT or LONG entry (LONG8 in BigTIFF).
bool ScalarValue(const TiffFile* tiff, const TiffEntry* entry, uint32_t* value);
// The entry's values as count x size bytes in the machine's byte order, in a
// new movable block owned by the caller; null on failure ("Bad file data."
// for a value outside the file).
HGLOBAL GetValues(TiffFile* tiff, const TiffEntry* entry, ErrorRecord* record);
// Raw bytes of the TIFF: `count` bytes at `offset` (relative to the base
// offset). A range outside the file is "Bad file data.", checked before
// anything is read.
bool ReadTiffData(TiffFile* tiff, uint64_t offset, void* buffer, uint32_t count, ErrorRecord* record);
// Whether `count` bytes at `offset` lie inside the TIFF; sets "Bad file
// data." when not. For callers that allocate before they read.
bool CheckTiffRange(TiffFile* tiff, uint64_t offset, uint64_t count, ErrorRecord* record);
// The TIFF's size: its stream's size less the base offset.
uint64_t TiffDataSize(TiffFile* tiff, ErrorRecord* record);

// For the writer: records a directory it linked into the chain.
void AppendDirectoryToCache(TiffFile* tiff, uint64_t offset, uint64_t count, uint64_t next, ErrorRecord* record);

}  // namespace velmora
