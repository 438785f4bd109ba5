// LPA-ICI as a stage: flat fields stay flat in every channel, phase and depth; smooth pictures come back closely;
// the rounding and the depth limits of the reconstruction; the replicated rings; parameters and refusals; the
// vector form against the scalar twin on whole frames; and streams through the exported interface.
#include "TestSupport.h"
#include "demosaic/LPAICIa.h"
#include "demosaic/NewDeBayer.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Stage = std::unique_ptr<ImageProcessing>;

constexpr uint32_t lpaSelector = 2;
const ImageFormat rgbx8{PixelFormat::RGBX, 8, 32};

Stage MakeLpa(uint32_t width, uint32_t height, ImageFormat in, ImageFormat out = rgbx8, uint32_t scale = 1) {
    return Stage(NewDeBayer(width, height, &in, &out, scale, lpaSelector, nullptr));
}

// A stage made directly, with a parameter block of (orderBlend, iciThreshold).
std::unique_ptr<LPAICIa> MakeWithParameters(uint32_t width, uint32_t height, ImageFormat in, ImageFormat out,
                                            double blend, double threshold) {
    auto stage = std::make_unique<LPAICIa>();
    const double block[2] = {blend, threshold};
    if (!stage->Init(width, height, &in, &out, 1, lpaSelector, block)) return nullptr;
    return stage;
}

Bytes Demosaic(ImageProcessing& stage, const Bytes& input) {
    Bytes out(stage.OutputSize(), 0xA5);
    EXPECT_EQ(stage.Process(input.data(), out.data(), nullptr), stage.OutputSize());
    return out;
}

// The colour of each site of a Bayer order: 0 red, 1 green, 2 blue.
int SiteColour(uint32_t format, uint32_t x, uint32_t y) {
    static const int layouts[4][4] = {{0, 1, 1, 2}, {1, 0, 2, 1}, {2, 1, 1, 0}, {1, 2, 0, 1}};  // RGGB GRBG BGGR GBRG
    return layouts[format - PixelFormat::BayerRGGB][(y & 1) * 2 + (x & 1)];
}

// The mosaic of an RGB picture given per pixel, as bytes or as little-endian words.
template <class Picture>
Bytes MosaicOf(uint32_t format, uint32_t width, uint32_t height, bool words, Picture picture) {
    Bytes mosaic(size_t(width) * height * (words ? 2 : 1));
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const uint32_t v = picture(x, y, SiteColour(format, x, y));
            const size_t i = size_t(y) * width + x;
            if (words) {
                mosaic[2 * i] = uint8_t(v);
                mosaic[2 * i + 1] = uint8_t(v >> 8);
            } else {
                mosaic[i] = uint8_t(v);
            }
        }
    return mosaic;
}

// Sample c of pixel i of an RGBX output, 8-bit or 16-bit words.
uint32_t OutputSample(const Bytes& out, bool words, size_t i, int c) {
    return words ? uint32_t(out[8 * i + 2 * c] | out[8 * i + 2 * c + 1] << 8) : out[4 * i + c];
}

class LPAICIaTest : public ::testing::Test {
protected:
    void SetUp() override { LogCapture::Install(); }
    void TearDown() override { platform::FailAllocationAfter(0); }
};

// All differences are zero or constant along every line, so every channel comes back exactly; input deeper than
// the output saturates at 255 without a shift.
TEST_F(LPAICIaTest, FlatColourFieldsStayFlatInEveryChannel) {
    struct Case {
        int32_t depth;
        ImageFormat out;
        uint32_t rgb[3];
        uint32_t expected[3];
    } const cases[] = {
        {8, rgbx8, {200, 90, 17}, {200, 90, 17}},
        {8, rgbx8, {0, 255, 0}, {0, 255, 0}},
        {10, rgbx8, {300, 200, 1023}, {255, 200, 255}},
        {12, {PixelFormat::RGBX, 12, 64}, {4000, 1234, 7}, {4000, 1234, 7}},
        {10, {PixelFormat::RGBX, 10, 64}, {1023, 0, 512}, {1023, 0, 512}},
    };
    ForEachForm([&] {
        for (const Case& c : cases) {
            for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
                for (const uint32_t height : {12u, 32u}) {
                    const uint32_t width = 48;
                    const bool deepIn = c.depth > 8, deepOut = c.out.bitDepth > 8;
                    Stage stage = MakeLpa(width, height, {format, c.depth, deepIn ? 16u : 8u}, c.out);
                    ASSERT_NE(stage, nullptr);
                    const Bytes out = Demosaic(
                        *stage, MosaicOf(format, width, height, deepIn, [&](uint32_t, uint32_t, int k) { return c.rgb[k]; }));
                    for (size_t i = 0; i < size_t(width) * height; ++i)
                        for (int k = 0; k < 3; ++k)
                            ASSERT_EQ(OutputSample(out, deepOut, i, k), c.expected[k])
                                << "depth " << c.depth << " format " << format << " height " << height << " pixel " << i
                                << " channel " << k;
                }
            }
        }
    });
}

// A smooth picture in colour comes back within a level or two everywhere but at the outermost pixels, in every
// order: wrong signs of differences, exchanged planes or shifted sites would show at once.
TEST_F(LPAICIaTest, SmoothPicturesComeBackClosely) {
    const uint32_t width = 64, height = 48;
    const auto picture = [](uint32_t x, uint32_t y, int c) {
        const uint32_t values[3] = {40 + 2 * x, 30 + 3 * y, 200 - x - y};
        return values[c];
    };
    ForEachForm([&] {
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            Stage stage = MakeLpa(width, height, {format, 8, 8});
            ASSERT_NE(stage, nullptr);
            const Bytes out = Demosaic(*stage, MosaicOf(format, width, height, false, picture));
            for (uint32_t y = 2; y < height - 2; ++y)
                for (uint32_t x = 2; x < width - 2; ++x)
                    for (int c = 0; c < 3; ++c)
                        ASSERT_NEAR(int(OutputSample(out, false, size_t(y) * width + x, c)), int(picture(x, y, c)), 2)
                            << "format " << format << " at " << x << "," << y << " channel " << c;
        }
    });
}

TEST_F(LPAICIaTest, ReconstructionRoundsHalvesToEven) {
    const struct {
        float in, out;
    } cases[] = {{2.5f, 2}, {3.5f, 4}, {-2.5f, -2}, {-3.5f, -4}, {0.5f, 0}, {1.5f, 2}, {2.4999998f, 2},
                 {2.5000002f, 3}, {-0.25f, 0}, {65534.5f, 65534}, {1000001.5f, 1000002}};
    for (const auto& c : cases) EXPECT_EQ(LPAICIa::RoundHalfEven(c.in), c.out) << c.in;
}

// The site and cross planes carry a replicated ring: the top row's green sites take their upper neighbour from a
// ring row equal to row 0 (not the mirrored row 1).
TEST_F(LPAICIaTest, TopRowGreenSitesReadTheReplicatedRing) {
    const uint32_t width = 32, height = 16;
    std::mt19937 random(3);
    for (const uint32_t format : {uint32_t(PixelFormat::BayerRGGB), uint32_t(PixelFormat::BayerGBRG)}) {
        Bytes mosaic(2 * width * height);
        for (size_t i = 0; i < mosaic.size(); i += 2) {
            const uint32_t v = random() % 4096;
            mosaic[i] = uint8_t(v);
            mosaic[i + 1] = uint8_t(v >> 8);
        }
        const ImageFormat in{format, 12, 16};
        auto stage = MakeWithParameters(width, height, in, {PixelFormat::RGBX, 12, 64}, 0.1, 1.0);
        ASSERT_NE(stage, nullptr);
        const Bytes out = Demosaic(*stage, mosaic);
        const int b = format == PixelFormat::BayerGBRG ? 1 : 0;  // row 0 begins with green
        const int evenColourChannel = format == PixelFormat::BayerRGGB ? 0 : 2;
        for (int k = 0; k < 2; ++k) {
            const auto site = [&](int32_t j, int32_t i) { return stage->SiteDifference(k, j, i); };
            const auto cross = [&](int32_t j, int32_t i) { return stage->CrossDifference(k, j, i); };
            for (int32_t i = -2; i < int32_t(width / 2) + 2; ++i) {
                ASSERT_EQ(site(-1, i), site(0, i));
                ASSERT_EQ(site(-2, i), site(0, i));
                ASSERT_EQ(cross(-1, i), cross(0, i));
            }
            const int channel = k == 0 ? evenColourChannel : 2 - evenColourChannel;
            for (int32_t i = 0; i < int32_t(width / 2); ++i) {
                const int32_t x = 2 * i + (1 - b);  // the green site of row 0
                const int32_t m = mosaic[2 * x] | mosaic[2 * x + 1] << 8;
                // Row 0 has parity 0: left and right are sites of C0, up and down sites of C1.
                const int32_t across = b == 0 ? i : i - 1;
                const float l = k == 0 ? site(0, across) : cross(0, across);
                const float r = k == 0 ? site(0, across + 1) : cross(0, across + 1);
                const float down = k == 0 ? cross(0, i) : site(0, i);
                const float sum = ((l + r) + down) + down;
                const int32_t expected = std::min(4095, std::max(0, m - int32_t(LPAICIa::RoundHalfEven(0.0625f * sum))));
                EXPECT_EQ(int32_t(OutputSample(out, true, size_t(x), channel)), expected) << "k " << k << " x " << x;
            }
        }
    }
}

TEST_F(LPAICIaTest, ParametersAreClampedIntoTheirRanges) {
    LPAICIa stage;
    EXPECT_EQ(stage.OrderBlend(), 0.1);
    EXPECT_EQ(stage.IciThreshold(), 1.0);
    EXPECT_EQ(stage.Windows().blend, 0.1f);  // kernels built for the default before Init
    EXPECT_EQ(stage.Windows().gamma, 1.0f);
    const struct {
        uint32_t id;
        double value, stored;
    } cases[] = {{0, -1.0, 0.0}, {0, 0.0, 0.0}, {0, 0.25, 0.25}, {0, 1.0, 1.0}, {0, 3.0, 1.0},
                 {1, -5.0, 0.1}, {1, 0.05, 0.1}, {1, 2.5, 2.5},  {1, 10.0, 10.0}, {1, 1e9, 10.0}};
    for (const auto& c : cases) {
        EXPECT_TRUE(stage.SetParameter(c.id, &c.value));
        EXPECT_EQ(c.id == 0 ? stage.OrderBlend() : stage.IciThreshold(), c.stored) << c.id << " " << c.value;
    }
    const double value = 0.5;
    EXPECT_FALSE(stage.SetParameter(2, &value));
    EXPECT_FALSE(stage.SetParameter(0, nullptr));
    EXPECT_EQ(stage.OrderBlend(), 1.0);

    // A parameter block given to Init is applied through the same clamps.
    auto withBlock = MakeWithParameters(32, 12, {PixelFormat::BayerRGGB, 8, 8}, rgbx8, 4.0, 0.0);
    ASSERT_NE(withBlock, nullptr);
    EXPECT_EQ(withBlock->OrderBlend(), 1.0);
    EXPECT_EQ(withBlock->IciThreshold(), 0.1);
    uint32_t planeWidth = 0, rowBytes = 0, planeHeight = 0;
    withBlock->GetPlaneGeometry(&planeWidth, &rowBytes, &planeHeight);
    EXPECT_EQ(planeWidth, 36u);
    EXPECT_EQ(rowBytes, 64u);
    EXPECT_EQ(planeHeight, 16u);
}

TEST_F(LPAICIaTest, RefusesLowImagesAndFailedAllocations) {
    for (const uint32_t height : {2u, 10u}) {
        EXPECT_EQ(MakeLpa(32, height, {PixelFormat::BayerRGGB, 8, 8}), nullptr);
        EXPECT_EQ(LogCapture::Take(),
                  (std::vector<LoggedMessage>{
                      {3, "DeBayer (HQ): LPA-ICI needs an image height of at least 12 rows (32 * " + std::to_string(height) + ")"}}));
    }
    EXPECT_NE(MakeLpa(16, 12, {PixelFormat::BayerRGGB, 8, 8}), nullptr);
    // The other checks of the frame come first.
    EXPECT_EQ(MakeLpa(64, 32, {PixelFormat::BayerRGGB, 8, 8}, rgbx8, 2), nullptr);
    EXPECT_EQ(LogCapture::TakeTexts(), (std::vector<std::string>{"DeBayer (HQ): Scale supported only on HA"}));

    platform::FailAllocationAfter(1);
    EXPECT_EQ(MakeLpa(64, 32, {PixelFormat::BayerRGGB, 8, 8}), nullptr);
    platform::FailAllocationAfter(0);
    EXPECT_TRUE(LogCapture::Take().empty());
}

// Whole frames of noise, where every length and every branch of the ICI rule occurs, in every order and depth and
// at several parameters: the AVX2 form gives the scalar twin's bytes.
TEST_F(LPAICIaTest, VectorFormEqualsTheTwinOnRandomMosaics) {
    struct Case {
        int32_t depth;
        ImageFormat out;
        double blend, threshold;
    } const cases[] = {
        {8, rgbx8, 0.1, 1.0},
        {10, {PixelFormat::RGBX, 10, 64}, 0.7, 0.3},
        {12, {PixelFormat::RGBX, 12, 64}, 0.0, 4.0},
        {12, rgbx8, 1.0, 1.0},
    };
    const uint32_t width = 48, height = 26;
    std::mt19937 random(7);
    for (const Case& c : cases) {
        for (uint32_t format = PixelFormat::BayerRGGB; format <= PixelFormat::BayerGBRG; ++format) {
            const bool words = c.depth > 8;
            Bytes mosaic(size_t(width) * height * (words ? 2 : 1));
            const uint32_t smooth = random() % (1u << c.depth);
            for (size_t i = 0; i < size_t(width) * height; ++i) {
                // Noise over a level, with flat stretches now and then.
                const uint32_t v = random() % 5 == 0 ? smooth : random() % (1u << c.depth);
                if (words) {
                    mosaic[2 * i] = uint8_t(v);
                    mosaic[2 * i + 1] = uint8_t(v >> 8);
                } else {
                    mosaic[i] = uint8_t(v);
                }
            }
            std::vector<Bytes> results;
            ForEachForm([&] {
                auto stage = MakeWithParameters(width, height, {format, c.depth, words ? 16u : 8u}, c.out, c.blend,
                                                c.threshold);
                ASSERT_NE(stage, nullptr);
                results.push_back(Demosaic(*stage, mosaic));
            });
            for (size_t r = 1; r < results.size(); ++r)
                ASSERT_EQ(results[r], results[0]) << "depth " << c.depth << " format " << format;
        }
    }
}

// ---- Streams through the exported interface ------------------------------------------------------------

using StreamPtr = std::unique_ptr<Stream, FrameFeedStreamDeleter>;

class LPAICIaStreams : public ::testing::Test {
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

TEST_F(LPAICIaStreams, EightBitBayerRawAndJpeg) {
    const uint32_t width = 64, height = 32;
    const Bytes mosaic = MakeFrame(width * height, 12);
    const StreamConfig config = MakeConfig(PixelFormat::BayerGRBG, width, height, 8, 8);
    Stage stage = MakeLpa(width, height, {PixelFormat::BayerGRBG, 8, 8});
    ASSERT_NE(stage, nullptr);
    EXPECT_EQ(RunStream(config, {1, CompressionCode::Raw, 0.75f, lpaSelector}, mosaic), Demosaic(*stage, mosaic));
    EXPECT_EQ(JpegWidth(RunStream(config, {1, CompressionCode::Jpeg, 0.75f, lpaSelector}, mosaic)), int(width));
}

// With keepHighBpp the stage reads the sensor's samples itself: packed 10- and 12-bit data and words give the
// same picture as the stage made directly.
TEST_F(LPAICIaStreams, DeepBayerWithKeepHighBpp) {
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
        const ParameterChoice raw{1, CompressionCode::Raw, 0.75f, lpaSelector, 1};
        const Bytes fromWords = RunStream(MakeConfig(PixelFormat::BayerGBRG, width, height, depth, 16), raw, words);
        const Bytes fromPacked =
            RunStream(MakeConfig(PixelFormat::BayerGBRG, width, height, depth, uint32_t(depth)), raw, packed);
        EXPECT_EQ(fromWords.size(), size_t(count) * 4);
        EXPECT_EQ(fromPacked, fromWords) << depth;
        Stage stage = MakeLpa(width, height, {PixelFormat::BayerGBRG, depth, 16});
        ASSERT_NE(stage, nullptr);
        EXPECT_EQ(fromWords, Demosaic(*stage, words));
        const ParameterChoice jpeg{1, CompressionCode::Jpeg, 0.75f, lpaSelector, 1};
        EXPECT_EQ(JpegWidth(RunStream(MakeConfig(PixelFormat::BayerGBRG, width, height, depth, 16), jpeg, words)),
                  int(width));
    }
}

}  // namespace
