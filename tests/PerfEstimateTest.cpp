// The per-frame cost estimate: the chain it predicts, the rates it reads, and the answers it gives where the
// table has no cell.
#include "TestSupport.h"
#include "perf/PerfTable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

class PerfEstimate : public ::testing::Test {
protected:
    void SetUp() override {
        LogCapture::Install();
        table = MadeUpRates();
        ThePerfTable() = table;
    }
    void TearDown() override { ThePerfTable() = MadeUpRates(); }

    float Estimate(uint32_t format, int32_t bitDepth, uint32_t width, uint32_t height, const ParameterChoice& choice,
                   uint32_t inputCompression = CompressionCode::Raw) {
        const StreamConfig config = MakeConfig(format, width, height, bitDepth, 8, inputCompression);
        const auto parameters = MakeParameters(choice);
        return GetStreamerPerformance(&config, parameters.data());
    }

    PerfTable table{};
};

constexpr uint32_t raw = CompressionCode::Raw;
constexpr uint32_t jpeg = CompressionCode::Jpeg;
const float infinity = INFINITY;

TEST_F(PerfEstimate, NothingToDoCostsNothing) {
    EXPECT_EQ(Estimate(PixelFormat::Mono, 8, 1920, 1080, {1, jpeg}, CompressionCode::Jpeg), 0.0f);
    EXPECT_EQ(Estimate(PixelFormat::Mono, 8, 1920, 1080, {17, raw}), 0.0f);
    EXPECT_EQ(Estimate(PixelFormat::Mono, 8, 1920, 1080, {1, raw}), 0.0f);
    EXPECT_EQ(Estimate(PixelFormat::BayerRGGB, 8, 0, 1080, {1, jpeg}), 0.0f);
}

TEST_F(PerfEstimate, AddsTheStagesTheAssemblyWouldBuild) {
    const double p = 1920.0 * 1080;
    EXPECT_EQ(Estimate(PixelFormat::Mono, 8, 1920, 1080, {2, raw}), float(p / double(table.monoScaleRate(2))));
    // Deep Mono at scale 4 to JPEG: packing, binning, then a quarter by a quarter of the pixels encoded.
    EXPECT_EQ(Estimate(PixelFormat::Mono, 12, 1920, 1080, {4, jpeg}),
              float(p / double(table.packRate(12)) + p / double(table.monoScaleRate(4)) +
                    p / 4 / 4 / double(table.jpegRate(PixelFormat::Mono))));
    EXPECT_EQ(Estimate(PixelFormat::UYVY, 8, 1920, 1080, {2, jpeg}),
              float(p / double(table.yuvRate(2)) + p / 2 / 2 / double(table.jpegRate(PixelFormat::UYVY))));
    EXPECT_EQ(Estimate(PixelFormat::YUV420P, 8, 1920, 1080, {2, raw}), float(p / double(table.yuvRate(2))));
    EXPECT_EQ(Estimate(300, 8, 1920, 1080, {2, jpeg}),
              float(p / double(table.yuvRate(2)) + p / 2 / 2 / double(table.jpegRate(PixelFormat::YUV422P))));
    EXPECT_EQ(Estimate(PixelFormat::BayerGRBG, 8, 1920, 1080, {1, raw, 0.75f, 0}),
              float(p / double(table.fastDemosaicRate(1))));
    EXPECT_EQ(Estimate(PixelFormat::BayerGRBG, 8, 1920, 1080, {8, raw, 0.75f, 1}),
              float(p / double(table.qualityDemosaicRate(8, 8))));
    // demosaic 2 and 3 are costed at the fast rate.
    EXPECT_EQ(Estimate(PixelFormat::BayerGRBG, 8, 1920, 1080, {1, raw, 0.75f, 3}),
              float(p / double(table.fastDemosaicRate(1))));
}

TEST_F(PerfEstimate, KeepingHighDepthSkipsPackingOnlyWhereTheChainWould) {
    const double p = 1024.0 * 1024;
    EXPECT_EQ(Estimate(PixelFormat::BayerRGGB, 12, 1024, 1024, {1, raw, 0.75f, 2, 1}),
              float(p / double(table.fastDemosaicRate(1))));
    EXPECT_EQ(Estimate(PixelFormat::BayerRGGB, 12, 1024, 1024, {2, raw, 0.75f, 1, 1}),
              float(p / double(table.packRate(12)) + p / double(table.qualityDemosaicRate(12, 2))));
    EXPECT_EQ(Estimate(PixelFormat::BayerRGGB, 12, 1024, 1024, {1, raw, 0.75f, 1, 1}),
              float(p / double(table.qualityDemosaicRate(12, 1))));
}

// A rate that was never measured, or a cell the table does not have, gives positive infinity.
TEST_F(PerfEstimate, UnmeasuredAndOutOfTableAnswersAreInfinite) {
    std::memset(ThePerfTable().cells, 0, sizeof(ThePerfTable().cells));
    for (const uint32_t s : {2u, 4u, 8u, 16u}) ThePerfTable().monoScaleRate(s) = 1000000;
    EXPECT_EQ(Estimate(PixelFormat::Mono, 8, 64, 64, {3, raw}), infinity);
    EXPECT_EQ(Estimate(PixelFormat::UYVY, 8, 64, 64, {8, raw}), infinity);
    EXPECT_EQ(Estimate(PixelFormat::BayerRGGB, 16, 64, 64, {1, raw, 0.75f, 1, 1}), infinity);
    EXPECT_EQ(Estimate(PixelFormat::Mono, 8, 64, 64, {0, jpeg}), infinity);
    EXPECT_GT(Estimate(PixelFormat::Mono, 8, 64, 64, {2, raw}), 0.0f);

    ThePerfTable() = table;
    EXPECT_EQ(Estimate(PixelFormat::Mono, 40, 64, 64, {1, raw}), infinity);
    EXPECT_EQ(Estimate(PixelFormat::Mono, -3, 64, 64, {2, raw}), float(64.0 * 64 / double(table.monoScaleRate(2))));
    EXPECT_EQ(Estimate(PixelFormat::BayerRGGB, 17, 64, 64, {1, raw, 0.75f, 1, 1}), infinity);
    EXPECT_EQ(Estimate(100, 8, 64, 64, {1, jpeg}), infinity);
    EXPECT_EQ(Estimate(PixelFormat::YUVCode21, 8, 64, 64, {1, jpeg}),
              float(64.0 * 64 / double(table.jpegRate(PixelFormat::YUVCode21))));
    EXPECT_EQ(GetStreamerPerformance(nullptr, nullptr), 0.0f);
    // Scale 0 to JPEG on an empty frame: not a number by the plain division, infinite like any unmeasured scale.
    EXPECT_EQ(Estimate(PixelFormat::Mono, 8, 0, 64, {0, jpeg}), infinity);
}

}  // namespace
