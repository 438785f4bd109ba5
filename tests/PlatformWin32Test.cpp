// The Win32 side of the platform layer, and the stream's first table slot as an MSVC host calls it.
#include "TestSupport.h"

#include "perf/VersionStamp.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

// Records the last block given back to the heap, so a test can see whether a stream was freed.
namespace {
std::atomic<void*> lastFreed{nullptr};
}

void* operator new(size_t size) {
    if (void* block = std::malloc(size ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    lastFreed = block;
    std::free(block);
}
void operator delete(void* block, size_t) noexcept { operator delete(block); }

namespace {

TEST(Win32Platform, CommonAppDataIsTheProgramDataFolder) {
    const std::string folder = platform::CommonAppDataFolder();
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(folder.find(':'), 1u) << folder;
    EXPECT_NE(folder.find("ProgramData"), std::string::npos) << folder;
}

TEST(Win32Platform, TheHostsVersionRecordGivesTheStamp) {
    const std::string host = platform::HostExecutablePath();
    EXPECT_EQ(host.substr(host.size() - 16), "\\ArchiveHost.exe");
    EXPECT_EQ(HostVersionStamp(), 0x0C03C807u) << "ArchiveHost.exe 12.3.456.7 beside the tests";

    char self[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    EXPECT_EQ(VersionStampOf(self), 0u) << "a program without a version record";
}

TEST(MsvcDestructorSlot, FlagBitZeroDecidesWhetherTheMemoryIsFreed) {
    LogCapture::Install();
    using DeletingDestructor = void* (*)(Stream*, unsigned int);
    const StreamConfig config = MakeConfig(PixelFormat::Mono, 64, 32, 8, 8);
    for (const unsigned int flags : {0u, 1u}) {
        Stream* stream = NewStream(nullptr);
        ASSERT_TRUE(stream->Init(1, &config, nullptr, 0));
        void** table = *reinterpret_cast<void***>(stream);
        lastFreed = nullptr;
        void* result = reinterpret_cast<DeletingDestructor>(table[0])(stream, flags);
        EXPECT_EQ(result, stream);
        if (flags & 1) {
            EXPECT_EQ(lastFreed.load(), stream);
        } else {
            EXPECT_NE(lastFreed.load(), stream);
            ::operator delete(stream);
        }
    }
}

}  // namespace
