// Minimised-Laplacian residual interpolation as a stage: parameters and their clamps, the side kernel, flat fields,
// the sampled sites that must come back unchanged, deep input, and failed allocations.
#include "TestSupport.h"
#include "demosaic/MLRI.h"
#include "demosaic/NewDeBayer.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

using Stage = std::unique_ptr<ImageProcessing>;

constexpr uint32_t mlriSelector = 4;
const ImageFormat rgbx{PixelFormat::RGBX, 8, 32};

Stage MakeMLRI(uint32_t width, uint32_t height, ImageFormat in, ImageFormat out = rgbx) {
    return Stage(NewDeBayer(width, height, &in, &out, 1, mlriSelector, nullptr));
}

// A scene with smooth shading, hard edges of a strong red and noise, mosaicked in the given order: not flat and
// not linear anywhere, so every window's fit has an error of its own. The red blocks switch between almost 0
// and 250 next to a bright green, which drives fits below 0 at their edges.
Bytes Scene(uint32_t format, uint32_t width, uint32_t height, uint32_t seed) {
    std::mt19937 random(seed);
    return PackSamples(BayerMosaic(format, width, height, [&](uint32_t x, uint32_t y, int c) {
                           const int noise = int(random() % 9);
                           const int rgb[3] = {((x / 6 + y / 10) & 1) ? 240 + noise : 1 + noise,
                                               150 + int(60 * std::sin(x * 0.21 + y * 0.09)) + noise,
                                               40 + int(x + 2 * y) % 90 + noise};
                           return uint32_t(rgb[c]);
                       }),
                       8);
}

class MLRITest : public StageTest {};

TEST_F(MLRITest, ParametersClampAndWindowsStayFixed) {
    const ImageFormat in{PixelFormat::BayerRGGB, 8, 8};
    Stage made = MakeMLRI(32, 16, in);
    ASSERT_NE(made, nullptr);
    auto& stage = dynamic_cast<MLRI&>(*made);
    EXPECT_EQ(stage.Epsilon(), 1e-9);
    EXPECT_EQ(stage.Sigma(), 1.0);

    // id, value, what is stored
    const double cases[][3] = {{5, 0.0, 1e-9},  {5, -3.0, 1e-9}, {5, 2e-9, 2e-9},  {5, 0.05, 0.05},   {5, 7.0, 0.1},
                               {5, NAN, 1e-9},  {6, 0.0, 0.01},  {6, 2.5, 2.5},    {6, 1000.0, 100.0}, {6, NAN, 0.01}};
    for (const auto& c : cases) {
        EXPECT_TRUE(stage.SetParameter(uint32_t(c[0]), &c[1])) << c[0] << " " << c[1];
        EXPECT_EQ(c[0] == 5 ? stage.Epsilon() : stage.Sigma(), c[2]) << c[0] << " " << c[1];
    }
    const double value = 0.5;
    for (const uint32_t id : {0u, 4u, 7u}) EXPECT_FALSE(stage.SetParameter(id, &value)) << id;
    EXPECT_FALSE(stage.SetParameter(5, nullptr));

    // The block of Init: ids 5 and 6 as two f64, clamped like single values.
    const double block[2] = {0.5, 0.001};
    const ImageFormat out = rgbx;
    MLRI direct;
    ASSERT_TRUE(direct.Init(32, 16, &in, &out, 1, mlriSelector, block));
    EXPECT_EQ(direct.Epsilon(), 0.1);
    EXPECT_EQ(direct.Sigma(), 0.01);
    EXPECT_EQ(direct.GreenWindow(), 7u);
    EXPECT_EQ(direct.ColourWindow(), 11u);
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(MLRITest, SideKernelIsANormalisedOneSidedGaussian) {
    float before[9], after[9];
    MLRI::BuildSideKernel(before, 1.0, -1);
    MLRI::BuildSideKernel(after, 1.0, 1);
    const float expected[9] = {0, 0, 0, 0, 0.5703f, 0.3459f, 0.0772f, 0.0063f, 0.0002f};
    float sum = 0;
    for (int i = 0; i < 9; ++i) {
        EXPECT_NEAR(before[i], expected[i], 5e-5) << i;
        EXPECT_EQ(after[i], before[8 - i]) << i;
        sum += before[i];
    }
    EXPECT_NEAR(sum, 1.0f, 1e-6f);
}

// No gradient anywhere: every fit returns its window's own colour, in every order and at both input depths. A
// 12-bit input at 8-bit output saturates at 255 instead of being shifted.
TEST_F(MLRITest, FlatFieldsStayFlatAndDeepInputSaturates) {
    const uint32_t width = 48, height = 24;
    struct Case {
        int32_t depth;
        uint16_t rgb[3];
        uint8_t expected[3];
    };
    const Case cases[] = {{8, {200, 90, 17}, {200, 90, 17}}, {8, {0, 255, 0}, {0, 255, 0}},
                          {12, {100, 300, 4095}, {100, 255, 255}}, {10, {1023, 7, 255}, {255, 7, 255}}};
    for (const Case& c : cases) {
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            SCOPED_TRACE(testing::Message() << "depth " << c.depth << ", format " << format);
            Stage stage = MakeMLRI(width, height, {format, c.depth, c.depth > 8 ? 16u : 8u});
            ASSERT_NE(stage, nullptr);
            const auto flat = [&](uint32_t, uint32_t, int k) { return uint32_t(c.rgb[k]); };
            const Bytes mosaic = PackSamples(BayerMosaic(format, width, height, flat), c.depth > 8 ? 16 : 8);
            const Bytes out = RunStage(*stage, mosaic);
            const uint8_t pixel[4] = {c.expected[0], c.expected[1], c.expected[2], 0xFF};
            for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], pixel[i % 4]) << "pixel " << i / 4;
        }
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

// Green sites keep their sample exactly. A colour site keeps its sample too, from 3 pixels inside the border on
// (nearer the edge the replicated border of the residual filter reaches other sites), also where the fit went
// below 0: the clamp comes before the residual is taken.
TEST_F(MLRITest, SampledSitesComeBackUnchanged) {
    const uint32_t width = 96, height = 64;
    for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
        SCOPED_TRACE(testing::Message() << "format " << format);
        const Bytes mosaic = Scene(format, width, height, format);
        Stage stage = MakeMLRI(width, height, {format, 8, 8});
        ASSERT_NE(stage, nullptr);
        const Bytes out = RunStage(*stage, mosaic);
        int colourMismatches = 0, greenMismatches = 0;
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x) {
                const int colour = BayerSiteColour(format, x, y);
                const uint8_t sample = mosaic[y * width + x], result = out[4 * (y * width + x) + colour];
                if (colour == 1) {
                    greenMismatches += result != sample;
                } else if (x >= 3 && y >= 3 && x < width - 3 && y < height - 3) {
                    colourMismatches += result != sample;
                }
            }
        EXPECT_EQ(greenMismatches, 0);
        EXPECT_EQ(colourMismatches, 0);
    }
}

#if defined(__GLIBC__)
size_t HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}
#else
size_t HeapInUse() { return 0; }  // no portable measure: the leak check holds trivially here
#endif

// Every allocation of a frame can fail: the frame then logs "Debayer failed", leaves the output untouched and
// frees what it had taken; the next frame is whole again. A failure while the stage is made refuses it silently.
TEST_F(MLRITest, FailedAllocationsFailTheFrameOnly) {
    const uint32_t width = 32, height = 16;
    const ImageFormat in{PixelFormat::BayerBGGR, 8, 8};
    for (uint32_t failing = 1; failing <= 4; ++failing) {
        platform::FailAllocationAfter(failing);
        EXPECT_EQ(MakeMLRI(width, height, in), nullptr) << failing;
        platform::FailAllocationAfter(0);
    }
    EXPECT_TRUE(LogCapture::Take().empty());

    const Bytes mosaic = Scene(PixelFormat::BayerBGGR, width, height, 3);
    Stage stage = MakeMLRI(width, height, in);
    ASSERT_NE(stage, nullptr);
    // The directional images; the fits keep their rows from frame to frame.
    EXPECT_GE(FailEachAllocationOfAFrame(*stage, mosaic, HeapInUse), 8u);
}

}  // namespace
