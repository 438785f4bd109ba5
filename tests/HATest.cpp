// Hamilton-Adams as a stage: flat fields stay flat at every scale and phase, the output reduction's depth
// rules, the smallest images, the workspace failures, and the banded pipeline against the whole-frame steps.
#include "TestSupport.h"
#include "demosaic/HA.h"
#include "demosaic/NewDeBayer.h"
#include "platform/Platform.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

namespace {

using Stage = std::unique_ptr<ImageProcessing>;

Stage MakeHA(uint32_t width, uint32_t height, ImageFormat in, uint32_t scale = 1,
             ImageFormat out = {PixelFormat::RGBX, 8, 32}) {
    return Stage(NewDeBayer(width, height, &in, &out, scale, 1, nullptr));
}

// A mosaic of a field of one colour, as a sensor of that order would deliver it.
Bytes FlatMosaic(uint32_t format, uint32_t width, uint32_t height, const uint8_t rgb[3]) {
    return PackSamples(BayerMosaic(format, width, height, [&](uint32_t, uint32_t, int c) { return rgb[c]; }), 8);
}

class HATest : public StageTest {};

// A field of one colour has no gradient anywhere: every estimate returns the colour exactly, so this checks
// the phase, the exchange of red and blue and every scale's reduction at once; also on the smallest image Init
// lets through, whose ring of two rows is as high as the image.
TEST_F(HATest, FlatColourFieldsStayFlatAtEveryScaleAndPhase) {
    const uint8_t rgb[3] = {200, 90, 17};
    // 48 rows: scale 16 leaves no rows over, 32 would.
    const struct {
        uint32_t width, height, scale;
    } cases[] = {{64, 48, 1}, {64, 48, 2}, {64, 48, 4}, {64, 48, 8}, {64, 48, 16}, {16, 2, 1}};
    ForEachForm([&] {
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            for (const auto& [width, height, scale] : cases) {
                Stage stage = MakeHA(width, height, {format, 8, 8}, scale);
                ASSERT_NE(stage, nullptr);
                const Bytes out = RunStage(*stage, FlatMosaic(format, width, height, rgb));
                ASSERT_EQ(out.size(), size_t(width / scale) * (height / scale) * 4);
                for (size_t i = 0; i < out.size(); i += 4)
                    ASSERT_EQ(Bytes(out.begin() + i, out.begin() + i + 4), Bytes({rgb[0], rgb[1], rgb[2], 0xFF}))
                        << "format " << format << " scale " << scale << " at " << i / 4;
            }
        }
    });
}

// At scale 1 the 8-bit output is (v + 4) >> (depth - 5) of the working sample v = 8 x sample: the rounding
// term stays 4, so depth 12 is truncated, not rounded; deeper outputs keep (v + 4) >> 3 up to their maximum.
TEST_F(HATest, OutputDepthRules) {
    const uint32_t width = 32, height = 4;
    const auto grey = [&](uint32_t depth, uint16_t sample, ImageFormat out = {PixelFormat::RGBX, 8, 32}) {
        Stage stage = MakeHA(width, height, {PixelFormat::BayerGBRG, int32_t(depth), 16}, 1, out);
        EXPECT_NE(stage, nullptr);
        return stage ? RunStage(*stage, PackSamples(std::vector<uint16_t>(width * height, sample), 16)) : Bytes();
    };
    // 12 bits: sample 191 gives (1528 + 4) >> 7 = 11 (rounded to nearest it would be 12).
    EXPECT_EQ(grey(12, 191)[0], 11);
    EXPECT_EQ(grey(12, 4095)[0], 255);
    EXPECT_EQ(grey(10, 1023)[1], 255);
    EXPECT_EQ(grey(10, 514)[2], 128);  // (4112 + 4) >> 5

    // Below depth 5 the shift count leaves the range of 16-bit shifts: every sample is 0.
    for (const uint32_t depth : {1u, 4u}) {
        const ImageFormat in{PixelFormat::BayerRGGB, int32_t(depth), 8};
        Stage stage = MakeHA(width, height, in);
        ASSERT_NE(stage, nullptr);
        const Bytes out = RunStage(*stage, Bytes(width * height, uint8_t((1 << depth) - 1)));
        for (size_t i = 0; i < out.size(); i += 4) ASSERT_EQ(out[i] | out[i + 1] | out[i + 2], 0) << depth;
    }

    // 12-bit words out keep the sensor's scale and stop at 4095.
    const ImageFormat deepOut{PixelFormat::RGBX, 12, 64};
    for (const uint16_t sample : {uint16_t(0), uint16_t(1234), uint16_t(4095)}) {
        const Bytes out = grey(12, sample, deepOut);
        ASSERT_GE(out.size(), 8u);
        EXPECT_EQ(Bytes(out.begin(), out.begin() + 8), PackSamples({sample, sample, sample, 0}, 16));
    }
}

// Overshoot and undershoot beside a hard edge are cut at the output: the dark side never shows a wrapped
// negative estimate (which would come out bright) and the bright side never a wrapped overshoot.
TEST_F(HATest, HardEdgesKeepTheirSides) {
    const uint32_t width = 32, height = 16;
    Bytes mosaic(width * height, 0);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 16; x < width; ++x) mosaic[y * width + x] = 255;
    ForEachForm([&] {
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            Stage stage = MakeHA(width, height, {format, 8, 8});
            ASSERT_NE(stage, nullptr);
            const Bytes out = RunStage(*stage, mosaic);
            for (uint32_t y = 0; y < height; ++y)
                for (uint32_t x = 0; x < width; ++x)
                    for (int c = 0; c < 3; ++c) {
                        const uint8_t v = out[(y * width + x) * 4 + c];
                        if (x < 12) ASSERT_EQ(v, 0) << x << "," << y;
                        if (x >= 20) ASSERT_EQ(v, 255) << x << "," << y;
                        ASSERT_EQ(v >= 128, x >= 16) << x << "," << y << " channel " << c;
                    }
        }
    });
}

// At scale 16 an output row depends on all sixteen rows of its block.
TEST_F(HATest, ScaleSixteenReadsEveryRowOfItsBlock) {
    const uint32_t width = 32, height = 32;
    const Bytes base(width * height, 128);
    Stage stage = MakeHA(width, height, {PixelFormat::BayerRGGB, 8, 8}, 16);
    ASSERT_NE(stage, nullptr);
    const Bytes reference = RunStage(*stage, base);
    for (uint32_t row = 0; row < 16; ++row) {
        Bytes changed = base;
        for (uint32_t x = 0; x < width; ++x) changed[row * width + x] = 255;
        EXPECT_NE(RunStage(*stage, changed), reference) << "row " << row;
    }
}

TEST_F(HATest, RefusesScalesItCannotReduceAndFailedAllocations) {
    for (const uint32_t scale : {3u, 5u, 12u}) {
        EXPECT_EQ(MakeHA(64, 32, {PixelFormat::BayerRGGB, 8, 8}, scale), nullptr);
        EXPECT_EQ(LogCapture::Take(),
                  (std::vector<LoggedMessage>{{3, "DeBayer (HQ): Unsupported scale factor (" + std::to_string(scale) + ")"}}));
    }
    // The planes' block, then the row scratch, then the unpacking buffer of packed input: each failure refuses
    // the stage without a message and leaks nothing.
    for (uint32_t failing = 1; failing <= 2; ++failing) {
        platform::FailAllocationAfter(failing);
        EXPECT_EQ(MakeHA(64, 32, {PixelFormat::BayerRGGB, 8, 8}), nullptr) << failing;
        platform::FailAllocationAfter(0);
    }
    platform::FailAllocationAfter(1);
    EXPECT_EQ(MakeHA(64, 32, {PixelFormat::BayerRGGB, 10, 10}), nullptr);
    platform::FailAllocationAfter(0);
    EXPECT_TRUE(LogCapture::Take().empty());
    EXPECT_NE(MakeHA(64, 32, {PixelFormat::BayerRGGB, 8, 8}), nullptr);
}

// ---- The banded pipeline against the whole-frame steps ------------------------------------------------------

// The whole-frame pipeline from the scalar kernels: load, mirror all three planes, green, mirror green, both
// colour steps, reduce each plane.
void RunWholeFrame(HAPlaneStore& planes, const void* src, int32_t srcStride, int32_t inDepth, int32_t outDepth,
                   int32_t scale) {
    const HAPlanes view = planes.View();
    const PxSize source{view.width, view.height}, withRing{view.width + 4, view.height + 4};
    const int32_t stepBytes = int32_t(2 * view.stride);
    HALoadScalar(view, src, srcStride, inDepth > 8, 0, view.height);
    for (uint16_t* plane : {view.g, view.even, view.odd})
        PxCopyMirrorBorder_16u_I(plane, stepBytes, source, withRing, 2, 2);
    HAGreenScalar(view, 0, view.height);
    PxCopyMirrorBorder_16u_I(view.g, stepBytes, source, withRing, 2, 2);
    HAColourAtGreenScalar(view, 0, view.height);
    HAColourAtColourScalar(view, 0, view.height);
    alignas(32) static uint8_t scratch[2 * (2 * 512 + 64)];
    for (uint16_t* plane : {view.g, view.even, view.odd})
        HAReduceScalar(plane, view.stride, view.width, view.height, scale, inDepth, outDepth, scratch, 0,
                       HAOutputRows(view.height, scale));
}

// The stage's planes after Interpolate against the reference: the packed output bytes, and every element of the
// planes and their rings beyond them (the slack columns aside, which neither writes).
void ExpectSamePlanes(HA& stage, HAPlaneStore& reference, int32_t scale, int32_t outDepth, const std::string& what) {
    const HAPlanes ours = stage.Planes();
    const int32_t w = reference.width, h = reference.height;
    const intptr_t packed = scale > 1 ? intptr_t(h / scale) * (w / scale) : outDepth == 8 ? intptr_t(h) * w : 0;
    const uint16_t* oursPlanes[3] = {ours.g, ours.even, ours.odd};
    for (int plane = 0; plane < 3; ++plane) {
        const uint8_t* a = reinterpret_cast<const uint8_t*>(oursPlanes[plane]);
        const uint8_t* b = reinterpret_cast<const uint8_t*>(reference.Origin(plane));
        for (intptr_t i = 0; i < packed; ++i) ASSERT_EQ(a[i], b[i]) << what << " plane " << plane << " byte " << i;
        for (int32_t y = -2; y < h + 2; ++y)
            for (int32_t x = -2; x < w + 2; ++x) {
                const intptr_t at = y * ours.stride + x;
                if (2 * at < packed) continue;
                ASSERT_EQ(oursPlanes[plane][at], reference.At(plane, y, x))
                    << what << " plane " << plane << " row " << y << " column " << x;
            }
    }
}

// The stage runs its steps in bands of rows, a few rows behind each other, and packs the output while later
// bands are still being interpolated. Heights below, at and above a band and of two and three bands, at widths
// with long and short bands, every phase, scale and depth: the planes equal those of the whole-frame steps.
TEST_F(HATest, BandsGiveTheWholeFrameResult) {
    std::mt19937 random(17);
    ForEachForm([&] {
        for (const int32_t width : {16, 48, 400, 2048}) {
            const int32_t band = dynamic_cast<HA&>(*MakeHA(width, 2, {PixelFormat::BayerRGGB, 8, 8})).BandRows();
            for (int32_t height : {2, 6, band - 2, band, band + 2, 2 * band, 3 * band + 2}) {
                height += height & 1;
                for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format)
                    for (const int32_t inDepth : {8, 12})
                        for (const int32_t outDepth : {8, 12})
                            for (const int32_t scale : {1, 2, 4, 8, 16}) {
                                if (scale > 1 && inDepth > 8) continue;
                                const int32_t srcStride = width * (inDepth > 8 ? 2 : 1);
                                Bytes mosaic(size_t(srcStride) * height);
                                for (uint8_t& b : mosaic) b = uint8_t(random());
                                if (inDepth > 8)
                                    for (size_t i = 1; i < mosaic.size(); i += 2) mosaic[i] &= 0x0F;
                                const ImageFormat out{PixelFormat::RGBX, outDepth, outDepth == 8 ? 32u : 64u};
                                Stage stage = MakeHA(width, height, {format, inDepth, inDepth > 8 ? 16u : 8u},
                                                     scale, out);
                                ASSERT_NE(stage, nullptr);
                                HA& ha = dynamic_cast<HA&>(*stage);
                                HAPlaneStore reference(width, height, ha.Planes().phase);
                                RunWholeFrame(reference, mosaic.data(), srcStride, inDepth, outDepth, scale);
                                ha.Interpolate(mosaic.data(), srcStride);
                                ExpectSamePlanes(ha, reference, scale, outDepth,
                                                 std::to_string(width) + "x" + std::to_string(height) + " format " +
                                                     std::to_string(format) + " depths " + std::to_string(inDepth) +
                                                     "->" + std::to_string(outDepth) + " scale " +
                                                     std::to_string(scale));
                                if (HasFatalFailure()) return;
                            }
            }
        }
    });
}

}  // namespace
