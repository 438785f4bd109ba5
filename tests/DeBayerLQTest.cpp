// The fast demosaicking stage: the block rule at every scale and phase, its rounding, the rows it may not read,
// its refusals, and the AVX2 form against the scalar twin.
#include "TestSupport.h"

#include "demosaic/NewDeBayer.h"
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>

namespace {

using Stage = std::unique_ptr<ImageProcessing>;

const uint32_t bayerFormats[] = {PixelFormat::BayerRGGB, PixelFormat::BayerGRBG, PixelFormat::BayerBGGR,
                                 PixelFormat::BayerGBRG};
const uint32_t blockScales[] = {2, 4, 8, 16};

Stage MakeDeBayerLQ(uint32_t width, uint32_t height, uint32_t format, uint32_t scale) {
    const ImageFormat in{format, 8, 8};
    const ImageFormat out = scale == 1 ? ImageFormat{PixelFormat::RGB, 8, 24} : ImageFormat{PixelFormat::RGBX, 8, 32};
    return Stage(NewDeBayer(width, height, &in, &out, scale, 0, nullptr));
}

Bytes Interpolated(const Bytes& mosaic, uint32_t width, uint32_t height, int32_t grid) {
    Bytes rgb(size_t(width) * height * 3);
    PxRect region{0, 0, int32_t(width), int32_t(height)};
    PxBayerToRgb_8u(mosaic.data(), &region, PxSize{int32_t(width), int32_t(height)}, int32_t(width), rgb.data(),
                    int32_t(width * 3), grid, 0);
    return rgb;
}

// The block rule pixel by pixel, from its table: the whole blocks are written over `out`, the rest is kept.
Bytes BlockRule(const Bytes& mosaic, uint32_t width, uint32_t height, uint32_t format, uint32_t s, Bytes out = {}) {
    const std::vector<uint32_t> rows = s == 2 ? std::vector<uint32_t>{0} : s == 4 ? std::vector<uint32_t>{0, 2}
                                     : s == 8 ? std::vector<uint32_t>{0, 2, 4, 6} : std::vector<uint32_t>{0, 4, 8, 12};
    std::vector<uint32_t> columns;
    for (uint32_t c = 0; c < s; c += 2) columns.push_back(c);
    const uint32_t shift = s == 2 ? 0 : s == 4 ? 2 : s == 8 ? 4 : 5;
    // (row parity, column parity) of red, blue and the two greens
    const uint32_t sites[4][4][2] = {{{0, 0}, {1, 1}, {0, 1}, {1, 0}}, {{0, 1}, {1, 0}, {0, 0}, {1, 1}},
                                     {{1, 1}, {0, 0}, {0, 1}, {1, 0}}, {{1, 0}, {0, 1}, {0, 0}, {1, 1}}};
    const auto& phase = sites[format - PixelFormat::BayerRGGB];
    if (out.empty()) out.resize(size_t(width / s) * (height / s) * 4);
    for (uint32_t j = 0; j < height / s; ++j) {
        for (uint32_t i = 0; i < width / s; ++i) {
            uint32_t mean[4];
            for (int colour = 0; colour < 4; ++colour) {
                const uint32_t y = s * j + phase[colour][0], x = s * i + phase[colour][1];
                uint32_t sum = 0;
                for (uint32_t row : rows)
                    for (uint32_t column : columns) sum += mosaic[size_t(y + row) * width + x + column];
                mean[colour] = sum >> shift;
            }
            uint8_t* pixel = &out[4 * (size_t(j) * (width / s) + i)];
            pixel[0] = uint8_t(mean[0]);
            pixel[1] = uint8_t((mean[2] + mean[3] + 1) >> 1);
            pixel[2] = uint8_t(mean[1]);
            pixel[3] = 0;
        }
    }
    return out;
}

class DeBayerLQTest : public StageTest {};

TEST_F(DeBayerLQTest, BlocksFollowTheRuleAtEveryScaleInAllFourPhases) {
    const uint32_t width = 80, height = 48;  // two 32-column steps and a 16-column remainder
    const Bytes mosaic = RandomBytes(width * height, 7);
    ForEachForm([&] {
        for (uint32_t format : bayerFormats) {
            for (uint32_t s : blockScales) {
                SCOPED_TRACE(testing::Message() << "format " << format << ", scale " << s);
                Stage stage = MakeDeBayerLQ(width, height, format, s);
                ASSERT_NE(stage, nullptr);
                EXPECT_EQ(RunStage(*stage, mosaic), BlockRule(mosaic, width, height, format, s));
            }
        }
    });
}

TEST_F(DeBayerLQTest, SiteMeansTruncateAndTheGreenMeanRoundsUp) {
    struct Example {
        const char* name;
        uint32_t format, scale;
        std::vector<Bytes> tile;  // repeated over the mosaic
        Bytes pixel;
    };
    const Example examples[] = {
        {"greens 10 and 11 give 11", PixelFormat::BayerRGGB, 2, {{50, 10}, {11, 90}}, {50, 11, 90, 0}},
        {"the same on the diagonal", PixelFormat::BayerGRBG, 2, {{10, 50}, {90, 11}}, {50, 11, 90, 0}},
        // Every site but blue sums to 7 and gives 1, where a rounded mean of all eight greens would give 2.
        {"four samples summing to 7 give 1", PixelFormat::BayerRGGB, 4,
         {{1, 1, 2, 2}, {1, 2, 2, 3}, {2, 2, 2, 2}, {2, 3, 2, 3}}, {1, 1, 2, 0}},
    };
    ForEachForm([&] {
        std::vector<Example> cases(std::begin(examples), std::end(examples));
        for (uint8_t v : {0, 1, 128, 254, 255})
            for (uint32_t s : blockScales) cases.push_back({"flat", PixelFormat::BayerGBRG, s, {{v}}, {v, v, v, 0}});
        for (const Example& example : cases) {
            SCOPED_TRACE(testing::Message() << example.name << ", scale " << example.scale << ", "
                                            << int(example.tile[0][0]));
            const uint32_t width = 96, height = 2 * example.scale, n = uint32_t(example.tile.size());
            Bytes mosaic(size_t(width) * height);
            for (uint32_t y = 0; y < height; ++y)
                for (uint32_t x = 0; x < width; ++x) mosaic[size_t(y) * width + x] = example.tile[y % n][x % n];
            const Bytes out = RunStage(*MakeDeBayerLQ(width, height, example.format, example.scale), mosaic);
            for (size_t i = 0; i < out.size(); i += 4)
                ASSERT_EQ(Bytes(out.begin() + i, out.begin() + i + 4), example.pixel) << i;
        }
    });
}

TEST_F(DeBayerLQTest, RowsOutsideTheRuleAreNeitherReadNorWritten) {
    auto flipRows = [](Bytes mosaic, uint32_t width, std::function<bool(uint32_t y)> chosen) {
        for (size_t y = 0; y < mosaic.size() / width; ++y)
            if (chosen(uint32_t(y)))
                for (size_t x = 0; x < width; ++x) mosaic[y * width + x] ^= 0x5A;
        return mosaic;
    };
    ForEachForm([&] {
        // At 16 only rows 0, 1, 4, 5, 8, 9, 12, 13 of a block are read.
        const Bytes mosaic = RandomBytes(48 * 32, 3);
        Stage stage = MakeDeBayerLQ(48, 32, PixelFormat::BayerRGGB, 16);
        const Bytes original = RunStage(*stage, mosaic);
        EXPECT_EQ(RunStage(*stage, flipRows(mosaic, 48, [](uint32_t y) { return y % 4 >= 2; })), original);
        for (uint32_t row : {0, 1, 4, 5, 8, 9, 12, 13})
            EXPECT_NE(RunStage(*stage, flipRows(mosaic, 48, [=](uint32_t y) { return y % 16 == row; })), original)
                << "row " << row;

        // Height 10 at 4: two output rows; rows 8 and 9 are not read, and OutputSize, which multiplies the height
        // before dividing it, leaves 24 bytes that keep what they held.
        const Bytes shortMosaic = RandomBytes(48 * 10, 11);
        stage = MakeDeBayerLQ(48, 10, PixelFormat::BayerBGGR, 4);
        ASSERT_EQ(stage->OutputSize(), 120u);
        const Bytes expected = BlockRule(shortMosaic, 48, 10, PixelFormat::BayerBGGR, 4, Bytes(120, 0xA5));
        EXPECT_EQ(RunStage(*stage, shortMosaic), expected);
        EXPECT_EQ(RunStage(*stage, flipRows(shortMosaic, 48, [](uint32_t y) { return y >= 8; })), expected);
    });
}

TEST_F(DeBayerLQTest, InitRefusesInTheOrderOfItsChecksAndUnknownSelectorsSilently) {
    const struct {
        uint32_t width, height;
        int32_t inDepth, outDepth;
        uint32_t scale;
        const char* message;
    } refusals[] = {
        {40, 31, 10, 12, 3, "DeBayerLQ: Unsupported input bit depth (10)"},
        {40, 31, 8, 12, 3, "DeBayerLQ: Unsupported output bit depth (12)"},
        {40, 32, 8, 8, 2, "DeBayerLQ: Invalid image alignment (40 * 32, Scale = 2)"},
        {32, 31, 8, 8, 3, "DeBayerLQ: Invalid image alignment (32 * 31, Scale = 3)"},
        {32, 32, 8, 8, 3, "DeBayerLQ: Unsupported scale factor (3)"},
        {32, 32, 8, 8, 32, "DeBayerLQ: Unsupported scale factor (32)"},
    };
    for (const auto& r : refusals) {
        const ImageFormat in{PixelFormat::BayerRGGB, r.inDepth, 8}, out{PixelFormat::RGBX, r.outDepth, 32};
        EXPECT_EQ(NewDeBayer(r.width, r.height, &in, &out, r.scale, 0, nullptr), nullptr) << r.message;
        EXPECT_EQ(LogCapture::Take(), (std::vector<LoggedMessage>{{3, r.message}}));
    }
    for (uint32_t s : {1, 2, 4, 8, 16}) EXPECT_NE(MakeDeBayerLQ(16, 2, PixelFormat::BayerRGGB, s), nullptr) << s;
    // Unknown selectors are refused without a word.
    const ImageFormat in{PixelFormat::BayerRGGB, 8, 8}, out{PixelFormat::RGBX, 8, 32};
    for (uint32_t selector : {5, 6, 1000})
        EXPECT_EQ(NewDeBayer(64, 32, &in, &out, 2, selector, nullptr), nullptr) << selector;
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(DeBayerLQTest, Avx2FormEqualsTheScalarTwinOnRandomFrames) {
    if (PxProcessorLevel() < PxLevelAvx2) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 random(2024);
    for (uint32_t trial = 0; trial < 200; ++trial) {
        const uint32_t width = 16 * (1 + random() % 24), height = 2 * (1 + random() % 40);
        const uint32_t format = bayerFormats[random() % 4], s = blockScales[random() % 4];
        SCOPED_TRACE(testing::Message() << width << " x " << height << ", format " << format << ", scale " << s);
        const Bytes mosaic = RandomBytes(width * height, trial);
        PxForceProcessorLevel(PxLevelSse2);
        Stage twin = MakeDeBayerLQ(width, height, format, s);
        PxForceProcessorLevel(PxLevelAvx2);
        Stage wide = MakeDeBayerLQ(width, height, format, s);
        ASSERT_EQ(RunStage(*wide, mosaic), RunStage(*twin, mosaic));
    }
}

TEST_F(DeBayerLQTest, ScaleOneInterpolatesTheWholeFrameWithTheFormatsGrid) {
    const Bytes mosaic = RandomBytes(64 * 32, 5);
    const int32_t grids[] = {1, 3, 0, 2};  // of BayerRGGB, BayerGRBG, BayerBGGR, BayerGBRG
    for (uint32_t format : bayerFormats)
        EXPECT_EQ(RunStage(*MakeDeBayerLQ(64, 32, format, 1), mosaic),
                  Interpolated(mosaic, 64, 32, grids[format - PixelFormat::BayerRGGB]))
            << "format " << format;
}

}  // namespace
