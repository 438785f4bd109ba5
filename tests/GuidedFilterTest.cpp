// The guided filter: the pair estimate against a direct per-window fit, the cases with a known answer (flat and
// empty windows, an exact linear relation along the columns, the colour estimate over the whole plane),
// zeros off the sites, and refusals and failed allocations part-way through.
#include "TestSupport.h"
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
using Field = std::function<double(int, int)>;

bool On(uint32_t pattern, int x, int y) { return (pattern >> (8 * (2 * (y & 1) + (x & 1)))) & 0xFF; }

void Plane(ImageBuffer32& image, int w, int h, uint32_t pattern, const Field& f) {
    image.Resize(w, h);
    for (int i = 0; i < w * h; ++i) image.data[i] = On(pattern, i % w, i / w) ? float(f(i % w, i / w)) : 0.0f;
}

void ExpectNear(const ImageBuffer32& out, const Field& expected, double tolerance) {
    for (int i = 0; i < int(out.width * out.height); ++i) {
        const double e = expected(i % out.width, i / out.width);
        ASSERT_NEAR(out.data[i], e, tolerance * std::max(1.0, std::fabs(e))) << i % out.width << "," << i / out.width;
    }
}

// The estimate of t from g by the definition: a regularised least-squares line per window over the sites of q,
// weighted by the reciprocal root of its mean squared error, averaged over the windows covering a pixel.
Field DirectPlain(const ImageBuffer32& t, const ImageBuffer32& g, uint32_t q, int r, int v, double eps) {
    const int w = int(t.width), h = int(t.height);
    std::vector<double> slope(w * h), offset(w * h), weight(w * h), out(w * h);
    const auto window = [&](int x, int y, const std::function<void(int)>& f) {
        for (int j = std::max(0, y - v); j <= std::min(h - 1, y + v); ++j)
            for (int i = std::max(0, x - r); i <= std::min(w - 1, x + r); ++i) f(j * w + i);
    };
    for (int c = 0; c < w * h; ++c) {
        double n = 0, mt = 0, mg = 0, mtt = 0, mgg = 0, mtg = 0;
        window(c % w, c / w, [&](int k) {
            const float a = t.data[k], b = g.data[k];
            n += On(q, k % w, k / w), mt += a, mg += b, mtt += a * a, mgg += b * b, mtg += a * b;
        });
        n = std::max(n, 1e-32), mt /= n, mg /= n, mtt /= n, mgg /= n, mtg /= n;
        const double s = (mtg - mt * mg) / (mgg - mg * mg + eps), o = mt - s * mg;
        slope[c] = s, offset[c] = o;
        weight[c] = 1.0 / std::sqrt(std::max(mtt + s * s * mgg - 2 * s * mtg - o * o, double(1e-16f)));
    }
    for (int p = 0; p < w * h; ++p) {
        double sum = 0, weights = 0;
        window(p % w, p / w, [&](int c) {
            sum += weight[c] * (slope[c] * g.data[p] + offset[c]);
            weights += weight[c];
        });
        out[p] = On(q, p % w, p / w) ? sum / weights : 0.0;
    }
    return [out, w](int x, int y) { return out[y * w + x]; };
}

TEST(GuidedFilter, PairEstimatesMatchTheDirectFitAndAreZeroOffTheSites) {
    const uint32_t q = 0x00000101;  // both sites of the even rows
    std::mt19937 rng(1);
    std::normal_distribution<double> noise(0.0, 20.0);
    ImageBuffer32 first, second, outFirst, outSecond;
    Plane(first, 48, 20, q, [&](int x, int y) { return 1000 + 300 * std::sin(x / 5.0) + 10 * y + noise(rng); });
    Plane(second, 48, 20, q, [&](int x, int y) { return 500 + 100 * std::cos(x / 7.0 + y) + noise(rng); });
    GuidedFilter filter(7, 5, 0, 1e-3);
    filter.FilterPairPlain(outFirst, outSecond, first, second, 0x00000001, 0x00000100);
    ExpectNear(outFirst, DirectPlain(first, second, q, 3, 2, 1e-3), 1e-5);
    ExpectNear(outSecond, DirectPlain(second, first, q, 3, 2, 1e-3), 1e-5);
}

TEST(GuidedFilter, FlatWindowsGiveTheMeanAndEmptyWindowsTheLargestWeight) {
    ImageBuffer32 first, second, outFirst, outSecond;
    Plane(first, 32, 8, 0x01010000, [](int, int) { return 100.0; });
    Plane(second, 32, 8, 0x01010000, [](int, int) { return 50.0; });
    GuidedFilter flat(5, 3, 0, 1.0);
    flat.FilterPairPlain(outFirst, outSecond, first, second, 0x00010000, 0x01000000);
    ExpectNear(outFirst, [](int, int y) { return y & 1 ? 100.0 : 0.0; }, 1e-6);
    ExpectNear(outSecond, [](int, int y) { return y & 1 ? 50.0 : 0.0; }, 1e-6);
    for (int i = 0; i < 32 * 8; ++i) ASSERT_LE(std::fabs(flat.slope.data[i]), 1e-9 * flat.denominator.data[i]);

    GuidedFilter rows(3, 1, 0, 1e-6);  // one-row windows: those on the even rows hold no sample
    rows.ComputeMeans(first, second, 0x01010000);
    EXPECT_DOUBLE_EQ(rows.denominator.data[5], 1e32);
    EXPECT_EQ(rows.meanFirst.data[5], 0.0);
    rows.FilterPairPlain(outFirst, outSecond, first, second, 0x00010000, 0x01000000);
    EXPECT_NEAR(rows.denominator.data[5], 3 * floorWeight, 1e-6);  // the sum of three windows' weights
    EXPECT_NEAR(rows.denominator.data[0], 2 * floorWeight, 1e-6);
}

TEST(GuidedFilter, LaplacianSlopesAlongTheColumnsRecoverALinearRelation) {
    const uint32_t column = 0x00010001;  // the even columns of both rows
    const Field guide = [](int, int y) { return 200.0 + 0.5 * y * y + 40.0 * std::sin(double(y)); };
    const Field target = [&](int x, int y) { return 3.0 * guide(x, y) + 7.0; };
    ImageBuffer32 first, second, outFirst, outSecond;
    Plane(first, 32, 24, column, target);
    Plane(second, 32, 24, column, guide);
    GuidedFilter vertical(5, 9, 1, 1e-9);
    vertical.FilterPairLaplacian(outFirst, outSecond, first, second, 0x00000001, 0x00010000);
    ExpectNear(outFirst, [&](int x, int y) { return x & 1 ? 0.0 : target(x, y); }, 1e-4);
    ExpectNear(outSecond, [&](int x, int y) { return x & 1 ? 0.0 : guide(x, y); }, 1e-4);
    for (int i = 0; i < 32 * 24; ++i)  // a perfect fit still has a bounded weight
        ASSERT_LE(vertical.denominator.data[i], 45 * floorWeight * (1 + 1e-9));
}

TEST(GuidedFilter, ColourEstimateCoversEveryPixelAndIgnoresTheOtherSites) {
    std::mt19937 rng(2);
    std::uniform_real_distribution<double> value(0.0, 1000.0);
    ImageBuffer32 raw, green, out;
    Plane(green, 32, 16, 0x01010101, [&](int, int) { return value(rng); });
    const Field colour = [&](int x, int y) { return 2.0 * green.data[y * 32 + x] + 5.0; };
    Plane(raw, 32, 16, 0x01010101, [&](int x, int y) { return On(0x01000000, x, y) ? colour(x, y) : value(rng); });
    GuidedFilter filter(7, 7, 0, 1e-9);
    filter.FilterColour(out, raw, green, 0x01000000);
    ExpectNear(out, colour, 1e-4);
}

TEST(GuidedFilter, ThrowsFalseOnBadOperandsAndReleasesEverythingWhenAnAllocationFails) {
    ImageBuffer32 none, a, b, wide, narrow, out, outOther;
    Plane(a, 32, 8, 0x00000101, [](int x, int y) { return x * y % 7; });
    Plane(b, 32, 8, 0x00000101, [](int x, int) { return x % 5; });
    Plane(wide, 40, 8, 0x00000101, [](int, int) { return 1.0; });
    Plane(narrow, 12, 2, 0x00000101, [](int, int) { return 1.0; });
    GuidedFilter filter(5, 3, 0, 1e-6);
    EXPECT_TRUE(ThrowsFalse([&] { filter.ApplyWeighted(out, a); }));  // nothing fitted yet
    EXPECT_TRUE(ThrowsFalse([&] { filter.FilterPairPlain(out, outOther, none, b, 1, 0x100); }));
    EXPECT_TRUE(ThrowsFalse([&] { filter.FilterPairLaplacian(out, outOther, a, wide, 1, 0x100); }));
    EXPECT_TRUE(ThrowsFalse([&] { filter.FilterColour(out, narrow, narrow, 1); }));

    ImageBuffer32 clean, cleanOther;
    GuidedFilter(5, 3, 1, 1e-6).FilterPairLaplacian(clean, cleanOther, a, b, 1, 0x100);
    uint32_t failures = 0;
    for (bool failed = true; failed; ++failures) {  // every allocation in turn, until none is left to fail
        GuidedFilter attempt(5, 3, 1, 1e-6);
        ImageBuffer32 outFirst, outSecond;
        platform::FailAllocationAfter(failures + 1);
        failed = ThrowsFalse([&] { attempt.FilterPairLaplacian(outFirst, outSecond, a, b, 1, 0x100); });
        platform::FailAllocationAfter(0);
        EXPECT_TRUE(failed || std::equal(clean.data, clean.data + 256, outFirst.data));
    }
    EXPECT_GE(failures, 13u);  // the object's buffers, the two Laplacians, the scratch and both outputs
}

}  // namespace
