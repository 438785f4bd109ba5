// The LPA-ICI windows: kernels against the closed formulas and the blend's ends, the mirrored windows at every
// site of a line, the ICI rule, and both layouts of taps with both forms of the accumulation against the
// definition bit for bit. The AVX2 row pieces against their scalar twins.
#include "demosaic/LpaLines.h"
#include "demosaic/LpaWindows.h"
#include "primitives/ProcessorLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// Random lines of every scale of difference, with flat stretches, at random blends and thresholds, added to
// random totals. The reference is the definition: the sliding windows and the per-site accumulation.
struct RandomLines {
    std::mt19937 random{11};
    std::uniform_real_distribution<float> unit{0.0f, 1.0f};

    float Unit() { return unit(random); }
    void Kernels(LpaWindows& w, int trial) {
        w.BuildKernels(trial % 7 == 0 ? 1.0f : trial % 5 == 0 ? 0.0f : Unit());
        w.gamma = 0.1f + 9.9f * Unit();
    }
    // n samples `stride` floats apart: noise of one scale, integral or not, with runs of one value.
    void Fill(float* line, int n, int stride) {
        static const float spans[] = {0.0f, 4.0f, 1020.0f, 16380.0f, 262140.0f};
        const float span = spans[random() % 5];
        const bool integral = random() % 2 == 0;
        for (int k = 0; k < n; ++k) {
            float v = span * (2 * Unit() - 1);
            if (integral) v = std::nearbyint(v);
            line[size_t(k) * stride] = k > 0 && random() % 3 == 0 ? line[size_t(k - 1) * stride] : v;
        }
    }
};

// Sums and weights of every site of a line by the definition, on top of the given totals.
void ByTheWindows(const LpaWindows& kernels, const float* line, int stride, int n, int p, float* sum, float* weight) {
    LpaWindows w = kernels;
    w.LoadLine(line, 4 * stride, n, p);
    for (int s = 0; s < LpaLineSites(n, p); ++s, w.AdvanceSite()) LpaAccumulateSiteScalar(w, sum + s, weight + s);
}

std::vector<LpaAccumulateForm> LineForms() {
    std::vector<LpaAccumulateForm> forms{LpaAccumulateLineScalar};
    if (PxChooseRow(PxFeatureMask()) >= PxLevelAvx2) forms.push_back(LpaAccumulateLineAvx2);
    return forms;
}

// Along a row: the split halves of lines of every length from 12 on, odd ones among them, at both first places.
// The number of sites is rarely a multiple of eight, so the wide form's last, partial block is always exercised.
TEST(LpaWindows, SplitLinesGiveTheDefinitionsTotalsBitForBit) {
    RandomLines r;
    for (int trial = 0; trial < 3000; ++trial) {
        const int n = 12 + int(r.random() % (trial % 4 == 0 ? 4 : 60)), p = trial & 1, sites = LpaLineSites(n, p);
        LpaWindows kernels;
        r.Kernels(kernels, trial);
        std::vector<float> line(static_cast<size_t>(n));
        r.Fill(line.data(), n, 1);
        std::vector<float> expected(2 * size_t(sites));
        for (float& total : expected) total = 1e3f * r.Unit();
        const std::vector<float> start = expected;
        ByTheWindows(kernels, line.data(), 1, n, p, expected.data(), expected.data() + sites);
        std::vector<float> even(size_t(LpaSplitLength(n, p))), odd(even.size());
        LpaTaps taps;
        LpaSplitLine(line.data(), n, p, even.data(), odd.data(), &taps);
        for (const LpaAccumulateForm form : LineForms()) {
            std::vector<float> totals = start;
            form(kernels, taps, sites, totals.data(), totals.data() + sites);
            ASSERT_EQ(std::memcmp(totals.data(), expected.data(), 4 * totals.size()), 0)
                << "trial " << trial << " n " << n << " p " << p << (form == LpaAccumulateLineScalar ? " scalar" : " avx2");
        }
    }
}

// Down columns: a row of sites of lines laid side by side, any number of lines, at every place of the lines,
// among them the first and last places, where the taps are mirrored rows; from the whole plane and from a ring.
TEST(LpaWindows, ColumnTapsGiveTheDefinitionsTotalsBitForBit) {
    RandomLines r;
    for (int trial = 0; trial < 300; ++trial) {
        const int n = 12 + int(r.random() % 40), lines = 1 + int(r.random() % 20), stride = lines + 3;
        LpaWindows kernels;
        r.Kernels(kernels, trial);
        std::vector<float> plane(size_t(n) * stride, NAN);  // NaN between the lines: a misplaced tap shows
        for (int i = 0; i < lines; ++i) r.Fill(plane.data() + i, n, stride);
        for (int p = 0; p < 2; ++p) {
            const int sites = LpaLineSites(n, p);
            std::vector<float> expected(2 * size_t(sites) * lines);  // sums then weights, a row of lines per site
            for (float& total : expected) total = 1e3f * r.Unit();
            const std::vector<float> start = expected;
            for (int i = 0; i < lines; ++i) {
                std::vector<float> column(2 * size_t(sites));
                for (int s = 0; s < sites; ++s) {
                    column[s] = expected[size_t(s) * lines + i];
                    column[sites + s] = expected[size_t(sites + s) * lines + i];
                }
                ByTheWindows(kernels, plane.data() + i, stride, n, p, column.data(), column.data() + sites);
                for (int s = 0; s < sites; ++s) {
                    expected[size_t(s) * lines + i] = column[s];
                    expected[size_t(sites + s) * lines + i] = column[sites + s];
                }
            }
            // From the whole plane, and from a ring of 23 rows holding only the places within reach of the site.
            for (const int ringRows : {0, 23})
                for (const LpaAccumulateForm form : LineForms()) {
                    std::vector<float> totals = start, ring(size_t(ringRows) * stride);
                    for (int s = 0; s < sites; ++s) {
                        const int x = p + 2 * s;
                        std::fill(ring.begin(), ring.end(), NAN);
                        for (int row = std::max(0, x - 11); row <= std::min(n - 1, x + 11) && ringRows > 0; ++row)
                            std::copy_n(plane.data() + size_t(row) * stride, stride,
                                        ring.data() + size_t(row % ringRows) * stride);
                        LpaTaps taps;
                        LpaColumnTaps(ringRows > 0 ? ring.data() : plane.data(), 4 * stride, n, x, &taps, ringRows);
                        form(kernels, taps, lines, totals.data() + size_t(s) * lines, totals.data() + size_t(sites + s) * lines);
                    }
                    ASSERT_EQ(std::memcmp(totals.data(), expected.data(), 4 * totals.size()), 0)
                        << "trial " << trial << " n " << n << " lines " << lines << " p " << p << " ring " << ringRows
                        << (form == LpaAccumulateLineScalar ? " scalar" : " avx2");
                }
        }
    }
}

// Mosaic rows of the full 16-bit range, ends and flat runs among the noise, and differences that land on exact
// halves, beyond the limits and in between, at both colour parities and several depths; the differences
// along rows and down colour columns, the cross differences, and the green and colour rows with and without the cross difference, as
// 16-bit samples and narrowed to bytes.
TEST(LpaLines, Avx2FormsEqualTheTwins) {
    if (PxChooseRow(PxFeatureMask()) < PxLevelAvx2) GTEST_SKIP() << "no AVX2 on this processor";
    const LpaLineForms twin = LpaLinesScalar(), wide = LpaLinesAvx2();
    std::mt19937 random(13);
    for (int trial = 0; trial < 400; ++trial) {
        const int32_t count = 8 * (1 + int32_t(random() % 6)), width = 2 * count, q = trial & 1;
        const int32_t depth = trial % 3 == 0 ? 16 : trial % 3 == 1 ? 12 : 8;
        const uint32_t top = (1u << depth) - 1;
        const intptr_t stride = width + 4 + 16;  // ring and slack that the wide loads may read
        std::vector<uint16_t> mosaic(size_t(stride) * 5);
        for (uint16_t& m : mosaic) {
            const uint32_t pick = random() % 8;
            m = uint16_t(pick == 0 ? 0 : pick == 1 ? top : pick == 2 ? top / 2 : random() & top);
        }
        const uint16_t* row = mosaic.data() + 2 * stride + 2;  // the middle row, two samples of ring
        std::vector<float> diffs[6];
        for (auto& d : diffs) {
            d.resize(size_t(count) + 1);
            for (float& v : d) {
                const int32_t n = int32_t(random() % (8u * top + 1)) - int32_t(4 * top);
                v = random() % 3 == 0 ? float(n) : random() % 2 ? 4.0f * float(n / 4) + 2.0f : float(n) * 0.37f;
            }
        }
        SCOPED_TRACE("trial " + std::to_string(trial) + " count " + std::to_string(count) + " parity " + std::to_string(q));

        std::vector<float> a(size_t(width), -1.0f), b = a;
        twin.rowDifferences(row, width, q, a.data());
        wide.rowDifferences(row, width, q, b.data());
        ASSERT_EQ(std::memcmp(a.data(), b.data(), 4 * a.size()), 0);
        const int32_t sign = trial % 4 < 2 ? -1 : 1;
        twin.columnDifferences(row + q, stride, count, sign, a.data());
        wide.columnDifferences(row + q, stride, count, sign, b.data());
        ASSERT_EQ(std::memcmp(a.data(), b.data(), 4 * size_t(count)), 0);

        std::vector<float> planes[4];  // rows of a site plane with two columns of ring on each side
        for (auto& plane : planes) {
            plane.resize(size_t(count) + 4);
            for (float& v : plane) v = float(int32_t(random() % 2001) - 1000) * (random() % 2 ? 0.25f : 1.37f);
        }
        twin.crossRow(planes[0].data() + 2, planes[1].data() + 2, planes[2].data() + 2, planes[3].data() + 2, count, a.data());
        wide.crossRow(planes[0].data() + 2, planes[1].data() + 2, planes[2].data() + 2, planes[3].data() + 2, count, b.data());
        ASSERT_EQ(std::memcmp(a.data(), b.data(), 4 * size_t(count)), 0);

        for (const bool bytes : {false, true}) {
            std::vector<uint16_t> x(size_t(width), 0xABCD), y = x;  // bytes fill the first half
            twin.greenRow(row, diffs[0].data(), count, q, float(top), bytes, x.data());
            wide.greenRow(row, diffs[0].data(), count, q, float(top), bytes, y.data());
            ASSERT_EQ(x, y) << "bytes " << bytes;
            for (const bool cross : {false, true}) {
                const float* e = cross ? diffs[1].data() : nullptr;
                twin.colourRow(row, e, diffs[2].data(), diffs[3].data(), diffs[4].data(), diffs[5].data(), count,
                               q, float(top), bytes, x.data());
                wide.colourRow(row, e, diffs[2].data(), diffs[3].data(), diffs[4].data(), diffs[5].data(), count,
                               q, float(top), bytes, y.data());
                ASSERT_EQ(x, y) << "bytes " << bytes << " cross " << cross;
            }
        }
    }
}

}  // namespace
