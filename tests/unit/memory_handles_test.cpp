// The global-memory handle table: the Windows contract on a system without
// Windows' memory manager.
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

TEST(MemoryHandles, LockCountsSizesAndZeroing) {
    HGLOBAL block = MemAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 100);
    ASSERT_NE(block, nullptr);
    EXPECT_LE(reinterpret_cast<uintptr_t>(block), 0xFFFFFFFFu);  // a 32-bit value
    EXPECT_EQ(MemSize(block), 100u);
    auto* bytes = static_cast<unsigned char*>(MemLock(block));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes[0] | bytes[99], 0);
    EXPECT_EQ(MemLock(block), bytes);
    EXPECT_EQ(MemFlags(block) & GMEM_LOCKCOUNT, 2u);
    EXPECT_TRUE(MemUnlock(block));
    EXPECT_FALSE(MemUnlock(block));
    EXPECT_EQ(GetSystemError(), 0u);
    EXPECT_FALSE(MemUnlock(block));
    EXPECT_EQ(GetSystemError(), ERROR_NOT_LOCKED);

    // Growing keeps the contents and the handle; new bytes are zeroed on request.
    std::memset(MemLock(block), 0xAB, 100);
    MemUnlock(block);
    EXPECT_EQ(MemReAlloc(block, 5000, GMEM_MOVEABLE | GMEM_ZEROINIT), block);
    bytes = static_cast<unsigned char*>(MemLock(block));
    EXPECT_EQ(bytes[99], 0xAB);
    EXPECT_EQ(bytes[4999], 0);
    // A locked block may not move unless the caller allows it.
    EXPECT_EQ(MemReAlloc(block, 100000, 0), nullptr);
    EXPECT_EQ(GetSystemError(), ERROR_NOT_ENOUGH_MEMORY);
    MemUnlock(block);
    EXPECT_EQ(MemFree(block), nullptr);
}

TEST(MemoryHandles, FreedAndForgedHandlesAreInvalidNeverDereferenced) {
    HGLOBAL block = MemAlloc(GMEM_MOVEABLE, 16);
    ASSERT_EQ(MemFree(block), nullptr);
    // Double free, and every use of a stale handle: error 6.
    EXPECT_EQ(MemFree(block), block);
    EXPECT_EQ(GetSystemError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(MemLock(block), nullptr);
    EXPECT_EQ(GetSystemError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(MemFlags(block), GMEM_INVALID_HANDLE);
    EXPECT_EQ(MemSize(block), 0u);
    EXPECT_EQ(MemReAlloc(block, 32, GMEM_MOVEABLE), nullptr);
    EXPECT_FALSE(IsValidHandle(block));
    EXPECT_FALSE(IsValidHandle(nullptr));

    // The slot is reused later, under a new generation: the old handle stays dead.
    std::vector<HGLOBAL> later;
    for (int i = 0; i < 3000; ++i) later.push_back(MemAlloc(GMEM_MOVEABLE, 8));
    EXPECT_FALSE(IsValidHandle(block));
    for (HGLOBAL h : later) EXPECT_EQ(MemFree(h), nullptr);

    // Values never issued, including pointers of this process.
    int local = 0;
    EXPECT_EQ(MemFlags(reinterpret_cast<HGLOBAL>(&local)), GMEM_INVALID_HANDLE);
    EXPECT_EQ(MemFlags(reinterpret_cast<HGLOBAL>(static_cast<uintptr_t>(0x7FFFF))), GMEM_INVALID_HANDLE);
}

TEST(MemoryHandles, EmptyBlocksAreDiscarded) {
    HGLOBAL empty = MemAlloc(GMEM_MOVEABLE, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(MemFlags(empty) & GMEM_DISCARDED, GMEM_DISCARDED);
    EXPECT_EQ(MemLock(empty), nullptr);
    EXPECT_EQ(MemReAlloc(empty, 10, GMEM_MOVEABLE), empty);
    EXPECT_NE(MemLock(empty), nullptr);
    MemUnlock(empty);
    EXPECT_EQ(MemFree(empty), nullptr);
}

TEST(MemoryHandles, ConcurrentAllocAndFreeFromSeveralThreads) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&failures, t] {
            std::vector<HGLOBAL> mine;
            for (int i = 0; i < 2000; ++i) {
                HGLOBAL h = MemAlloc(GMEM_MOVEABLE, 32);
                auto* p = static_cast<unsigned char*>(MemLock(h));
                if (p == nullptr) {
                    ++failures;
                    continue;
                }
                std::memset(p, t, 32);
                MemUnlock(h);
                mine.push_back(h);
                if (i % 3 == 0) {
                    if (MemFree(mine.front()) != nullptr) ++failures;
                    mine.erase(mine.begin());
                }
            }
            for (HGLOBAL h : mine) {
                auto* p = static_cast<unsigned char*>(MemLock(h));
                if (p == nullptr || p[0] != t || p[31] != t) ++failures;
                MemUnlock(h);
                if (MemFree(h) != nullptr) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace velmora::platform
