// The operating-system services the plug-in uses, behind one small interface:
// recursive locks, sleeping, a high-resolution counter, aligned heap blocks, and the
// two facts the start-up benchmark needs about its host machine.
#pragma once

#include <framefeed/framefeed.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace platform {

// Recursive mutual exclusion; the native object is what OutputFrame::lock points to.
class RecursiveLock {
public:
    RecursiveLock();
    ~RecursiveLock();
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

    void Enter();
    void Leave();
    FrameFeedPoolLock* Native() { return &native; }

private:
    FrameFeedPoolLock native;
};

class LockGuard {
public:
    explicit LockGuard(RecursiveLock& lock) : lock(lock) { lock.Enter(); }
    ~LockGuard() { lock.Leave(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    RecursiveLock& lock;
};

void SleepMilliseconds(uint32_t milliseconds);

// Monotonic counter and its ticks per second.
uint64_t QueryCounter();
uint64_t QueryCounterFrequency();

// Aligned heap blocks. AlignedRealloc keeps the old block and returns null when it cannot grow;
// AlignedAlloc and AlignedRealloc return null on exhaustion. alignment is a power of two.
void* AlignedAlloc(size_t size, size_t alignment);
void* AlignedRealloc(void* block, size_t size, size_t alignment);
void AlignedFree(void* block);

// Plain heap blocks (the process heap); null on exhaustion.
void* PlainAlloc(size_t size);
void PlainFree(void* block);

// Tests only: the `count`-th aligned or plain allocation or reallocation from now on fails as if memory
// were exhausted (1: the next one); 0 lets every one through again.
void FailAllocationAfter(uint32_t count);
// True when the allocation being made is the one FailAllocationAfter chose.
bool AllocationFaultDue();

// Opens a file named by a UTF-8 path for binary reading, or for binary writing (created or truncated); null
// when it cannot be opened. Folders are never created.
std::FILE* OpenBinaryFile(const std::string& path, bool forWriting);

// The machine's common application data folder, in UTF-8, without a trailing separator.
std::string CommonAppDataFolder();

// Path of "ArchiveHost.exe" beside the running executable, in UTF-8.
std::string HostExecutablePath();

// Product version (major, minor, build, revision) from the fixed version record of an executable;
// false when the file or its record cannot be read.
bool ReadProductVersion(const std::string& path, uint16_t parts[4]);

// Finds the fixed version record in the bytes of an executable without the version API.
bool FindProductVersion(const uint8_t* bytes, size_t size, uint16_t parts[4]);

}  // namespace platform
