// The filter wrappers (correlation order, borders, the growing scratch, refusals) and BoxSum: exact window sums on
// integer data for many sizes and windows, images lower than the window, the running order of the vertical pass,
// and the row parity shortcut giving the very bits of the full pass.
#include "demosaic/BoxSum.h"
#include "demosaic/FilterKit.h"
#include "platform/Platform.h"
#include "primitives/PxFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

namespace {

// Integers below 4096, so that every window sum is exact whatever the order of additions; rows of parity
// `zeroParity` are +0.0.
std::vector<double> Load(ImageBuffer64& image, uint32_t w, uint32_t h, uint32_t seed, int zeroParity = -1) {
    std::mt19937 rng(seed);
    image.Resize(w, h);
    for (uint32_t i = 0; i < w * h; ++i) image.data[i] = int(i / w % 2) == zeroParity ? 0.0 : double(rng() % 4096);
    return {image.data, image.data + w * h};
}

std::vector<double> NaiveBoxSum(const std::vector<double>& s, int w, int h, int r, int v) {
    std::vector<double> out(s.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int j = std::max(0, y - v); j <= std::min(h - 1, y + v); ++j)
                for (int i = std::max(0, x - r); i <= std::min(w - 1, x + r); ++i) out[y * w + x] += s[j * w + i];
    return out;
}

bool Equal(const ImageBuffer64& image, const std::vector<double>& expected) {
    return std::memcmp(image.data, expected.data(), expected.size() * sizeof(double)) == 0;
}

TEST(FilterImage, CorrelatesWithTheFirstCoefficientOnTheLowestIndexAndFoldsBorders) {
    FilterScratch scratch;
    ImageBuffer32 src, dst;
    src.Resize(4, 1);
    const float row[4] = {0.0f, 1.0f, 4.0f, 9.0f}, taps[3] = {1.0f, 2.0f, 4.0f}, left[3] = {1.0f, 0.0f, 0.0f};
    std::copy(row, row + 4, src.data);
    FilterImage(scratch, dst, src, PxBorderReplicate, 3, 1, taps);
    EXPECT_EQ(dst.data[1], 18.0f);
    FilterImage(scratch, dst, src, PxBorderMirror, 3, 1, left);  // same sizes, new taps: the set-up is rebuilt
    EXPECT_EQ(dst.data[0], 1.0f);
    FilterImage(scratch, dst, src, PxBorderReplicate, 3, 1, left);
    EXPECT_EQ(dst.data[0], 0.0f);
    src.Resize(1, 4);  // a column: the first coefficient on the row above, mirrored at both ends
    FilterImage(scratch, dst, src, PxBorderMirror, 1, 3, taps);
    EXPECT_EQ(std::vector<float>(dst.data, dst.data + 4), (std::vector<float>{5.0f, 18.0f, 45.0f, 38.0f}));
}

TEST(FilterKit, ScratchGrowsOnlyIsReusedAndFailuresThrowFalse) {
    FilterScratch scratch;
    ImageBuffer32 none, src, dst;
    src.Resize(64, 32);
    std::fill(src.data, src.data + 64 * 32, 2.0f);
    const float taps[25] = {};
    platform::FailAllocationAfter(1);
    EXPECT_THROW(MeanFilter3x3(scratch, dst, src), bool);  // dst's block
    platform::FailAllocationAfter(2);
    EXPECT_THROW(MeanFilter3x3(scratch, dst, src), bool);  // the scratch
    platform::FailAllocationAfter(0);
    EXPECT_EQ(scratch.data, nullptr);
    FilterImage(scratch, dst, src, PxBorderMirror, 5, 5, taps);
    const uint32_t grown = scratch.capacity;
    const uint8_t* block = scratch.data;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u);
    MeanFilter3x3(scratch, dst, src);
    EXPECT_EQ(scratch.capacity, grown);
    EXPECT_EQ(scratch.data, block);
    src.Resize(256, 32);
    MeanFilter3x3(scratch, dst, src);
    EXPECT_GT(scratch.capacity, grown);
    EXPECT_THROW(FilterImage(scratch, dst, none, PxBorderMirror, 3, 3, taps), bool);
    EXPECT_THROW(FilterImage(scratch, dst, src, PxBorderMirror, 3, 3, nullptr), bool);
    EXPECT_THROW(MeanFilter3x3(scratch, dst, none), bool);
}

TEST(BoxSum, WorkedWindowsAndTheRunningOrderOfTheVerticalPass) {
    BoxRing ring;
    ImageBuffer64 image;
    std::vector<double> values = Load(image, 16, 6, 1);
    for (double& x : values) x = x / 3 - 1e-3;  // no integers: a copy, bit for bit
    std::copy(values.begin(), values.end(), image.data);
    BoxSum(ring, image, 1, 1, 0);
    EXPECT_TRUE(Equal(image, values));
    std::fill(image.data, image.data + 96, 1.0);
    BoxSum(ring, image, 5, 3, 0);
    EXPECT_EQ(std::vector<double>(image.data + 32, image.data + 36), (std::vector<double>{9, 12, 15, 15}));
    EXPECT_EQ(image.data[95], 6.0);
    EXPECT_EQ(ring.buffer.Size(), std::make_pair(22u, 4u));  // 2 v + 2 rows of n + 2 r + 2
    // Row 2's window is (1 + 2^53) - 1, rounded to 2^53 - 1, where a fresh sum of its rows would give 2^53.
    const double big = 9007199254740992.0;
    image.Resize(4, 5);
    for (uint32_t i = 0; i < 20; ++i) image.data[i] = i < 4 ? 1.0 : i / 4 == 3 ? big : 0.0;
    BoxSum(ring, image, 1, 3, 0);
    for (uint32_t y = 0; y < 5; ++y) EXPECT_EQ(image.data[4 * y], y < 2 ? 1.0 : big - 1.0) << y;
}

TEST(BoxSum, EqualsADirectSumForManySizesAndWindowsIncludingImagesLowerThanTheWindow) {
    BoxRing ring;  // one ring for every call: its capacity carries over
    ImageBuffer64 image;
    uint32_t seed = 0;
    for (uint32_t w : {4u, 16u, 5u, 96u})
        for (uint32_t h : {1u, 2u, 3u, 7u, 33u, 50u})
            for (auto [ww, wh] :
                 {std::pair{1u, 3u}, {3u, 1u}, {5u, 3u}, {4u, 6u}, {9u, 17u}, {69u, 33u}, {201u, 101u}}) {
                const std::vector<double> source = Load(image, w, h, ++seed);
                BoxSum(ring, image, ww, wh, 0);
                ASSERT_TRUE(Equal(image, NaiveBoxSum(source, int(w), int(h), int(ww / 2), int(wh / 2))))
                    << w << "x" << h << " window " << ww << "x" << wh;
            }
    ImageBuffer64 none;
    EXPECT_THROW(BoxSum(ring, none, 3, 3, 0), bool);
    ring.buffer.Release();
    const std::vector<double> before = Load(image, 16, 8, 4);
    platform::FailAllocationAfter(1);
    EXPECT_THROW(BoxSum(ring, image, 3, 3, 0), bool);
    platform::FailAllocationAfter(0);
    EXPECT_TRUE(Equal(image, before));
}

// The sums in the order they are defined: running sums along each row, window sums as differences of those, then
// a running sum down each column that adds the entering row before subtracting the leaving one.
std::vector<double> RunningBoxSum(const std::vector<double>& s, int w, int h, int r, int v) {
    std::vector<double> rowSums(s.size()), out(s.size());
    std::vector<double> line(size_t(w + 2 * r + 2));
    for (int y = 0; y < h; ++y) {
        std::fill(line.begin(), line.end(), 0.0);
        double total = 0.0;
        for (int i = 0; i < w; ++i) line[size_t(r + 1 + i)] = total += s[size_t(y * w + i)];
        std::fill(line.begin() + r + 1 + w, line.end(), total);
        for (int i = 0; i < w; ++i) rowSums[size_t(y * w + i)] = line[size_t(i + 2 * r + 1)] - line[size_t(i)];
    }
    const auto row = [&](int y, int x) { return y >= 0 && y < h ? rowSums[size_t(y * w + x)] : 0.0; };
    for (int x = 0; x < w; ++x) {
        double sum = row(0, x) + row(1, x);
        for (int j = 2; j <= v; ++j) sum += row(j, x);
        out[size_t(x)] = sum;
        for (int y = 1; y < h; ++y) out[size_t(y * w + x)] = sum = (sum + row(y + v, x)) - row(y - v - 1, x);
    }
    return out;
}

TEST(BoxSum, FractionalSumsRoundInTheDefinedOrder) {
    BoxRing ring;
    ImageBuffer64 image;
    std::mt19937 rng(5);
    for (auto [w, h, ww, wh] : {std::tuple{32u, 24u, 3u, 3u}, {64u, 41u, 9u, 5u}, {16u, 40u, 33u, 17u}}) {
        image.Resize(w, h);
        std::vector<double> source(size_t(w) * h);
        for (double& x : source) x = std::uniform_real_distribution<double>(-1e3, 1e3)(rng) / 3.0;
        std::copy(source.begin(), source.end(), image.data);
        BoxSum(ring, image, ww, wh, 0);
        ASSERT_TRUE(Equal(image, RunningBoxSum(source, int(w), int(h), int(ww / 2), int(wh / 2)))) << w << "x" << h;
    }
}

TEST(BoxSum, RowParityShortcutGivesTheBitsOfTheFullPass) {
    BoxRing ring;
    ImageBuffer64 shortcut, full;
    std::mt19937 rng(9);
    for (int32_t parity : {1, -1})
        for (uint32_t h : {2u, 3u, 9u, 10u, 49u})
            for (auto [ww, wh] : {std::pair{3u, 3u}, {7u, 5u}, {5u, 9u}, {1u, 7u}, {69u, 33u}}) {
                std::vector<double> source = Load(shortcut, 32, h, h + ww, parity > 0 ? 1 : 0);
                for (double& x : source)  // signed fractions, so that sums round; the zero rows stay +0.0
                    if (x != 0.0) x = (x - 2048.0) * std::uniform_real_distribution<double>(0.5, 1.0)(rng);
                std::copy(source.begin(), source.end(), shortcut.data);
                full.Resize(32, h);
                std::copy(source.begin(), source.end(), full.data);
                BoxSum(ring, full, ww, wh, 0);
                BoxSum(ring, shortcut, ww, wh, parity);
                ASSERT_TRUE(Equal(shortcut, {full.data, full.data + 32 * h})) << parity << " " << h << " " << ww;
            }
    const std::vector<double> both = Load(full, 16, 8, 3);  // a one-row window ignores the parity
    BoxSum(ring, full, 5, 1, 1);
    EXPECT_TRUE(Equal(full, NaiveBoxSum(both, 16, 8, 2, 0)));
}

}  // namespace

// Rows put into a small ring two at a time and each sum taken as soon as it is final give BoxSum's bits, with and
// without a row parity, for images lower and higher than the window.
TEST(BoxSumStream, RowsThroughARingGiveTheBitsOfTheWholeImage) {
    BoxRing ring, wholeRing;
    ImageBuffer64 whole;
    std::mt19937 rng(17);
    for (int32_t parity : {0, 1, -1})
        for (uint32_t h : {2u, 6u, 10u, 12u, 50u})
            for (auto [ww, wh] : {std::pair{3u, 3u}, {11u, 11u}, {7u, 7u}, {5u, 1u}, {1u, 9u}}) {
                const uint32_t w = 16, v = wh / 2, ringRows = 2 * v + 8;
                std::vector<double> source = Load(whole, w, h, h * ww + wh, parity > 0 ? 1 : parity < 0 ? 0 : -1);
                for (double& x : source)
                    if (x != 0.0) x *= std::uniform_real_distribution<double>(-1.0, 1.0)(rng);
                std::copy(source.begin(), source.end(), whole.data);
                BoxSum(wholeRing, whole, ww, wh, parity);

                std::vector<double> rows(size_t(w) * ringRows), sums(source.size());
                const RowRing<double> image{rows.data(), w, ringRows};
                BoxSumStream stream;
                stream.Begin(ring, image, h, ww, wh, parity);
                uint32_t taken = 0;
                for (uint32_t y = 0; y < h; y += 2) {
                    for (uint32_t k = y; k < y + 2; ++k) std::copy_n(&source[size_t(k) * w], w, image.Row(k));
                    for (const uint32_t done = stream.FeedThrough(y + 2); taken < done; ++taken)
                        std::copy_n(image.Row(taken), w, &sums[size_t(taken) * w]);
                }
                ASSERT_EQ(taken, h);
                ASSERT_TRUE(Equal(whole, sums)) << parity << " " << h << " " << ww << "x" << wh;
            }
}
