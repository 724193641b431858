// Arrays whose size comes from input (a file, a stream, a host's record).
//
// The library is built without exceptions, so a std::vector that cannot grow
// aborts the host. A CheckedArray takes its memory from a movable global
// block instead: every size is computed in 64 bits and checked before the
// allocation, and a request that cannot be met leaves "Not enough memory."
// (8) in the error record (a failed Zeroed or Sized leaves the array empty,
// a failed Append leaves it as it was). Only trivially copyable
// element types: the memory is raw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/error_record.h"
#include "frame/scratch_block.h"

namespace velmora {

template <typename T>
class CheckedArray {
    static_assert(std::is_trivially_copyable_v<T>, "CheckedArray holds raw memory");

public:
    // Makes the array `count` elements long, all zero bits; false with the
    // record set when that many cannot be had.
    bool Zeroed(uint64_t count, ErrorRecord* record) { return Make(count, true, record); }
    // The same, the elements left as they come (to be overwritten).
    bool Sized(uint64_t count, ErrorRecord* record) { return Make(count, false, record); }
    // Appends one element, growing by half again when full.
    bool Append(const T& value, ErrorRecord* record) {
        if (count_ == capacity_) {
            const uint64_t wanted = capacity_ < 16 ? 16 : uint64_t{capacity_} + capacity_ / 2;
            if (!Fits(wanted, record) || block_.Grow(static_cast<size_t>(wanted * sizeof(T)), record) == nullptr) {
                return false;
            }
            capacity_ = static_cast<size_t>(wanted);
        }
        data()[count_++] = value;
        return true;
    }
    void Clear() { count_ = 0; }
    T* data() { return reinterpret_cast<T*>(block_.data()); }
    const T* data() const { return reinterpret_cast<const T*>(block_.data()); }
    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    T& operator[](size_t i) { return data()[i]; }
    const T& operator[](size_t i) const { return data()[i]; }
    T* begin() { return data(); }
    T* end() { return data() + count_; }
    const T* begin() const { return data(); }
    const T* end() const { return data() + count_; }

private:
    static bool Fits(uint64_t count, ErrorRecord* record) {
        if (count <= SIZE_MAX / sizeof(T)) return true;
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return false;
    }
    bool Make(uint64_t count, bool zero, ErrorRecord* record) {
        if (record->failed() || !Fits(count, record)) return false;
        if (count <= capacity_ && block_.data() != nullptr) {
            if (zero) std::memset(block_.data(), 0, static_cast<size_t>(count * sizeof(T)));
            count_ = static_cast<size_t>(count);
            return true;
        }
        if (block_.Allocate(static_cast<size_t>(count * sizeof(T)), zero, record) == nullptr) {
            count_ = capacity_ = 0;
            return false;
        }
        count_ = capacity_ = static_cast<size_t>(count);
        return true;
    }

    ScratchBlock block_;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

}  // namespace velmora
