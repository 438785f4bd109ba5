// PxFilterBorder_32f and PxFilterBoxBorder_32f with AVX2: eight output pixels per register. The border
// strips and maps come from the shared drivers; only the row arithmetic is wide here.
#include "primitives/Px.h"

#include <immintrin.h>

typedef void (*FilterRowsFn)(const uint8_t* in, intptr_t inStride, uint8_t* out, intptr_t outStride, int32_t width,
                             int32_t rows, const float* reversedTaps, int32_t kw, int32_t kh);
PxStatus FilterBorderWithRows(FilterRowsFn filterRows, const float* src, int32_t srcStep, float* dst,
                              int32_t dstStep, PxSize roi, int32_t borderType, const float* borderValue,
                              const PxFilterBorderSpec* filterSpec, uint8_t* buffer);

typedef void (*UpdateColumnsFn)(float* sums, const float* entering, const float* leaving, int32_t count);
typedef void (*WindowRowFn)(const float* sums, float* out, int32_t width, int32_t mw, float factor);
PxStatus FilterBoxBorderWithRows(UpdateColumnsFn updateColumns, WindowRowFn windowRow, const float* src,
                                 int32_t srcStep, float* dst, int32_t dstStep, PxSize roi, PxSize mask,
                                 int32_t borderType, const float* borderValue, uint8_t* buffer);

namespace {

// Sixteen pixels per step in two independent accumulators, then eight, then the rest one by one.
void FilterRowsAvx2(const uint8_t* in, intptr_t inStride, uint8_t* out, intptr_t outStride, int32_t width,
                    int32_t rows, const float* reversedTaps, int32_t kw, int32_t kh) {
    const float* lastTap = reversedTaps + int64_t(kw) * kh - 1;  // tap t is lastTap[-t]
    for (int32_t y = 0; y < rows; ++y) {
        float* o = reinterpret_cast<float*>(out + y * outStride);
        const uint8_t* top = in + y * inStride;
        int32_t x = 0;
        for (; x + 16 <= width; x += 16) {
            __m256 a = _mm256_setzero_ps(), b = _mm256_setzero_ps();
            for (int32_t j = 0; j < kh; ++j) {
                const float* s = reinterpret_cast<const float*>(top + j * inStride) + x;
                const float* k = lastTap - int64_t(j) * kw;
                for (int32_t i = 0; i < kw; ++i) {
                    const __m256 tap = _mm256_broadcast_ss(k - i);
                    a = _mm256_fmadd_ps(tap, _mm256_loadu_ps(s + i), a);
                    b = _mm256_fmadd_ps(tap, _mm256_loadu_ps(s + i + 8), b);
                }
            }
            _mm256_storeu_ps(o + x, a);
            _mm256_storeu_ps(o + x + 8, b);
        }
        for (; x + 8 <= width; x += 8) {
            __m256 a = _mm256_setzero_ps();
            for (int32_t j = 0; j < kh; ++j) {
                const float* s = reinterpret_cast<const float*>(top + j * inStride) + x;
                const float* k = lastTap - int64_t(j) * kw;
                for (int32_t i = 0; i < kw; ++i)
                    a = _mm256_fmadd_ps(_mm256_broadcast_ss(k - i), _mm256_loadu_ps(s + i), a);
            }
            _mm256_storeu_ps(o + x, a);
        }
        for (; x < width; ++x) {
            float total = 0.0f;
            for (int32_t j = 0; j < kh; ++j) {
                const float* s = reinterpret_cast<const float*>(top + j * inStride) + x;
                const float* k = lastTap - int64_t(j) * kw;
                for (int32_t i = 0; i < kw; ++i)
                    total = _mm_cvtss_f32(_mm_fmadd_ss(_mm_set_ss(k[-i]), _mm_set_ss(s[i]), _mm_set_ss(total)));
            }
            o[x] = total;
        }
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
