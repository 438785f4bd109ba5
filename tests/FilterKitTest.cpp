// The filter wrappers (correlation order, borders, the growing scratch, refusals) and BoxSum: exact window sums
// on integer data for many sizes and windows, images lower than the window, and the row parity shortcut giving
// the very bits of the full pass.
#include "demosaic/BoxSum.h"
#include "demosaic/FilterKit.h"
#include "platform/Platform.h"
#include "primitives/PxFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

template <class Buffer, class Value>
void Fill(Buffer& image, uint32_t w, uint32_t h, std::initializer_list<Value> values) {
    image.Resize(w, h);
    std::copy(values.begin(), values.end(), image.data);
}

// Integers below 4096, so that every window sum is exact in double whatever the order of additions; rows of
// `zeroParity` (0 or 1) are zero, -1 for none.
void RandomIntegers(ImageBuffer64& image, uint32_t w, uint32_t h, uint32_t seed, int zeroParity = -1) {
    std::mt19937 rng(seed);
    image.Resize(w, h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            image.data[size_t(y) * w + x] = int(y & 1) == zeroParity ? 0.0 : double(rng() % 4096);
}

std::vector<double> NaiveBoxSum(const ImageBuffer64& image, uint32_t ww, uint32_t wh) {
    const int w = int(image.width), h = int(image.height), r = int(ww / 2), v = int(wh / 2);
    std::vector<double> out(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int j = std::max(0, y - v); j <= std::min(h - 1, y + v); ++j)
                for (int i = std::max(0, x - r); i <= std::min(w - 1, x + r); ++i)
                    out[size_t(y) * w + x] += image.data[size_t(j) * w + i];
    return out;
}

std::vector<double> Values(const ImageBuffer64& image) {
    return {image.data, image.data + size_t(image.width) * image.height};
}

TEST(FilterImage, CorrelatesWithTheFirstCoefficientOnTheLowestIndexAndFoldsBorders) {
    FilterScratch scratch;
    ImageBuffer32 src, dst;
    Fill(src, 4, 1, {0.0f, 1.0f, 4.0f, 9.0f});
    const float taps[3] = {1.0f, 2.0f, 4.0f}, left[3] = {1.0f, 0.0f, 0.0f};
    FilterImage(scratch, dst, src, PxBorderReplicate, 3, 1, taps);
    EXPECT_EQ(dst.data[1], 18.0f);
    Fill(src, 4, 1, {5.0f, 7.0f, 1.0f, 2.0f});
    FilterImage(scratch, dst, src, PxBorderMirror, 3, 1, left);  // same sizes: the spec is rebuilt all the same
    EXPECT_EQ(dst.data[0], 7.0f);
    FilterImage(scratch, dst, src, PxBorderReplicate, 3, 1, left);
    EXPECT_EQ(dst.data[0], 5.0f);
    const float below[3] = {0.0f, 0.0f, 1.0f};  // a 1 by 3 column kernel reads the row below last
    Fill(src, 1, 4, {5.0f, 7.0f, 1.0f, 2.0f});
    FilterImage(scratch, dst, src, PxBorderMirror, 1, 3, below);
    EXPECT_EQ(std::vector<float>(dst.data, dst.data + 4), (std::vector<float>{7.0f, 1.0f, 2.0f, 1.0f}));
}

TEST(FilterKit, ScratchGrowsOnlyAndIsReused) {
    FilterScratch scratch;
    ImageBuffer32 src, dst;
    src.Resize(64, 32);
    std::fill(src.data, src.data + 64 * 32, 2.0f);
    const float taps[25] = {};
    FilterImage(scratch, dst, src, PxBorderMirror, 5, 5, taps);
    const uint32_t grown = scratch.capacity;
    const uint8_t* block = scratch.data;
    ASSERT_GT(grown, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u);
    FilterImage(scratch, dst, src, PxBorderMirror, 3, 3, taps);
    MeanFilter3x3(scratch, dst, src);
    EXPECT_EQ(scratch.capacity, grown);
    EXPECT_EQ(scratch.data, block);
    EXPECT_EQ(dst.Size(), src.Size());
    EXPECT_EQ(dst.data[0], 2.0f);  // replicated border: a plain mean
    src.Resize(256, 32);
    MeanFilter3x3(scratch, dst, src);
    EXPECT_GT(scratch.capacity, grown);
}

TEST(FilterKit, ThrowsFalseOnNullDataOrKernelAndOnAFailedGrowth) {
    FilterScratch scratch;
    ImageBuffer32 none, src, dst;
    src.Resize(16, 2);
    const float taps[9] = {};
    EXPECT_THROW(FilterImage(scratch, dst, none, PxBorderMirror, 3, 3, taps), bool);
    EXPECT_THROW(FilterImage(scratch, dst, src, PxBorderMirror, 3, 3, nullptr), bool);
    EXPECT_THROW(MeanFilter3x3(scratch, dst, none), bool);
    dst.Resize(16, 2);
    platform::FailAllocationAfter(1);
    EXPECT_THROW(MeanFilter3x3(scratch, dst, src), bool);
    platform::FailAllocationAfter(0);
    EXPECT_EQ(scratch.data, nullptr);
    EXPECT_EQ(scratch.capacity, 0u);
}

TEST(BoxSum, WorkedWindows) {
    BoxRing ring;
    ImageBuffer64 image;
    RandomIntegers(image, 16, 6, 1);
    for (uint32_t i = 0; i < 96; ++i) image.data[i] += 0.25 * i - 1e-3;  // not integers: a copy, bit for bit
    const std::vector<double> before = Values(image);
    BoxSum(ring, image, 1, 1, 0);
    EXPECT_EQ(Values(image), before);
    image.Resize(16, 6);
    std::fill(image.data, image.data + 96, 1.0);
    BoxSum(ring, image, 5, 3, 0);
    EXPECT_EQ(image.data[0], 6.0);
    EXPECT_EQ(image.data[15], 6.0);
    EXPECT_EQ(image.data[5 * 16], 6.0);
    EXPECT_EQ(image.data[2 * 16 + 7], 15.0);
    EXPECT_EQ(ring.buffer.height, 4u);  // 2 v + 2 rows of n + 2 r + 2
    EXPECT_EQ(ring.buffer.width, 22u);

    // The vertical pass is a running sum, the entering row added before the leaving one is subtracted: row 2's
    // window (1 + 2^53) - 1 rounds to 2^53 - 1, where a fresh sum of its rows would give 2^53.
    const double big = 9007199254740992.0;
    image.Resize(4, 5);
    for (uint32_t y = 0; y < 5; ++y) std::fill(image.data + 4 * y, image.data + 4 * y + 4, y == 0 ? 1.0 : y == 3 ? big : 0.0);
    BoxSum(ring, image, 1, 3, 0);
    for (uint32_t y = 0; y < 5; ++y) EXPECT_EQ(image.data[4 * y + 1], y < 2 ? 1.0 : big - 1.0) << y;
}

TEST(BoxSum, EqualsADirectSumForManySizesAndWindowsIncludingImagesLowerThanTheWindow) {
    BoxRing ring;  // one ring for all calls, as its capacity carries over
    ImageBuffer64 image;
    uint32_t seed = 0;
    for (uint32_t w : {4u, 16u, 20u, 5u, 96u})
        for (uint32_t h : {1u, 2u, 3u, 7u, 16u, 33u, 50u})
            for (auto [ww, wh] : {std::pair{1u, 3u}, {3u, 1u}, {3u, 3u}, {5u, 3u}, {4u, 6u}, {9u, 17u},
                                  {69u, 33u}, {33u, 69u}, {201u, 101u}}) {
                RandomIntegers(image, w, h, ++seed);
                const std::vector<double> expected = NaiveBoxSum(image, ww, wh);
                BoxSum(ring, image, ww, wh, 0);
                ASSERT_EQ(Values(image), expected) << w << "x" << h << " window " << ww << "x" << wh;
            }
}

TEST(BoxSum, RowParityShortcutGivesTheBitsOfTheFullPass) {
    BoxRing ring;
    ImageBuffer64 shortcut, full;
    std::uniform_real_distribution<double> scale(0.5, 1.0);
    std::mt19937 rng(9);
    for (int32_t parity : {1, -1})
        for (uint32_t h : {2u, 3u, 9u, 10u, 48u, 49u})
            for (auto [ww, wh] : {std::pair{3u, 3u}, {7u, 5u}, {5u, 9u}, {1u, 7u}, {69u, 33u}}) {
                // Signed fractions, so that sums round; the other rows stay +0.0.
                RandomIntegers(shortcut, 32, h, h + ww, parity > 0 ? 1 : 0);
                for (uint32_t i = 0; i < 32 * h; ++i)
                    if (shortcut.data[i] != 0.0) shortcut.data[i] = (shortcut.data[i] - 2048.0) * scale(rng);
                full.Resize(32, h);
                std::memcpy(full.data, shortcut.data, 32 * h * sizeof(double));
                BoxSum(ring, full, ww, wh, 0);
                BoxSum(ring, shortcut, ww, wh, parity);
                ASSERT_EQ(0, std::memcmp(full.data, shortcut.data, 32 * h * sizeof(double)))
                    << "parity " << parity << " height " << h << " window " << ww << "x" << wh;
            }
    RandomIntegers(full, 16, 8, 3);  // data on both parities: a one-row window sums every row regardless
    const std::vector<double> expected = NaiveBoxSum(full, 5, 1);
    BoxSum(ring, full, 5, 1, 1);
    EXPECT_EQ(Values(full), expected);
}

TEST(BoxSum, ThrowsFalseOnNullDataOrAFailedRingAndLeavesTheImage) {
    BoxRing ring;
    ImageBuffer64 none, image;
    EXPECT_THROW(BoxSum(ring, none, 3, 3, 0), bool);
    RandomIntegers(image, 16, 8, 4);
    const std::vector<double> before = Values(image);
    platform::FailAllocationAfter(1);
    EXPECT_THROW(BoxSum(ring, image, 3, 3, 0), bool);
    platform::FailAllocationAfter(0);
    EXPECT_EQ(Values(image), before);
}

}  // namespace
