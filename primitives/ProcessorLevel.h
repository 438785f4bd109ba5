// The processor level: one row of seven, chosen once per process from the CPU's features and the
// operating system's support for their registers. Primitives and stage kernels pick their form by it.
#pragma once

#include <cstdint>

// Rows, from the SSE2 floor up.
enum PxLevel : int32_t {
    PxLevelUnset = -1,
    PxLevelSse2 = 0,
    PxLevelSse41 = 1,  // SSE4.1, MOVBE or SSSE3
    PxLevelSse42 = 2,
    PxLevelAvx = 3,
    PxLevelAvx2 = 4,   // with FMA, BMI1 and BMI2
    PxLevelAvx512Mic = 5,  // F, CD, ER, PF
    PxLevelAvx512 = 6,     // F, CD, BW, DQ, VL
};

// Feature-mask bits that decide the row.
enum PxFeature : uint64_t {
    PxFeatureSse2 = 1ull << 2,
    PxFeatureSse3 = 1ull << 3,
    PxFeatureSsse3 = 1ull << 4,
    PxFeatureMovbe = 1ull << 5,
    PxFeatureSse41 = 1ull << 6,
    PxFeatureSse42 = 1ull << 7,
    PxFeatureAvx = 1ull << 8,
    PxFeatureAvxOsState = 1ull << 9,
    PxFeatureAvx2 = 1ull << 15,
    PxFeatureAvx512F = 1ull << 20,
    PxFeatureAvx512CD = 1ull << 21,
    PxFeatureAvx512ER = 1ull << 22,
    PxFeatureAvx512PF = 1ull << 23,
    PxFeatureAvx512BW = 1ull << 24,
    PxFeatureAvx512DQ = 1ull << 25,
    PxFeatureAvx512VL = 1ull << 26,
    PxFeatureAvx512OsState = 1ull << 33,
};

// The level, chosen on the first call; 0 to 6.
int32_t PxProcessorLevel();

// The level as it stands, -1 before the first choice: the index into a primitive's table of forms,
// whose entry -1 chooses the level and runs the call again.
int32_t PxCurrentLevel();

// The processor's feature mask, read once.
uint64_t PxFeatureMask();

// The row a feature mask leads to.
int32_t PxChooseRow(uint64_t featureMask);

// Size in bytes of the largest data or unified cache, 0 when it cannot be told; read once.
uint32_t PxLargestCacheSize();

// Tests only: run every later call at this level (-1 chooses again from the processor).
void PxForceProcessorLevel(int32_t level);
