#include "tiff/tiff_file.h"

#include <cstring>

#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint32_t kTiffSignature = 0x54494646u;  // "TIFF"
constexpr uint16_t kTextFileAndPage = 72;         // "%s(%lu)"
constexpr uint16_t kTagStripByteCounts = 279;
constexpr uint16_t kTagTileByteCounts = 325;

uint16_t Load16(const uint8_t* p, bool bigEndian) {
    return bigEndian ? static_cast<uint16_t>(p[0] << 8 | p[1]) : static_cast<uint16_t>(p[1] << 8 | p[0]);
}

uint32_t Load32(const uint8_t* p, bool bigEndian) {
    uint32_t a = Load16(p, bigEndian), b = Load16(p + 2, bigEndian);
    return bigEndian ? (a << 16 | b) : (b << 16 | a);
}

uint64_t Load64(const uint8_t* p, bool bigEndian) {
    uint64_t a = Load32(p, bigEndian), b = Load32(p + 4, bigEndian);
    return bigEndian ? (a << 32 | b) : (b << 32 | a);
}

bool BigEndian(const TiffFile* tiff) { return (tiff->flags & kTiffBigEndian) != 0; }
bool Big(const TiffFile* tiff) { return (tiff->flags & kTiffBigTiff) != 0; }

// The unit in which a type's bytes are swapped: rationals are two LONGs.
uint32_t SwapUnit(uint16_t type) {
    if (type == kTypeRational || type == kTypeSRational) return 4;
    return TiffTypeSize(type);
}

// Puts `bytes` (file order) into the machine's order, one unit at a time.
void ToMachineOrder(uint8_t* bytes, uint64_t size, uint16_t type, bool bigEndian) {
    uint32_t unit = SwapUnit(type);
    if (unit < 2) return;
    for (uint64_t i = 0; i + unit <= size; i += unit) {
        uint8_t* p = bytes + i;
        if (unit == 2) {
            uint16_t v = Load16(p, bigEndian);
            std::memcpy(p, &v, 2);
        } else if (unit == 4) {
            uint32_t v = Load32(p, bigEndian);
            std::memcpy(p, &v, 4);
        } else {
            uint64_t v = Load64(p, bigEndian);
            std::memcpy(p, &v, 8);
        }
    }
}

void ReportMissingPage(TiffFile* tiff, uint32_t page, uint32_t flags, ErrorRecord* record) {
    if (page == 1 && (flags & kLocateIfdNotFound) == 0) {
        SetRecordError(record, kErrBadFileData, 0);
    } else {
        SetRecordError(record, kErrIfdNotFound, kTextFileAndPage, StreamName(tiff->stream), page);
    }
}

// Reads `count` bytes at `offset` of the TIFF after checking that they lie
// inside it. A range outside, or a short read, sets `shortCode` (when not 0)
// and returns false.
bool ReadAt(TiffFile* tiff, uint64_t offset, void* buffer, uint64_t count, uint32_t shortCode, ErrorRecord* record) {
    if (record->failed()) return false;
    uint64_t size = TiffDataSize(tiff, record);
    if (record->failed()) return false;
    if (offset > size || count > size - offset || count > 0xFFFFFFFFu) {
        if (shortCode != 0) SetRecordError(record, shortCode, 0);
        return false;
    }
    StreamSeek64(tiff->stream, tiff->baseOffset + offset, record);
    uint32_t got = StreamRead(tiff->stream, buffer, static_cast<uint32_t>(count), shortCode, record);
    return record->ok() && got == count;
}

// Grows a locked block to hold `bytes`, keeping its contents.
bool GrowLocked(HGLOBAL* handle, void** pointer, size_t bytes, ErrorRecord* record) {
    if (*handle == nullptr) {
        *handle = AllocHandle(bytes, GMEM_ZEROINIT, record);
        if (*handle == nullptr) return false;
    } else {
        platform::MemUnlock(*handle);
        HGLOBAL grown = platform::MemReAlloc(*handle, bytes, GMEM_MOVEABLE | GMEM_ZEROINIT);
        if (grown == nullptr) {
            *pointer = platform::MemLock(*handle);
            SetRecordError(record, kErrNotEnoughMemory, 0);
            return false;
        }
        *handle = grown;
    }
    *pointer = platform::MemLock(*handle);
    return true;
}

void FreeLocked(HGLOBAL* handle) {
    if (*handle == nullptr) return;
    platform::MemUnlock(*handle);
    FreeHandle(handle);
}

// ---- The set of directory offsets seen, for loop detection -------------------

size_t SeenSlot(uint64_t offset, uint32_t capacity) {
    return static_cast<size_t>((offset * 0x9E3779B97F4A7C15ull) >> 20) & (capacity - 1);
}

bool SeenContains(const TiffFile* tiff, uint64_t offset) {
    if (tiff->seenCapacity == 0) return false;
    for (size_t i = SeenSlot(offset, tiff->seenCapacity);; i = (i + 1) & (tiff->seenCapacity - 1)) {
        if (tiff->seen[i] == offset) return true;
        if (tiff->seen[i] == 0) return false;
    }
}

void SeenInsertUnchecked(uint64_t* table, uint32_t capacity, uint64_t offset) {
    size_t i = SeenSlot(offset, capacity);
    while (table[i] != 0 && table[i] != offset) i = (i + 1) & (capacity - 1);
    table[i] = offset;
}

bool SeenInsert(TiffFile* tiff, uint64_t offset, ErrorRecord* record) {
    // Kept at most half full; rebuilt from the cache when it grows.
    if ((tiff->cacheCount + 1) * 2 > tiff->seenCapacity) {
        uint32_t capacity = tiff->seenCapacity == 0 ? 64 : tiff->seenCapacity * 2;
        HGLOBAL handle = AllocHandle(size_t{capacity} * sizeof(uint64_t), GMEM_ZEROINIT, record);
        if (handle == nullptr) return false;
        auto* table = static_cast<uint64_t*>(platform::MemLock(handle));
        for (uint32_t i = 0; i < tiff->cacheCount; ++i) SeenInsertUnchecked(table, capacity, tiff->cache[i].offset);
        FreeLocked(&tiff->seenHandle);
        tiff->seenHandle = handle;
        tiff->seen = table;
        tiff->seenCapacity = capacity;
    }
    SeenInsertUnchecked(tiff->seen, tiff->seenCapacity, offset);
    return true;
}

bool AppendRow(TiffFile* tiff, uint64_t offset, uint64_t count, ErrorRecord* record) {
    if (tiff->cacheCount == tiff->cacheCapacity) {
        uint32_t capacity = tiff->cacheCapacity == 0 ? 16 : tiff->cacheCapacity * 2;
        void* pointer = tiff->cache;
        if (!GrowLocked(&tiff->cacheHandle, &pointer, size_t{capacity} * sizeof(TiffDirectoryRow), record))
            return false;
        tiff->cache = static_cast<TiffDirectoryRow*>(pointer);
        tiff->cacheCapacity = capacity;
    }
    if (!SeenInsert(tiff, offset, record)) return false;
    tiff->cache[tiff->cacheCount++] = TiffDirectoryRow{offset, count};
    return true;
}

uint32_t EntrySize(const TiffFile* tiff) {
    if (!Big(tiff)) return 12;
    return (tiff->flags & kTiffEntries16) != 0 ? 16 : 20;
}

// Reads the entry count of the directory at `offset`. A short read is a
// missing page, except while looking for the first one.
bool ReadEntryCount(TiffFile* tiff, uint64_t offset, uint32_t page, uint32_t flags, uint64_t* count,
                    ErrorRecord* record) {
    uint8_t bytes[8];
    uint32_t width = Big(tiff) ? 8 : 2;
    if (!ReadAt(tiff, offset, bytes, width, 0, record)) {
        if (record->ok()) ReportMissingPage(tiff, page, flags, record);
        return false;
    }
    *count = Big(tiff) ? Load64(bytes, BigEndian(tiff)) : Load16(bytes, BigEndian(tiff));
    if (*count == 0) {
        ReportMissingPage(tiff, page, flags, record);
        return false;
    }
    if (*count > 0xFFFF) {
        SetRecordError(record, kErrUnsupportedFileType, 0);
        return false;
    }
    return true;
}

// Reads the next-directory offset after `count` entries of the directory at
// `offset`. BigTIFF files whose 20-byte entries would run past the end are
// tried with 16-byte entries, and keep them from then on.
bool ReadNextOffset(TiffFile* tiff, uint64_t offset, uint64_t count, uint32_t page, uint32_t flags, uint64_t* next,
                    ErrorRecord* record) {
    uint8_t bytes[8];
    bool bigEndian = BigEndian(tiff);
    if (!Big(tiff)) {
        if (!ReadAt(tiff, offset + 2 + 12 * count, bytes, 4, 0, record)) {
            if (record->ok()) ReportMissingPage(tiff, page, flags, record);
            return false;
        }
        *next = Load32(bytes, bigEndian);
        if (*next != 0 && *next < 8) {
            SetRecordError(record, kErrBadFileData, 0);
            return false;
        }
        return true;
    }
    bool ok = ReadAt(tiff, offset + 8 + EntrySize(tiff) * count, bytes, 8, 0, record);
    if (!ok && record->ok() && (tiff->flags & kTiffEntries16) == 0) {
        ok = ReadAt(tiff, offset + 8 + 16 * count, bytes, 8, 0, record);
        if (ok) tiff->flags |= kTiffEntries16;
    }
    if (!ok) {
        if (record->ok()) ReportMissingPage(tiff, page, flags, record);
        return false;
    }
    *next = Load64(bytes, bigEndian);
    if (*next != 0 && *next < 16) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    return true;
}

// BigTIFF entries are 20 bytes, but some writers use 16 (a 32-bit count).
// The first entries tell them apart: read at the right stride their tags
// ascend and their types are known; at the wrong one they land in counts and
// values.
void DecideEntrySize(TiffFile* tiff, uint64_t offset, uint64_t count, ErrorRecord* record) {
    uint8_t bytes[8 * 20];
    uint32_t n = count < 8 ? static_cast<uint32_t>(count) : 8;
    if (n < 2) return;
    bool bigEndian = BigEndian(tiff);
    auto plausible = [&](uint32_t stride) {
        uint16_t previous = 0;
        for (uint32_t k = 0; k < n; ++k) {
            uint16_t tag = Load16(bytes + k * stride, bigEndian);
            if (tag <= previous || TiffTypeSize(Load16(bytes + k * stride + 2, bigEndian)) == 0) return false;
            previous = tag;
        }
        return true;
    };
    if (ReadAt(tiff, offset + 8, bytes, n * 20, 0, record)) {
        if (!plausible(20) && plausible(16)) tiff->flags |= kTiffEntries16;
    } else if (ReadAt(tiff, offset + 8, bytes, n * 16, 0, record)) {
        if (plausible(16)) tiff->flags |= kTiffEntries16;
    } else {
        return;
    }
    tiff->flags |= kTiffEntrySizeKnown;
}

// Appends the next directory of the chain to the cache.
bool WalkOne(TiffFile* tiff, uint32_t page, uint32_t flags, ErrorRecord* record) {
    uint64_t offset = tiff->cacheCount == 0 ? tiff->firstDirectory : tiff->nextDirectory;
    if (offset == 0) {
        ReportMissingPage(tiff, page, flags, record);
        return false;
    }
    if (tiff->cacheCount >= kMaxDirectories) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    // A chain that comes back to a directory it passed would never end.
    if (SeenContains(tiff, offset)) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    uint64_t count = 0, next = 0;
    if (!ReadEntryCount(tiff, offset, page, flags, &count, record)) return false;
    if (Big(tiff) && (tiff->flags & kTiffEntrySizeKnown) == 0) DecideEntrySize(tiff, offset, count, record);
    if (!ReadNextOffset(tiff, offset, count, page, flags, &next, record)) return false;
    if (!AppendRow(tiff, offset, count, record)) return false;
    tiff->nextDirectory = next;
    return true;
}

// Loads the `count` entries of the directory at `offset`.
bool LoadEntries(TiffFile* tiff, uint64_t offset, uint64_t count, ErrorRecord* record) {
    tiff->loadedPage = 0;
    tiff->entryCount = 0;
    tiff->cursor = 0;
    if (count + 1 > tiff->entryCapacity) {
        void* pointer = tiff->entries;
        if (!GrowLocked(&tiff->entriesHandle, &pointer, static_cast<size_t>(count + 1) * sizeof(TiffEntry), record))
            return false;
        tiff->entries = static_cast<TiffEntry*>(pointer);
        tiff->entryCapacity = static_cast<uint32_t>(count + 1);
    }
    bool big = Big(tiff);
    uint64_t start = offset + (big ? 8 : 2);
    HGLOBAL rawHandle = AllocHandle(static_cast<size_t>(count) * 20, 0, record);
    if (rawHandle == nullptr) return false;
    auto* raw = static_cast<uint8_t*>(platform::MemLock(rawHandle));
    bool ok;
    if (big && (tiff->flags & kTiffEntries16) == 0) {
        ok = ReadAt(tiff, start, raw, count * 20, 0, record);
        if (!ok && record->ok()) {
            ok = ReadAt(tiff, start, raw, count * 16, kErrBadFileData, record);
            if (ok) tiff->flags |= kTiffEntries16;
        }
    } else {
        ok = ReadAt(tiff, start, raw, count * EntrySize(tiff), kErrBadFileData, record);
    }
    if (!ok) {
        if (record->ok()) SetRecordError(record, kErrBadFileData, 0);
        FreeLocked(&rawHandle);
        return false;
    }

    bool bigEndian = BigEndian(tiff);
    uint32_t entrySize = EntrySize(tiff);
    uint32_t inlineSize = big ? 8 : 4;
    bool sorted = true, conformant = true;
    uint32_t previousTag = 0, n = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint8_t* p = raw + i * entrySize;
        TiffEntry entry = {};
        entry.tag = Load16(p, bigEndian);
        entry.type = Load16(p + 2, bigEndian);
        const uint8_t* value;
        if (!big) {
            entry.count = Load32(p + 4, bigEndian);
            value = p + 8;
        } else if (entrySize == 16) {
            entry.count = Load32(p + 4, bigEndian);
            value = p + 8;
        } else {
            entry.count = Load64(p + 4, bigEndian);
            value = p + 12;
        }
        if (entry.tag == 0) continue;
        if (i > 0 && entry.tag <= previousTag) sorted = false;
        previousTag = entry.tag;
        uint32_t size = TiffTypeSize(entry.type);
        // count x size in 64 bits: a count above 2^61 cannot be a value.
        bool fits = size == 0 || (entry.count <= inlineSize / size);
        if (fits) {
            entry.inlined = 1;
            std::memcpy(entry.value, value, inlineSize);
            ToMachineOrder(entry.value, inlineSize, entry.type, bigEndian);
        } else {
            entry.offset = big ? Load64(value, bigEndian) : Load32(value, bigEndian);
            if ((entry.offset & 1) != 0) conformant = false;
        }
        tiff->entries[n++] = entry;
    }
    FreeLocked(&rawHandle);
    tiff->entries[n] = TiffEntry{};
    tiff->entryCount = n;
    tiff->loadedOffset = offset;
    tiff->flags = sorted ? (tiff->flags | kTiffSorted) : (tiff->flags & ~kTiffSorted);
    tiff->conformant = sorted && conformant ? 1 : 0;
    return true;
}

TiffFile* NewTiff(Stream* stream, uint64_t baseOffset, bool ownsStream, ErrorRecord* record) {
    HGLOBAL handle = AllocHandle(sizeof(TiffFile), GMEM_ZEROINIT, record);
    if (handle == nullptr) return nullptr;
    auto* tiff = static_cast<TiffFile*>(platform::MemLock(handle));
    tiff->signature = kTiffSignature;
    tiff->self = handle;
    tiff->stream = stream;
    tiff->baseOffset = baseOffset;
    if (ownsStream) tiff->flags |= kTiffOwnsStream;
    return tiff;
}

void FreeTiff(TiffFile* tiff) {
    FreeLocked(&tiff->entriesHandle);
    FreeLocked(&tiff->cacheHandle);
    FreeLocked(&tiff->seenHandle);
    HGLOBAL self = tiff->self;
    tiff->signature = 0;
    platform::MemUnlock(self);
    platform::MemFree(self);
}

bool ReadHeader(TiffFile* tiff, bool workingFile, ErrorRecord* record) {
    uint8_t h[16];
    if (!ReadAt(tiff, 0, h, 8, kErrUnrecognizedFormat, record)) return false;
    bool bigEndian;
    if (h[0] == 'I' && h[1] == 'I' && !workingFile) {
        bigEndian = false;
    } else if (h[0] == 'M' && h[1] == 'M' && !workingFile) {
        bigEndian = true;
    } else if (h[0] == 'B' && h[1] == 'V' && workingFile) {
        bigEndian = Load16(h + 2, false) != 42;
    } else {
        SetRecordError(record, kErrUnrecognizedFormat, 0);
        return false;
    }
    if (bigEndian) tiff->flags |= kTiffBigEndian;
    uint16_t magic = Load16(h + 2, bigEndian);
    if (magic == 42) {
        uint64_t first = Load32(h + 4, bigEndian);
        if (first != 0 && first < 8) {
            SetRecordError(record, kErrUnrecognizedFormat, 0);
            return false;
        }
        tiff->firstDirectory = first;
        return true;
    }
    if (magic != 43) {
        SetRecordError(record, kErrUnrecognizedFormat, 0);
        return false;
    }
    if (!ReadAt(tiff, 8, h + 8, 8, kErrUnrecognizedFormat, record)) return false;
    if (Load16(h + 4, bigEndian) != 8) {
        SetRecordError(record, kErrUnsupportedFileType, 0);
        return false;
    }
    uint64_t first = Load64(h + 8, bigEndian);
    if (Load16(h + 6, bigEndian) != 0 || (first != 0 && first < 16)) {
        SetRecordError(record, kErrUnrecognizedFormat, 0);
        return false;
    }
    tiff->flags |= kTiffBigTiff;
    tiff->firstDirectory = first;
    return true;
}

void WriteNewHeader(TiffFile* tiff, bool workingFile, bool existed, ErrorRecord* record) {
    static const uint8_t kClassicHeader[8] = {'I', 'I', 42, 0, 0, 0, 0, 0};
    static const uint8_t kWorkingHeader[8] = {'B', 'V', 42, 0, 0, 0, 0, 0};
    StreamSeek64(tiff->stream, tiff->baseOffset, record);
    StreamWrite(tiff->stream, workingFile ? kWorkingHeader : kClassicHeader, 8, record);
    if (existed) {
        uint64_t end = tiff->baseOffset + 8;
        if (end > 0xFFFFFFFFu) {
            SetRecordError(record, kErrInvalidParameter, 0);
            return;
        }
        StreamSetSize(tiff->stream, static_cast<uint32_t>(end), record);
    }
    tiff->flags |= kTiffNewHeader;
}

}  // namespace

uint32_t TiffTypeSize(uint16_t type) {
    switch (type) {
        case kTypeByte:
        case kTypeAscii:
        case kTypeSByte:
        case kTypeUndefined: return 1;
        case kTypeShort:
        case kTypeSShort: return 2;
        case kTypeLong:
        case kTypeSLong:
        case kTypeFloat:
        case kTypeIfd: return 4;
        case kTypeRational:
        case kTypeSRational:
        case kTypeDouble:
        case kTypeLong8:
        case kTypeSLong8:
        case kTypeIfd8: return 8;
        default: return 0;
    }
}

TiffFile* OpenTiffFromStream(Stream* stream, uint64_t baseOffset, bool ownsStream, bool create, bool workingFile,
                             ErrorRecord* record) {
    if (record->failed()) return nullptr;
    TiffFile* tiff = NewTiff(stream, baseOffset, ownsStream, record);
    if (tiff == nullptr) return nullptr;
    if (workingFile) tiff->flags |= kTiffWorkingFile;
    bool existed = !StreamCreated(stream);
    if (existed && !create) {
        ReadHeader(tiff, workingFile, record);
    } else {
        WriteNewHeader(tiff, workingFile, existed, record);
    }
    if (record->failed()) {
        FreeTiff(tiff);
        return nullptr;
    }
    return tiff;
}

namespace {

TiffFile* OpenTiffPath(const char16_t* path, uint32_t access, bool create, bool workingFile, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    // Write access always reads too; writing without reading starts afresh.
    if ((access & kStreamWrite) != 0 && (access & kStreamRead) == 0) create = true;
    if ((access & kStreamWrite) != 0) access |= kStreamRead;
    Stream* stream = OpenFileStream(path, access, true, create, record);
    if (stream == nullptr) return nullptr;
    TiffFile* tiff = OpenTiffFromStream(stream, 0, true, create, workingFile, record);
    if (tiff == nullptr) CloseStream(stream, nullptr);
    return tiff;
}

}  // namespace

TiffFile* OpenTiffFile(const char16_t* path, uint32_t access, bool create, ErrorRecord* record) {
    return OpenTiffPath(path, access, create, false, record);
}

TiffFile* OpenWorkingFile(const char16_t* path, uint32_t access, bool create, ErrorRecord* record) {
    return OpenTiffPath(path, access, create, true, record);
}

TiffFile* OpenMemoryTiff(ErrorRecord* record) {
    Stream* stream = OpenMemoryStream(false, record);
    if (stream == nullptr) return nullptr;
    TiffFile* tiff = OpenTiffFromStream(stream, 0, true, true, false, record);
    if (tiff == nullptr) CloseStream(stream, nullptr);
    return tiff;
}

TiffFile* OpenTiffFromMemory(const void* data, uint32_t size, ErrorRecord* record) {
    Stream* stream = OpenFixedMemoryStream(data, size, record);
    if (stream == nullptr) return nullptr;
    TiffFile* tiff = OpenTiffFromStream(stream, 0, true, false, false, record);
    if (tiff == nullptr) CloseStream(stream, nullptr);
    return tiff;
}

Stream* CloseTiff(TiffFile* tiff, ErrorRecord* record) {
    ErrorRecord ignored;
    if (record == nullptr) record = &ignored;
    if (tiff->finishWriter != nullptr) tiff->finishWriter(tiff, record);
    Stream* left = nullptr;
    if ((tiff->flags & kTiffOwnsStream) != 0) {
        if (StreamKindOf(tiff->stream) == StreamKind::Memory) {
            left = tiff->stream;
        } else {
            CloseStream(tiff->stream, record);
        }
    }
    FreeTiff(tiff);
    return left;
}

HGLOBAL TiffHandle(const TiffFile* tiff) { return tiff->self; }

TiffFile* TiffFromHandle(HGLOBAL handle) {
    if (!platform::IsValidHandle(handle) || platform::MemSize(handle) < sizeof(TiffFile)) return nullptr;
    auto* tiff = static_cast<TiffFile*>(platform::MemLock(handle));
    if (tiff == nullptr) return nullptr;
    platform::MemUnlock(handle);
    return tiff->signature == kTiffSignature && tiff->self == handle ? tiff : nullptr;
}

Stream* GetTiffStream(const TiffFile* tiff) { return tiff->stream; }
bool TiffIsBig(const TiffFile* tiff) { return Big(tiff); }

bool LocatePage(TiffFile* tiff, uint32_t page, uint32_t flags, ErrorRecord* record) {
    if (record->failed()) return false;
    if (page == 0) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    bool strict = (flags & kLocateStrict) != 0;
    if (tiff->loadedPage == page) return !strict || tiff->conformant != 0;
    while (tiff->cacheCount < page) {
        if (!WalkOne(tiff, page, flags, record)) return false;
    }
    const TiffDirectoryRow& row = tiff->cache[page - 1];
    if (!LoadEntries(tiff, row.offset, row.count, record)) return false;
    tiff->loadedPage = page;
    return !strict || tiff->conformant != 0;
}

bool LocateDirectoryAt(TiffFile* tiff, uint64_t offset, uint32_t page, uint32_t flags, ErrorRecord* record) {
    if (record->failed()) return false;
    if (Big(tiff)) {
        SetRecordError(record, kErrUnsupportedFileType, 0);
        return false;
    }
    if (page == 0) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    if (offset < 8 || page > kMaxDirectories) {
        ReportMissingPage(tiff, page, flags | kLocateIfdNotFound, record);
        return false;
    }
    uint64_t count = 0;
    for (uint32_t step = 1;; ++step) {
        if (!ReadEntryCount(tiff, offset, page, flags | kLocateIfdNotFound, &count, record)) return false;
        if (step == page) break;
        uint64_t next = 0;
        if (!ReadNextOffset(tiff, offset, count, page, flags | kLocateIfdNotFound, &next, record)) return false;
        if (next == 0) {
            ReportMissingPage(tiff, page, flags | kLocateIfdNotFound, record);
            return false;
        }
        if (next == offset) {
            SetRecordError(record, kErrBadFileData, 0);
            return false;
        }
        offset = next;
    }
    if (!LoadEntries(tiff, offset, count, record)) return false;
    return (flags & kLocateStrict) == 0 || tiff->conformant != 0;
}

uint32_t CountPages(TiffFile* tiff, ErrorRecord* record) {
    if (record->failed()) return 0;
    for (;;) {
        uint64_t next = tiff->cacheCount == 0 ? tiff->firstDirectory : tiff->nextDirectory;
        if (next == 0) break;
        ErrorRecord walk;
        if (!WalkOne(tiff, tiff->cacheCount + 1, kLocateIfdNotFound, &walk)) {
            // A truncated chain just ends; loops and damage are errors.
            if (walk.code == kErrIfdNotFound) break;
            *record = walk;
            return 0;
        }
    }
    return tiff->cacheCount;
}

uint64_t GetPageDirectorySize(TiffFile* tiff, uint32_t page, ErrorRecord* record) {
    LocatePage(tiff, page, 0, record);
    if (record->failed()) return 0;
    bool big = Big(tiff);
    uint64_t total = big ? 16 + uint64_t{EntrySize(tiff)} * tiff->entryCount : 6 + 12 * uint64_t{tiff->entryCount};
    for (uint32_t i = 0; i < tiff->entryCount; ++i) {
        const TiffEntry& entry = tiff->entries[i];
        if (entry.inlined == 0) total += entry.count * TiffTypeSize(entry.type);
    }
    const TiffEntry* counts = FindEntry(tiff, kTagStripByteCounts);
    if (counts == nullptr) counts = FindEntry(tiff, kTagTileByteCounts);
    if (counts != nullptr) {
        uint32_t size = TiffTypeSize(counts->type);
        HGLOBAL values = GetValues(tiff, counts, record);
        if (values == nullptr) return 0;
        const auto* bytes = static_cast<const uint8_t*>(platform::MemLock(values));
        for (uint64_t i = 0; i < counts->count; ++i) {
            const uint8_t* p = bytes + i * size;
            switch (size) {
                case 2: {
                    uint16_t v;
                    std::memcpy(&v, p, 2);
                    total += v;
                    break;
                }
                case 4: {
                    uint32_t v;
                    std::memcpy(&v, p, 4);
                    total += v;
                    break;
                }
                case 8: {
                    uint64_t v;
                    std::memcpy(&v, p, 8);
                    total += v;
                    break;
                }
                default: total += p[0]; break;
            }
        }
        platform::MemUnlock(values);
        FreeHandle(&values);
    }
    return total;
}

const TiffEntry* FindEntry(TiffFile* tiff, uint16_t tag) {
    if (tiff->entries == nullptr || tiff->entryCount == 0) return nullptr;
    if ((tiff->flags & kTiffSorted) == 0) {
        for (uint32_t i = 0; i < tiff->entryCount; ++i) {
            if (tiff->entries[i].tag == tag) return &tiff->entries[i];
        }
        return nullptr;
    }
    // The cursor moves forward; asking for an earlier tag starts over.
    if (tiff->cursor > tiff->entryCount || (tiff->cursor > 0 && tiff->entries[tiff->cursor - 1].tag >= tag))
        tiff->cursor = 0;
    while (tiff->cursor < tiff->entryCount && tiff->entries[tiff->cursor].tag < tag) ++tiff->cursor;
    if (tiff->cursor < tiff->entryCount && tiff->entries[tiff->cursor].tag == tag)
        return &tiff->entries[tiff->cursor++];
    return nullptr;
}

bool ScalarValue(const TiffFile* tiff, const TiffEntry* entry, uint32_t* value) {
    if (entry->count != 1) return false;
    switch (entry->type) {
        case kTypeByte: *value = entry->value[0]; return true;
        case kTypeShort: {
            uint16_t v;
            std::memcpy(&v, entry->value, 2);
            *value = v;
            return true;
        }
        case kTypeLong: std::memcpy(value, entry->value, 4); return true;
        case kTypeLong8: {
            // BigTIFF writers may store any integer as LONG8.
            uint64_t v;
            std::memcpy(&v, entry->value, 8);
            if (!Big(tiff) || v > 0xFFFFFFFFu) return false;
            *value = static_cast<uint32_t>(v);
            return true;
        }
        default: return false;
    }
}

bool GetScalar(TiffFile* tiff, uint16_t tag, uint32_t fallback, uint32_t* value) {
    *value = fallback;
    const TiffEntry* entry = FindEntry(tiff, tag);
    if (entry == nullptr) return true;
    uint32_t v = 0;
    if (!ScalarValue(tiff, entry, &v)) return false;
    *value = v;
    return true;
}

HGLOBAL GetValues(TiffFile* tiff, const TiffEntry* entry, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    uint32_t size = TiffTypeSize(entry->type);
    if (size == 0 || entry->count > kMaxValueBytes / size) {
        SetRecordError(record, size == 0 ? kErrBadImageData : kErrBadFileData, 0);
        return nullptr;
    }
    uint64_t bytes = entry->count * size;
    if (entry->inlined == 0 && !CheckTiffRange(tiff, entry->offset, bytes, record)) return nullptr;
    HGLOBAL handle = AllocHandle(static_cast<size_t>(bytes == 0 ? 1 : bytes), 0, record);
    if (handle == nullptr) return nullptr;
    auto* out = static_cast<uint8_t*>(platform::MemLock(handle));
    bool ok = true;
    if (entry->inlined != 0) {
        std::memcpy(out, entry->value, static_cast<size_t>(bytes));
    } else {
        ok = ReadAt(tiff, entry->offset, out, bytes, kErrBadFileData, record);
        if (ok) ToMachineOrder(out, bytes, entry->type, BigEndian(tiff));
    }
    platform::MemUnlock(handle);
    if (!ok) {
        if (record->ok()) SetRecordError(record, kErrBadFileData, 0);
        FreeHandle(&handle);
    }
    return handle;
}

uint64_t TiffDataSize(TiffFile* tiff, ErrorRecord* record) {
    uint64_t size = StreamSize64(tiff->stream, record);
    return size > tiff->baseOffset ? size - tiff->baseOffset : 0;
}

bool CheckTiffRange(TiffFile* tiff, uint64_t offset, uint64_t count, ErrorRecord* record) {
    if (record->failed()) return false;
    uint64_t size = TiffDataSize(tiff, record);
    if (record->failed()) return false;
    if (offset > size || count > size - offset) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    return true;
}

bool ReadTiffData(TiffFile* tiff, uint64_t offset, void* buffer, uint32_t count, ErrorRecord* record) {
    if (!ReadAt(tiff, offset, buffer, count, kErrBadFileData, record)) {
        if (record->ok()) SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    return true;
}

void AppendDirectoryToCache(TiffFile* tiff, uint64_t offset, uint64_t count, uint64_t next, ErrorRecord* record) {
    if (record->failed()) return;
    if (tiff->cacheCount == 0 && tiff->firstDirectory == 0) tiff->firstDirectory = offset;
    if (AppendRow(tiff, offset, count, record)) {
        tiff->nextDirectory = next;
        tiff->flags &= ~kTiffNewHeader;
    }
}

}  // namespace velmora
