// Hamilton-Adams as a stage: flat fields stay flat at every scale and phase, the output reduction's depth
// rules, the smallest images, the workspace failures, the banded pipeline against the whole-frame steps, and
// streams through the exported interface.
#include "TestSupport.h"
#include "demosaic/HA.h"
#include "demosaic/NewDeBayer.h"
#include "platform/Platform.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Stage = std::unique_ptr<ImageProcessing>;

Stage MakeHA(uint32_t width, uint32_t height, ImageFormat in, uint32_t scale = 1,
             ImageFormat out = {PixelFormat::RGBX, 8, 32}) {
    return Stage(NewDeBayer(width, height, &in, &out, scale, 1, nullptr));
}

Bytes Demosaic(ImageProcessing& stage, const Bytes& mosaic) {
    Bytes out(stage.OutputSize(), 0xA5);
    EXPECT_EQ(stage.Process(mosaic.data(), out.data(), nullptr), stage.OutputSize());
    return out;
}

// The colour of each site of a Bayer order: 0 red, 1 green, 2 blue.
int SiteColour(uint32_t format, uint32_t x, uint32_t y) {
    static const int layouts[4][4] = {{0, 1, 1, 2}, {1, 0, 2, 1}, {2, 1, 1, 0}, {1, 2, 0, 1}};  // RGGB GRBG BGGR GBRG
    return layouts[format - PixelFormat::BayerRGGB][(y & 1) * 2 + (x & 1)];
}

// A mosaic of a field of one colour, as a sensor of that order would deliver it.
Bytes FlatMosaic(uint32_t format, uint32_t width, uint32_t height, const uint8_t rgb[3]) {
    Bytes mosaic(width * height);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) mosaic[y * width + x] = rgb[SiteColour(format, x, y)];
    return mosaic;
}

class HATest : public ::testing::Test {
protected:
    void SetUp() override { LogCapture::Install(); }
    void TearDown() override { platform::FailAllocationAfter(0); }
};

// A field of one colour has no gradient anywhere: every estimate returns the colour exactly, so this checks
// the phase, the exchange of red and blue and every scale's reduction at once.
TEST_F(HATest, FlatColourFieldsStayFlatAtEveryScaleAndPhase) {
    const uint8_t rgb[3] = {200, 90, 17};
    ForEachForm([&] {
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            for (const uint32_t scale : {1u, 2u, 4u, 8u, 16u}) {
                const uint32_t width = 64, height = 48;  // 48 rows: scale 16 leaves no rows over, 32 would
                Stage stage = MakeHA(width, height, {format, 8, 8}, scale);
                ASSERT_NE(stage, nullptr);
                const Bytes out = Demosaic(*stage, FlatMosaic(format, width, height, rgb));
                ASSERT_EQ(out.size(), size_t(width / scale) * (height / scale) * 4);
                for (size_t i = 0; i < out.size(); i += 4) {
                    ASSERT_EQ(out[i], rgb[0]) << "format " << format << " scale " << scale << " at " << i / 4;
                    ASSERT_EQ(out[i + 1], rgb[1]);
                    ASSERT_EQ(out[i + 2], rgb[2]);
                    ASSERT_EQ(out[i + 3], 0xFF);
                }
            }
        }
    });
}

// At scale 1 the 8-bit output is (v + 4) >> (depth - 5) of the working sample v = 8 x sample: the rounding
// term stays 4, so depth 12 is truncated, not rounded; deeper outputs keep (v + 4) >> 3 up to their maximum.
TEST_F(HATest, OutputDepthRules) {
    const uint32_t width = 32, height = 4;
    const auto grey = [&](uint32_t depth, uint16_t sample) {
        Bytes words(2 * width * height);
        for (size_t i = 0; i < words.size(); i += 2) {
            words[i] = uint8_t(sample);
            words[i + 1] = uint8_t(sample >> 8);
        }
        Stage stage = MakeHA(width, height, {PixelFormat::BayerGBRG, int32_t(depth), 16});
        EXPECT_NE(stage, nullptr);
        return stage ? Demosaic(*stage, words) : Bytes();
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
        const Bytes out = Demosaic(*stage, Bytes(width * height, uint8_t((1 << depth) - 1)));
        for (size_t i = 0; i < out.size(); i += 4) ASSERT_EQ(out[i] | out[i + 1] | out[i + 2], 0) << depth;
    }

    // 12-bit words out keep the sensor's scale and stop at 4095.
    const ImageFormat deepOut{PixelFormat::RGBX, 12, 64};
    for (const uint16_t sample : {uint16_t(0), uint16_t(1234), uint16_t(4095)}) {
        Bytes words(2 * width * height);
        for (size_t i = 0; i < words.size(); i += 2) std::memcpy(&words[i], &sample, 2);
        Stage stage = MakeHA(width, height, {PixelFormat::BayerRGGB, 12, 16}, 1, deepOut);
        ASSERT_NE(stage, nullptr);
        const Bytes out = Demosaic(*stage, words);
        uint16_t first[4];
        std::memcpy(first, out.data(), 8);
        EXPECT_EQ(first[0], sample);
        EXPECT_EQ(first[1], sample);
        EXPECT_EQ(first[2], sample);
        EXPECT_EQ(first[3], 0);
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
            const Bytes out = Demosaic(*stage, mosaic);
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

// The smallest image Init lets through: its ring of two rows is as high as the image.
TEST_F(HATest, SixteenByTwoImages) {
    const uint8_t rgb[3] = {10, 20, 30};
    for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
        Stage stage = MakeHA(16, 2, {format, 8, 8});
        ASSERT_NE(stage, nullptr);
        const Bytes out = Demosaic(*stage, FlatMosaic(format, 16, 2, rgb));
        for (size_t i = 0; i < out.size(); i += 4) ASSERT_EQ(Bytes(out.begin() + i, out.begin() + i + 3), Bytes(rgb, rgb + 3));
    }
}

// At scale 16 an output row depends on all sixteen rows of its block.
TEST_F(HATest, ScaleSixteenReadsEveryRowOfItsBlock) {
    const uint32_t width = 32, height = 32;
    const Bytes base(width * height, 128);
    Stage stage = MakeHA(width, height, {PixelFormat::BayerRGGB, 8, 8}, 16);
    ASSERT_NE(stage, nullptr);
    const Bytes reference = Demosaic(*stage, base);
    for (uint32_t row = 0; row < 16; ++row) {
        Bytes changed = base;
        for (uint32_t x = 0; x < width; ++x) changed[row * width + x] = 255;
        EXPECT_NE(Demosaic(*stage, changed), reference) << "row " << row;
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

// The whole-frame pipeline from the scalar kernels, on planes in the stage's layout: load, mirror all three
// planes, green, mirror green, both colour steps, reduce each plane.
struct ReferencePlanes {
    ReferencePlanes(int32_t width, int32_t height, int32_t phase)
        : stride(width + 32), planeElements(size_t(height + 4) * size_t(width + 32) + 32),
          storage(3 * planeElements), view{Origin(0), Origin(1), Origin(2), stride, width, height, phase} {}
    uint16_t* Origin(int plane) { return storage.data() + size_t(plane) * planeElements + 2 * stride + 2; }

    void Run(const void* src, int32_t srcStride, int32_t inDepth, int32_t outDepth, int32_t scale) {
        const PxSize source{view.width, view.height}, withRing{view.width + 4, view.height + 4};
        const int32_t stepBytes = int32_t(2 * stride);
        HALoadScalar(view, src, srcStride, inDepth > 8, 0, view.height);
        for (uint16_t* plane : {view.g, view.even, view.odd})
            PxCopyMirrorBorder_16u_I(plane, stepBytes, source, withRing, 2, 2);
        HAGreenScalar(view, 0, view.height);
        PxCopyMirrorBorder_16u_I(view.g, stepBytes, source, withRing, 2, 2);
        HAColourAtGreenScalar(view, 0, view.height);
        HAColourAtColourScalar(view, 0, view.height);
        alignas(32) static uint8_t scratch[2 * (2 * 512 + 64)];
        for (uint16_t* plane : {view.g, view.even, view.odd})
            HAReduceScalar(plane, stride, view.width, view.height, scale, inDepth, outDepth, scratch, 0,
                           HAOutputRows(view.height, scale));
    }

    intptr_t stride;
    size_t planeElements;
    std::vector<uint16_t> storage;
    HAPlanes view;
};

// Runs the stage's Interpolate and compares its planes with the reference: the packed output bytes, and every
// element of the planes and their rings beyond them (the slack columns aside, which neither writes).
void ExpectSamePlanes(HA& stage, ReferencePlanes& reference, int32_t scale, int32_t outDepth, const std::string& what) {
    const HAPlanes ours = stage.Planes();
    const int32_t w = reference.view.width, h = reference.view.height;
    const intptr_t packed = scale > 1 ? intptr_t(h / scale) * (w / scale) : outDepth == 8 ? intptr_t(h) * w : 0;
    const uint16_t* oursPlanes[3] = {ours.g, ours.even, ours.odd};
    const uint16_t* theirs[3] = {reference.view.g, reference.view.even, reference.view.odd};
    for (int plane = 0; plane < 3; ++plane) {
        const uint8_t* a = reinterpret_cast<const uint8_t*>(oursPlanes[plane]);
        const uint8_t* b = reinterpret_cast<const uint8_t*>(theirs[plane]);
        for (intptr_t i = 0; i < packed; ++i) ASSERT_EQ(a[i], b[i]) << what << " plane " << plane << " byte " << i;
        for (int32_t y = -2; y < h + 2; ++y)
            for (int32_t x = -2; x < w + 2; ++x) {
                const intptr_t at = y * ours.stride + x;
                if (2 * at < packed) continue;
                ASSERT_EQ(oursPlanes[plane][at], theirs[plane][y * reference.stride + x])
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
                                ReferencePlanes reference(width, height, ha.Planes().phase);
                                reference.Run(mosaic.data(), srcStride, inDepth, outDepth, scale);
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

// ---- Streams through the exported interface ------------------------------------------------------------

using StreamPtr = std::unique_ptr<Stream, FrameFeedStreamDeleter>;

class HAStreams : public ::testing::Test {
protected:
    void SetUp() override {
        LogCapture::Install();
        HostRecorder::Reset();
    }

    Bytes RunStream(const StreamConfig& config, const ParameterChoice& choice, const Bytes& frame) {
        StreamPtr stream(NewStream(&HostRecorder::Callback));
        const auto parameters = MakeParameters(choice);
        EXPECT_TRUE(stream->Init(3, &config, parameters.data(), 0)) << testing::PrintToString(LogCapture::TakeTexts());
        EXPECT_TRUE(stream->ProcessFrame(frame.data(), uint32_t(frame.size()), 1, 2));
        auto deliveries = HostRecorder::Take();
        HostRecorder::ReturnAll(deliveries);
        EXPECT_EQ(deliveries.size(), 1u);
        EXPECT_TRUE(LogCapture::Take().empty());
        return deliveries.empty() ? Bytes() : deliveries[0].payload;
    }
};

int JpegWidth(const Bytes& jpeg) {
    int width = 0, height = 0, subsampling = 0, colourspace = 0;
    tjhandle decoder = tjInitDecompress();
    tjDecompressHeader3(decoder, jpeg.data(), static_cast<unsigned long>(jpeg.size()), &width, &height, &subsampling,
                        &colourspace);
    tjDestroy(decoder);
    return width;
}

TEST_F(HAStreams, EightBitBayerAtEveryScaleRawAndJpeg) {
    const uint32_t width = 64, height = 32;
    const Bytes mosaic = MakeFrame(width * height, 12);
    for (const uint32_t scale : {1u, 2u, 4u, 8u, 16u}) {
        const StreamConfig config = MakeConfig(PixelFormat::BayerGRBG, width, height, 8, 8);
        Stage stage = MakeHA(width / scale * scale, height, {PixelFormat::BayerGRBG, 8, 8}, scale);
        ASSERT_NE(stage, nullptr);
        EXPECT_EQ(RunStream(config, {scale, CompressionCode::Raw, 0.75f, 1}, mosaic), Demosaic(*stage, mosaic)) << scale;
        EXPECT_EQ(JpegWidth(RunStream(config, {scale, CompressionCode::Jpeg, 0.75f, 1}, mosaic)), int(width / scale));
    }
}

// With keepHighBpp the stage reads the sensor's samples itself: packed 10- and 12-bit data and words give the
// same picture, and depth 16 is beyond what the stage reads.
TEST_F(HAStreams, DeepBayerKeepsItsDepth) {
    const uint32_t width = 32, height = 16, count = width * height;
    std::mt19937 random(5);
    for (const int depth : {10, 12}) {
        std::vector<uint16_t> samples(count);
        for (auto& s : samples) s = uint16_t(random() & ((1u << depth) - 1));
        Bytes words(2 * count), packed;
        std::memcpy(words.data(), samples.data(), words.size());
        if (depth == 10) {
            for (uint32_t i = 0; i < count; i += 4) {
                uint64_t bits = 0;
                for (int k = 0; k < 4; ++k) bits |= uint64_t(samples[i + k]) << (10 * k);
                for (int b = 0; b < 5; ++b) packed.push_back(uint8_t(bits >> (8 * b)));
            }
        } else {
            for (uint32_t i = 0; i < count; i += 2) {
                const uint32_t bits = samples[i] | uint32_t(samples[i + 1]) << 12;
                for (int b = 0; b < 3; ++b) packed.push_back(uint8_t(bits >> (8 * b)));
            }
        }
        const ParameterChoice raw{1, CompressionCode::Raw, 0.75f, 1, 1};
        const Bytes fromWords = RunStream(MakeConfig(PixelFormat::BayerBGGR, width, height, depth, 16), raw, words);
        const Bytes fromPacked =
            RunStream(MakeConfig(PixelFormat::BayerBGGR, width, height, depth, uint32_t(depth)), raw, packed);
        EXPECT_EQ(fromWords.size(), size_t(count) * 4);
        EXPECT_EQ(fromPacked, fromWords) << depth;
        Stage stage = MakeHA(width, height, {PixelFormat::BayerBGGR, depth, 16});
        ASSERT_NE(stage, nullptr);
        EXPECT_EQ(fromWords, Demosaic(*stage, words));
        const ParameterChoice jpeg{1, CompressionCode::Jpeg, 0.75f, 1, 1};
        EXPECT_EQ(JpegWidth(RunStream(MakeConfig(PixelFormat::BayerBGGR, width, height, depth, 16), jpeg, words)),
                  int(width));
    }

    StreamPtr stream(NewStream(&HostRecorder::Callback));
    const StreamConfig config = MakeConfig(PixelFormat::BayerBGGR, width, height, 16, 16);
    const auto parameters = MakeParameters({1, CompressionCode::Raw, 0.75f, 1, 1});
    EXPECT_FALSE(stream->Init(3, &config, parameters.data(), 0));
    EXPECT_EQ(LogCapture::TakeTexts(), (std::vector<std::string>{"DeBayer (HQ): Invalid image precision",
                                                                 "FrameFeed: Unable to create DeBayer using given parameters"}));
}

}  // namespace
