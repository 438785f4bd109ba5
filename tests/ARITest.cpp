// Adaptive residual interpolation as a stage: parameters and their clamps, the rule for zero iterations, flat
// fields in every order and depth, the samples that come back unchanged, the start of the blend, the fixed
// kernels, and frames that fail at every allocation they make.
#include "TestSupport.h"
#include "demosaic/ARI.h"
#include "demosaic/NewDeBayer.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Stage = std::unique_ptr<ImageProcessing>;

constexpr uint32_t ariSelector = 3;
const ImageFormat rgbx8{PixelFormat::RGBX, 8, 32};

Stage MakeAri(uint32_t width, uint32_t height, ImageFormat in, ImageFormat out = rgbx8) {
    return Stage(NewDeBayer(width, height, &in, &out, 1, ariSelector, nullptr));
}

// A stage made directly with the parameter block (epsilon, riIterations, mlriIterations).
std::unique_ptr<ARI> MakeWithParameters(uint32_t width, uint32_t height, ImageFormat in, double epsilon,
                                        uint32_t ri, uint32_t mlri) {
    uint8_t block[16];
    std::memcpy(block, &epsilon, 8);
    std::memcpy(block + 8, &ri, 4);
    std::memcpy(block + 12, &mlri, 4);
    auto stage = std::make_unique<ARI>();
    if (!stage->Init(width, height, &in, &rgbx8, 1, ariSelector, block)) return nullptr;
    return stage;
}

// The mosaic of an RGB picture given per pixel, as bytes or as little-endian words.
Bytes MosaicOf(uint32_t format, uint32_t width, uint32_t height, bool words,
               const std::function<uint32_t(uint32_t, uint32_t, int)>& picture) {
    return PackSamples(BayerMosaic(format, width, height, picture), words ? 16 : 8);
}

uint32_t MosaicSample(const Bytes& mosaic, bool words, size_t i) {
    return words ? uint32_t(mosaic[2 * i] | mosaic[2 * i + 1] << 8) : mosaic[i];
}

// Sample c of pixel i of an RGBX output, 8-bit or 16-bit words.
uint32_t OutputSample(const Bytes& out, bool words, size_t i, int c) {
    return words ? uint32_t(out[8 * i + 2 * c] | out[8 * i + 2 * c + 1] << 8) : out[4 * i + c];
}

class ARITest : public StageTest {};

TEST_F(ARITest, DefaultsAndClampedParameters) {
    // NewDeBayer's stage runs on the defaults; its planes are the frame's size, rows of 4-byte elements.
    Stage made = MakeAri(32, 16, {PixelFormat::BayerGRBG, 8, 8});
    auto* ari = dynamic_cast<ARI*>(made.get());
    ASSERT_NE(ari, nullptr);
    EXPECT_EQ(ari->RiIterations(), 10u);
    EXPECT_EQ(ari->MlriIterations(), 10u);
    EXPECT_EQ(ari->Epsilon(), 1e-9);
    uint32_t planeWidth = 0, planeRowBytes = 0, planeHeight = 0;
    ari->GetPlaneGeometry(&planeWidth, &planeRowBytes, &planeHeight);
    EXPECT_EQ(std::vector<uint32_t>({planeWidth, planeRowBytes, planeHeight}), std::vector<uint32_t>({32, 128, 16}));

    const struct {
        double value, stored;
    } epsilons[] = {{1.0, 0.1}, {0.0, 1e-9}, {-3.0, 1e-9}, {1e-9, 1e-9}, {2e-9, 2e-9}, {0.05, 0.05}, {0.1, 0.1},
                    {std::numeric_limits<double>::quiet_NaN(), 1e-9}};
    for (const auto& e : epsilons) {
        EXPECT_TRUE(ari->SetParameter(2, &e.value));
        EXPECT_EQ(ari->Epsilon(), e.stored) << e.value;
    }
    const struct {
        uint32_t value, stored;
    } counts[] = {{100, 16}, {17, 16}, {16, 16}, {7, 7}, {0, 0}, {0xFFFFFFFFu, 16}};
    for (const auto& c : counts) {
        EXPECT_TRUE(ari->SetParameter(3, &c.value));
        EXPECT_EQ(ari->RiIterations(), c.stored) << c.value;
        EXPECT_TRUE(ari->SetParameter(4, &c.value));
        EXPECT_EQ(ari->MlriIterations(), c.stored) << c.value;
    }
    // Null values and unknown ids store nothing.
    const uint32_t five = 5;
    for (const uint32_t id : {2u, 3u, 4u}) EXPECT_FALSE(ari->SetParameter(id, nullptr)) << id;
    for (const uint32_t id : {0u, 1u, 5u, 6u}) EXPECT_FALSE(ari->SetParameter(id, &five)) << id;
    EXPECT_EQ(ari->RiIterations(), 16u);
    EXPECT_EQ(ari->MlriIterations(), 16u);
    EXPECT_EQ(ari->Epsilon(), 1e-9);

    // The block of Init: an f64 at offset 0, u32 at 8 and 12, clamped the same way.
    const auto fromBlock = MakeWithParameters(16, 4, {PixelFormat::BayerRGGB, 8, 8}, 1.0, 100, 3);
    ASSERT_NE(fromBlock, nullptr);
    EXPECT_EQ(fromBlock->Epsilon(), 0.1);
    EXPECT_EQ(fromBlock->RiIterations(), 16u);
    EXPECT_EQ(fromBlock->MlriIterations(), 3u);
}

// Both counts 0 run one plain iteration in each direction, from the first frame on; the object keeps the 1.
TEST_F(ARITest, ZeroIterationsRunOnePlainIteration) {
    const uint32_t width = 32, height = 16;
    const Bytes mosaic = RandomBytes(width * height, 7);
    const ImageFormat in{PixelFormat::BayerGBRG, 8, 8};
    const auto none = MakeWithParameters(width, height, in, 1e-9, 0, 0);
    const auto one = MakeWithParameters(width, height, in, 1e-9, 1, 0);
    const auto laplacian = MakeWithParameters(width, height, in, 1e-9, 0, 1);
    ASSERT_TRUE(none && one && laplacian);
    EXPECT_EQ(none->RiIterations(), 0u);
    const Bytes expected = RunStage(*one, mosaic);
    EXPECT_EQ(RunStage(*none, mosaic), expected);
    EXPECT_EQ(none->RiIterations(), 1u);
    EXPECT_EQ(none->MlriIterations(), 0u);
    EXPECT_NE(RunStage(*laplacian, mosaic), expected);
    EXPECT_EQ(RunStage(*none, mosaic), expected);
}

// A field of one colour: every fit is flat, every residual zero, so each channel returns exactly. Input deeper
// than the output saturates at the output's maximum without a shift.
TEST_F(ARITest, FlatFieldsStayFlatInEveryOrderAndDepth) {
    const ImageFormat deep12{PixelFormat::RGBX, 12, 64}, deep10{PixelFormat::RGBX, 10, 64};
    const struct {
        int32_t depth;
        ImageFormat out;
        uint32_t rgb[3];
        uint32_t expected[3];
    } cases[] = {
        {8, rgbx8, {200, 90, 17}, {200, 90, 17}},
        {8, rgbx8, {255, 0, 255}, {255, 0, 255}},
        {8, rgbx8, {77, 77, 77}, {77, 77, 77}},
        {10, rgbx8, {300, 200, 1023}, {255, 200, 255}},
        {12, deep12, {4000, 1234, 7}, {4000, 1234, 7}},
        {10, deep10, {1023, 0, 512}, {1023, 0, 512}},
    };
    for (const auto& c : cases) {
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            const uint32_t width = 32, height = 16;
            const bool deepIn = c.depth > 8, deepOut = c.out.bitDepth > 8;
            Stage stage = MakeAri(width, height, {format, c.depth, deepIn ? 16u : 8u}, c.out);
            ASSERT_NE(stage, nullptr);
            const Bytes out = RunStage(
                *stage, MosaicOf(format, width, height, deepIn, [&](uint32_t, uint32_t, int k) { return c.rgb[k]; }));
            for (size_t i = 0; i < size_t(width) * height; ++i)
                for (int k = 0; k < 3; ++k)
                    ASSERT_EQ(OutputSample(out, deepOut, i, k), c.expected[k])
                        << "depth " << c.depth << " format " << format << " pixel " << i << " channel " << k;
        }
    }
}

// Green at a green site is the sample in every pass and so in the blend; a colour plane at its own sites is the
// sample from three pixels inside the border on (nearer the edge the replicated border of the 7 by 7 residual
// filter reaches other sites of the lattice). A picture whose channels are linear functions of one ramp is what
// every guided fit explains exactly: it comes back from three pixels in (exactly in 8 bits, within the rounding
// of the last bit in 12), and within a few units at the border.
TEST_F(ARITest, SamplesAndCorrelatedRampsComeBack) {
    const uint32_t width = 64, height = 32;
    std::mt19937 random(11);
    for (const int32_t depth : {8, 12}) {
        const bool words = depth > 8;
        const uint32_t top = (1u << depth) - 1, unit = (top + 1) / 256;
        const auto ramp = [&](uint32_t x, uint32_t y, int c) {
            const uint32_t l = x + 2 * y;
            const uint32_t rgb[3] = {2 * l * unit, (60 + l) * unit, (200 - l) * unit};
            return rgb[c];
        };
        std::vector<uint32_t> noise(size_t(width) * height);
        for (auto& n : noise) n = random() % (top / 8);
        const auto noisy = [&](uint32_t x, uint32_t y, int c) {
            return std::min(top, ramp(x, y, c) + noise[size_t(y) * width + x]);
        };
        const ImageFormat out = words ? ImageFormat{PixelFormat::RGBX, 12, 64} : rgbx8;
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            Stage stage = MakeAri(width, height, {format, depth, words ? 16u : 8u}, out);
            ASSERT_NE(stage, nullptr);
            const Bytes mosaic = MosaicOf(format, width, height, words, noisy);
            const Bytes result = RunStage(*stage, mosaic);
            const Bytes ramped = RunStage(*stage, MosaicOf(format, width, height, words, ramp));
            for (uint32_t y = 0; y < height; ++y)
                for (uint32_t x = 0; x < width; ++x) {
                    SCOPED_TRACE("depth " + std::to_string(depth) + " format " + std::to_string(format) + " at " +
                                 std::to_string(x) + "," + std::to_string(y));
                    const size_t i = size_t(y) * width + x;
                    const int c = BayerSiteColour(format, x, y);
                    const bool inside = x >= 3 && y >= 3 && x + 3 < width && y + 3 < height;
                    if (c == 1 || inside) ASSERT_EQ(OutputSample(result, words, i, c), MosaicSample(mosaic, words, i));
                    const int tolerance = inside ? int(words) : words ? 8 : 1;
                    for (int k = 0; k < 3; ++k)
                        ASSERT_NEAR(int(OutputSample(ramped, words, i, k)), int(ramp(x, y, k)), tolerance)
                            << "channel " << k;
                }
        }
    }
}

// The weight sum starts at 1e-32. A criterion above the start of 1e32 never replaces the first estimate, so each
// of the four passes then adds the weight 1 / 1e32; a criterion that is not a number does replace it.
TEST_F(ARITest, BlendStartsAtTheFloorAndNaNCriteriaReplace) {
    const uint32_t width = 32, height = 16;
    auto stage = MakeWithParameters(width, height, {PixelFormat::BayerRGGB, 8, 8}, 1e-9, 2, 2);
    ASSERT_NE(stage, nullptr);
    // Samples near 1e12 make every criterion about 1e36: large, and finite.
    std::mt19937 random(3);
    std::vector<float> mosaic(width * height);
    for (auto& v : mosaic) v = float(1e12 + double(random() % 9000) * 1e9);
    ASSERT_TRUE(stage->EstimateGreenOf(mosaic.data()));
    const float weight = 1.0f / 1e32f;
    const float expected = (((1e-32f + weight) + weight) + weight) + weight;
    for (uint32_t i = 0; i < width * height; ++i) ASSERT_FLOAT_EQ(stage->WeightSums().data[i], expected) << i;

    mosaic[5 * width + 9] = std::numeric_limits<float>::quiet_NaN();
    ASSERT_TRUE(stage->EstimateGreenOf(mosaic.data()));
    EXPECT_TRUE(std::isnan(stage->WeightSums().data[5 * width + 9]));
}

TEST_F(ARITest, FixedKernels) {
    double gauss[25], sum = 0;
    for (int j = 0; j < 5; ++j)
        for (int i = 0; i < 5; ++i) sum += gauss[5 * j + i] = std::exp(-((i - 2) * (i - 2) + (j - 2) * (j - 2)) / 8.0);
    float total = 0;
    for (int k = 0; k < 25; ++k) {
        EXPECT_EQ(ARI::CriterionKernel[k], float(gauss[k] / sum)) << k;
        total += ARI::CriterionKernel[k];
    }
    EXPECT_NEAR(total, 1.0f, 1e-6f);
    EXPECT_EQ(ARI::CriterionKernel[12], 0.0631914660f);
    for (const int corner : {0, 4, 20, 24}) EXPECT_EQ(ARI::CriterionKernel[corner], 0.0232468396f);

    // The outer product of the line; on the lattice of the centre's own sites only the centre is non-zero.
    const float line[7] = {-1.0f / 16, 0, 9.0f / 16, 1, 9.0f / 16, 0, -1.0f / 16};
    for (int j = 0; j < 7; ++j)
        for (int i = 0; i < 7; ++i) EXPECT_EQ(ARI::ColourResidualKernel[7 * j + i], line[j] * line[i]) << i << "," << j;

    EXPECT_EQ(std::vector<float>(ARI::MidpointKernel, ARI::MidpointKernel + 3), (std::vector<float>{0.5f, 0, 0.5f}));
    EXPECT_EQ(std::vector<float>(ARI::ResidualKernel, ARI::ResidualKernel + 3), (std::vector<float>{0.5f, 1, 0.5f}));
    EXPECT_EQ(std::vector<float>(ARI::GradientKernel, ARI::GradientKernel + 3), (std::vector<float>{-1, 0, 1}));
}

// Every allocation of a frame fails in turn: each gives "Debayer failed" and leaves the output unwritten, and the
// next frame is whole again. The frame's images are released while the failure unwinds (the sanitizer build
// checks that nothing leaks).
TEST_F(ARITest, FailedAllocationsMidFrameFailTheFrameOnly) {
    const uint32_t width = 32, height = 16;
    const Bytes mosaic = RandomBytes(width * height, 9);
    const auto stage = MakeWithParameters(width, height, {PixelFormat::BayerBGGR, 8, 8}, 1e-9, 1, 1);
    ASSERT_NE(stage, nullptr);
    EXPECT_GT(FailEachAllocationOfAFrame(*stage, mosaic), 50u);  // the frame has that many allocations

    // The workspace's four planes: Init refuses without a message.
    for (uint32_t first = 1; first <= 4; ++first) {
        platform::FailAllocationAfter(first);
        EXPECT_EQ(MakeAri(width, height, {PixelFormat::BayerBGGR, 8, 8}), nullptr) << first;
        platform::FailAllocationAfter(0);
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

}  // namespace
