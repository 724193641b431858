// The global-memory handle table. A handle is an opaque 32-bit value made of a
// slot index (low 20 bits) and the slot's generation (high 12 bits); the slot
// index is never 0, so no handle is 0. Freeing a block bumps its slot's
// generation, and freed slots are reused oldest-first, so a stale handle stays
// invalid for at least 4095 further allocations in the same slot and, with
// a million slots in turn, in practice forever.
//
// Blocks are always moveable: the handle never changes, the address does on
// reallocation. Lock counts saturate at 255 as on Windows.
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

constexpr uint32_t kIndexBits = 20;
constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
constexpr uint32_t kGenerationMask = 0xFFFu;
constexpr uint32_t kMaxSlots = kIndexMask;  // indices 1 .. 2^20 - 1
constexpr uint32_t kChunkSlots = 4096;
constexpr unsigned kMaxLockCount = 255;
constexpr unsigned kKeptFlags = GMEM_MOVEABLE | GMEM_DDESHARE | GMEM_DISCARDABLE;
// No single block may be larger than the address space a 64-bit system can
// actually give; larger requests fail like any allocation that cannot be met.
constexpr size_t kMaxBlockSize = size_t(1) << 46;

struct Slot {
    uint8_t* bytes = nullptr;
    size_t size = 0;
    uint32_t generation = 1;
    unsigned flags = 0;
    unsigned locks = 0;
    bool live = false;
};

class HandleTable {
public:
    HGLOBAL Alloc(unsigned flags, size_t bytes);
    HGLOBAL ReAlloc(HGLOBAL mem, size_t bytes, unsigned flags);
    void* Lock(HGLOBAL mem);
    bool Unlock(HGLOBAL mem);
    size_t Size(HGLOBAL mem);
    unsigned Flags(HGLOBAL mem);
    HGLOBAL Free(HGLOBAL mem);

private:
    Slot* Find(HGLOBAL mem);  // caller holds mutex_
    Slot* SlotAt(uint32_t index) { return &chunks_[index / kChunkSlots][index % kChunkSlots]; }
    static HGLOBAL MakeHandle(uint32_t index, uint32_t generation) {
        return reinterpret_cast<HGLOBAL>(static_cast<uintptr_t>((generation << kIndexBits) | index));
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<Slot[]>> chunks_;
    uint32_t used_ = 1;  // index 0 is never issued
    std::deque<uint32_t> free_;
};

HandleTable& Table() {
    // Intentionally never destroyed: hosts may free blocks from their own
    // static destructors after the library's have run.
    static HandleTable* table = new HandleTable;
    return *table;
}

Slot* HandleTable::Find(HGLOBAL mem) {
    uintptr_t raw = reinterpret_cast<uintptr_t>(mem);
    if (raw == 0 || raw > 0xFFFFFFFFu) return nullptr;
    uint32_t value = static_cast<uint32_t>(raw);
    uint32_t index = value & kIndexMask;
    uint32_t generation = value >> kIndexBits;
    if (index == 0 || index >= used_) return nullptr;
    Slot* slot = SlotAt(index);
    if (!slot->live || slot->generation != generation) return nullptr;
    return slot;
}

HGLOBAL HandleTable::Alloc(unsigned flags, size_t bytes) {
    uint8_t* data = nullptr;
    if (bytes > kMaxBlockSize) {
        SetSystemError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (bytes != 0) {
        data = static_cast<uint8_t*>((flags & GMEM_ZEROINIT) ? std::calloc(1, bytes) : std::malloc(bytes));
        if (data == nullptr) {
            SetSystemError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
    }
    std::lock_guard<std::mutex> guard(mutex_);
    if (chunks_.empty()) chunks_.emplace_back(new Slot[kChunkSlots]);
    uint32_t index;
    if (!free_.empty() && (free_.size() > 1024 || used_ >= kMaxSlots)) {
        index = free_.front();
        free_.pop_front();
    } else if (used_ < kMaxSlots) {
        if (chunks_.size() <= used_ / kChunkSlots) chunks_.emplace_back(new Slot[kChunkSlots]);
        index = used_++;
    } else {
        std::free(data);
        SetSystemError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    Slot* slot = SlotAt(index);
    slot->bytes = data;
    slot->size = bytes;
    slot->flags = flags & kKeptFlags;
    slot->locks = 0;
    slot->live = true;
    return MakeHandle(index, slot->generation);
}

HGLOBAL HandleTable::ReAlloc(HGLOBAL mem, size_t bytes, unsigned flags) {
    std::lock_guard<std::mutex> guard(mutex_);
    Slot* slot = Find(mem);
    if (slot == nullptr) {
        SetSystemError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (flags & GMEM_MODIFY) {
        slot->flags = (slot->flags & ~GMEM_DISCARDABLE) | (flags & GMEM_DISCARDABLE);
        return mem;
    }
    // A locked block may only move when the caller allows it.
    if (slot->locks != 0 && !(flags & GMEM_MOVEABLE) && bytes > slot->size) {
        SetSystemError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (bytes > kMaxBlockSize) {
        SetSystemError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (bytes == 0) {
        if (slot->locks != 0) {
            SetSystemError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        std::free(slot->bytes);
        slot->bytes = nullptr;
        slot->size = 0;
        return mem;
    }
    uint8_t* data = static_cast<uint8_t*>(std::realloc(slot->bytes, bytes));
    if (data == nullptr) {
        SetSystemError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if ((flags & GMEM_ZEROINIT) && bytes > slot->size) std::memset(data + slot->size, 0, bytes - slot->size);
    slot->bytes = data;
    slot->size = bytes;
    return mem;
}

void* HandleTable::Lock(HGLOBAL mem) {
    std::lock_guard<std::mutex> guard(mutex_);
    Slot* slot = Find(mem);
    if (slot == nullptr) {
        SetSystemError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (slot->bytes == nullptr) return nullptr;  // a discarded (empty) block
    if (slot->locks < kMaxLockCount) ++slot->locks;
    return slot->bytes;
}

bool HandleTable::Unlock(HGLOBAL mem) {
    std::lock_guard<std::mutex> guard(mutex_);
    Slot* slot = Find(mem);
    if (slot == nullptr) {
        SetSystemError(ERROR_INVALID_HANDLE);
        return false;
    }
    if (slot->locks == 0) {
        SetSystemError(ERROR_NOT_LOCKED);
        return false;
    }
    if (slot->locks < kMaxLockCount) --slot->locks;
    if (slot->locks == 0) {
        SetSystemError(NO_ERROR);
        return false;
    }
    return true;
}

size_t HandleTable::Size(HGLOBAL mem) {
    std::lock_guard<std::mutex> guard(mutex_);
    Slot* slot = Find(mem);
    if (slot == nullptr) {
        SetSystemError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return slot->size;
}

unsigned HandleTable::Flags(HGLOBAL mem) {
    std::lock_guard<std::mutex> guard(mutex_);
    Slot* slot = Find(mem);
    if (slot == nullptr) {
        SetSystemError(ERROR_INVALID_HANDLE);
        return GMEM_INVALID_HANDLE;
    }
    unsigned flags = slot->locks & GMEM_LOCKCOUNT;
    if (slot->flags & GMEM_DISCARDABLE) flags |= GMEM_DISCARDABLE;
    if (slot->flags & GMEM_DDESHARE) flags |= GMEM_DDESHARE;
    if (slot->bytes == nullptr) flags |= GMEM_DISCARDED;
    return flags;
}

HGLOBAL HandleTable::Free(HGLOBAL mem) {
    uint8_t* data;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        Slot* slot = Find(mem);
        if (slot == nullptr) {
            SetSystemError(ERROR_INVALID_HANDLE);
            return mem;
        }
        uint32_t index = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(mem)) & kIndexMask;
        data = slot->bytes;
        slot->bytes = nullptr;
        slot->size = 0;
        slot->locks = 0;
        slot->live = false;
        slot->generation = (slot->generation + 1) & kGenerationMask;
        if (slot->generation == 0) slot->generation = 1;
        free_.push_back(index);
    }
    std::free(data);
    return nullptr;
}

}  // namespace

HGLOBAL MemAlloc(unsigned flags, size_t bytes) { return Table().Alloc(flags, bytes); }
HGLOBAL MemReAlloc(HGLOBAL mem, size_t bytes, unsigned flags) { return Table().ReAlloc(mem, bytes, flags); }
void* MemLock(HGLOBAL mem) { return Table().Lock(mem); }
bool MemUnlock(HGLOBAL mem) { return Table().Unlock(mem); }
size_t MemSize(HGLOBAL mem) { return Table().Size(mem); }
unsigned MemFlags(HGLOBAL mem) { return Table().Flags(mem); }
HGLOBAL MemFree(HGLOBAL mem) { return Table().Free(mem); }

}  // namespace velmora::platform
