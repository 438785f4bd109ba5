// LPA-ICI as a stage: flat fields stay flat in every channel, phase and depth; smooth pictures come back closely;
// rounding, depth limits and replicated rings of the reconstruction; parameters and refusals; the vector form
// against the scalar twin on whole frames; streams through the exported interface.
#include "TestSupport.h"
#include "demosaic/LPAICIa.h"
#include "demosaic/NewDeBayer.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
const ImageFormat rgbx8{PixelFormat::RGBX, 8, 32};

// A stage made directly with the parameter block (orderBlend, iciThreshold); null when Init refuses.
std::unique_ptr<LPAICIa> Make(uint32_t width, uint32_t height, ImageFormat in, ImageFormat out = rgbx8,
                              double blend = 0.1, double threshold = 1.0) {
    auto stage = std::make_unique<LPAICIa>();
    const double block[2] = {blend, threshold};
    return stage->Init(width, height, &in, &out, 1, 2, block) ? std::move(stage) : nullptr;
}

Bytes Demosaic(ImageProcessing& stage, const Bytes& input) {
    Bytes out(stage.OutputSize(), 0xA5);
    stage.Process(input.data(), out.data(), nullptr);
    return out;
}

// The mosaic of a picture(x, y, channel) in a Bayer order, as bytes or little-endian words.
Bytes MosaicOf(uint32_t format, uint32_t width, uint32_t height, bool words,
               const std::function<uint32_t(uint32_t, uint32_t, int)>& picture) {
    static const int layouts[4][4] = {{0, 1, 1, 2}, {1, 0, 2, 1}, {2, 1, 1, 0}, {1, 2, 0, 1}};  // RGGB GRBG BGGR GBRG
    Bytes mosaic;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const uint32_t v = picture(x, y, layouts[format - PixelFormat::BayerRGGB][(y & 1) * 2 + (x & 1)]);
            mosaic.push_back(uint8_t(v));
            if (words) mosaic.push_back(uint8_t(v >> 8));
        }
    return mosaic;
}

// Channel c of pixel i of an RGBX output of bytes or of 16-bit words.
uint32_t Sample(const Bytes& out, bool words, size_t i, int c) {
    return words ? uint32_t(out[8 * i + 2 * c] | out[8 * i + 2 * c + 1] << 8) : out[4 * i + c];
}

class LPAICIaTest : public ::testing::Test {
protected:
    void SetUp() override { LogCapture::Install(); }
    void TearDown() override { platform::FailAllocationAfter(0); }
};

// Differences are zero or constant along every line, so every channel comes back exactly, at the smallest height
// too; deeper input saturates at 255 in 8-bit output, without a shift.
TEST_F(LPAICIaTest, FlatColourFieldsStayFlatInEveryChannel) {
    const struct {
        int32_t depth;
        ImageFormat out;
        uint32_t rgb[3], expected[3];
    } cases[] = {{8, rgbx8, {200, 90, 17}, {200, 90, 17}},
                 {10, rgbx8, {300, 200, 1023}, {255, 200, 255}},
                 {12, {PixelFormat::RGBX, 12, 64}, {4000, 1234, 7}, {4000, 1234, 7}}};
    ForEachForm([&] {
        for (const auto& c : cases)
            for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format)
                for (const auto& [width, height] : {std::pair<uint32_t, uint32_t>{16, 12}, {48, 32}}) {
                    auto stage = Make(width, height, {format, c.depth, c.depth > 8 ? 16u : 8u}, c.out);
                    ASSERT_NE(stage, nullptr);
                    const Bytes out = Demosaic(
                        *stage, MosaicOf(format, width, height, c.depth > 8, [&](uint32_t, uint32_t, int k) { return c.rgb[k]; }));
                    for (size_t i = 0; i < size_t(width) * height; ++i)
                        for (int k = 0; k < 3; ++k)
                            ASSERT_EQ(Sample(out, c.out.bitDepth > 8, i, k), c.expected[k])
                                << "depth " << c.depth << " format " << format << " " << width << "x" << height
                                << " pixel " << i << " channel " << k;
                }
    });
}

// Wrong signs of differences, misplaced cross sites or exchanged planes would show at once on smooth colour.
TEST_F(LPAICIaTest, SmoothPicturesComeBackClosely) {
    const uint32_t width = 64, height = 48;
    const auto picture = [](uint32_t x, uint32_t y, int c) { return c == 0 ? 40 + 2 * x : c == 1 ? 30 + 3 * y : 200 - x - y; };
    for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
        const Bytes out = Demosaic(*Make(width, height, {format, 8, 8}), MosaicOf(format, width, height, false, picture));
        for (uint32_t y = 2; y < height - 2; ++y)
            for (uint32_t x = 2; x < width - 2; ++x)
                for (int c = 0; c < 3; ++c)
                    ASSERT_NEAR(int(Sample(out, false, y * width + x, c)), int(picture(x, y, c)), 2)
                        << "format " << format << " at " << x << "," << y << " channel " << c;
    }
}

TEST_F(LPAICIaTest, ReconstructionRoundsHalvesToEven) {
    const float cases[][2] = {{2.5f, 2}, {3.5f, 4}, {-2.5f, -2}, {0.5f, 0}, {2.4999998f, 2}, {2.5000002f, 3}, {65534.5f, 65534}};
    for (const auto& c : cases) EXPECT_EQ(LPAICIa::RoundHalfEven(c[0]), c[1]) << c[0];
}

// A green site of the top row takes its upper neighbour from the replicated ring (row -1 equals row 0, not the
// mirrored row 1) of the plane of the other colour.
TEST_F(LPAICIaTest, TopRowGreenSitesReadTheReplicatedRing) {
    const uint32_t width = 32, height = 16;
    std::mt19937 random(3);
    for (const uint32_t format : {uint32_t(PixelFormat::BayerRGGB), uint32_t(PixelFormat::BayerGBRG)}) {
        const Bytes mosaic = MosaicOf(format, width, height, true, [&](uint32_t, uint32_t, int) { return random() % 4096; });
        auto stage = Make(width, height, {format, 12, 16}, {PixelFormat::RGBX, 12, 64});
        const Bytes out = Demosaic(*stage, mosaic);
        const int b = format == PixelFormat::BayerGBRG;  // row 0 begins with green
        for (int k = 0; k < 2; ++k) {
            // Row 0: left and right are sites of C0, up and down sites of C1, in the field of Ck.
            const auto across = [&](int32_t i) { return k == 0 ? stage->SiteDifference(0, 0, i) : stage->CrossDifference(1, 0, i); };
            const auto vertical = [&](int32_t j, int32_t i) { return k == 0 ? stage->CrossDifference(0, j, i) : stage->SiteDifference(1, j, i); };
            for (int32_t i = 0; i < int32_t(width / 2); ++i) {
                ASSERT_EQ(vertical(-1, i), vertical(0, i));
                const int32_t x = 2 * i + 1 - b, m = mosaic[2 * x] | mosaic[2 * x + 1] << 8;
                const float sum = ((across(i - b) + across(i - b + 1)) + vertical(-1, i)) + vertical(0, i);
                const int32_t expected = std::clamp(m - int32_t(LPAICIa::RoundHalfEven(0.0625f * sum)), 0, 4095);
                const int channel = (format == PixelFormat::BayerRGGB) == (k == 0) ? 0 : 2;
                EXPECT_EQ(int32_t(Sample(out, true, size_t(x), channel)), expected) << "k " << k << " x " << x;
            }
        }
    }
}

TEST_F(LPAICIaTest, ParametersClampAndLowImagesAreRefused) {
    LPAICIa stage;  // defaults, and kernels built for them, before Init
    EXPECT_EQ(stage.OrderBlend(), 0.1);
    EXPECT_EQ(stage.IciThreshold(), 1.0);
    EXPECT_EQ(stage.Windows().blend, 0.1f);
    EXPECT_EQ(stage.Windows().gamma, 1.0f);
    const double cases[][3] = {{0, -1.0, 0.0}, {0, 0.25, 0.25}, {0, 3.0, 1.0}, {1, 0.05, 0.1}, {1, 2.5, 2.5}, {1, 1e9, 10.0}};
    for (const auto& c : cases) {
        EXPECT_TRUE(stage.SetParameter(uint32_t(c[0]), &c[1]));
        EXPECT_EQ(c[0] == 0 ? stage.OrderBlend() : stage.IciThreshold(), c[2]) << c[0] << " " << c[1];
    }
    EXPECT_FALSE(stage.SetParameter(2, &cases[0][1]));
    EXPECT_FALSE(stage.SetParameter(0, nullptr));
    auto withBlock = Make(16, 12, {PixelFormat::BayerRGGB, 8, 8}, rgbx8, 4.0, 0.0);  // through the same clamps
    ASSERT_NE(withBlock, nullptr);
    EXPECT_EQ(withBlock->OrderBlend(), 1.0);
    EXPECT_EQ(withBlock->IciThreshold(), 0.1);

    EXPECT_EQ(Make(32, 10, {PixelFormat::BayerRGGB, 8, 8}), nullptr);
    EXPECT_EQ(LogCapture::Take(), (std::vector<LoggedMessage>{
                                      {3, "DeBayer (HQ): LPA-ICI needs an image height of at least 12 rows (32 * 10)"}}));
    platform::FailAllocationAfter(1);
    EXPECT_EQ(Make(64, 32, {PixelFormat::BayerRGGB, 8, 8}), nullptr);
    EXPECT_TRUE(LogCapture::Take().empty());
}

// Frames of noise, with flat stretches, in every order and depth and at several parameters: every length and
// branch of the ICI rule occurs, and the AVX2 form gives the scalar twin's bytes.
TEST_F(LPAICIaTest, VectorFormEqualsTheTwinOnRandomMosaics) {
    const struct {
        int32_t depth;
        ImageFormat out;
        double blend, threshold;
    } cases[] = {{8, rgbx8, 0.1, 1.0}, {10, {PixelFormat::RGBX, 10, 64}, 0.7, 0.3}, {12, {PixelFormat::RGBX, 12, 64}, 0.0, 4.0}};
    std::mt19937 random(7);
    for (const auto& c : cases)
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            const uint32_t level = random() % (1u << c.depth);
            const Bytes mosaic = MosaicOf(format, 48, 26, c.depth > 8, [&](uint32_t, uint32_t, int) {
                return random() % 5 == 0 ? level : random() % (1u << c.depth);
            });
            std::vector<Bytes> results;
            ForEachForm([&] { results.push_back(Demosaic(*Make(48, 26, {format, c.depth, c.depth > 8 ? 16u : 8u}, c.out, c.blend, c.threshold), mosaic)); });
            for (const Bytes& result : results) ASSERT_EQ(result, results[0]) << "depth " << c.depth << " format " << format;
        }
}

// Through the exports with demosaic 2 at scale 1: 8-bit input, and 10- and 12-bit words kept with keepHighBpp;
// raw output equals the stage made directly, JPEG output has the frame's width.
TEST(LPAICIaStreams, BayerAtScaleOneRawAndJpeg) {
    LogCapture::Install();
    const uint32_t width = 64, height = 32;
    std::mt19937 random(5);
    for (const int depth : {8, 10, 12}) {
        const uint32_t bits = depth > 8 ? 16 : 8;
        const Bytes frame = MosaicOf(PixelFormat::BayerGBRG, width, height, depth > 8,
                                     [&](uint32_t, uint32_t, int) { return random() % (1u << depth); });
        const StreamConfig config = MakeConfig(PixelFormat::BayerGBRG, width, height, depth, bits);
        for (const uint32_t compression : {CompressionCode::Raw, CompressionCode::Jpeg}) {
            HostRecorder::Reset();
            std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(&HostRecorder::Callback));
            const auto parameters = MakeParameters({1, compression, 0.75f, 2, uint8_t(depth > 8)});
            ASSERT_TRUE(stream->Init(3, &config, parameters.data(), 0)) << testing::PrintToString(LogCapture::TakeTexts());
            EXPECT_TRUE(stream->ProcessFrame(frame.data(), uint32_t(frame.size()), 1, 2));
            const auto deliveries = HostRecorder::Take();
            HostRecorder::ReturnAll(deliveries);
            ASSERT_EQ(deliveries.size(), 1u);
            const Bytes& payload = deliveries[0].payload;
            if (compression == CompressionCode::Raw) {
                EXPECT_EQ(payload, Demosaic(*Make(width, height, {PixelFormat::BayerGBRG, depth, bits}), frame)) << depth;
            } else {
                int w = 0, h = 0, subsampling = 0, colourspace = 0;
                tjhandle decoder = tjInitDecompress();
                EXPECT_EQ(tjDecompressHeader3(decoder, payload.data(), static_cast<unsigned long>(payload.size()), &w, &h,
                                              &subsampling, &colourspace), 0);
                tjDestroy(decoder);
                EXPECT_EQ(w, int(width));
            }
        }
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

}  // namespace
