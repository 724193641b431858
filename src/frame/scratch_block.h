// A working buffer of a codec held in a movable global memory block, locked
// for as long as it lives, so that an allocation failure carries the
// library's out-of-memory message like every other block.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

class ScratchBlock {
public:
    ScratchBlock() = default;
    ~ScratchBlock() { Release(); }
    ScratchBlock(const ScratchBlock&) = delete;
    ScratchBlock& operator=(const ScratchBlock&) = delete;

    // Replaces the block with one of `size` bytes (zeroed when `zero` is
    // set); null with the record set when memory is short.
    uint8_t* Allocate(size_t size, bool zero, ErrorRecord* record);
    // Makes the block at least `size` bytes, keeping its contents.
    uint8_t* Grow(size_t size, ErrorRecord* record);
    void Release();

    uint8_t* data() const { return data_; }
    size_t size() const { return size_; }

private:
    HGLOBAL handle_ = nullptr;
    uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

}  // namespace velmora
