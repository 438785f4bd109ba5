// AVX2 forms of the image conversions, copy and division. Row tails and unaligned heads go through the
// same scalar rounding as the scalar forms, so every conversion is bit-identical to them.
#include "primitives/ImageConversionsForms.h"
#include "primitives/ProcessorLevel.h"

#include <immintrin.h>

#include <cstring>

namespace {

// Calls rowFn(srcRow, dstRow, count) for each row, top to bottom; contiguous images run as one long row.
template <class S, class D, class F>
void ForEachRow(const S* src, int32_t srcStep, D* dst, int32_t dstStep, PxSize roi, const F& rowFn) {
    const size_t width = size_t(roi.width);
    if (size_t(srcStep) == width * sizeof(S) && size_t(dstStep) == width * sizeof(D)) {
        rowFn(src, dst, width * size_t(roi.height));
        return;
    }
    const char* s = reinterpret_cast<const char*>(src);
    char* d = reinterpret_cast<char*>(dst);
    for (int32_t y = 0; y < roi.height; ++y, s += srcStep, d += dstStep)
        rowFn(reinterpret_cast<const S*>(s), reinterpret_cast<D*>(d), width);
}

// Widening conversions bypass the cache when the call touches more than 512 KiB and at least the largest
// cache: such an image would only evict the cache's useful contents. Unknown cache size: no streaming.
bool UseStreamingStores(PxSize roi, size_t bytesPerSample) {
    const size_t touched = size_t(roi.width) * size_t(roi.height) * bytesPerSample;
    const size_t cache = PxLargestCacheSize();
    return touched > 524288 && cache != 0 && touched >= cache;
}

// Samples to convert one at a time before dst reaches a 32-byte boundary (streaming stores need one).
template <class D>
size_t HeadToAlign(const D* dst, size_t n) {
    const size_t misalign = reinterpret_cast<uintptr_t>(dst) & 31;
    if (misalign == 0) return 0;
    if (misalign % sizeof(D) != 0) return n;  // never aligns: the whole row goes the plain way
    const size_t head = (32 - misalign) / sizeof(D);
    return head < n ? head : n;
}

template <bool Stream>
inline void StoreFloats(float* d, __m256 v) {
    if (Stream)
        _mm256_stream_ps(d, v);
    else
        _mm256_storeu_ps(d, v);
}

template <bool Stream>
inline void StoreBits(void* d, __m256i v) {
    if (Stream)
        _mm256_stream_si256(static_cast<__m256i*>(d), v);
    else
        _mm256_storeu_si256(static_cast<__m256i*>(d), v);
}

template <bool Stream>
void Row8u32f(const uint8_t* s, float* d, size_t n) {
    size_t i = Stream ? HeadToAlign(d, n) : 0;
    for (size_t k = 0; k < i; ++k) d[k] = float(s[k]);
    for (; i + 8 <= n; i += 8) {
        const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + i));
        StoreFloats<Stream>(d + i, _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(bytes)));
    }
    for (; i < n; ++i) d[i] = float(s[i]);
}

template <bool Stream>
void Row16u32f(const uint16_t* s, float* d, size_t n) {
    size_t i = Stream ? HeadToAlign(d, n) : 0;
    for (size_t k = 0; k < i; ++k) d[k] = float(s[k]);
    for (; i + 8 <= n; i += 8) {
        const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        StoreFloats<Stream>(d + i, _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(words)));
    }
    for (; i < n; ++i) d[i] = float(s[i]);
}

template <bool Stream>
void Row8u16u(const uint8_t* s, uint16_t* d, size_t n) {
    size_t i = Stream ? HeadToAlign(d, n) : 0;
    for (size_t k = 0; k < i; ++k) d[k] = s[k];
    for (; i + 16 <= n; i += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        StoreBits<Stream>(d + i, _mm256_cvtepu8_epi16(bytes));
    }
    for (; i < n; ++i) d[i] = s[i];
}

// The narrowing rows run in place too: each block loads all of its source before it stores, and its
// store ends before the next block's first source byte, so nothing is overwritten before it is read.
// Scalar stores go through memcpy for the same reason as in the scalar forms (aliasing).
template <class D>
inline void StoreAt(D* dst, size_t i, D value) {
    std::memcpy(reinterpret_cast<char*>(dst) + i * sizeof(D), &value, sizeof(D));
}

void Row16u8u(const uint16_t* s, uint8_t* d, size_t n) {
    const __m256i max8 = _mm256_set1_epi16(255);
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256i a = _mm256_min_epu16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i)), max8);
        const __m256i b = _mm256_min_epu16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i + 16)), max8);
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), _MM_SHUFFLE(3, 1, 2, 0));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i), packed);
    }
    for (; i < n; ++i) StoreAt(d, i, uint8_t(s[i] > 255 ? 255 : s[i]));
}

// Rounds eight floats already limited to [-1, 65536] to integers in float form, as PxRoundBounded does.
inline __m256 RoundBounded(__m256 v, int32_t roundMode) {
    if (roundMode == 0) return _mm256_round_ps(v, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    if (roundMode == 1) return _mm256_round_ps(v, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    // floor(v + 0.5) from the floor and the exact fraction: no addition that could round up.
    const __m256 floorV = _mm256_round_ps(v, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC);
    const __m256 frac = _mm256_sub_ps(v, floorV);
    const __m256 up = _mm256_and_ps(_mm256_cmp_ps(frac, _mm256_set1_ps(0.5f), _CMP_GE_OQ), _mm256_set1_ps(1.0f));
    return _mm256_add_ps(floorV, up);
}

// Eight floats to saturated int32 in 0..255. min_ps(x, 255) returns 255 for NaN, as the rule wants.
inline __m256i To8uLanes(const float* s, int32_t roundMode) {
    __m256 v = _mm256_min_ps(_mm256_loadu_ps(s), _mm256_set1_ps(255.0f));
    v = _mm256_max_ps(v, _mm256_set1_ps(-1.0f));  // anything at or below -1 gives 0 in every mode
    const __m256i r = _mm256_cvttps_epi32(RoundBounded(v, roundMode));
    return _mm256_max_epi32(r, _mm256_setzero_si256());
}

// Eight floats to saturated int32 in 0..65535. max_ps(x, 0) returns 0 for NaN, as the rule wants.
inline __m256i To16uLanes(const float* s, int32_t roundMode) {
    __m256 v = _mm256_max_ps(_mm256_loadu_ps(s), _mm256_setzero_ps());
    v = _mm256_min_ps(v, _mm256_set1_ps(65536.0f));  // from 65536 up every mode saturates
    const __m256i r = _mm256_cvttps_epi32(RoundBounded(v, roundMode));
    return _mm256_min_epi32(r, _mm256_set1_epi32(65535));
}

void Row32f8u(const float* s, uint8_t* d, size_t n, int32_t roundMode) {
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256i a = To8uLanes(s + i, roundMode);
        const __m256i b = To8uLanes(s + i + 8, roundMode);
        const __m256i c = To8uLanes(s + i + 16, roundMode);
        const __m256i e = To8uLanes(s + i + 24, roundMode);
        // Packing works per 128-bit lane; the permute puts the 4-byte groups back in order.
        const __m256i bytes = _mm256_packus_epi16(_mm256_packus_epi32(a, b), _mm256_packus_epi32(c, e));
        const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i), _mm256_permutevar8x32_epi32(bytes, order));
    }
    for (; i < n; ++i) StoreAt(d, i, PxRoundTo8u(s[i], roundMode));
}

void Row32f16u(const float* s, uint16_t* d, size_t n, int32_t roundMode) {
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m256i a = To16uLanes(s + i, roundMode);
        const __m256i b = To16uLanes(s + i + 8, roundMode);
        const __m256i words = _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), _MM_SHUFFLE(3, 1, 2, 0));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i), words);
    }
    for (; i < n; ++i) StoreAt(d, i, PxRoundTo16u(s[i], roundMode));
}

void StreamRow16u(const uint16_t* s, uint16_t* d, size_t n) {
    size_t i = HeadToAlign(d, n);
    std::memcpy(d, s, i * sizeof(uint16_t));
    for (; i + 16 <= n; i += 16)
        _mm256_stream_si256(reinterpret_cast<__m256i*>(d + i),
                            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i)));
    std::memcpy(d + i, s + i, (n - i) * sizeof(uint16_t));
}

// True division, then the zero-divisor rule: +Inf or -Inf by the numerator's sign, NaN for 0 or NaN.
bool DivRow(const float* divisor, const float* numerator, float* quotient, size_t n) {
    const __m256 zero = _mm256_setzero_ps();
    const __m256 inf = _mm256_set1_ps(__builtin_inff());
    const __m256 nan = _mm256_set1_ps(__builtin_nanf(""));
    bool warned = false;
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 b = _mm256_loadu_ps(divisor + i);
        const __m256 a = _mm256_loadu_ps(numerator + i);
        __m256 q = _mm256_div_ps(a, b);
        const __m256 zeroDivisor = _mm256_cmp_ps(b, zero, _CMP_EQ_OQ);
        if (_mm256_movemask_ps(zeroDivisor)) {
            warned = true;
            const __m256 positive = _mm256_cmp_ps(a, zero, _CMP_GT_OQ);
            const __m256 negative = _mm256_cmp_ps(a, zero, _CMP_LT_OQ);
            __m256 special = _mm256_blendv_ps(nan, inf, positive);
            special = _mm256_blendv_ps(special, _mm256_xor_ps(inf, _mm256_set1_ps(-0.0f)), negative);
            q = _mm256_blendv_ps(q, special, zeroDivisor);
        }
        _mm256_storeu_ps(quotient + i, q);
    }
    for (; i < n; ++i) quotient[i] = PxDivideGuarded(numerator[i], divisor[i], &warned);
    return warned;
}

}  // namespace

PxStatus ConvertImage8u32fAvx2(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    if (UseStreamingStores(roi, 5)) {
        ForEachRow(src, srcStep, dst, dstStep, roi, Row8u32f<true>);
        _mm_sfence();
    } else {
        ForEachRow(src, srcStep, dst, dstStep, roi, Row8u32f<false>);
    }
    return PxStatusOk;
}

PxStatus ConvertImage16u32fAvx2(const uint16_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    if (UseStreamingStores(roi, 6)) {
        ForEachRow(src, srcStep, dst, dstStep, roi, Row16u32f<true>);
        _mm_sfence();
    } else {
        ForEachRow(src, srcStep, dst, dstStep, roi, Row16u32f<false>);
    }
    return PxStatusOk;
}

PxStatus ConvertImage8u16uAvx2(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    if (UseStreamingStores(roi, 3)) {
        ForEachRow(src, srcStep, dst, dstStep, roi, Row8u16u<true>);
        _mm_sfence();
    } else {
        ForEachRow(src, srcStep, dst, dstStep, roi, Row8u16u<false>);
    }
    return PxStatusOk;
}

PxStatus ConvertImage16u8uAvx2(const uint16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi, Row16u8u);
    return PxStatusOk;
}

PxStatus ConvertImage32f8uAvx2(const float* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi,
                               int32_t roundMode) {
    if (PxStatus s = PxCheckRounding(src, srcStep, dst, dstStep, roi, roundMode)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi,
               [roundMode](const float* s, uint8_t* d, size_t n) { Row32f8u(s, d, n, roundMode); });
    return PxStatusOk;
}

PxStatus ConvertImage32f16uAvx2(const float* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi,
                                int32_t roundMode) {
    if (PxStatus s = PxCheckRounding(src, srcStep, dst, dstStep, roi, roundMode)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi,
               [roundMode](const float* s, uint16_t* d, size_t n) { Row32f16u(s, d, n, roundMode); });
    return PxStatusOk;
}

PxStatus CopyImage16uAvx2(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckCopy(src, dst, roi)) return s;
    // Images above 1 MiB are copied with streaming stores, which keep them from flushing the cache.
    if (size_t(roi.width) * size_t(roi.height) * sizeof(uint16_t) > 1048576) {
        ForEachRow(src, srcStep, dst, dstStep, roi, StreamRow16u);
        _mm_sfence();
        return PxStatusOk;
    }
    ForEachRow(src, srcStep, dst, dstStep, roi,
               [](const uint16_t* s, uint16_t* d, size_t n) { std::memcpy(d, s, n * sizeof(uint16_t)); });
    return PxStatusOk;
}

PxStatus DivImage32fAvx2(const float* src1, int32_t step1, const float* src2, int32_t step2, float* dst,
                         int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckDivision(src1, step1, src2, step2, dst, dstStep, roi)) return s;
    bool warned = false;
    const char* a = reinterpret_cast<const char*>(src1);
    const char* b = reinterpret_cast<const char*>(src2);
    char* d = reinterpret_cast<char*>(dst);
    for (int32_t y = 0; y < roi.height; ++y, a += step1, b += step2, d += dstStep) {
        if (DivRow(reinterpret_cast<const float*>(a), reinterpret_cast<const float*>(b), reinterpret_cast<float*>(d),
                   size_t(roi.width)))
            warned = true;
    }
    return warned ? PxStatusDivideByZero : PxStatusOk;
}
