// The platform services the stream and the start-up benchmark stand on.
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include "perf/VersionStamp.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace {

TEST(AlignedHeap, BlocksAreAlignedAndReallocationKeepsTheContents) {
    for (const size_t alignment : {32u, 64u, 4096u}) {
        uint8_t* block = static_cast<uint8_t*>(platform::AlignedAlloc(100, alignment));
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignment, 0u);
        for (int i = 0; i < 100; ++i) block[i] = uint8_t(i);
        uint8_t* grown = static_cast<uint8_t*>(platform::AlignedRealloc(block, 5000, alignment));
        ASSERT_NE(grown, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(grown) % alignment, 0u);
        for (int i = 0; i < 100; ++i) ASSERT_EQ(grown[i], uint8_t(i));
        uint8_t* shrunk = static_cast<uint8_t*>(platform::AlignedRealloc(grown, 10, alignment));
        ASSERT_NE(shrunk, nullptr);
        for (int i = 0; i < 10; ++i) ASSERT_EQ(shrunk[i], uint8_t(i));
        platform::AlignedFree(shrunk);
    }
    platform::AlignedFree(nullptr);
}

TEST(AlignedHeap, AFailedReallocationKeepsTheBlock) {
    uint8_t* block = static_cast<uint8_t*>(platform::AlignedAlloc(16, 32));
    ASSERT_NE(block, nullptr);
    std::memset(block, 0xAB, 16);
    EXPECT_EQ(platform::AlignedRealloc(block, SIZE_MAX - 8, 32), nullptr);
    EXPECT_EQ(block[15], 0xAB);
    platform::AlignedFree(block);
}

TEST(RecursiveLock, IsRecursiveForItsOwnerAndExcludesOtherThreads) {
    platform::RecursiveLock lock;
    std::atomic<bool> otherInside{false};
    lock.Enter();
    lock.Enter();
    std::thread other([&] {
        platform::LockGuard guard(lock);
        otherInside = true;
    });
    platform::SleepMilliseconds(30);
    EXPECT_FALSE(otherInside) << "held twice";
    lock.Leave();
    platform::SleepMilliseconds(30);
    EXPECT_FALSE(otherInside) << "still held once";
    lock.Leave();
    other.join();
    EXPECT_TRUE(otherInside);
}

TEST(Counter, AdvancesAtItsFrequency) {
    const uint64_t start = platform::QueryCounter();
    platform::SleepMilliseconds(20);
    const double seconds = double(platform::QueryCounter() - start) / double(platform::QueryCounterFrequency());
    EXPECT_GE(seconds, 0.019);
    EXPECT_LT(seconds, 5.0);
}

void Put32(std::vector<uint8_t>& bytes, size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = uint8_t(value >> (8 * i));
}

TEST(HostVersion, ReadsTheProductVersionOfTheFixedRecord) {
    std::vector<uint8_t> exe(400, 0x5A);
    Put32(exe, 122, 0xFEEF04BD);  // unaligned: not a record
    Put32(exe, 200, 0xFEEF04BD);
    Put32(exe, 208, 0x00010002);  // file version differs from the product version
    Put32(exe, 216, 0x000C0003);  // 12.3
    Put32(exe, 220, 0x01C80007);  // 456.7
    uint16_t parts[4] = {};
    ASSERT_TRUE(platform::FindProductVersion(exe.data(), exe.size(), parts));
    EXPECT_EQ(parts[0], 12);
    EXPECT_EQ(parts[1], 3);
    EXPECT_EQ(parts[2], 456);
    EXPECT_EQ(parts[3], 7);

    exe.resize(240);  // the record no longer fits
    EXPECT_FALSE(platform::FindProductVersion(exe.data(), exe.size(), parts));
    EXPECT_FALSE(platform::FindProductVersion(nullptr, 0, parts));
}

TEST(HostVersion, TheStampKeepsTheLowByteOfEachPart) {
    const uint16_t parts[4] = {12, 3, 456, 7};
    EXPECT_EQ(ComposeVersionStamp(parts), 0x0C03C807u);
    const uint16_t wide[4] = {0x1FF, 0xFF00, 0x0101, 0xFFFF};
    EXPECT_EQ(ComposeVersionStamp(wide), 0xFF0001FFu);
    EXPECT_EQ(VersionStampOf("no such file.exe"), 0u);
}

}  // namespace
