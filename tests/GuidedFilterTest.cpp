// The guided filter: the pair estimate against a direct per-window fit, the cases with a known answer (flat
// windows, empty windows, exact linear relations along the chosen orientation, the colour estimate over the whole
// plane), zeros off the sites, and refusals and failed allocations part-way through.
#include "demosaic/GuidedFilter.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace {

const double floorWeight = 1.0 / std::sqrt(double(1e-16f));

bool On(uint32_t pattern, uint32_t x, uint32_t y) { return (pattern >> (8 * (2 * (y & 1) + (x & 1)))) & 0xFF; }

// f(x, y) on the sites of pattern, 0 elsewhere.
void Plane(ImageBuffer32& image, uint32_t w, uint32_t h, uint32_t pattern, const std::function<float(int, int)>& f) {
    image.Resize(w, h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) image.data[y * w + x] = On(pattern, x, y) ? f(int(x), int(y)) : 0.0f;
}

// The estimate of t from g straight from the definition: a regularised least-squares line per window over the
// sites of q, each weighted by the reciprocal root of its mean squared error, averaged over the windows of a pixel.
std::vector<double> DirectPlain(const ImageBuffer32& t, const ImageBuffer32& g, uint32_t q, int r, int v, double eps) {
    const int w = int(t.width), h = int(t.height);
    std::vector<double> slope(w * h), offset(w * h), weight(w * h), out(w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double n = 0, mt = 0, mg = 0, mtt = 0, mgg = 0, mtg = 0;
            for (int j = std::max(0, y - v); j <= std::min(h - 1, y + v); ++j)
                for (int i = std::max(0, x - r); i <= std::min(w - 1, x + r); ++i) {
                    const float a = t.data[j * w + i], b = g.data[j * w + i];
                    n += On(q, i, j), mt += a, mg += b, mtt += a * a, mgg += b * b, mtg += a * b;
                }
            n = std::max(n, 1e-32);
            mt /= n, mg /= n, mtt /= n, mgg /= n, mtg /= n;
            const double s = (mtg - mt * mg) / (mgg - mg * mg + eps), o = mt - s * mg;
            slope[y * w + x] = s, offset[y * w + x] = o;
            weight[y * w + x] = 1.0 / std::sqrt(std::max(mtt + s * s * mgg - 2 * s * mtg - o * o, double(1e-16f)));
        }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double sum = 0, weights = 0;
            for (int j = std::max(0, y - v); j <= std::min(h - 1, y + v); ++j)
                for (int i = std::max(0, x - r); i <= std::min(w - 1, x + r); ++i) {
                    const int c = j * w + i;
                    sum += weight[c] * (slope[c] * g.data[y * w + x] + offset[c]), weights += weight[c];
                }
            out[y * w + x] = On(q, x, y) ? sum / weights : 0.0;
        }
    return out;
}

void ExpectClose(const ImageBuffer32& out, const std::function<double(int, int)>& expected, double tolerance) {
    for (uint32_t y = 0; y < out.height; ++y)
        for (uint32_t x = 0; x < out.width; ++x) {
            const double e = expected(int(x), int(y));
            ASSERT_NEAR(out.data[y * out.width + x], e, tolerance * std::max(1.0, std::fabs(e))) << x << "," << y;
        }
}

bool ThrowsFalse(const std::function<void()>& body) {
    try {
        body();
    } catch (bool value) {
        return !value;
    }
    return false;
}

TEST(GuidedFilter, PairEstimatesMatchTheDirectFitAndAreZeroOffTheSites) {
    const uint32_t q = 0x00000101;  // both sites of the even rows
    std::mt19937 rng(1);
    std::normal_distribution<float> noise(0.0f, 20.0f);
    ImageBuffer32 first, second, outFirst, outSecond;
    Plane(first, 48, 20, q, [&](int x, int y) { return 1000 + 300 * std::sin(x / 5.0f) + 10 * y + noise(rng); });
    Plane(second, 48, 20, q, [&](int x, int y) { return 500 + 100 * std::cos(x / 7.0f + y) + noise(rng); });
    GuidedFilter filter(7, 5, 0, 1e-3);
    filter.FilterPairPlain(outFirst, outSecond, first, second, 0x00000001, 0x00000100);
    const std::vector<double> estimateFirst = DirectPlain(first, second, q, 3, 2, 1e-3);
    const std::vector<double> estimateSecond = DirectPlain(second, first, q, 3, 2, 1e-3);
    ExpectClose(outFirst, [&](int x, int y) { return estimateFirst[y * 48 + x]; }, 1e-5);
    ExpectClose(outSecond, [&](int x, int y) { return estimateSecond[y * 48 + x]; }, 1e-5);
}

TEST(GuidedFilter, FlatWindowsGiveSlopeZeroAndTheTargetsMean) {
    ImageBuffer32 first, second, outFirst, outSecond;
    Plane(first, 32, 8, 0x01010000, [](int, int) { return 100.0f; });
    Plane(second, 32, 8, 0x01010000, [](int, int) { return 50.0f; });
    GuidedFilter filter(5, 3, 0, 1.0);
    filter.FilterPairPlain(outFirst, outSecond, first, second, 0x00010000, 0x01000000);
    ExpectClose(outFirst, [](int, int y) { return y & 1 ? 100.0 : 0.0; }, 1e-6);
    ExpectClose(outSecond, [](int, int y) { return y & 1 ? 50.0 : 0.0; }, 1e-6);
    for (uint32_t i = 0; i < 32 * 8; ++i) EXPECT_LE(std::fabs(filter.slope.data[i]), 1e-9 * filter.denominator.data[i]);
}

TEST(GuidedFilter, EmptyWindowsHaveMeansZeroAndTheLargestWeight) {
    ImageBuffer32 first, second, outFirst, outSecond;
    Plane(first, 16, 4, 0x00000101, [](int x, int) { return 10.0f + x; });
    Plane(second, 16, 4, 0x00000101, [](int x, int) { return 3.0f * x; });
    GuidedFilter filter(3, 1, 0, 1e-6);  // one-row windows: those on the odd rows hold no sample
    filter.ComputeMeans(first, second, 0x00000101);
    for (uint32_t x = 0; x < 16; ++x) {
        EXPECT_DOUBLE_EQ(filter.denominator.data[16 + x], 1e32);
        EXPECT_EQ(filter.meanFirst.data[16 + x], 0.0);
        EXPECT_EQ(filter.cross.data[16 + x], 0.0);
    }
    filter.FilterPairPlain(outFirst, outSecond, first, second, 0x00000001, 0x00000100);
    EXPECT_NEAR(filter.denominator.data[16 + 5], 3 * floorWeight, 1e-6);  // sum of the three windows' weights
    EXPECT_NEAR(filter.denominator.data[16 + 0], 2 * floorWeight, 1e-6);
    ExpectClose(outFirst, [](int x, int y) { return y & 1 ? 0.0 : 10.0 + x; }, 1e-5);
}

TEST(GuidedFilter, LaplacianSlopesRecoverALinearRelationOnlyAlongTheChosenOrientation) {
    const uint32_t column = 0x00010001;  // the even columns of both rows
    ImageBuffer32 first, second, outFirst, outSecond;
    const auto guide = [](int, int y) { return 200.0f + 0.5f * y * y + 40.0f * std::sin(float(y)); };
    Plane(second, 32, 24, column, guide);
    Plane(first, 32, 24, column, [&](int x, int y) { return 3.0f * guide(x, y) + 7.0f; });
    GuidedFilter vertical(5, 9, 1, 1e-9);
    vertical.FilterPairLaplacian(outFirst, outSecond, first, second, 0x00000001, 0x00010000);
    ExpectClose(outFirst, [&](int x, int y) { return x & 1 ? 0.0 : 3.0 * guide(x, y) + 7.0; }, 1e-4);
    ExpectClose(outSecond, [&](int x, int y) { return x & 1 ? 0.0 : guide(x, y); }, 1e-4);
    for (uint32_t i = 0; i < 32 * 24; ++i)  // a perfect fit still has a bounded weight
        ASSERT_LE(vertical.denominator.data[i], 45 * floorWeight * (1 + 1e-9));
    GuidedFilter horizontal(5, 9, 0, 1e-9);  // no variation along the rows: slope 0, only the window's mean
    horizontal.FilterPairLaplacian(outFirst, outSecond, first, second, 0x00000001, 0x00010000);
    EXPECT_GT(std::fabs(outFirst.data[10 * 32 + 4] - (3.0 * guide(4, 10) + 7.0)), 1.0);
}

TEST(GuidedFilter, ColourEstimateCoversEveryPixel) {
    const uint32_t colour = 0x01000000;
    std::mt19937 rng(2);
    std::uniform_real_distribution<float> value(0.0f, 1000.0f);
    ImageBuffer32 raw, green, out;
    Plane(green, 32, 16, 0x01010101, [&](int, int) { return value(rng); });
    // The other sites of the mosaic hold other colours, which the estimate must not see.
    Plane(raw, 32, 16, 0x01010101, [&](int x, int y) { return On(colour, x, y) ? 2.0f * green.data[y * 32 + x] + 5.0f : value(rng); });
    GuidedFilter filter(7, 7, 0, 1e-9);
    filter.FilterColour(out, raw, green, colour);
    ExpectClose(out, [&](int x, int y) { return 2.0 * green.data[y * 32 + x] + 5.0; }, 1e-4);
}

TEST(GuidedFilter, ThrowsFalseOnBadOperandsAndReleasesEverythingWhenAnAllocationFails) {
    ImageBuffer32 none, a, b, wide, narrow, narrowOther, out, outOther;
    Plane(a, 32, 8, 0x00000101, [](int x, int y) { return float(x * y % 7); });
    Plane(b, 32, 8, 0x00000101, [](int x, int) { return float(x % 5); });
    Plane(wide, 40, 8, 0x00000101, [](int, int) { return 1.0f; });
    Plane(narrow, 12, 2, 0x00000101, [](int, int) { return 1.0f; });
    Plane(narrowOther, 12, 2, 0x00000101, [](int, int) { return 1.0f; });
    GuidedFilter filter(5, 3, 0, 1e-6);
    EXPECT_TRUE(ThrowsFalse([&] { filter.ApplyWeighted(out, a); }));  // nothing fitted yet
    EXPECT_TRUE(ThrowsFalse([&] { filter.FilterPairPlain(out, outOther, none, b, 1, 0x100); }));
    EXPECT_TRUE(ThrowsFalse([&] { filter.FilterPairLaplacian(out, outOther, a, wide, 1, 0x100); }));
    EXPECT_TRUE(ThrowsFalse([&] { filter.FilterColour(out, a, none, 1); }));
    EXPECT_TRUE(ThrowsFalse([&] { filter.ComputeMeans(narrow, narrowOther, 1); }));

    ImageBuffer32 clean, cleanOther;
    GuidedFilter(5, 3, 1, 1e-6).FilterPairLaplacian(clean, cleanOther, a, b, 1, 0x100);
    int failures = 0;
    for (uint32_t n = 1;; ++n) {
        GuidedFilter attempt(5, 3, 1, 1e-6);
        ImageBuffer32 outFirst, outSecond;
        platform::FailAllocationAfter(n);
        const bool failed = ThrowsFalse([&] { attempt.FilterPairLaplacian(outFirst, outSecond, a, b, 1, 0x100); });
        platform::FailAllocationAfter(0);
        if (!failed) {
            EXPECT_TRUE(std::equal(clean.data, clean.data + 256, outFirst.data));
            EXPECT_TRUE(std::equal(cleanOther.data, cleanOther.data + 256, outSecond.data));
            break;
        }
        ++failures;
    }
    EXPECT_GE(failures, 12);  // every buffer of the object, the two locals, the scratch and the outputs
}

}  // namespace
