#include "primitives/ProcessorLevel.h"

#include <cpuid.h>

#include <atomic>

namespace {

// Written once by whichever thread comes first, always with the same value; plain relaxed
// atomics keep that race well-defined.
std::atomic<int32_t> level{PxLevelUnset};
std::atomic<uint64_t> featureMask{0};
std::atomic<bool> featureMaskRead{false};
std::atomic<uint32_t> largestCache{0};
std::atomic<bool> largestCacheRead{false};

struct CpuidResult {
    uint32_t eax, ebx, ecx, edx;
};

CpuidResult Cpuid(uint32_t leaf, uint32_t subleaf = 0) {
    CpuidResult r{};
    __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
    return r;
}

// XCR0, the register state the operating system saves; only valid when OSXSAVE is reported.
uint64_t ReadXcr0() {
    uint32_t low = 0, high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return uint64_t(high) << 32 | low;
}

bool Bit(uint32_t word, int bit) { return (word >> bit) & 1u; }

constexpr uint64_t avx512Features = PxFeatureAvx512F | PxFeatureAvx512CD | PxFeatureAvx512ER | PxFeatureAvx512PF |
                                    PxFeatureAvx512BW | PxFeatureAvx512DQ | PxFeatureAvx512VL | (1ull << 27) |
                                    (1ull << 28) | (1ull << 29) | (1ull << 30) | (1ull << 32);

uint64_t ReadFeatureMask() {
    const uint32_t maxLeaf = __get_cpuid_max(0, nullptr);
    if (maxLeaf < 1) return 0;
    const CpuidResult leaf1 = Cpuid(1);
    uint64_t mask = 0;
    if (Bit(leaf1.edx, 26)) mask |= PxFeatureSse2;
    if (Bit(leaf1.ecx, 0)) mask |= PxFeatureSse3;
    if (Bit(leaf1.ecx, 9)) mask |= PxFeatureSsse3;
    if (Bit(leaf1.ecx, 22)) mask |= PxFeatureMovbe;
    if (Bit(leaf1.ecx, 19)) mask |= PxFeatureSse41;
    if (Bit(leaf1.ecx, 20)) mask |= PxFeatureSse42;
    const bool avx = Bit(leaf1.ecx, 28);
    const bool osxsave = Bit(leaf1.ecx, 27);
    if (avx) mask |= PxFeatureAvx;
    const uint64_t xcr0 = osxsave ? ReadXcr0() : 0;
    if (osxsave && avx && (xcr0 & 0x6) == 0x6) mask |= PxFeatureAvxOsState;
    if ((xcr0 & 0xE0) == 0xE0) mask |= PxFeatureAvx512OsState;

    if (maxLeaf >= 7) {
        const CpuidResult leaf7 = Cpuid(7, 0);
        const bool fma = Bit(leaf1.ecx, 12);
        if (Bit(leaf7.ebx, 5) && fma && Bit(leaf7.ebx, 3) && Bit(leaf7.ebx, 8)) mask |= PxFeatureAvx2;
        if (Bit(leaf7.ebx, 16)) mask |= PxFeatureAvx512F;
        if (Bit(leaf7.ebx, 28)) mask |= PxFeatureAvx512CD;
        if (Bit(leaf7.ebx, 27)) mask |= PxFeatureAvx512ER;
        if (Bit(leaf7.ebx, 26)) mask |= PxFeatureAvx512PF;
        if (Bit(leaf7.ebx, 30)) mask |= PxFeatureAvx512BW;
        if (Bit(leaf7.ebx, 17)) mask |= PxFeatureAvx512DQ;
        if (Bit(leaf7.ebx, 31)) mask |= PxFeatureAvx512VL;
        if (Bit(leaf7.ebx, 21)) mask |= 1ull << 27;  // IFMA
        if (Bit(leaf7.ecx, 1)) mask |= 1ull << 28;   // VBMI
        if (Bit(leaf7.ecx, 6)) mask |= 1ull << 29;   // VBMI2
        if (Bit(leaf7.ecx, 11)) mask |= 1ull << 30;  // VNNI
        if (Bit(leaf7.ebx, 14)) mask |= 1ull << 32;  // MPX
    }
    return mask;
}

bool IsGenuineIntel() {
    const CpuidResult leaf0 = Cpuid(0);
    return leaf0.ebx == 0x756E6547u && leaf0.edx == 0x49656E69u && leaf0.ecx == 0x6C65746Eu;
}

// Sizes of the leaf-2 descriptors that name a data or unified cache of the older processors.
struct CacheDescriptor {
    uint8_t code;
    uint32_t bytes;
};
constexpr CacheDescriptor cacheDescriptors[] = {
    {0x0A, 8u << 10},   {0x0C, 16u << 10},  {0x0D, 16u << 10},  {0x2C, 32u << 10},  {0x41, 128u << 10},
    {0x42, 256u << 10}, {0x43, 512u << 10}, {0x44, 1u << 20},   {0x45, 2u << 20},   {0x46, 4u << 20},
    {0x47, 8u << 20},   {0x48, 3u << 20},   {0x49, 4u << 20},   {0x4A, 6u << 20},   {0x4B, 8u << 20},
    {0x4C, 12u << 20},  {0x4D, 16u << 20},  {0x4E, 6u << 20},   {0x60, 16u << 10},  {0x66, 8u << 10},
    {0x67, 16u << 10},  {0x68, 32u << 10},  {0x78, 1u << 20},   {0x79, 128u << 10}, {0x7A, 256u << 10},
    {0x7B, 512u << 10}, {0x7C, 1u << 20},   {0x7D, 2u << 20},   {0x7F, 512u << 10}, {0x80, 512u << 10},
    {0x82, 256u << 10}, {0x83, 512u << 10}, {0x84, 1u << 20},   {0x85, 2u << 20},   {0x86, 512u << 10},
    {0x87, 1u << 20},   {0xD0, 512u << 10}, {0xD1, 1u << 20},   {0xD2, 2u << 20},   {0xD6, 1u << 20},
    {0xD7, 2u << 20},   {0xD8, 4u << 20},   {0xDC, 1536u << 10}, {0xDD, 3u << 20},  {0xDE, 6u << 20},
    {0xE2, 2u << 20},   {0xE3, 4u << 20},   {0xE4, 8u << 20},   {0xEA, 12u << 20},  {0xEB, 18u << 20},
    {0xEC, 24u << 20},
};

uint32_t ReadLargestCache() {
    if (!IsGenuineIntel()) return 0;
    const uint32_t maxLeaf = __get_cpuid_max(0, nullptr);
    uint64_t largest = 0;
    if (maxLeaf >= 4) {
        for (uint32_t subleaf = 0; subleaf < 32; ++subleaf) {
            const CpuidResult cache = Cpuid(4, subleaf);
            const uint32_t type = cache.eax & 0x1F;
            if (type == 0) break;
            if (type == 2) continue;  // instruction cache
            const uint64_t ways = (cache.ebx >> 22) + 1;
            const uint64_t partitions = ((cache.ebx >> 12) & 0x3FF) + 1;
            const uint64_t lineSize = (cache.ebx & 0xFFF) + 1;
            const uint64_t sets = uint64_t(cache.ecx) + 1;
            const uint64_t bytes = ways * partitions * lineSize * sets;
            if (bytes > largest) largest = bytes;
        }
    } else if (maxLeaf >= 2) {
        const CpuidResult leaf2 = Cpuid(2);
        const uint32_t registers[4] = {leaf2.eax & 0xFFFFFF00u, leaf2.ebx, leaf2.ecx, leaf2.edx};
        for (const uint32_t value : registers) {
            if (value & 0x80000000u) continue;  // register holds no descriptors
            for (int shift = 0; shift < 32; shift += 8) {
                const uint8_t code = uint8_t(value >> shift);
                for (const CacheDescriptor& d : cacheDescriptors)
                    if (d.code == code && d.bytes > largest) largest = d.bytes;
            }
        }
    }
    return largest > 0xFFFFFFFFull ? 0xFFFFFFFFu : uint32_t(largest);
}

}  // namespace

uint64_t PxFeatureMask() {
    if (!featureMaskRead.load(std::memory_order_acquire)) {
        featureMask.store(ReadFeatureMask(), std::memory_order_relaxed);
        featureMaskRead.store(true, std::memory_order_release);
    }
    return featureMask.load(std::memory_order_relaxed);
}

int32_t PxChooseRow(uint64_t mask) {
    // Registers the operating system does not save cannot be used, whatever the processor offers.
    if ((mask & (PxFeatureAvx | PxFeatureAvx2)) && !(mask & PxFeatureAvxOsState))
        mask &= ~uint64_t(PxFeatureAvx | PxFeatureAvx2);
    if ((mask & avx512Features) && !(mask & PxFeatureAvx512OsState))
        mask &= ~(avx512Features | PxFeatureAvx | PxFeatureAvx2);

    const auto all = [mask](uint64_t bits) { return (mask & bits) == bits; };
    if (all(PxFeatureAvx512F | PxFeatureAvx512CD | PxFeatureAvx512BW | PxFeatureAvx512DQ | PxFeatureAvx512VL))
        return PxLevelAvx512;
    if (all(PxFeatureAvx512F | PxFeatureAvx512CD | PxFeatureAvx512ER | PxFeatureAvx512PF)) return PxLevelAvx512Mic;
    if (mask & PxFeatureAvx2) return PxLevelAvx2;
    if (mask & PxFeatureAvx) return PxLevelAvx;
    if (mask & PxFeatureSse42) return PxLevelSse42;
    if (mask & (PxFeatureSse41 | PxFeatureMovbe | PxFeatureSsse3)) return PxLevelSse41;
    return PxLevelSse2;
}

int32_t PxProcessorLevel() {
    int32_t current = level.load(std::memory_order_relaxed);
    if (current == PxLevelUnset) {
        current = PxChooseRow(PxFeatureMask());
        level.store(current, std::memory_order_relaxed);
    }
    return current;
}

int32_t PxCurrentLevel() { return level.load(std::memory_order_relaxed); }

uint32_t PxLargestCacheSize() {
    if (!largestCacheRead.load(std::memory_order_acquire)) {
        largestCache.store(ReadLargestCache(), std::memory_order_relaxed);
        largestCacheRead.store(true, std::memory_order_release);
    }
    return largestCache.load(std::memory_order_relaxed);
}

void PxForceProcessorLevel(int32_t forced) { level.store(forced, std::memory_order_relaxed); }
