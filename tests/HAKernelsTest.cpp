// The Hamilton-Adams plane kernels: the AVX2 forms, run over two row ranges, equal the scalar twins run over the
// whole frame bit for bit on random planes of every phase, size, scale and depth, and worked values of the load,
// the twins' tie-breaks, clamps and 16-bit wrap-around.
#include "TestSupport.h"
#include "demosaic/HAKernels.h"
#include "primitives/ProcessorLevel.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using Planes = HAPlaneStore;

enum Plane { green = 0, evenColour = 1, oddColour = 2 };

// Working samples of a sensor depth with all three fraction bits and some overshoot (small depths make ties
// common), or any 16-bit value with the extremes common.
void Fill(std::vector<uint16_t>& samples, std::mt19937& random, int32_t depth, bool extreme) {
    const uint16_t ends[] = {0, 1, 0x7FFF, 0x8000, 0xFFF8, 0xFFFC, 0xFFFF};
    for (uint16_t& v : samples) {
        if (extreme)
            v = random() % 3 == 0 ? ends[random() % 7] : uint16_t(random());
        else
            v = uint16_t(random() % (9u << depth));
    }
}

struct Shape {
    int32_t width, height;
};

std::vector<Shape> RandomShapes(std::mt19937& random) {
    std::vector<Shape> shapes{{16, 2}, {16, 34}, {48, 2}, {80, 18}};
    for (int i = 0; i < 6; ++i) shapes.push_back({int32_t(16 * (1 + random() % 24)), int32_t(2 * (1 + random() % 20))});
    return shapes;
}

bool HasAvx2() { return PxProcessorLevel() >= PxLevelAvx2; }

TEST(HAKernelsTest, WideInterpolationEqualsTheTwin) {
    if (!HasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
    struct Kernel {
        const char* name;
        HAGreenKernel scalar, wide;
    };
    const Kernel kernels[] = {{"green", HAGreenScalar, HAGreenAvx2},
                              {"colour", HAColourScalar, HAColourAvx2}};
    std::mt19937 random(7);
    for (const Shape& shape : RandomShapes(random))
        for (int32_t phase = 0; phase < 4; ++phase)
            for (const int32_t depth : {1, 8, 12, 0}) {
                Planes scalar(shape.width, shape.height, phase);
                Fill(scalar.storage, random, depth, depth == 0);
                for (const Kernel& kernel : kernels) {
                    // The wide form in two row ranges split at a random row, the twin over the whole frame.
                    Planes wide = scalar;
                    const int32_t split = int32_t(random() % (shape.height + 1));
                    kernel.scalar(scalar.View(), 0, shape.height);
                    kernel.wide(wide.View(), 0, split);
                    kernel.wide(wide.View(), split, shape.height);
                    ASSERT_EQ(wide.storage, scalar.storage)
                        << kernel.name << " " << shape.width << "x" << shape.height << " phase " << phase << " depth "
                        << depth << " split " << split;
                }
            }
}

// Samples of up to 8 bits take the 16-bit path. Its inputs at the bounds the stage keeps (colour planes up to
// 8 * 255, green up to 12 * 255), extremes common; and the planes a real chain leaves from bytes that are mostly
// 0 or 255: the load, then each step's scalar result as the next step's input.
TEST(HAKernelsTest, WideEightBitPathEqualsTheTwin) {
    if (!HasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 random(19);
    const auto extreme = [&](uint16_t limit) {
        const uint32_t kind = random() % 4;
        return uint16_t(kind == 0 ? 0 : kind == 1 ? limit : random() % (limit + 1u));
    };
    for (const Shape& shape : RandomShapes(random))
        for (int32_t phase = 0; phase < 4; ++phase)
            for (const bool chained : {false, true}) {
                Planes scalar(shape.width, shape.height, phase);
                for (size_t i = 0; i < scalar.storage.size(); ++i)
                    scalar.storage[i] = extreme(i < scalar.planeElements ? 12 * 255 : 8 * 255);
                if (chained) {
                    std::vector<uint8_t> bytes(size_t(shape.width) * shape.height);
                    for (uint8_t& b : bytes) b = uint8_t(extreme(255));
                    HALoadScalar(scalar.View(), bytes.data(), shape.width, false, 0, shape.height);
                }
                const struct {
                    const char* name;
                    HAGreenKernel scalar, wide;
                } steps[] = {{"green", HAGreenScalar, HAGreenAvx2}, {"colour", HAColourScalar, HAColourAvx2}};
                const Planes start = scalar;
                for (const auto& step : steps) {
                    // Without the chain, each step starts from the bounds.
                    if (!chained) scalar = start;
                    Planes wide = scalar;
                    HAPlanes narrow = wide.View();
                    narrow.sampleDepth = 8;
                    const int32_t split = int32_t(random() % (shape.height + 1));
                    step.scalar(scalar.View(), 0, shape.height);
                    step.wide(narrow, 0, split);
                    step.wide(narrow, split, shape.height);
                    ASSERT_EQ(wide.storage, scalar.storage)
                        << step.name << " " << shape.width << "x" << shape.height << " phase " << phase << " split "
                        << split << (chained ? " chained" : "");
                }
            }
}

TEST(HAKernelsTest, WideReductionEqualsTheTwin) {
    if (!HasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 random(11);
    const std::vector<Shape> shapes = RandomShapes(random);
    for (const int32_t scale : {1, 2, 4, 8, 16, 3})
        for (const int32_t outDepth : {8, 10, 12})
            for (int32_t inDepth = 1; inDepth <= 12; ++inDepth)
                for (const bool extreme : {false, true}) {
                    const Shape& shape = shapes[random() % shapes.size()];
                    Planes scalar(shape.width, shape.height, 0);
                    Fill(scalar.storage, random, inDepth, extreme);
                    Planes wide = scalar;
                    alignas(32) static uint8_t scratch[2 * (2 * 16 * 24 + 64)];
                    // The wide form in two ranges of output rows, the twin over all of them at once.
                    const int32_t outRows = HAOutputRows(shape.height, scale);
                    const int32_t split = int32_t(random() % (outRows + 1));
                    HAReduceScalar(scalar.Origin(0), scalar.stride, shape.width, shape.height, scale, inDepth,
                                   outDepth, scratch, 0, outRows);
                    HAReduceAvx2(wide.Origin(0), wide.stride, shape.width, shape.height, scale, inDepth, outDepth,
                                 scratch, 0, split);
                    HAReduceAvx2(wide.Origin(0), wide.stride, shape.width, shape.height, scale, inDepth, outDepth,
                                 scratch, split, outRows);
                    ASSERT_EQ(wide.storage, scalar.storage)
                        << "scale " << scale << " depths " << inDepth << "->" << outDepth << " " << shape.width
                        << "x" << shape.height << (extreme ? " extreme" : "");
                }
}

TEST(HAKernelsTest, WideLoadEqualsTheTwin) {
    if (!HasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 random(13);
    for (const Shape& shape : RandomShapes(random))
        for (const bool deep : {false, true}) {
            const int32_t srcStride = shape.width * (deep ? 2 : 1) + int32_t(random() % 5);
            std::vector<uint8_t> source(size_t(srcStride) * shape.height);
            for (uint8_t& b : source) b = uint8_t(random());
            Planes scalar(shape.width, shape.height, 0);
            Fill(scalar.storage, random, 0, true);
            Planes wide = scalar;
            const int32_t split = int32_t(random() % (shape.height + 1));
            HALoadScalar(scalar.View(), source.data(), srcStride, deep, 0, shape.height);
            HALoadAvx2(wide.View(), source.data(), srcStride, deep, 0, split);
            HALoadAvx2(wide.View(), source.data(), srcStride, deep, split, shape.height);
            ASSERT_EQ(wide.storage, scalar.storage) << shape.width << "x" << shape.height << (deep ? " deep" : "");
        }
}

// Worked values of single sites, on a plane that is 1000 everywhere else, through every form this processor has.
class HAKernelSites : public ::testing::TestWithParam<bool> {
protected:
    Planes planes{16, 16, 1};  // RGGB: colour sites at even columns of even rows
    void SetUp() override {
        if (GetParam() && !HasAvx2()) GTEST_SKIP() << "no AVX2 on this processor";
        for (uint16_t& v : planes.storage) v = 1000;
    }
    // The mosaic is in all three planes before green is interpolated.
    void Mosaic(int32_t y, int32_t x, uint16_t v) {
        for (int plane = 0; plane < 3; ++plane) planes.At(plane, y, x) = v;
    }
    const HAKernelSet& Kernels() const { return HAKernelsFor(GetParam()); }
};

TEST_P(HAKernelSites, LoadScalesByEightAndMirrorsTheColourPlanesColumns) {
    // Row 1 of words 0x1FFF (which wraps to 0xFFF8), 1, 2, ... and row 2 of bytes 0, 1, 2, ...
    uint8_t words[3][2 * 16] = {}, bytes[3][16] = {};
    for (int32_t x = 0; x < 16; ++x) {
        const uint16_t sample = x == 0 ? 0x1FFF : uint16_t(x);
        words[1][2 * x] = uint8_t(sample), words[1][2 * x + 1] = uint8_t(sample >> 8);
        bytes[2][x] = uint8_t(x);
    }
    Kernels().load(planes.View(), words, sizeof(words[0]), true, 1, 2);
    Kernels().load(planes.View(), bytes, sizeof(bytes[0]), false, 2, 3);
    for (const int plane : {green, evenColour, oddColour}) {
        EXPECT_EQ(planes.At(plane, 1, 0), 0xFFF8);
        EXPECT_EQ(planes.At(plane, 1, 15), 15 * 8);
        EXPECT_EQ(planes.At(plane, 2, 7), 7 * 8);
    }
    for (const int plane : {evenColour, oddColour}) {
        EXPECT_EQ(planes.At(plane, 2, -2), 2 * 8);
        EXPECT_EQ(planes.At(plane, 2, -1), 1 * 8);
        EXPECT_EQ(planes.At(plane, 2, 16), 14 * 8);
        EXPECT_EQ(planes.At(plane, 2, 17), 13 * 8);
    }
    // Green's ring is interpolated green, filled later: the load leaves it.
    EXPECT_EQ(planes.At(green, 2, -1), 1000);
    EXPECT_EQ(planes.At(green, 3, 7), 1000);
}

TEST_P(HAKernelSites, GreenTieTakesTheMeanOfBothEstimatesWithoutRounding) {
    // At (2, 4): H = |100 - 300| = 200 = V = |701 - 501|, hSum = 400, vSum = 1202: (1602 >> 1) >> 1 = 400.
    Mosaic(2, 3, 100), Mosaic(2, 5, 300), Mosaic(1, 4, 701), Mosaic(3, 4, 501);
    Kernels().green(planes.View(), 0, 16);
    EXPECT_EQ(planes.At(green, 2, 4), 400);
    // A larger vertical gradient takes the horizontal estimate.
    Mosaic(1, 4, 702);
    Kernels().green(planes.View(), 0, 16);
    EXPECT_EQ(planes.At(green, 2, 4), 200);
}

TEST_P(HAKernelSites, NegativeEstimatesBecomeZero) {
    // Green at (2, 4): a dark colour sample among bright ones, ch = cv = -4000, a tie at T = -2000.
    Mosaic(2, 4, 0);
    for (const int32_t d : {-2, 2}) Mosaic(2, 4 + d, 4000), Mosaic(2 + d, 4, 4000);
    Kernels().green(planes.View(), 0, 16);
    EXPECT_EQ(planes.At(green, 2, 4), 0);
}

TEST_P(HAKernelSites, ColourAtGreenFloorsAndClamps) {
    // Own colour at (2, 5) from the left and right: (2000 - 3000 - 1000 + 1 + 1000) >> 1 = -500, so 0.
    planes.At(green, 2, 4) = 3000, planes.At(evenColour, 2, 4) = 1;
    // The other colour from above and below: (2000 - 1000 - 1000 + 1001 + 1000) >> 1 = 1000 (1000.5 floored).
    planes.At(oddColour, 1, 5) = 1001;
    Kernels().colour(planes.View(), 0, 16);
    EXPECT_EQ(planes.At(evenColour, 2, 5), 0);
    EXPECT_EQ(planes.At(oddColour, 2, 5), 1000);
}

TEST_P(HAKernelSites, DiagonalGradientsHaveNoFactorTwo) {
    // At (2, 4) in the odd rows' colour: a = 0, b = 2000 - 950 - 950 = 100, D1 = |200 - 500| + 0 = 300,
    // D2 = |300 - 150| + 100 = 250: sum2 = 550 wins, 275. With 2|b| D1 would win and give 350.
    planes.At(green, 1, 5) = 950, planes.At(green, 3, 3) = 950;
    planes.At(oddColour, 1, 3) = 200, planes.At(oddColour, 3, 5) = 500;
    planes.At(oddColour, 1, 5) = 300, planes.At(oddColour, 3, 3) = 150;
    Kernels().colour(planes.View(), 0, 16);
    EXPECT_EQ(planes.At(oddColour, 2, 4), 275);
}

TEST_P(HAKernelSites, ReductionWrapsIn16Bits) {
    struct Case {
        int32_t scale, outDepth;
        uint16_t sample, expected;
    };
    // 0xFFFD + 4 wraps to 1; two 0xFFFF means of 0x7FFF plus 8 wrap to 6; sixteen 0x1000 wrap to 0; at scale 16
    // four 0x4000 wrap to 0, and sixteen row means of 4096 from 0x2000 wrap to 0.
    const Case cases[] = {{1, 12, 0xFFFD, 0}, {1, 12, 0xFFF0, 4095}, {2, 8, 0xFFFF, 0}, {2, 8, 0x7FF0, 255},
                          {4, 8, 0x1000, 0},  {4, 8, 0x0FF0, 255},   {8, 8, 0x2000, 0}, {16, 8, 0x4000, 0},
                          {16, 8, 0x2000, 0}};
    for (const Case& c : cases) {
        for (uint16_t& v : planes.storage) v = c.sample;
        alignas(32) uint8_t scratch[2 * (2 * 16 + 64)];
        Kernels().reduce(planes.Origin(green), planes.stride, 16, 16, c.scale, 12, c.outDepth, scratch, 0,
                         HAOutputRows(16, c.scale));
        const uint16_t result =
            c.scale == 1 ? planes.At(green, 0, 0) : reinterpret_cast<uint8_t*>(planes.Origin(green))[0];
        EXPECT_EQ(result, c.expected) << "scale " << c.scale << " sample " << c.sample;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, HAKernelSites, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) { return info.param ? "Avx2" : "Scalar"; });

}  // namespace
