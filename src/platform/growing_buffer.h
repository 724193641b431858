// A raw array for the platform code that grows with realloc, so that input
// too large for memory fails softly (the library runs without exceptions).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace velmora::platform {

template <typename T>
class GrowingBuffer {
    static_assert(std::is_trivially_copyable_v<T>, "GrowingBuffer holds raw memory");

public:
    GrowingBuffer() = default;
    ~GrowingBuffer() { std::free(data_); }
    GrowingBuffer(const GrowingBuffer&) = delete;
    GrowingBuffer& operator=(const GrowingBuffer&) = delete;

    // Room for at least `count` elements, the contents kept; false when
    // memory is short.
    bool Reserve(size_t count) {
        if (count <= capacity_) return true;
        size_t wanted = capacity_ < 64 ? 64 : capacity_;
        while (wanted < count) {
            if (wanted > SIZE_MAX / 2 / sizeof(T)) return false;
            wanted *= 2;
        }
        void* grown = std::realloc(data_, wanted * sizeof(T));
        if (grown == nullptr) return false;
        data_ = static_cast<T*>(grown);
        capacity_ = wanted;
        return true;
    }
    T* data() { return data_; }

private:
    T* data_ = nullptr;
    size_t capacity_ = 0;
};

}  // namespace velmora::platform
