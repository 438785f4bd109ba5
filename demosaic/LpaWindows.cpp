#include "demosaic/LpaWindows.h"

#include <xmmintrin.h>

#include <cstring>

namespace {

// End-point weights F(n, t) = (4n - 2 - 6t) / (n(n + 1)) and slope weights Gs(n, t) = (12t - 6n + 6) / (n(n^2 - 1))
// of a straight-line least-squares fit over n samples, as single-precision constants. A few of length 12 differ
// in the last place from the correctly rounded closed formula; these are the values the algorithm is tuned with.
constexpr float f4[4] = {0.7f, 0.4f, 0.1f, -0.2f};
constexpr float g4[4] = {-0.3f, -0.1f, 0.1f, 0.3f};
constexpr float f6[6] = {0.523809552f, 0.380952388f, 0.238095239f, 0.095238097f, -0.0476190485f, -0.190476194f};
constexpr float g6[6] = {-0.142857149f, -0.0857142881f, -0.0285714287f, 0.0285714287f, 0.0857142881f, 0.142857149f};
constexpr float f8[8] = {0.416666657f, 0.333333343f,   0.25f,          0.166666672f,
                         0.0833333358f, 0.0f,          -0.0833333358f, -0.166666672f};
constexpr float g8[8] = {-0.0833333358f, -0.0595238097f, -0.0357142873f, -0.0119047621f,
                         0.0119047621f,  0.0357142873f,  0.0595238097f,  0.0833333358f};
constexpr float f12[12] = {0.294871807f,  0.256410241f,  0.21794872f,   0.179487184f,  0.141025648f,   0.102564104f,
                           0.0641025603f, 0.025641026f,  -0.012820513f, -0.051282052f, -0.0897435918f, -0.128205121f};
constexpr float g12[12] = {-0.0384615362f, -0.0314685293f, -0.0244755242f, -0.0174825173f,
                           -0.0104895104f, -0.00349650299f, 0.00349650299f, 0.0104895104f,
                           0.0174825173f,  0.0244755242f,  0.0314685293f,  0.0384615362f};

// One kernel of n taps into its two groups of `padded` weights; the padding stays zero.
void Fill(float* kernel, int n, int padded, const float* estimate, const float* slope, float a) {
    const float mean = (1.0f - a) / float(n);
    for (int t = 0; t < padded; ++t) {
        kernel[t] = t < n ? a * estimate[t] + mean : 0.0f;
        kernel[padded + t] = t < n ? a * slope[t] : 0.0f;
    }
}

// (p0 + p1) + (p2 + p3): the order of a group of four, the same as two horizontal adds.
inline float GroupSum(const float* p) { return (p[0] + p[1]) + (p[2] + p[3]); }

// A quantity of the four lengths: the group sums of each kernel, absent groups counting as zero, then
// (first + second) + third.
inline void Reduce(const float products[4][12], const int groups[4], float out[4]) {
    for (int l = 0; l < 4; ++l) {
        const float first = GroupSum(products[l]);
        const float second = groups[l] > 1 ? GroupSum(products[l] + 4) : 0.0f;
        const float third = groups[l] > 2 ? GroupSum(products[l] + 8) : 0.0f;
        out[l] = (first + second) + third;
    }
}

inline float Reciprocal(float x) { return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(x))); }

inline float Max(float a, float b) { return a > b ? a : b; }
inline float Min(float a, float b) { return a < b ? a : b; }

}  // namespace

void LpaWindows::BuildKernels(float blend) {
    this->blend = blend;
    const float a = blend <= 0.0f ? 0.0f : blend < 1.0f ? blend : 1.0f;
    Fill(kernel4, 4, 4, f4, g4, a);
    Fill(kernel6, 6, 8, f6, g6, a);
    Fill(kernel8, 8, 8, f8, g8, a);
    Fill(kernel12, 12, 12, f12, g12, a);
}

float LpaWindows::NextSample() {
    float value;
    std::memcpy(&value, cursor, sizeof value);
    // Turn after S(N-1) and after S(N-12): the reads swing between the line's last twelve samples.
    if (--remaining == 0) {
        remaining = -1;
        step = -step;
    } else if (remaining == -12) {
        remaining = 11;
        step = -step;
    }
    cursor += step;
    return value;
}

void LpaWindows::LoadLine(const float* line, int32_t step, int32_t count, int32_t position) {
    cursor = reinterpret_cast<const uint8_t*>(line);
    this->step = step;
    remaining = count;
    const float first = position == 1 ? NextSample() : 0.0f;
    for (float& sample : forward) sample = NextSample();
    if (position == 1) {
        // Mirrored about S(0): S(1), S(0), S(1), S(2), ..., S(10).
        backward[0] = forward[0];
        backward[1] = first;
        std::memcpy(backward + 2, forward, 10 * sizeof(float));
    } else {
        std::memcpy(backward, forward, sizeof backward);
    }
}

void LpaWindows::AdvanceSite() {
    // Whole aligned quarters in and out, so that the next site's loads of the windows take their data straight
    // from these stores.
    const __m128 f0 = _mm_load_ps(forward), f1 = _mm_load_ps(forward + 4), f2 = _mm_load_ps(forward + 8);
    const __m128 b0 = _mm_load_ps(backward), b1 = _mm_load_ps(backward + 4), b2 = _mm_load_ps(backward + 8);
    float next0, next1;
    if (remaining > 2) {  // both reads forward, no turn: what NextSample would do, without its tests
        std::memcpy(&next0, cursor, sizeof next0);
        std::memcpy(&next1, cursor + step, sizeof next1);
        cursor += 2 * intptr_t(step);
        remaining -= 2;
    } else {
        next0 = NextSample();
        next1 = NextSample();
    }
    const __m128 incoming = _mm_unpacklo_ps(_mm_set_ss(next0), _mm_set_ss(next1));
    _mm_store_ps(backward, _mm_shuffle_ps(f0, b0, _MM_SHUFFLE(1, 0, 1, 2)));  // f2, f1, b0, b1
    _mm_store_ps(backward + 4, _mm_shuffle_ps(b0, b1, _MM_SHUFFLE(1, 0, 3, 2)));
    _mm_store_ps(backward + 8, _mm_shuffle_ps(b1, b2, _MM_SHUFFLE(1, 0, 3, 2)));
    _mm_store_ps(forward, _mm_shuffle_ps(f0, f1, _MM_SHUFFLE(1, 0, 3, 2)));
    _mm_store_ps(forward + 4, _mm_shuffle_ps(f1, f2, _MM_SHUFFLE(1, 0, 3, 2)));
    _mm_store_ps(forward + 8, _mm_shuffle_ps(f2, incoming, _MM_SHUFFLE(1, 0, 3, 2)));
}

int LpaIciChoice(const float lower[4], const float upper[4]) {
    // The running intersection only shrinks, so the count stops at the first empty one.
    int chosen = 0;
    float largestLower = lower[0], smallestUpper = upper[0];
    for (int l = 1; l < 4; ++l) {
        largestLower = Max(lower[l], largestLower);
        smallestUpper = Min(upper[l], smallestUpper);
        if (!(smallestUpper >= largestLower)) break;
        chosen = l;
    }
    return chosen;
}

void LpaAccumulateSiteScalar(const LpaWindows& windows, float* sum, float* weight) {
    const float* kernels[4] = {windows.kernel4, windows.kernel6, windows.kernel8, windows.kernel12};
    const int groups[4] = {1, 2, 2, 3};
    const float* const directions[2] = {windows.forward, windows.backward};
    for (const float* w : directions) {
        float products[4][12] = {};
        float e[4], s[4], v[4];
        for (int l = 0; l < 4; ++l)
            for (int t = 0; t < 4 * groups[l]; ++t) products[l][t] = kernels[l][t] * w[t];
        Reduce(products, groups, e);
        for (int l = 0; l < 4; ++l)
            for (int t = 0; t < 4 * groups[l]; ++t) products[l][t] = kernels[l][4 * groups[l] + t] * w[t];
        Reduce(products, groups, s);
        for (int l = 0; l < 4; ++l)
            for (int t = 0; t < 4 * groups[l]; ++t) {
                const float p = kernels[l][t] * ((w[t] - e[l]) - float(t) * s[l]);
                products[l][t] = p * p;
            }
        Reduce(products, groups, v);

        float q[4], lower[4], upper[4];
        for (int l = 0; l < 4; ++l) {
            const float half = _mm_cvtss_f32(_mm_sqrt_ss(_mm_set_ss(v[l]))) * windows.gamma;
            lower[l] = e[l] - half;
            upper[l] = e[l] + half;
            q[l] = Reciprocal(v[l] + 1e-6f);
        }
        const int chosen = LpaIciChoice(lower, upper);
        *sum = *sum + q[chosen] * e[chosen];
        *weight = *weight + q[chosen];
    }
}

namespace {

// The place of sample x of a line of n samples mirrored about its first and last samples, for x at most n - 1
// places outside the line.
inline int32_t Mirror(int32_t x, int32_t n) { return x < 0 ? -x : x > n - 1 ? 2 * (n - 1) - x : x; }

constexpr int32_t splitOrigin = 6;  // buffer index of the first site's entries

}  // namespace

void LpaSplitLine(const float* line, int32_t count, int32_t position, float* even, float* odd, LpaTaps* taps) {
    // even[m] is the sample at 2m + position (m from -5), odd[m] the one at 2m + position + 1 (m from -6), both
    // to five entries past the last site: what the windows reach.
    const int32_t sites = LpaLineSites(count, position);
    // Inside the line (2m + position + 1 at most count - 1) without the mirror.
    const int32_t inside = (count - position) / 2;
    for (int32_t m = -splitOrigin; m < 0; ++m) {
        even[splitOrigin + m] = m < -5 ? 0.0f : line[Mirror(2 * m + position, count)];
        odd[splitOrigin + m] = line[Mirror(2 * m + position + 1, count)];
    }
    const float* pairs = line + position;
    for (int32_t m = 0; m < inside; ++m) {
        even[splitOrigin + m] = pairs[2 * m];
        odd[splitOrigin + m] = pairs[2 * m + 1];
    }
    for (int32_t m = inside; m < sites + 5; ++m) {
        even[splitOrigin + m] = line[Mirror(2 * m + position, count)];
        odd[splitOrigin + m] = line[Mirror(2 * m + position + 1, count)];
    }
    // Forward: tap 2u is site i + u of the even samples, tap 2u + 1 site i + u of the odd ones. Backward: tap 2u
    // is site i - u of the even samples, tap 2u + 1 site i - u - 1 of the odd ones.
    for (int32_t u = 0; u < 6; ++u) {
        taps->forward[2 * u] = even + splitOrigin + u;
        taps->forward[2 * u + 1] = odd + splitOrigin + u;
        taps->backward[2 * u] = even + splitOrigin - u;
        taps->backward[2 * u + 1] = odd + splitOrigin - u - 1;
    }
}

void LpaColumnTaps(const float* plane, int32_t stepBytes, int32_t count, int32_t site, LpaTaps* taps,
                   int32_t ringRows) {
    const auto row = [&](int32_t x) {
        const int32_t place = Mirror(x, count);
        return reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(plane) +
                                              intptr_t(ringRows > 0 ? place % ringRows : place) * stepBytes);
    };
    for (int32_t t = 0; t < 12; ++t) {
        taps->forward[t] = row(site + t);
        taps->backward[t] = row(site - t);
    }
}

void LpaAccumulateLineScalar(const LpaWindows& windows, const LpaTaps& taps, int32_t count, float* sum,
                             float* weight) {
    LpaWindows site = windows;
    for (int32_t s = 0; s < count; ++s) {
        for (int32_t t = 0; t < 12; ++t) {
            site.forward[t] = taps.forward[t][s];
            site.backward[t] = taps.backward[t][s];
        }
        LpaAccumulateSiteScalar(site, sum + s, weight + s);
    }
}
