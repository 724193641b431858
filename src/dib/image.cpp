#include "dib/image.h"

#include <cstring>

#include "dib/dib_layout.h"
#include "dib/palette.h"
#include "dib/spill_store.h"
#include "frame/library.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {
namespace {

// Descriptor layout: u32 0, u8 kind, then per kind at offset 8:
//   kind 1: mapping (uintptr), view (pointer) at 16, mapped size (u64) at 24;
//   kinds 2 and 3: the memory (pointer), whose 8-byte prefix precedes the header;
//   kind 4: the spill store (pointer); the header copy at 64.
constexpr size_t kKindOffset = 4;
constexpr size_t kFieldOffset = 8;
constexpr size_t kMappedViewOffset = 16;
constexpr size_t kMappedSizeOffset = 24;
constexpr size_t kMappedDescriptorSize = 32;
constexpr size_t kMemoryDescriptorSize = 16;
constexpr size_t kSpillHeaderOffset = 64;
constexpr size_t kMemoryPrefix = 8;
// A spill-store row is read whole into memory.
constexpr uint64_t kMaxSpillStride = 1u << 28;

template <typename T>
T Field(const uint8_t* block, size_t offset) {
    T value;
    std::memcpy(&value, block + offset, sizeof value);
    return value;
}

template <typename T>
void SetField(uint8_t* block, size_t offset, T value) {
    std::memcpy(block + offset, &value, sizeof value);
}

bool IsDescriptor(HGLOBAL image, const uint8_t* block) {
    return platform::MemSize(image) >= kFieldOffset && Field<uint32_t>(block, 0) == 0;
}

size_t PageSize() {
    // Queried once; the lock keeps two first callers from racing.
    static size_t pageSize = 0;
    platform::LockGuard guard(SharedObjectLock());
    if (pageSize == 0) pageSize = platform::MemoryPageSize();
    return pageSize;
}

bool ValidBitCount(uint32_t bitCount) {
    return bitCount == 1 || bitCount == 4 || bitCount == 8 || bitCount == 16 || bitCount == 24 || bitCount == 32;
}

void FillHeader(BITMAPINFOHEADER* header, const BITMAPINFOHEADER& model, uint32_t storage) {
    *header = model;
    uint32_t count = ColorCount(header);
    RGBQUAD* table = ColorTable(header);
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t level = 0;
        if (storage & (kStorageGreyRamp | kStorageInverseRamp)) {
            level = count < 2 ? 0 : RampLevel(i, count);
            if (!(storage & kStorageGreyRamp)) level = static_cast<uint8_t>(255 - level);
        }
        table[i] = RGBQUAD{level, level, level, 0};
    }
    // The masks and palette hint of high-colour images start empty.
    uint64_t extra = BitsOffset(header) - kDibHeaderSize - uint64_t{count} * 4;
    std::memset(reinterpret_cast<uint8_t*>(table + count), 0, static_cast<size_t>(extra));
}

HGLOBAL NewDescriptor(size_t size, StorageKind kind, ErrorRecord* record) {
    HGLOBAL descriptor = AllocHandle(size, GMEM_ZEROINIT, record);
    if (descriptor == nullptr) return nullptr;
    auto* block = static_cast<uint8_t*>(platform::MemLock(descriptor));
    block[kKindOffset] = static_cast<uint8_t>(kind);
    platform::MemUnlock(descriptor);
    return descriptor;
}

void SetDescriptorPointer(HGLOBAL descriptor, size_t offset, const void* pointer) {
    auto* block = static_cast<uint8_t*>(platform::MemLock(descriptor));
    SetField(block, offset, pointer);
    platform::MemUnlock(descriptor);
}

HGLOBAL CreateMapped(const BITMAPINFOHEADER& model, uint64_t packed, uint32_t storage, ErrorRecord* record) {
    HGLOBAL descriptor = NewDescriptor(kMappedDescriptorSize, StorageKind::PagedMapping, record);
    if (descriptor == nullptr) return nullptr;
    uintptr_t mapping = 0;
    uint32_t error = 0;
    void* view = platform::MapPagedMemory(static_cast<size_t>(packed), &mapping, &error);
    if (view == nullptr) {
        SetRecordError(record, error, 0);
        FreeHandle(&descriptor);
        return nullptr;
    }
    auto* block = static_cast<uint8_t*>(platform::MemLock(descriptor));
    SetField(block, kFieldOffset, mapping);
    SetField(block, kMappedViewOffset, view);
    SetField(block, kMappedSizeOffset, packed);
    platform::MemUnlock(descriptor);
    FillHeader(static_cast<BITMAPINFOHEADER*>(view), model, storage);
    return descriptor;
}

HGLOBAL CreateReserved(const BITMAPINFOHEADER& model, uint64_t packed, uint32_t storage, ErrorRecord* record) {
    uint64_t asked = packed + kMemoryPrefix;
    uint64_t page = PageSize();
    uint64_t rounded = (asked + page - 1) / page * page;
    if (rounded > 0xFFFFFFFFu || rounded > SIZE_MAX) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    HGLOBAL descriptor = NewDescriptor(kMemoryDescriptorSize, StorageKind::Reserved, record);
    if (descriptor == nullptr) return nullptr;
    uint32_t error = 0;
    auto* memory = static_cast<uint8_t*>(platform::ReserveMemory(static_cast<size_t>(rounded), &error));
    if (memory == nullptr) {
        SetRecordError(record, error, 0);
        FreeHandle(&descriptor);
        return nullptr;
    }
    SetField(memory, 0, static_cast<uint32_t>(rounded));
    SetField(memory, 4, static_cast<uint32_t>(asked));
    SetDescriptorPointer(descriptor, kFieldOffset, memory);
    FillHeader(reinterpret_cast<BITMAPINFOHEADER*>(memory + kMemoryPrefix), model, storage);
    return descriptor;
}

HGLOBAL CreateSpilled(const BITMAPINFOHEADER& model, uint32_t storage, ErrorRecord* record) {
    uint64_t stride = RowStride(&model);
    if (stride > kMaxSpillStride) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    uint64_t headerBytes = BitsOffset(&model);
    HGLOBAL descriptor =
        NewDescriptor(static_cast<size_t>(kSpillHeaderOffset + headerBytes), StorageKind::Spill, record);
    if (descriptor == nullptr) return nullptr;
    SpillStore* store = CreateSpillStore(stride, static_cast<uint32_t>(model.biHeight), record);
    if (store == nullptr) {
        FreeHandle(&descriptor);
        return nullptr;
    }
    auto* block = static_cast<uint8_t*>(platform::MemLock(descriptor));
    SetField(block, kFieldOffset, store);
    FillHeader(reinterpret_cast<BITMAPINFOHEADER*>(block + kSpillHeaderOffset), model, storage);
    platform::MemUnlock(descriptor);
    return descriptor;
}

SpillStore* StoreOf(const uint8_t* block) { return Field<SpillStore*>(block, kFieldOffset); }

}  // namespace

HGLOBAL CreateImage(int32_t width, int32_t height, uint16_t bitCount, int32_t xPelsPerMeter, int32_t yPelsPerMeter,
                    uint32_t colorCount, uint32_t storage, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    bool indexed = bitCount <= 8;
    uint32_t kind = storage & kStorageKindMask;
    if (width < 1 || width > kMaxImageDimension || height < 1 || height > kMaxImageDimension ||
        !ValidBitCount(bitCount) || colorCount > (indexed ? 0xFFFFu : 256u) ||
        (kind != 0 && kind != 1 && kind != 2 && kind != 4)) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    BITMAPINFOHEADER model = {};
    model.biSize = kDibHeaderSize;
    model.biWidth = width;
    model.biHeight = height;
    model.biPlanes = 1;
    model.biBitCount = bitCount;
    model.biXPelsPerMeter = xPelsPerMeter;
    model.biYPelsPerMeter = yPelsPerMeter;
    model.biClrUsed = indexed && colorCount == 1u << bitCount ? 0 : colorCount;

    if (kind == static_cast<uint32_t>(StorageKind::Spill)) return CreateSpilled(model, storage, record);
    uint64_t packed = 0;
    if (!PackedSize(&model, &packed) || packed > SIZE_MAX - kMemoryPrefix) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    if (kind == static_cast<uint32_t>(StorageKind::PagedMapping)) return CreateMapped(model, packed, storage, record);
    if (kind == static_cast<uint32_t>(StorageKind::Reserved)) return CreateReserved(model, packed, storage, record);

    unsigned flags = (storage & kStorageZeroInit ? GMEM_ZEROINIT : 0) | (storage & kStorageShare ? GMEM_SHARE : 0);
    HGLOBAL image = AllocHandle(static_cast<size_t>(packed), flags, record);
    if (image == nullptr) return nullptr;
    FillHeader(static_cast<BITMAPINFOHEADER*>(platform::MemLock(image)), model, storage);
    platform::MemUnlock(image);
    return image;
}

HGLOBAL CreatePackedDib(int32_t width, int32_t height, uint16_t bitCount, const RGBQUAD* table, uint32_t tableCount,
                        int32_t xPelsPerMeter, int32_t yPelsPerMeter, ErrorRecord* record) {
    HGLOBAL image =
        CreateImage(width, height, bitCount, xPelsPerMeter, yPelsPerMeter, tableCount, kStorageZeroInit, record);
    if (image == nullptr) return nullptr;
    if (table != nullptr) {
        ImageLock lock(image);
        SetColorTable(lock.header(), table, tableCount);
    }
    return image;
}

HGLOBAL WrapImageMemory(void* memory, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    if (memory == nullptr) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    HGLOBAL descriptor = NewDescriptor(kMemoryDescriptorSize, StorageKind::Borrowed, record);
    if (descriptor != nullptr) SetDescriptorPointer(descriptor, kFieldOffset, memory);
    return descriptor;
}

BITMAPINFOHEADER* LockImage(HGLOBAL image) {
    auto* block = static_cast<uint8_t*>(platform::MemLock(image));
    if (block == nullptr) return nullptr;
    if (!IsDescriptor(image, block)) return reinterpret_cast<BITMAPINFOHEADER*>(block);
    switch (static_cast<StorageKind>(block[kKindOffset])) {
        case StorageKind::PagedMapping: return Field<BITMAPINFOHEADER*>(block, kMappedViewOffset);
        case StorageKind::Reserved:
        case StorageKind::Borrowed:
            return reinterpret_cast<BITMAPINFOHEADER*>(Field<uint8_t*>(block, kFieldOffset) + kMemoryPrefix);
        case StorageKind::Spill: return reinterpret_cast<BITMAPINFOHEADER*>(block + kSpillHeaderOffset);
        default: break;
    }
    platform::MemUnlock(image);
    return nullptr;
}

void UnlockImage(HGLOBAL image) { platform::MemUnlock(image); }

StorageKind ImageKind(HGLOBAL image) {
    auto* block = static_cast<uint8_t*>(platform::MemLock(image));
    if (block == nullptr) return StorageKind::Packed;
    StorageKind kind = IsDescriptor(image, block) ? static_cast<StorageKind>(block[kKindOffset]) : StorageKind::Packed;
    platform::MemUnlock(image);
    return kind;
}

void FreeImage(HGLOBAL* image) {
    if (*image == nullptr) return;
    auto* block = static_cast<uint8_t*>(platform::MemLock(*image));
    if (block != nullptr) {
        if (IsDescriptor(*image, block)) {
            switch (static_cast<StorageKind>(block[kKindOffset])) {
                case StorageKind::PagedMapping:
                    platform::UnmapPagedMemory(Field<uintptr_t>(block, kFieldOffset),
                                               Field<void*>(block, kMappedViewOffset),
                                               static_cast<size_t>(Field<uint64_t>(block, kMappedSizeOffset)));
                    break;
                case StorageKind::Reserved: {
                    auto* memory = Field<uint8_t*>(block, kFieldOffset);
                    if (memory != nullptr) platform::ReleaseMemory(memory, Field<uint32_t>(memory, 0));
                    break;
                }
                case StorageKind::Spill: DestroySpillStore(StoreOf(block)); break;
                default: break;  // borrowed memory stays its owner's
            }
        }
        platform::MemUnlock(*image);
    }
    FreeHandle(image);
}

uint8_t* ImageBits(HGLOBAL image, BITMAPINFOHEADER* header) {
    if (ImageKind(image) == StorageKind::Spill) return nullptr;
    return PackedBits(header);
}

namespace {

// Copies one stored row out of the image or into it, whatever its kind.
bool CopyImageRow(HGLOBAL image, uint32_t row, uint8_t* buffer, bool write, ErrorRecord* record) {
    if (record->failed()) return false;
    ImageLock lock(image);
    BITMAPINFOHEADER* header = lock.header();
    if (header == nullptr || row >= static_cast<uint32_t>(header->biHeight)) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    uint8_t* bits = lock.bits();
    if (bits == nullptr) {
        auto* block = static_cast<uint8_t*>(platform::MemLock(image));
        bool done = write ? WriteSpillRow(StoreOf(block), row, buffer, record)
                          : ReadSpillRow(StoreOf(block), row, buffer, record);
        platform::MemUnlock(image);
        return done;
    }
    size_t stride = static_cast<size_t>(RowStride(header));
    if (write) {
        std::memcpy(bits + stride * row, buffer, stride);
    } else {
        std::memcpy(buffer, bits + stride * row, stride);
    }
    return true;
}

}  // namespace

bool ReadImageRow(HGLOBAL image, uint32_t row, void* out, ErrorRecord* record) {
    return CopyImageRow(image, row, static_cast<uint8_t*>(out), false, record);
}

bool WriteImageRow(HGLOBAL image, uint32_t row, const void* in, ErrorRecord* record) {
    return CopyImageRow(image, row, static_cast<uint8_t*>(const_cast<void*>(in)), true, record);
}

HGLOBAL PackImage(HGLOBAL image, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    ImageLock lock(image);
    BITMAPINFOHEADER* header = lock.header();
    uint64_t packed = 0;
    if (header == nullptr || !PackedSize(header, &packed) || packed > SIZE_MAX) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    HGLOBAL result = AllocHandle(static_cast<size_t>(packed), 0, record);
    if (result == nullptr) return nullptr;
    auto* out = static_cast<uint8_t*>(platform::MemLock(result));
    size_t headerBytes = static_cast<size_t>(BitsOffset(header));
    std::memcpy(out, header, headerBytes);
    uint8_t* bits = lock.bits();
    if (bits != nullptr) {
        std::memcpy(out + headerBytes, bits, static_cast<size_t>(packed) - headerBytes);
    } else {
        size_t stride = static_cast<size_t>(RowStride(header));
        for (uint32_t row = 0; row < static_cast<uint32_t>(header->biHeight); ++row) {
            if (!ReadImageRow(image, row, out + headerBytes + stride * row, record)) break;
        }
    }
    platform::MemUnlock(result);
    if (record->failed()) FreeHandle(&result);
    return result;
}

void SetColorTable(BITMAPINFOHEADER* header, const RGBQUAD* table, uint32_t count) {
    uint32_t n = ColorCount(header) < count ? ColorCount(header) : count;
    RGBQUAD* out = ColorTable(header);
    for (uint32_t i = 0; i < n; ++i) out[i] = RGBQUAD{table[i].rgbBlue, table[i].rgbGreen, table[i].rgbRed, 0};
}

}  // namespace velmora
