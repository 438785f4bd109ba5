// The general filter, the box filter and the border copies: worked cases, a direct reference on random
// data and odd sizes, statuses and their order, and the AVX2 form against the scalar one.
#include "TestSupport.h"

#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

// Images are row-major, width floats apart unless a test says otherwise.
struct Plane {
    int width, height;
    std::vector<float> v;
    float At(int x, int y) const { return v[size_t(y) * width + x]; }
};

int Mirror(int i, int n) {
    if (n == 1) return 0;
    const int p = 2 * n - 2;
    const int r = ((i % p) + p) % p;
    return r < n ? r : p - r;
}
int Clamp(int i, int n) { return i < 0 ? 0 : i >= n ? n - 1 : i; }
int Fold(int border, int i, int n) { return border == PxBorderMirror ? Mirror(i, n) : Clamp(i, n); }

// The filter through its whole calling order, the blocks laid as the system does: buffer, then filterSpec,
// in one allocation at an odd address and exactly as large as the query asks.
std::vector<float> Filter(const Plane& src, const std::vector<float>& kernel, PxSize k, int border,
                          int srcStride = 0) {
    const int stride = srcStride ? srcStride : src.width;
    int32_t specSize = 0, bufferSize = 0;
    EXPECT_EQ(PxFilterBorderGetSize(k, {src.width, src.height}, 13, 13, 1, &specSize, &bufferSize), PxStatusOk);
    std::vector<uint8_t> block(size_t(bufferSize) + specSize + 3);
    uint8_t* buffer = block.data() + 3;
    auto* filterSpec = reinterpret_cast<PxFilterBorderSpec*>(buffer + bufferSize);
    EXPECT_EQ(PxFilterBorderInit_32f(kernel.data(), k, 13, 1, 2, filterSpec), PxStatusOk);
    std::vector<float> dst(size_t(src.width) * src.height, -999.0f);
    const float zero = 0.0f;
    EXPECT_EQ(PxFilterBorder_32f(src.v.data(), stride * 4, dst.data(), src.width * 4, {src.width, src.height},
                                 border, &zero, filterSpec, buffer),
              PxStatusOk);
    return dst;
}

std::vector<double> ReferenceFilter(const Plane& s, const std::vector<float>& kernel, PxSize k, int border) {
    std::vector<double> out(size_t(s.width) * s.height);
    const int ax = (k.width - 1) / 2, ay = (k.height - 1) / 2;
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) {
            double sum = 0;
            for (int j = 0; j < k.height; ++j)
                for (int i = 0; i < k.width; ++i)
                    sum += double(kernel[size_t(j) * k.width + i]) *
                           s.At(Fold(border, x + i - ax, s.width), Fold(border, y + j - ay, s.height));
            out[size_t(y) * s.width + x] = sum;
        }
    return out;
}

std::vector<float> Box(const Plane& src, PxSize mask, int border) {
    int32_t bufferSize = 0;
    EXPECT_EQ(PxFilterBoxBorderGetBufferSize({src.width, src.height}, mask, 13, 1, &bufferSize), PxStatusOk);
    std::vector<uint8_t> block(size_t(bufferSize) + 1);
    std::vector<float> dst(size_t(src.width) * src.height, -999.0f);
    const float zero = 0.0f;
    EXPECT_EQ(PxFilterBoxBorder_32f(src.v.data(), src.width * 4, dst.data(), src.width * 4, {src.width, src.height},
                                    mask, border, &zero, block.data() + 1),
              PxStatusOk);
    return dst;
}

Plane Random(int width, int height, std::mt19937& random) {
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    Plane p{width, height, std::vector<float>(size_t(width) * height)};
    for (float& f : p.v) f = d(random);
    return p;
}

// Absolute error bound for sums of n products of values in [-1, 1], in single precision.
double Bound(int n) { return 4e-7 * n + 1e-6; }

class FilterForms : public AtEachLevel {};

TEST_P(FilterForms, WorkedRows) {
    const Plane row{4, 1, {0, 1, 4, 9}};
    EXPECT_EQ(Filter(row, {1, 2, 4}, {3, 1}, PxBorderReplicate), (std::vector<float>{4, 18, 45, 58}));
    EXPECT_EQ(Filter(row, {1, 2, 4}, {3, 1}, PxBorderMirror), (std::vector<float>{5, 18, 45, 38}));
    // Correlation: the first tap meets the left neighbour, and x = 0 mirrors to b, not a.
    const Plane abc{3, 1, {10, 20, 30}};
    EXPECT_EQ(Filter(abc, {1, 0, 0}, {3, 1}, PxBorderMirror)[0], 20.0f);
    EXPECT_EQ(Filter(abc, {-1, 0, 1}, {3, 1}, PxBorderReplicate), (std::vector<float>{10, 20, 10}));
    // Even widths anchor left of the centre: a width of 4 reaches one left and two right.
    const Plane wide{6, 1, {1, 10, 100, 1000, 10000, 100000}};
    EXPECT_EQ(Filter(wide, {1, 1, 1, 1}, {4, 1}, PxBorderReplicate)[1], 1111.0f);
    // A 2x2 kernel reaches the pixel, its right and lower neighbours.
    const Plane square{2, 2, {1, 2, 3, 4}};
    EXPECT_EQ(Filter(square, {1, 10, 100, 1000}, {2, 2}, PxBorderReplicate)[0], 4321.0f);
}

TEST_P(FilterForms, IdentityKernelReturnsSource) {
    std::mt19937 random(7);
    const Plane p = Random(37, 11, random);
    EXPECT_EQ(Filter(p, {1.0f}, {1, 1}, PxBorderReplicate), p.v);
    EXPECT_EQ(Filter(p, {1.0f}, {1, 1}, PxBorderMirror), p.v);
}

// Odd sizes and kernels as wide as 13, wider than the smallest images, which then fold more than once.
TEST_P(FilterForms, RandomAgainstDirectSum) {
    std::mt19937 random(3);
    const PxSize kernels[] = {{3, 1}, {1, 3}, {5, 5}, {7, 7}, {9, 1}, {1, 9}, {2, 2}, {4, 3}, {6, 8}, {13, 13}};
    const PxSize images[] = {{1, 1}, {3, 2}, {1, 5}, {5, 1}, {2, 9}, {17, 13}, {40, 23}, {67, 9}, {5, 150}, {20, 140}};
    for (const PxSize k : kernels)
        for (const PxSize size : images)
            for (const int border : {PxBorderMirror, PxBorderReplicate}) {
                const Plane p = Random(size.width, size.height, random);
                std::vector<float> kernel(size_t(k.width) * k.height);
                std::uniform_real_distribution<float> d(-1.0f, 1.0f);
                for (float& f : kernel) f = d(random);
                const auto got = Filter(p, kernel, k, border);
                const auto want = ReferenceFilter(p, kernel, k, border);
                for (size_t i = 0; i < got.size(); ++i)
                    ASSERT_NEAR(got[i], want[i], Bound(k.width * k.height))
                        << k.width << "x" << k.height << " on " << size.width << "x" << size.height << " at " << i;
            }
}

TEST_P(FilterForms, SourceStepIsHonoured) {
    std::mt19937 random(5);
    Plane padded = Random(29, 12, random);  // a 23 x 12 image in rows 29 floats apart
    Plane tight{23, 12, {}};
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 23; ++x) tight.v.push_back(padded.At(x, y));
    const std::vector<float> kernel(15, 0.25f);
    Plane view{23, 12, padded.v};
    EXPECT_EQ(Filter(view, kernel, {5, 3}, PxBorderMirror, 29), Filter(tight, kernel, {5, 3}, PxBorderMirror));
}

// Output rows made a few at a time from a ring of source rows into a ring of output rows, as a streaming
// computation makes them, have the bits of the whole-image call, also where the rows a pixel reaches wrap around.
TEST_P(FilterForms, RowsThroughRingsMatchTheWholeImage) {
    std::mt19937 random(23);
    for (int round = 0; round < 24; ++round) {
        const PxSize k{1 + 2 * int(random() % 5), 1 + 2 * int(random() % 4)};
        const Plane p = Random(1 + int(random() % 70), 1 + int(random() % 40), random);
        std::vector<float> kernel(size_t(k.width) * k.height);
        for (float& f : kernel) f = float(random() % 2001) / 1000.0f - 1.0f;
        const int border = round % 2 ? PxBorderMirror : PxBorderReplicate;
        const std::vector<float> whole = Filter(p, kernel, k, border);

        int32_t specSize = 0, bufferSize = 0;
        ASSERT_EQ(PxFilterBorderGetSize(k, {p.width, p.height}, 13, 13, 1, &specSize, &bufferSize), PxStatusOk);
        std::vector<uint8_t> block(size_t(bufferSize) + specSize);
        auto* filterSpec = reinterpret_cast<PxFilterBorderSpec*>(block.data() + bufferSize);
        ASSERT_EQ(PxFilterBorderInit_32f(kernel.data(), k, 13, 1, 2, filterSpec), PxStatusOk);
        const int reach = k.height / 2, step = 1 + int(random() % 3);
        const int sourceRows = 2 * reach + step + int(random() % 8), outputRows = step + int(random() % 3);
        std::vector<float> sourceRing(size_t(p.width) * sourceRows), outputRing(size_t(p.width) * outputRows);
        std::vector<float> rows(whole.size(), -999.0f);
        const float zero = 0.0f;
        int put = 0;
        for (int y = 0; y < p.height; y += step) {
            const int end = std::min(p.height, y + step);
            // Every source row these outputs reach; the ring still holds the oldest of them.
            for (; put < std::min(p.height, end + reach); ++put)
                std::copy_n(&p.v[size_t(put) * p.width], p.width, &sourceRing[size_t(put % sourceRows) * p.width]);
            ASSERT_EQ(PxFilterBorderRows_32f(sourceRing.data(), p.width * 4, sourceRows, outputRing.data(),
                                             p.width * 4, outputRows, {p.width, p.height}, y, end, border, &zero,
                                             filterSpec, block.data()),
                      PxStatusOk);
            for (int r = y; r < end; ++r)
                std::copy_n(&outputRing[size_t(r % outputRows) * p.width], p.width, &rows[size_t(r) * p.width]);
        }
        ASSERT_EQ(0, std::memcmp(rows.data(), whole.data(), whole.size() * sizeof(float)))
            << k.width << "x" << k.height << " on " << p.width << "x" << p.height << " border " << border;
    }
}

TEST(FilterAvx2, MatchesScalarWithinRounding) {
    if (PxProcessorLevel() < PxLevelAvx2) GTEST_SKIP() << "no AVX2";
    std::mt19937 random(19);
    for (int round = 0; round < 20; ++round) {
        const PxSize k{1 + int(random() % 9), 1 + int(random() % 9)};
        const Plane p = Random(1 + int(random() % 70), 1 + int(random() % 30), random);
        std::vector<float> kernel(size_t(k.width) * k.height);
        for (float& f : kernel) f = float(random() % 2001) / 1000.0f - 1.0f;
        const int border = round % 2 ? PxBorderMirror : PxBorderReplicate;
        PxForceProcessorLevel(0);
        const auto scalar = Filter(p, kernel, k, border);
        PxForceProcessorLevel(4);
        const auto avx2 = Filter(p, kernel, k, border);
        PxForceProcessorLevel(-1);
        for (size_t i = 0; i < scalar.size(); ++i) ASSERT_NEAR(scalar[i], avx2[i], Bound(k.width * k.height));
        PxForceProcessorLevel(0);
        const auto boxScalar = Box(p, k, border);
        PxForceProcessorLevel(4);
        const auto boxAvx2 = Box(p, k, border);
        PxForceProcessorLevel(-1);
        for (size_t i = 0; i < boxScalar.size(); ++i) ASSERT_NEAR(boxScalar[i], boxAvx2[i], 2e-6);
    }
}

TEST_P(FilterForms, BoxConstantAndSinglePixel) {
    const Plane flat{19, 7, std::vector<float>(19 * 7, 3.5f)};
    for (const float f : Box(flat, {3, 3}, PxBorderReplicate)) EXPECT_NEAR(f, 3.5f, 3.5f * 4e-7f);
    for (const float f : Box(flat, {5, 2}, PxBorderMirror)) EXPECT_NEAR(f, 3.5f, 3.5f * 4e-7f);
    const Plane one{1, 1, {2.0f}};
    EXPECT_NEAR(Box(one, {3, 3}, PxBorderReplicate)[0], 2.0f, 2.0f * 2e-7f);
    EXPECT_NEAR(Box(one, {3, 3}, PxBorderMirror)[0], 2.0f, 2.0f * 2e-7f);
}

TEST_P(FilterForms, BoxRandomAgainstDirectMean) {
    std::mt19937 random(23);
    const PxSize masks[] = {{3, 3}, {1, 1}, {5, 1}, {1, 4}, {7, 5}, {2, 2}};
    const PxSize images[] = {{1, 1}, {2, 6}, {3, 3}, {31, 17}, {64, 4}};
    for (const PxSize m : masks)
        for (const PxSize size : images)
            for (const int border : {PxBorderMirror, PxBorderReplicate}) {
                const Plane p = Random(size.width, size.height, random);
                const auto got = Box(p, m, border);
                const std::vector<float> ones(size_t(m.width) * m.height, 1.0f / float(m.width * m.height));
                const auto want = ReferenceFilter(p, ones, m, border);
                for (size_t i = 0; i < got.size(); ++i)
                    ASSERT_NEAR(got[i], want[i], 1e-5)
                        << m.width << "x" << m.height << " on " << size.width << "x" << size.height << " at " << i;
            }
}

INSTANTIATE_TEST_SUITE_P(Filter, FilterForms, ::testing::ValuesIn(SupportedLevels()), LevelName);

// Block rows and columns, with v = y - top, u = x - left, read source(fold(u), fold(v)).
TEST(FilterBorderCopy, MirrorRingOfTwoFoldsWithPeriodTwo) {
    std::vector<uint16_t> block(6 * 6, 0);
    const uint16_t source[4] = {1, 2, 3, 4};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x) block[size_t(y + 2) * 6 + x + 2] = source[y * 2 + x];
    ASSERT_EQ(PxCopyMirrorBorder_16u_I(&block[2 * 6 + 2], 12, {2, 2}, {6, 6}, 2, 2), PxStatusOk);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 6; ++x) EXPECT_EQ(block[size_t(y) * 6 + x], source[(y % 2) * 2 + x % 2]) << x << "," << y;
}

TEST(FilterBorderCopy, ReplicateOneSidedAndInPlace) {
    const float src[6] = {1, 2, 3, 4, 5, 6};  // 3 x 2
    std::vector<float> block(4 * 2, -1.0f);
    ASSERT_EQ(PxCopyReplicateBorder_32f(src, 12, {3, 2}, block.data(), 16, {4, 2}, 0, 0), PxStatusOk);
    EXPECT_EQ(block, (std::vector<float>{1, 2, 3, 3, 4, 5, 6, 6}));

    // A ring on every side, uneven: one left, two right, two above, one below; both forms agree.
    std::vector<float> copied(6 * 5, -1.0f), inPlace(6 * 5, -1.0f);
    ASSERT_EQ(PxCopyReplicateBorder_32f(src, 12, {3, 2}, copied.data(), 24, {6, 5}, 2, 1), PxStatusOk);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) inPlace[size_t(y + 2) * 6 + x + 1] = src[y * 3 + x];
    ASSERT_EQ(PxCopyReplicateBorder_32f_I(&inPlace[2 * 6 + 1], 24, {3, 2}, {6, 5}, 2, 1), PxStatusOk);
    EXPECT_EQ(copied, inPlace);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x) EXPECT_EQ(copied[size_t(y) * 6 + x], src[Clamp(y - 2, 2) * 3 + Clamp(x - 1, 3)]);
}

TEST(FilterStatus, SizeQueriesCheckPointersLate) {
    int32_t filterSpec = 0, buffer = 0;
    EXPECT_EQ(PxFilterBorderGetSize({0, 3}, {4, 4}, 13, 13, 1, nullptr, nullptr), PxStatusBadSize);
    EXPECT_EQ(PxFilterBorderGetSize({3, 3}, {4, 0}, 13, 13, 1, &filterSpec, &buffer), PxStatusBadSize);
    EXPECT_EQ(PxFilterBorderGetSize({3, 3}, {4, 4}, 19, 13, 9, nullptr, nullptr), PxStatusBadDataType);
    EXPECT_EQ(PxFilterBorderGetSize({3, 3}, {4, 4}, 13, 5, 1, &filterSpec, &buffer), PxStatusBadDataType);
    EXPECT_EQ(PxFilterBorderGetSize({3, 3}, {4, 4}, 1, 7, 5, nullptr, nullptr), PxStatusBadChannelCount);
    EXPECT_EQ(PxFilterBorderGetSize({3, 3}, {4, 4}, 13, 13, 1, &filterSpec, nullptr), PxStatusNullPointer);
    buffer = 7;
    EXPECT_EQ(PxFilterBorderGetSize({3, 3}, {300000000, 4}, 13, 13, 1, &filterSpec, &buffer), PxStatusSizeOverflow);
    EXPECT_EQ(buffer, 0);

    // The box query checks its pointer first.
    EXPECT_EQ(PxFilterBoxBorderGetBufferSize({0, 0}, {0, 0}, 0, 0, nullptr), PxStatusNullPointer);
    EXPECT_EQ(PxFilterBoxBorderGetBufferSize({0, 4}, {0, 0}, 0, 0, &buffer), PxStatusBadSize);
    EXPECT_EQ(PxFilterBoxBorderGetBufferSize({4, 4}, {3, 0}, 0, 0, &buffer), PxStatusBadMaskSize);
    EXPECT_EQ(PxFilterBoxBorderGetBufferSize({4, 4}, {3, 3}, 19, 2, &buffer), PxStatusBadDataType);
    EXPECT_EQ(PxFilterBoxBorderGetBufferSize({4, 4}, {3, 3}, 13, 2, &buffer), PxStatusBadChannels);
    EXPECT_EQ(PxFilterBoxBorderGetBufferSize({300000000, 4}, {3, 3}, 13, 1, &buffer), PxStatusSizeOverflow);
}

TEST(FilterStatus, InitAndFilterOrder) {
    const float kernel[9] = {};
    std::vector<uint8_t> filterSpec(1024), buffer(4096);
    auto* s = reinterpret_cast<PxFilterBorderSpec*>(filterSpec.data());
    EXPECT_EQ(PxFilterBorderInit_32f(nullptr, {0, 0}, 0, 0, 99, s), PxStatusNullPointer);
    EXPECT_EQ(PxFilterBorderInit_32f(kernel, {3, 0}, 0, 0, 99, s), PxStatusBadSize);
    EXPECT_EQ(PxFilterBorderInit_32f(kernel, {3, 3}, 19, 0, 99, s), PxStatusBadDataType);
    EXPECT_EQ(PxFilterBorderInit_32f(kernel, {3, 3}, 13, 0, 99, s), PxStatusBadChannelCount);
    EXPECT_EQ(PxFilterBorderInit_32f(kernel, {3, 3}, 13, 1, 3, s), PxStatusBadRoundMode);
    for (const int mode : {0, 1, 2, 16, 17, 18}) EXPECT_EQ(PxFilterBorderInit_32f(kernel, {3, 3}, 13, 4, mode, s), 0);

    float src[16] = {}, dst[16];
    const float zero = 0;
    uint8_t* b = buffer.data();
    EXPECT_EQ(PxFilterBorder_32f(src, 0, dst, 0, {0, 4}, 99, &zero, s, nullptr), PxStatusNullPointer);
    EXPECT_EQ(PxFilterBorder_32f(src, 0, dst, 0, {0, 4}, 99, &zero, s, b), PxStatusBadSize);
    EXPECT_EQ(PxFilterBorder_32f(src, 0, dst, 16, {4, 4}, 99, &zero, s, b), PxStatusBadStep);
    EXPECT_EQ(PxFilterBorder_32f(src, 16, dst, 15, {4, 4}, 99, &zero, s, b), PxStatusBadStep);
    // A source step below the width is the caller's affair: rows simply overlap.
    EXPECT_EQ(PxFilterBorder_32f(src, 4, dst, 16, {4, 4}, PxBorderMirror, &zero, s, b), PxStatusOk);
    for (const int border : {0, 2, 4, 5, 7, 256, 0x101, -1})
        EXPECT_EQ(PxFilterBorder_32f(src, 16, dst, 16, {4, 4}, border, &zero, s, b), PxStatusBadBorder) << border;

    // The box filter checks steps before sizes.
    EXPECT_EQ(PxFilterBoxBorder_32f(src, 0, nullptr, 0, {0, 0}, {0, 0}, 0, &zero, b), PxStatusNullPointer);
    EXPECT_EQ(PxFilterBoxBorder_32f(src, 16, dst, 0, {0, 0}, {0, 0}, 0, &zero, b), PxStatusBadStep);
    EXPECT_EQ(PxFilterBoxBorder_32f(src, 16, dst, 16, {4, 0}, {0, 0}, 0, &zero, b), PxStatusBadSize);
    EXPECT_EQ(PxFilterBoxBorder_32f(src, 16, dst, 16, {4, 4}, {0, 3}, 0, &zero, b), PxStatusBadMaskSize);
    EXPECT_EQ(PxFilterBoxBorder_32f(src, 16, dst, 16, {4, 4}, {3, 3}, 0x33 + 256, &zero, b), PxStatusBadBorder);
}

TEST(FilterStatus, BorderCopies) {
    uint16_t block16[16] = {};
    float block32[16] = {};
    EXPECT_EQ(PxCopyMirrorBorder_16u_I(nullptr, 0, {0, 0}, {0, 0}, -1, -1), PxStatusNullPointer);
    EXPECT_EQ(PxCopyMirrorBorder_16u_I(block16, 0, {0, 0}, {0, 0}, -1, -1), PxStatusBadStep);
    EXPECT_EQ(PxCopyMirrorBorder_16u_I(block16, 8, {2, 2}, {4, 4}, -1, 0), PxStatusBadSize);
    EXPECT_EQ(PxCopyReplicateBorder_32f_I(block32, 16, {2, 2}, {4, 4}, 1, 3), PxStatusBadSize);
    EXPECT_EQ(PxCopyReplicateBorder_32f_I(block32, 16, {2, 2}, {4, 4}, 3, 1), PxStatusBadSize);
    EXPECT_EQ(PxCopyReplicateBorder_32f_I(block32, 16, {2, 0}, {4, 4}, 0, 0), PxStatusBadSize);
    EXPECT_EQ(PxCopyReplicateBorder_32f(block32, 16, {2, 2}, nullptr, 16, {4, 4}, 0, 0), PxStatusNullPointer);
    EXPECT_EQ(PxCopyReplicateBorder_32f(block32, 0, {2, 2}, block32, 16, {4, 4}, 0, 0), PxStatusBadStep);
    EXPECT_EQ(PxCopyReplicateBorder_32f(block32, 16, {2, 2}, block32 + 1, 16, {4, 4}, 2, 3), PxStatusBadSize);
}

}  // namespace
