// POSIX forms of the platform services.
#include "platform/Platform.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace platform {

RecursiveLock::RecursiveLock() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&native, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

RecursiveLock::~RecursiveLock() { pthread_mutex_destroy(&native); }

void RecursiveLock::Enter() { pthread_mutex_lock(&native); }

void RecursiveLock::Leave() { pthread_mutex_unlock(&native); }

void SleepMilliseconds(uint32_t milliseconds) {
    timespec remaining{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

uint64_t QueryCounter() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000ull + static_cast<uint64_t>(now.tv_nsec);
}

uint64_t QueryCounterFrequency() { return 1000000000ull; }

namespace {

// Every aligned block is preceded by the pointer malloc returned and the usable size,
// so that a reallocation knows how much to carry over.
struct BlockPrefix {
    void* raw;
    size_t size;
};

BlockPrefix* PrefixOf(void* block) { return static_cast<BlockPrefix*>(block) - 1; }

}  // namespace

void* AlignedAlloc(size_t size, size_t alignment) {
    if (AllocationFaultDue()) return nullptr;
    if (alignment < alignof(BlockPrefix)) alignment = alignof(BlockPrefix);
    const size_t overhead = sizeof(BlockPrefix) + alignment - 1;
    if (size > SIZE_MAX - overhead) return nullptr;
    void* raw = std::malloc(size + overhead);
    if (raw == nullptr) return nullptr;
    const uintptr_t first = reinterpret_cast<uintptr_t>(raw) + sizeof(BlockPrefix);
    void* block = reinterpret_cast<void*>((first + alignment - 1) & ~(uintptr_t(alignment) - 1));
    *PrefixOf(block) = BlockPrefix{raw, size};
    return block;
}

void* AlignedRealloc(void* block, size_t size, size_t alignment) {
    if (block == nullptr) return AlignedAlloc(size, alignment);
    void* grown = AlignedAlloc(size, alignment);
    if (grown == nullptr) return nullptr;
    const size_t kept = PrefixOf(block)->size < size ? PrefixOf(block)->size : size;
    std::memcpy(grown, block, kept);
    AlignedFree(block);
    return grown;
}

void AlignedFree(void* block) {
    if (block != nullptr) std::free(PrefixOf(block)->raw);
}

std::FILE* OpenBinaryFile(const std::string& path, bool forWriting) {
    return std::fopen(path.c_str(), forWriting ? "wb" : "rb");
}

std::string CommonAppDataFolder() {
    const char* folder = std::getenv("PROGRAMDATA");
    std::string path = (folder != nullptr && *folder != '\0') ? folder : "/var/lib";
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string HostExecutablePath() {
    char executable[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", executable, sizeof(executable) - 1);
    std::string path = length > 0 ? std::string(executable, static_cast<size_t>(length)) : std::string();
    path.erase(path.find_last_of('/') + 1);
    return path + "ArchiveHost.exe";
}

bool ReadProductVersion(const std::string& path, uint16_t parts[4]) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    return FindProductVersion(bytes.data(), bytes.size(), parts);
}

}  // namespace platform
