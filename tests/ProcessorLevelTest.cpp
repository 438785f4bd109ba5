// Choosing the processor level: the row table, the operating system's part, and the first call.
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

constexpr uint64_t sse = PxFeatureSse2 | PxFeatureSse3 | PxFeatureSsse3 | PxFeatureSse41 | PxFeatureSse42;
constexpr uint64_t avx = sse | PxFeatureAvx | PxFeatureAvxOsState;
constexpr uint64_t avx2 = avx | PxFeatureAvx2;
constexpr uint64_t avx512Os = PxFeatureAvx512OsState;
constexpr uint64_t skylakeServer =
    avx2 | PxFeatureAvx512F | PxFeatureAvx512CD | PxFeatureAvx512BW | PxFeatureAvx512DQ | PxFeatureAvx512VL | avx512Os;
constexpr uint64_t knightsLanding =
    avx2 | PxFeatureAvx512F | PxFeatureAvx512CD | PxFeatureAvx512ER | PxFeatureAvx512PF | avx512Os;

TEST(ProcessorLevel, EachRowHasItsCondition) {
    const struct {
        const char* name;
        uint64_t mask;
        int32_t row;
    } cases[] = {
        {"nothing readable", 0, 0},
        {"SSE2 floor", PxFeatureSse2 | PxFeatureSse3, 0},
        {"SSSE3", PxFeatureSse2 | PxFeatureSsse3, 1},
        {"MOVBE alone", PxFeatureMovbe, 1},
        {"SSE4.1", PxFeatureSse2 | PxFeatureSse41, 1},
        {"SSE4.2", sse, 2},
        {"AVX", avx, 3},
        {"AVX2", avx2, 4},
        {"Knights Landing", knightsLanding, 5},
        {"AVX-512 server", skylakeServer, 6},
        {"both AVX-512 rows: the server row wins", skylakeServer | knightsLanding, 6},
        {"AVX-512 without CD", skylakeServer & ~uint64_t(PxFeatureAvx512CD), 4},
        {"AVX without its state saved", avx & ~uint64_t(PxFeatureAvxOsState), 2},
        {"AVX2 without AVX state saved", avx2 & ~uint64_t(PxFeatureAvxOsState), 2},
        {"AVX-512 without its state saved drops AVX too", skylakeServer & ~avx512Os, 2},
        {"only an AVX-512 extension bit without state", avx2 | (1ull << 28), 2},
    };
    for (const auto& c : cases) EXPECT_EQ(PxChooseRow(c.mask), c.row) << c.name;
}

TEST(ProcessorLevel, TheMachinesFeaturesAreConsistent) {
    const uint64_t mask = PxFeatureMask();
    EXPECT_EQ(mask, PxFeatureMask()) << "read once";
    EXPECT_TRUE(mask & PxFeatureSse2) << "every x86-64 processor";
    if (mask & PxFeatureAvx2) EXPECT_TRUE(mask & PxFeatureAvx);
    EXPECT_EQ(PxLargestCacheSize(), PxLargestCacheSize());
}

TEST(ProcessorLevel, ConcurrentFirstCallsAgreeOnOneLevelAndOneResult) {
    const uint8_t mosaic[36] = {9, 200, 3, 77, 120, 5, 6, 90, 11, 240, 1, 2, 13, 14, 15, 16, 170, 18,
                                19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36};
    std::vector<std::vector<uint8_t>> results(8, std::vector<uint8_t>(108));
    for (int round = 0; round < 20; ++round) {
        PxForceProcessorLevel(PxLevelUnset);
        std::vector<std::thread> threads;
        for (size_t t = 0; t < results.size(); ++t)
            threads.emplace_back([&, t] {
                PxRect roi{0, 0, 6, 6};
                PxBayerToRgb_8u(mosaic, &roi, {6, 6}, 6, results[t].data(), 18, PxGridGBRG, 0);
            });
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(PxCurrentLevel(), PxChooseRow(PxFeatureMask()));
        for (const auto& result : results) ASSERT_EQ(result, results[0]);
        std::vector<uint8_t> later(108);
        PxRect roi{0, 0, 6, 6};
        PxBayerToRgb_8u(mosaic, &roi, {6, 6}, 6, later.data(), 18, PxGridGBRG, 0);
        ASSERT_EQ(later, results[0]) << "the first call equals the later ones";
    }
}

}  // namespace
