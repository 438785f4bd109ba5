// PxFilterBorder_32f and PxFilterBoxBorder_32f with AVX2: eight output pixels per register. The border
// strips and maps come from the shared drivers; only the row arithmetic is wide here.
#include "primitives/FilterForms.h"
#include "primitives/Px.h"

#include <immintrin.h>

namespace {

// The row r rows below p, for steps in bytes that need not be a multiple of four.
__attribute__((always_inline)) inline const float* Below(const float* p, int32_t r, intptr_t stride) {
    return reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(p) + r * stride);
}

// Full eight-lane loads and stores.
struct AllLanes {
    __m256 Load(const float* p) const { return _mm256_loadu_ps(p); }
    void Store(float* p, __m256 v) const { _mm256_storeu_ps(p, v); }
};

// The first `count` (1..7) lanes only: the others are neither read nor written.
struct FirstLanes {
    __m256i mask;
    explicit FirstLanes(int32_t count)
        : mask(_mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7))) {}
    __m256 Load(const float* p) const { return _mm256_maskload_ps(p, mask); }
    void Store(float* p, __m256 v) const { _mm256_maskstore_ps(p, mask, v); }
};

// Accumulates one kernel row into V vectors of eight outputs: acc[v] += k[-i] * s[i + 8v] for every tap i.
template <int KW, int V, class Lanes>
__attribute__((always_inline)) inline void AccumulateRow(__m256 (&acc)[V], const float* s, const float* k, int32_t givenKw,
                                                         Lanes lanes) {
    const int32_t kw = KW > 0 ? KW : givenKw;
    for (int32_t i = 0; i < kw; ++i) {
        const __m256 tap = _mm256_broadcast_ss(k - i);
        for (int v = 0; v < V; ++v) acc[v] = _mm256_fmadd_ps(tap, lanes.Load(s + i + 8 * v), acc[v]);
    }
}

// One input row feeding two output rows at once, with kernel rows kUpper (for the upper output) and
// kLower (for the lower one): each sample is loaded once for both.
template <int KW, int V, class Lanes>
__attribute__((always_inline)) inline void AccumulateRowTwice(__m256 (&upper)[V], __m256 (&lower)[V], const float* s,
                                                              const float* kUpper, const float* kLower, int32_t givenKw,
                                                              Lanes lanes) {
    const int32_t kw = KW > 0 ? KW : givenKw;
    for (int32_t i = 0; i < kw; ++i) {
        const __m256 tapUpper = _mm256_broadcast_ss(kUpper - i);
        const __m256 tapLower = _mm256_broadcast_ss(kLower - i);
        for (int v = 0; v < V; ++v) {
            __m256 sample = lanes.Load(s + i + 8 * v);
            __asm__("" : "+x"(sample));  // one load for both sums, not one folded into each
            upper[v] = _mm256_fmadd_ps(tapUpper, sample, upper[v]);
            lower[v] = _mm256_fmadd_ps(tapLower, sample, lower[v]);
        }
    }
}

// Output rows y and y + 1 over 8V columns. Input row r of their common reach meets kernel row r of the
// upper output and kernel row r - 1 of the lower one; the 2V independent sums hide the FMA latency.
template <int KW, int V, class Lanes = AllLanes>
__attribute__((always_inline)) inline void FilterTwoRows(const float* top, intptr_t inStride, float* outUpper,
                                                         float* outLower, const float* lastTap, int32_t givenKw, int32_t kh,
                                                         Lanes lanes = Lanes()) {
    const int32_t kw = KW > 0 ? KW : givenKw;
    __m256 upper[V], lower[V];
    for (int v = 0; v < V; ++v) upper[v] = lower[v] = _mm256_setzero_ps();
    AccumulateRow<KW, V>(upper, top, lastTap, kw, lanes);
    for (int32_t r = 1; r < kh; ++r)
        AccumulateRowTwice<KW, V>(upper, lower, Below(top, r, inStride), lastTap - int64_t(r) * kw,
                              lastTap - int64_t(r - 1) * kw, kw, lanes);
    AccumulateRow<KW, V>(lower, Below(top, kh, inStride), lastTap - int64_t(kh - 1) * kw, kw, lanes);
    for (int v = 0; v < V; ++v) {
        lanes.Store(outUpper + 8 * v, upper[v]);
        lanes.Store(outLower + 8 * v, lower[v]);
    }
}

template <int KW, int V, class Lanes = AllLanes>
__attribute__((always_inline)) inline void FilterOneRow(const float* top, intptr_t inStride, float* out,
                                                        const float* lastTap, int32_t givenKw, int32_t kh,
                                                        Lanes lanes = Lanes()) {
    const int32_t kw = KW > 0 ? KW : givenKw;
    __m256 acc[V];
    for (int v = 0; v < V; ++v) acc[v] = _mm256_setzero_ps();
    for (int32_t j = 0; j < kh; ++j)
        AccumulateRow<KW, V>(acc, Below(top, j, inStride), lastTap - int64_t(j) * kw, kw, lanes);
    for (int v = 0; v < V; ++v) lanes.Store(out + 8 * v, acc[v]);
}

// Rows in pairs, 32 columns per step, then eight, then the last few under a lane mask; an odd last row alone.
// Every lane does the same operations in the same order wherever it lies, so a pixel's result does not depend
// on the path that computed it. KW > 0 fixes the kernel width at compile time, so the tap loops unroll.
template <int KW>
void FilterRowsOfWidth(const uint8_t* in, intptr_t inStride, uint8_t* out, intptr_t outStride, int32_t width,
                       int32_t rows, const float* reversedTaps, int32_t kw, int32_t kh) {
    const float* lastTap = reversedTaps + int64_t(kw) * kh - 1;  // tap t is lastTap[-t]
    int32_t y = 0;
    for (; y + 2 <= rows; y += 2) {
        const float* top = reinterpret_cast<const float*>(in + y * inStride);
        float* upper = reinterpret_cast<float*>(out + y * outStride);
        float* lower = reinterpret_cast<float*>(out + (y + 1) * outStride);
        int32_t x = 0;
        for (; x + 32 <= width; x += 32) FilterTwoRows<KW, 4>(top + x, inStride, upper + x, lower + x, lastTap, kw, kh);
        for (; x + 8 <= width; x += 8) FilterTwoRows<KW, 1>(top + x, inStride, upper + x, lower + x, lastTap, kw, kh);
        if (x < width)
            FilterTwoRows<KW, 1>(top + x, inStride, upper + x, lower + x, lastTap, kw, kh, FirstLanes(width - x));
    }
    if (y < rows) {
        const float* top = reinterpret_cast<const float*>(in + y * inStride);
        float* o = reinterpret_cast<float*>(out + y * outStride);
        int32_t x = 0;
        for (; x + 32 <= width; x += 32) FilterOneRow<KW, 4>(top + x, inStride, o + x, lastTap, kw, kh);
        for (; x + 8 <= width; x += 8) FilterOneRow<KW, 1>(top + x, inStride, o + x, lastTap, kw, kh);
        if (x < width) FilterOneRow<KW, 1>(top + x, inStride, o + x, lastTap, kw, kh, FirstLanes(width - x));
    }
}

void FilterRowsAvx2(const uint8_t* in, intptr_t inStride, uint8_t* out, intptr_t outStride, int32_t width,
                    int32_t rows, const float* reversedTaps, int32_t kw, int32_t kh) {
    switch (kw) {
        case 1: return FilterRowsOfWidth<1>(in, inStride, out, outStride, width, rows, reversedTaps, kw, kh);
        case 3: return FilterRowsOfWidth<3>(in, inStride, out, outStride, width, rows, reversedTaps, kw, kh);
        case 5: return FilterRowsOfWidth<5>(in, inStride, out, outStride, width, rows, reversedTaps, kw, kh);
        case 7: return FilterRowsOfWidth<7>(in, inStride, out, outStride, width, rows, reversedTaps, kw, kh);
        case 9: return FilterRowsOfWidth<9>(in, inStride, out, outStride, width, rows, reversedTaps, kw, kh);
        default: return FilterRowsOfWidth<0>(in, inStride, out, outStride, width, rows, reversedTaps, kw, kh);
    }
}

// Same operations per column as the scalar form, so the column sums are bit-identical.
void UpdateColumnsAvx2(float* sums, const float* entering, const float* leaving, int32_t count) {
    int32_t c = 0;
    for (; c + 8 <= count; c += 8) {
        const __m256 sum = _mm256_add_ps(_mm256_loadu_ps(sums + c), _mm256_loadu_ps(entering + c));
        _mm256_storeu_ps(sums + c, _mm256_sub_ps(sum, _mm256_loadu_ps(leaving + c)));
    }
    for (; c < count; ++c) sums[c] = sums[c] + entering[c] - leaving[c];
}

// Inclusive prefix sum of the eight lanes.
__m256 PrefixSum(__m256 v) {
    v = _mm256_add_ps(v, _mm256_castsi256_ps(_mm256_slli_si256(_mm256_castps_si256(v), 4)));
    v = _mm256_add_ps(v, _mm256_castsi256_ps(_mm256_slli_si256(_mm256_castps_si256(v), 8)));
    const __m256 lowLast = _mm256_permute_ps(v, 0xFF);                   // lane 3 of each half, broadcast
    return _mm256_add_ps(v, _mm256_permute2f128_ps(lowLast, lowLast, 0x08));  // into the high half only
}

// The window sum moves by the differences of entering and leaving column sums; eight steps at a time
// they are summed as a prefix and added to the window, which rounds differently from the scalar chain.
void WindowRowAvx2(const float* sums, float* out, int32_t width, int32_t mw, float factor) {
    float window = 0.0f;
    for (int32_t c = 0; c < mw; ++c) window += sums[c];
    out[0] = window * factor;
    const __m256 scale = _mm256_set1_ps(factor);
    __m256 windows = _mm256_set1_ps(window);
    int32_t x = 1;
    for (; x + 8 <= width; x += 8) {
        const __m256 steps = _mm256_sub_ps(_mm256_loadu_ps(sums + x + mw - 1), _mm256_loadu_ps(sums + x - 1));
        const __m256 next = _mm256_add_ps(windows, PrefixSum(steps));
        _mm256_storeu_ps(out + x, _mm256_mul_ps(next, scale));
        const __m256 last = _mm256_permute_ps(next, 0xFF);
        windows = _mm256_permute2f128_ps(last, last, 0x11);
    }
    window = _mm256_cvtss_f32(windows);
    for (; x < width; ++x) {
        window = window + sums[x + mw - 1] - sums[x - 1];
        out[x] = window * factor;
    }
}

}  // namespace

PxStatus FilterBorderAvx2(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                          int32_t borderType, const float* borderValue, const PxFilterBorderSpec* filterSpec,
                          uint8_t* buffer) {
    return FilterBorderWithRows(FilterRowsAvx2, src, srcStep, dst, dstStep, roi, borderType, borderValue, filterSpec,
                                buffer);
}

PxStatus FilterBoxBorderAvx2(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                             PxSize mask, int32_t borderType, const float* borderValue, uint8_t* buffer) {
    return FilterBoxBorderWithRows(UpdateColumnsAvx2, WindowRowAvx2, src, srcStep, dst, dstStep, roi, mask,
                                   borderType, borderValue, buffer);
}

PxStatus FilterBorderRingAvx2(const float* src, int32_t srcStep, int32_t srcRingRows, float* dst, int32_t dstStep,
                              int32_t dstRingRows, PxSize roi, int32_t firstRow, int32_t endRow, int32_t borderType,
                              const float* borderValue, const PxFilterBorderSpec* filterSpec, uint8_t* buffer) {
    return FilterBorderRingWithRows(FilterRowsAvx2, src, srcStep, srcRingRows, dst, dstStep, dstRingRows, roi,
                                    firstRow, endRow, borderType, borderValue, filterSpec, buffer);
}
