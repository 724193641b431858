#include "dib/spill_store.h"

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "frame/library.h"
#include "platform/platform.h"

namespace velmora {

struct SpillStore {
    platform::FileHandle file = platform::kNoFile;
    std::u16string path;
    uint64_t stride = 0;
    uint32_t height = 0;
};

namespace {

// The stores open in this process; guarded by SharedObjectLock.
std::vector<SpillStore*>& OpenStores() {
    static std::vector<SpillStore*>* stores = new std::vector<SpillStore*>;
    return *stores;
}

bool SeekRow(SpillStore* store, uint32_t row, ErrorRecord* record) {
    if (row >= store->height) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    uint32_t error = 0;
    if (!platform::FileSeek(store->file, uint64_t{row} * store->stride, &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    return true;
}

}  // namespace

SpillStore* CreateSpillStore(uint64_t stride, uint32_t height, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    if (stride == 0 || stride > SIZE_MAX || height == 0) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    auto* store = new (std::nothrow) SpillStore;
    if (store == nullptr) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    store->stride = stride;
    store->height = height;
    uint32_t error = 0;
    if (!platform::CreateTempFile(TempDirectory(), u"vlm", &store->path, &error)) {
        SetRecordError(record, error, 0);
        delete store;
        return nullptr;
    }
    store->file = platform::FileOpen(store->path, platform::FileAccess::ReadWrite, &error);
    // Full length at once: the disk space is claimed now, not halfway through a page.
    if (store->file == platform::kNoFile || !platform::FileTruncate(store->file, stride * height, &error)) {
        SetRecordError(record, error, 0);
        DestroySpillStore(store);
        return nullptr;
    }
    platform::LockGuard guard(SharedObjectLock());
    OpenStores().push_back(store);
    return store;
}

void DestroySpillStore(SpillStore* store) {
    if (store == nullptr) return;
    {
        platform::LockGuard guard(SharedObjectLock());
        auto& stores = OpenStores();
        stores.erase(std::remove(stores.begin(), stores.end(), store), stores.end());
    }
    if (store->file != platform::kNoFile) platform::FileClose(store->file);
    uint32_t error = 0;
    if (!store->path.empty()) platform::FileDelete(store->path, &error);
    delete store;
}

uint64_t SpillStride(const SpillStore* store) { return store->stride; }

bool ReadSpillRow(SpillStore* store, uint32_t row, void* out, ErrorRecord* record) {
    if (record->failed() || !SeekRow(store, row, record)) return false;
    size_t done = 0;
    uint32_t error = 0;
    if (!platform::FileRead(store->file, out, static_cast<size_t>(store->stride), &done, &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    if (done != store->stride) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    return true;
}

bool WriteSpillRow(SpillStore* store, uint32_t row, const void* in, ErrorRecord* record) {
    if (record->failed() || !SeekRow(store, row, record)) return false;
    uint32_t error = 0;
    if (!platform::FileWrite(store->file, in, static_cast<size_t>(store->stride), &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    return true;
}

size_t OpenSpillStoreCount() {
    platform::LockGuard guard(SharedObjectLock());
    return OpenStores().size();
}

}  // namespace velmora
