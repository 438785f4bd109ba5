// The LPA-ICI windows: kernels against the closed formulas and the blend's ends, the mirrored windows at every
// site of a line, the ICI rule, and the AVX2 accumulation against its scalar twin bit for bit.
#include "demosaic/LpaWindows.h"
#include "primitives/ProcessorLevel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

TEST(LpaWindows, KernelsFollowTheClosedFormulasAndTheBlend) {
    const auto F = [](int n, int t) { return (4.0 * n - 2 - 6.0 * t) / (n * (n + 1.0)); };
    const auto Gs = [](int n, int t) { return (12.0 * t - 6.0 * n + 6) / (n * (n * double(n) - 1)); };
    const auto ulps = [](double x) { return 3 * double(std::nextafter(std::abs(float(x)), INFINITY) - std::abs(float(x))); };
    for (const float blend : {1.0f, 7.0f, 0.0f, -3.0f}) {  // clamped to 0..1, kept as given
        LpaWindows w;
        w.BuildKernels(blend);
        EXPECT_EQ(w.blend, blend);
        const struct {
            int n, padded;
            const float* k;
        } kernels[] = {{4, 4, w.kernel4}, {6, 8, w.kernel6}, {8, 8, w.kernel8}, {12, 12, w.kernel12}};
        for (const auto& [n, padded, k] : kernels)
            for (int t = 0; t < padded; ++t) {
                SCOPED_TRACE("blend " + std::to_string(blend) + " n " + std::to_string(n) + " t " + std::to_string(t));
                if (t >= n) {  // padding stays zero
                    EXPECT_EQ(k[t], 0.0f);
                    EXPECT_EQ(k[padded + t], 0.0f);
                } else if (blend >= 1.0f) {  // the straight-line fit, within a few units in the last place
                    EXPECT_NEAR(k[t], F(n, t), ulps(F(n, t)));
                    EXPECT_NEAR(k[padded + t], Gs(n, t), ulps(Gs(n, t)));
                } else {  // the plain mean
                    EXPECT_EQ(k[t], 1.0f / float(n));
                    EXPECT_EQ(k[padded + t], 0.0f);
                }
            }
    }
    LpaWindows w;
    w.BuildKernels(0.1f);
    EXPECT_EQ(w.kernel12[0], 0.1f * 0.294871807f + 0.9f / 12.0f);  // the table's constant as given
}

// forward[t] and backward[t] are the samples t places after and before the site, the line mirrored about its
// first and last samples, at every site of both parities, along rows (step 4) and columns (a longer step); among
// them the first site at p = 0 and 1, and the last site of parity 1 at N = 16.
TEST(LpaWindows, WindowsAtEverySiteOfTheLine) {
    const auto mirror = [](int x, int n) { return x < 0 ? -x : x > n - 1 ? 2 * (n - 1) - x : x; };
    for (const int n : {12, 16, 30}) {
        for (const int stride : {1, 5}) {
            std::vector<float> line(size_t(n) * stride, -1.0f);
            for (int k = 0; k < n; ++k) line[size_t(k) * stride] = 100.0f + k;
            for (int p = 0; p < 2; ++p) {
                LpaWindows w;
                w.LoadLine(line.data(), 4 * stride, n, p);
                for (int x = p; x < n; x += 2, w.AdvanceSite())
                    for (int t = 0; t < 12; ++t) {
                        ASSERT_EQ(w.forward[t], 100.0f + mirror(x + t, n)) << n << " p " << p << " x " << x;
                        ASSERT_EQ(w.backward[t], 100.0f + mirror(x - t, n)) << n << " p " << p << " x " << x;
                    }
            }
        }
    }
}

TEST(LpaWindows, IciRuleCountsUpToTheFirstEmptyIntersection) {
    const struct {
        float lower[4], upper[4];
        int chosen;
    } cases[] = {
        {{0, 0, 0, 0}, {0, 0, 0, 0}, 3},        // a flat stretch of zeros: all intervals coincide, length 12
        {{-4, -3, -2, -1}, {4, 3, 2, 1}, 3},    // nested
        {{-1, 2, -9, -9}, {1, 3, 9, 9}, 0},     // 6 misses 4
        {{-1, 0.5f, 2, -9}, {1, 3, 3, 9}, 1},   // 8 misses the intersection of 4 and 6, though not 6 alone
        {{-1, -1, -1, 1.5f}, {1, 1, 1, 2}, 2},  // 12 misses
        {{-1, -1, 5, -1}, {1, 1, 6, 1}, 1},     // the first empty one ends the count
    };
    for (const auto& c : cases) EXPECT_EQ(LpaIciChoice(c.lower, c.upper), c.chosen) << c.lower[1] << " " << c.upper[1];
}

// On random windows of every scale of difference, flat stretches among them, random blends and thresholds, and
// random totals to add to.
TEST(LpaWindows, Avx2FormEqualsTheTwinBitForBit) {
    if (PxChooseRow(PxFeatureMask()) < PxLevelAvx2) GTEST_SKIP() << "no AVX2 on this processor";
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const float spans[] = {0.0f, 4.0f, 1020.0f, 16380.0f, 262140.0f};
    for (int trial = 0; trial < 20000; ++trial) {
        LpaWindows w;
        w.BuildKernels(trial % 7 == 0 ? 1.0f : trial % 5 == 0 ? 0.0f : unit(random));
        w.gamma = 0.1f + 9.9f * unit(random);
        const float span = spans[random() % 5];
        const bool flat = random() % 8 == 0, integral = random() % 2 == 0;
        for (int t = 0; t < 12; ++t) {
            w.forward[t] = flat && t > 0 ? w.forward[0] : span * (2 * unit(random) - 1);
            w.backward[t] = span * (2 * unit(random) - 1);
            if (integral) w.forward[t] = std::nearbyint(w.forward[t]), w.backward[t] = std::nearbyint(w.backward[t]);
        }
        float totals[2][2];
        totals[0][0] = totals[1][0] = span * unit(random);
        totals[0][1] = totals[1][1] = 1e3f * unit(random);
        LpaAccumulateSiteScalar(w, &totals[0][0], &totals[0][1]);
        LpaAccumulateSiteAvx2(w, &totals[1][0], &totals[1][1]);
        ASSERT_EQ(std::memcmp(totals[0], totals[1], sizeof totals[0]), 0)
            << "trial " << trial << ": " << totals[0][0] << ", " << totals[0][1] << " vs " << totals[1][0] << ", "
            << totals[1][1];
    }
}

}  // namespace
