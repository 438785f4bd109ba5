// PxBayerToRgb_8u: the rules on small worked cases, an independent per-pixel reference, and every
// processor form this machine runs against it on random sizes, regions, steps and phases.
#include "TestSupport.h"

#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

constexpr int R = 0, G = 1, B = 2;
// Colour of each site of the top-left 2x2 cell, by grid: [y parity][x parity].
constexpr int cell[4][2][2] = {{{B, G}, {G, R}}, {{R, G}, {G, B}}, {{G, B}, {R, G}}, {{G, R}, {B, G}}};

struct Mosaic {
    int width, height;
    std::vector<uint8_t> samples;  // rows width apart
    int At(int x, int y) const {
        x = x < 0 ? -x : x >= width ? 2 * width - 2 - x : x;
        y = y < 0 ? -y : y >= height ? 2 * height - 2 - y : y;
        return samples[size_t(y) * width + x];
    }
};

// The rules, pixel by pixel, written plainly.
void ReferencePixel(const Mosaic& m, int grid, int x, int y, uint8_t out[3]) {
    const auto p = [&m](int px, int py) { return m.At(px, py); };
    const int own = cell[grid][y & 1][x & 1];
    out[own] = uint8_t(p(x, y));
    if (own == G) {
        const int left = cell[grid][y & 1][(x + 1) & 1];
        out[left] = uint8_t((p(x - 1, y) + p(x + 1, y) + 1) >> 1);
        out[2 - left] = uint8_t((p(x, y - 1) + p(x, y + 1) + 1) >> 1);
        return;
    }
    out[2 - own] = uint8_t((p(x - 1, y - 1) + p(x + 1, y - 1) + p(x - 1, y + 1) + p(x + 1, y + 1) + 2) >> 2);
    const int four = (p(x, y - 1) + p(x, y + 1) + p(x - 1, y) + p(x + 1, y) + 2) >> 2;
    if (x < 2 || x > m.width - 3 || y < 2 || y > m.height - 3) {
        out[G] = uint8_t(four);
        return;
    }
    const int dV = std::abs(p(x, y - 2) - p(x, y + 2));
    const int dH = std::abs(p(x - 2, y) - p(x + 2, y));
    out[G] = uint8_t(dV < dH ? (p(x, y - 1) + p(x, y + 1) + 1) >> 1
                     : dH < dV ? (p(x - 1, y) + p(x + 1, y) + 1) >> 1
                               : four);
}

std::vector<uint8_t> Convert(const Mosaic& m, int grid) {
    std::vector<uint8_t> rgb(size_t(m.width) * m.height * 3, 0xCD);
    PxRect roi{0, 0, m.width, m.height};
    EXPECT_EQ(PxBayerToRgb_8u(m.samples.data(), &roi, {m.width, m.height}, m.width, rgb.data(), m.width * 3, grid, 0),
              PxStatusOk);
    return rgb;
}

Mosaic Random(int width, int height, std::mt19937& random, int levels = 256) {
    Mosaic m{width, height, std::vector<uint8_t>(size_t(width) * height)};
    for (uint8_t& s : m.samples) s = uint8_t(random() % levels);
    return m;
}

class EveryForm : public AtEachLevel {};

TEST(BayerToRgb, ATwoByTwoImageSpreadsItsOneRedAndBlue) {
    const Mosaic m{2, 2, {10, 20, 31, 40}};  // RGGB: R 10, G 20 and 31, B 40
    const auto rgb = Convert(m, PxGridRGGB);
    const std::vector<uint8_t> expected{10, 26, 40, 10, 20, 40, 10, 31, 40, 10, 26, 40};
    EXPECT_EQ(rgb, expected);
}

TEST(BayerToRgb, RoundingIsUpInEveryMean) {
    // GRBG: the green site (2,0) lies between reds 0 and 1.
    const Mosaic twoSample{4, 2, {0, 0, 0, 1, 0, 0, 0, 0}};
    EXPECT_EQ(Convert(twoSample, PxGridGRBG)[2 * 3 + R], 1);
    // Four-neighbour green at an edge chroma site: 0, 0, 0, 1 gives 0; 0, 0, 1, 1 gives 1.
    Mosaic m{4, 4, std::vector<uint8_t>(16, 0)};  // RGGB; red site (2,2) at the edge strip of a 4x4
    m.samples[2 * 4 + 1] = 1;
    EXPECT_EQ(Convert(m, PxGridRGGB)[(2 * 4 + 2) * 3 + G], 0);
    m.samples[2 * 4 + 3] = 1;
    EXPECT_EQ(Convert(m, PxGridRGGB)[(2 * 4 + 2) * 3 + G], 1);
}

TEST(BayerToRgb, FiveByFiveHasOneInteriorPixelWhereTiesTakeTheFourNeighbourMean) {
    Mosaic m{5, 5, std::vector<uint8_t>(25, 100)};  // RGGB: (2,2) is red
    m.samples[1 * 5 + 2] = 10;  // up
    m.samples[3 * 5 + 2] = 21;  // down
    m.samples[2 * 5 + 1] = 60;  // left
    m.samples[2 * 5 + 3] = 80;  // right
    EXPECT_EQ(Convert(m, PxGridRGGB)[(2 * 5 + 2) * 3 + G], (10 + 21 + 60 + 80 + 2) >> 2) << "dV = dH = 0";
    m.samples[0 * 5 + 2] = 90;  // dV = 10, dH = 0: horizontal
    EXPECT_EQ(Convert(m, PxGridRGGB)[(2 * 5 + 2) * 3 + G], (60 + 80 + 1) >> 1);
    m.samples[2 * 5 + 0] = 70;  // dV = 10, dH = 30: vertical
    EXPECT_EQ(Convert(m, PxGridRGGB)[(2 * 5 + 2) * 3 + G], (10 + 21 + 1) >> 1);
}

TEST(BayerToRgb, ChecksRunInOrderAndWriteNothing) {
    uint8_t src[16] = {}, dst[48];
    std::fill(dst, dst + 48, 0xCD);
    PxRect roi{0, 0, 4, 4};
    EXPECT_EQ(PxBayerToRgb_8u(nullptr, &roi, {1, 1}, 4, dst, 12, 9, 0), PxStatusNullPointer);
    EXPECT_EQ(PxBayerToRgb_8u(src, &roi, {4, 4}, 4, nullptr, 12, 0, 0), PxStatusNullPointer);
    EXPECT_EQ(PxBayerToRgb_8u(src, &roi, {1, 4}, 4, dst, 12, 9, 0), PxStatusBadSize);
    EXPECT_EQ(PxBayerToRgb_8u(src, &roi, {4, 1}, 4, dst, 12, 0, 0), PxStatusBadSize);
    EXPECT_EQ(PxBayerToRgb_8u(src, &roi, {2, 2}, 4, dst, 12, 4, 0), PxStatusBadArgument);
    EXPECT_EQ(PxBayerToRgb_8u(src, &roi, {4, 4}, 4, dst, 12, -1, 0), PxStatusBadArgument);
    EXPECT_EQ(PxBayerToRgb_8u(src, &roi, {4, 4}, 3, dst, 12, 0, 0), PxStatusBadStep);
    EXPECT_EQ(PxBayerToRgb_8u(src, &roi, {4, 4}, 4, dst, 11, 0, 0), PxStatusBadStep);
    for (const uint8_t byte : dst) ASSERT_EQ(byte, 0xCD);

    PxRect outside{4, 0, 2, 2};
    EXPECT_EQ(PxBayerToRgb_8u(src, &outside, {4, 4}, 4, dst, 12, 0, 0), PxStatusOk);
    EXPECT_EQ(outside.width, 0) << "clipped to nothing";
    PxRect overhanging{1, 2, 10, 10};
    EXPECT_EQ(PxBayerToRgb_8u(src, &overhanging, {4, 4}, 4, dst, 12, 0, 0), PxStatusOk);
    EXPECT_EQ(overhanging.width, 3);
    EXPECT_EQ(overhanging.height, 2);
}

TEST_P(EveryForm, ConstantImagesStayConstant) {
    for (const int grid : {0, 1, 2, 3}) {
        const Mosaic m{40, 9, std::vector<uint8_t>(360, 77)};
        for (const uint8_t v : Convert(m, grid)) ASSERT_EQ(v, 77);
    }
}

TEST_P(EveryForm, EqualsTheReferenceOnRandomImagesRegionsAndSteps) {
    std::mt19937 random(1234 + GetParam());
    for (int trial = 0; trial < 300; ++trial) {
        const int width = trial < 16 ? 2 + trial % 4 : 2 + int(random() % 90);
        const int height = trial < 16 ? 2 + trial / 4 : 2 + int(random() % 24);
        const int grid = int(random() % 4);
        // Few levels make ties frequent, so the tie rule is exercised inside the wide steps too.
        const Mosaic m = Random(width, height, random, trial % 3 == 0 ? 3 : 256);
        PxRect roi{0, 0, width, height};
        if (trial % 2) {
            roi.x = int(random() % width);
            roi.y = int(random() % height);
            roi.width = 1 + int(random() % (width + 3));  // may overhang: clipped
            roi.height = 1 + int(random() % (height + 3));
        }
        const int srcPad = int(random() % 7), dstPad = int(random() % 7), lead = 5;
        const int srcStep = width + srcPad;
        std::vector<uint8_t> src(size_t(srcStep) * height + lead, 0);
        for (int y = 0; y < height; ++y)
            std::copy_n(&m.samples[size_t(y) * width], width, &src[lead + size_t(y) * srcStep]);
        const int roiWidth = std::min(roi.width, width - roi.x), roiHeight = std::min(roi.height, height - roi.y);
        const int dstStep = roiWidth * 3 + dstPad;
        std::vector<uint8_t> dst(size_t(dstStep) * roiHeight + 2 * lead, 0xCD);

        ASSERT_EQ(PxBayerToRgb_8u(&src[lead], &roi, {width, height}, srcStep, &dst[lead], dstStep, grid, 0),
                  PxStatusOk);
        SCOPED_TRACE(testing::Message() << width << "x" << height << " grid " << grid << " roi " << roi.x << ","
                                        << roi.y << " " << roi.width << "x" << roi.height);
        ASSERT_EQ(roi.width, roiWidth);
        ASSERT_EQ(roi.height, roiHeight);
        for (int i = 0; i < lead; ++i) ASSERT_EQ(dst[i], 0xCD) << "before the first row";
        for (int y = 0; y < roiHeight; ++y) {
            const uint8_t* row = &dst[lead + size_t(y) * dstStep];
            for (int x = 0; x < roiWidth; ++x) {
                uint8_t expected[3];
                ReferencePixel(m, grid, roi.x + x, roi.y + y, expected);
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(row[x * 3 + c], expected[c]) << "pixel " << roi.x + x << "," << roi.y + y << " ch " << c;
            }
            for (int i = roiWidth * 3; i < dstStep; ++i) ASSERT_EQ(row[i], 0xCD) << "row padding";
        }
        for (size_t i = lead + size_t(dstStep) * roiHeight; i < dst.size(); ++i) ASSERT_EQ(dst[i], 0xCD);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, EveryForm, ::testing::ValuesIn(SupportedLevels()), LevelName);

}  // namespace
