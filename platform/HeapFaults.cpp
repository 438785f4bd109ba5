// Plain heap blocks and the allocation failures that tests inject; the same on every platform.
#include "platform/Platform.h"

#include <atomic>
#include <cstdlib>

namespace platform {
namespace {

std::atomic<uint32_t> allocationsBeforeFault{0};

}  // namespace

void* PlainAlloc(size_t size) {
    if (AllocationFaultDue()) return nullptr;
    return std::malloc(size ? size : 1);
}

void PlainFree(void* block) { std::free(block); }

void FailAllocationAfter(uint32_t count) { allocationsBeforeFault.store(count); }

bool AllocationFaultDue() {
    uint32_t left = allocationsBeforeFault.load(std::memory_order_relaxed);
    while (left != 0) {
        if (allocationsBeforeFault.compare_exchange_weak(left, left - 1)) return left == 1;
    }
    return false;
}

}  // namespace platform
