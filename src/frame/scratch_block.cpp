#include "frame/scratch_block.h"

#include <cstring>

#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {

uint8_t* ScratchBlock::Allocate(size_t size, bool zero, ErrorRecord* record) {
    Release();
    if (record->failed()) return nullptr;
    // An empty movable block has no memory to lock: every block holds a byte.
    size_t bytes = size == 0 ? 1 : size;
    handle_ = AllocHandle(bytes, zero ? GMEM_ZEROINIT : 0, record);
    if (handle_ == nullptr) return nullptr;
    data_ = static_cast<uint8_t*>(platform::MemLock(handle_));
    if (data_ == nullptr) {
        FreeHandle(&handle_);
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    size_ = size;
    return data_;
}

uint8_t* ScratchBlock::Grow(size_t size, ErrorRecord* record) {
    if (size <= size_ && data_ != nullptr) return data_;
    ScratchBlock bigger;
    if (bigger.Allocate(size, false, record) == nullptr) return nullptr;
    if (size_ > 0) std::memcpy(bigger.data_, data_, size_);
    Release();
    handle_ = bigger.handle_;
    data_ = bigger.data_;
    size_ = bigger.size_;
    bigger.handle_ = nullptr;
    bigger.data_ = nullptr;
    bigger.size_ = 0;
    return data_;
}

void ScratchBlock::Release() {
    if (handle_ == nullptr) return;
    platform::MemUnlock(handle_);
    FreeHandle(&handle_);
    data_ = nullptr;
    size_ = 0;
}

}  // namespace velmora
