// The LPA-ICI windows: kernels against the closed formulas and the blend's ends, reflection of the line at both
// ends, the windows at every site, the ICI rule, and the AVX2 accumulation against its scalar twin bit for bit.
#include "demosaic/LpaWindows.h"
#include "primitives/ProcessorLevel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

struct Kernel {
    int n;
    int padded;  // taps per group
    const float* weights;
};

std::vector<Kernel> Kernels(const LpaWindows& w) {
    return {{4, 4, w.kernel4}, {6, 8, w.kernel6}, {8, 8, w.kernel8}, {12, 12, w.kernel12}};
}

double F(int n, int t) { return (4.0 * n - 2 - 6.0 * t) / (n * (n + 1.0)); }
double Gs(int n, int t) { return (12.0 * t - 6.0 * n + 6) / (n * (n * double(n) - 1)); }

// `count` single-precision units in the last place at x; at 0 the smallest subnormal, so 0 must be exact.
double FloatUlps(double x, int count) {
    const float f = std::abs(float(x));
    return count * double(std::nextafter(f, INFINITY) - f);
}

TEST(LpaWindows, KernelsFollowTheClosedFormulasAndBlend) {
    LpaWindows w;
    // At 1 the first-order fit: the table's constants, within a few units in the last place of the formulas.
    w.BuildKernels(1.0f);
    for (const Kernel& k : Kernels(w)) {
        for (int t = 0; t < k.padded; ++t) {
            SCOPED_TRACE("n " + std::to_string(k.n) + " t " + std::to_string(t));
            const float f = k.weights[t], g = k.weights[k.padded + t];
            if (t >= k.n) {
                EXPECT_EQ(f, 0.0f);
                EXPECT_EQ(g, 0.0f);
                continue;
            }
            EXPECT_NEAR(f, F(k.n, t), FloatUlps(F(k.n, t), 3));
            EXPECT_NEAR(g, Gs(k.n, t), FloatUlps(Gs(k.n, t), 3));
        }
    }
    EXPECT_EQ(w.kernel12[0], 0.294871807f);  // the table's value as given
    EXPECT_EQ(w.kernel12[12 + 11], 0.0384615362f);

    // At 0 (and below, clamped) the plain mean; the blend is kept as given.
    for (const float blend : {0.0f, -3.0f}) {
        w.BuildKernels(blend);
        EXPECT_EQ(w.blend, blend);
        for (const Kernel& k : Kernels(w))
            for (int t = 0; t < k.padded; ++t) {
                EXPECT_EQ(k.weights[t], t < k.n ? 1.0f / float(k.n) : 0.0f) << k.n << " " << t;
                EXPECT_EQ(k.weights[k.padded + t], 0.0f);
            }
    }
    // Above 1 clamped to 1; in between a F + (1 - a) / n.
    LpaWindows one;
    one.BuildKernels(1.0f);
    w.BuildKernels(7.0f);
    EXPECT_EQ(w.blend, 7.0f);
    EXPECT_EQ(std::memcmp(w.kernel4, one.kernel4, sizeof w.kernel4), 0);
    EXPECT_EQ(std::memcmp(w.kernel6, one.kernel6, sizeof w.kernel6), 0);
    EXPECT_EQ(std::memcmp(w.kernel8, one.kernel8, sizeof w.kernel8), 0);
    EXPECT_EQ(std::memcmp(w.kernel12, one.kernel12, sizeof w.kernel12), 0);
    w.BuildKernels(0.1f);
    EXPECT_EQ(w.kernel6[1], 0.1f * 0.380952388f + 0.9f / 6.0f);
    EXPECT_EQ(w.kernel6[8 + 5], 0.1f * 0.142857149f);
    EXPECT_EQ(w.kernel6[6], 0.0f);
    EXPECT_EQ(w.kernel6[8 + 7], 0.0f);
}

// A line whose sample k is 100 + k, `step` bytes apart.
std::vector<float> Line(int count, int stepFloats) {
    std::vector<float> line(size_t(count) * stepFloats, -1.0f);
    for (int k = 0; k < count; ++k) line[size_t(k) * stepFloats] = 100.0f + k;
    return line;
}

// Sample index of position x on a line of N samples mirrored about both ends without repeating them.
int Mirror(int x, int count) {
    if (x < 0) x = -x;
    if (x > count - 1) x = 2 * (count - 1) - x;
    return x;
}

TEST(LpaWindows, NextSampleReflectsWithoutRepeatingTheEnds) {
    for (const int stepFloats : {1, 7}) {
        const std::vector<float> line = Line(16, stepFloats);
        LpaWindows w;
        w.cursor = reinterpret_cast<const uint8_t*>(line.data());
        w.step = 4 * stepFloats;
        w.remaining = 16;
        // S(0) .. S(15), then back S(14) .. S(4), then forward again S(5) .. S(15), and back.
        std::vector<int> expected;
        for (int k = 0; k < 16; ++k) expected.push_back(k);
        for (int k = 14; k >= 4; --k) expected.push_back(k);
        for (int k = 5; k <= 15; ++k) expected.push_back(k);
        expected.push_back(14);
        for (size_t r = 0; r < expected.size(); ++r) ASSERT_EQ(w.NextSample(), 100.0f + expected[r]) << "read " << r;
    }
}

// At every site of both parities, on rows (step 4) and on columns (a longer step), forward[t] and backward[t]
// are the samples t places after and before the site with the line mirrored about its first and last samples.
TEST(LpaWindows, WindowsAtEverySiteOfTheLine) {
    for (const int count : {12, 16, 30}) {
        for (const int stepFloats : {1, 5}) {
            const std::vector<float> line = Line(count, stepFloats);
            for (int p = 0; p < 2; ++p) {
                LpaWindows w;
                w.LoadLine(line.data(), 4 * stepFloats, count, p);
                for (int x = p; x < count; x += 2) {
                    for (int t = 0; t < 12; ++t) {
                        ASSERT_EQ(w.forward[t], 100.0f + Mirror(x + t, count)) << count << " p " << p << " x " << x;
                        ASSERT_EQ(w.backward[t], 100.0f + Mirror(x - t, count)) << count << " p " << p << " x " << x;
                    }
                    w.AdvanceSite();
                }
            }
        }
    }
    // The worked cases: the first site with p = 0 and 1, and the last site of parity 1 on 16 samples.
    const std::vector<float> line = Line(16, 1);
    LpaWindows w;
    w.LoadLine(line.data(), 4, 16, 0);
    EXPECT_EQ(std::vector<float>(w.backward, w.backward + 3), (std::vector<float>{100, 101, 102}));
    w.LoadLine(line.data(), 4, 16, 1);
    EXPECT_EQ(std::vector<float>(w.backward, w.backward + 4), (std::vector<float>{101, 100, 101, 102}));
    EXPECT_EQ(w.backward[11], 110.0f);
    EXPECT_EQ(w.forward[0], 101.0f);
    for (int site = 1; site < 8; ++site) w.AdvanceSite();
    for (int t = 0; t < 12; ++t) EXPECT_EQ(w.forward[t], 115.0f - t) << t;
}

TEST(LpaWindows, IciRuleCountsUpToTheFirstEmptyIntersection) {
    struct Case {
        float lower[4], upper[4];
        int chosen;
    } const cases[] = {
        {{0, 0, 0, 0}, {0, 0, 0, 0}, 3},            // a flat stretch of zeros: all intervals coincide
        {{-4, -3, -2, -1}, {4, 3, 2, 1}, 3},        // nested
        {{-1, 2, -9, -9}, {1, 3, 9, 9}, 0},         // 6 misses 4
        {{-1, 0.5f, 2, -9}, {1, 3, 3, 9}, 1},       // 8 misses the intersection of 4 and 6, though not 6
        {{-1, -1, -1, 1.5f}, {1, 1, 1, 2}, 2},      // 12 misses
        {{-1, -1, 5, -1}, {1, 1, 6, 1}, 1},         // empty at 8 ends the count, 12 overlapping again does not
        {{1, 1, 1, 1}, {1, 1, 1, 1}, 3},            // touching bounds intersect
    };
    for (const Case& c : cases) EXPECT_EQ(LpaIciChoice(c.lower, c.upper), c.chosen) << c.lower[1] << " " << c.upper[1];
}

// A flat window of zeros has zero variance at every length: each direction adds 0 to the sum and the approximate
// reciprocal of 1e-6 to the weight. A step behind tap 7 leaves lengths 4 to 8 flat and excludes length 12.
TEST(LpaWindows, AccumulateOnFlatAndSteppedWindows) {
    const auto run = [](LpaAccumulateForm form, const LpaWindows& w) {
        float sum = 0, weight = 0;
        form(w, &sum, &weight);
        return std::make_pair(sum, weight);
    };
    LpaWindows w;
    w.BuildKernels(0.1f);
    w.gamma = 1.0f;
    LpaWindows reference = w;
    float flatWeight = 0;
    {
        float sum = 0;
        LpaAccumulateSiteScalar(reference, &sum, &flatWeight);
        EXPECT_EQ(sum, 0.0f);
        EXPECT_NEAR(flatWeight, 2e6f, 2e6f * 1e-3f);  // 12-bit estimate of 1 / 1e-6, twice
    }
    for (int t = 8; t < 12; ++t) w.forward[t] = 1000.0f;
    const auto stepped = run(LpaAccumulateSiteScalar, w);
    EXPECT_EQ(stepped.first, 0.0f);
    EXPECT_EQ(stepped.second, flatWeight);
    // The same step within the first four taps shows in every length: the sum moves.
    LpaWindows near = reference;
    near.forward[1] = 1000.0f;
    EXPECT_NE(run(LpaAccumulateSiteScalar, near).first, 0.0f);
}

// The vector form against the twin on random windows of every scale of colour difference, on random blends and
// thresholds, accumulating onto random totals.
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
        const bool integral = random() % 2 == 0;  // the stage's differences are integers
        for (int t = 0; t < 12; ++t) {
            float a = span * (2 * unit(random) - 1), b = span * (2 * unit(random) - 1);
            if (integral) a = std::nearbyint(a), b = std::nearbyint(b);
            w.forward[t] = a;
            w.backward[t] = random() % 4 == 0 ? w.forward[t] : b;
        }
        if (random() % 8 == 0)  // flat stretches
            for (int t = 0; t < 12; ++t) w.forward[t] = w.forward[0];
        const float startSum = random() % 2 ? 0.0f : span * unit(random), startWeight = random() % 2 ? 0.0f : 1e3f * unit(random);
        float s1 = startSum, w1 = startWeight, s2 = startSum, w2 = startWeight;
        LpaAccumulateSiteScalar(w, &s1, &w1);
        LpaAccumulateSiteAvx2(w, &s2, &w2);
        ASSERT_EQ(std::memcmp(&s1, &s2, 4), 0) << "trial " << trial << ": " << s1 << " vs " << s2;
        ASSERT_EQ(std::memcmp(&w1, &w2, 4), 0) << "trial " << trial << ": " << w1 << " vs " << w2;
    }
}

}  // namespace
