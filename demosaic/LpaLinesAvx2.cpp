// AVX2 forms of the LPA-ICI row pieces, eight colour sites (or eight columns) at a time. This file is compiled
// for AVX2: apart from the exported function everything stays in the anonymous namespace and no library template
// is used, so that no AVX2 code can be chosen by the linker for a function that baseline code also calls.
// Contraction into fused multiply-adds is switched off: the twins round every product and every sum.
#pragma GCC optimize("fp-contract=off")

#include "demosaic/LpaLines.h"

#include <immintrin.h>

namespace {

// Eight samples from `p` on, widened.
inline __m256i Widen(const uint16_t* p) {
    return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// Sixteen samples from `p` on as eight pairs: the even one in the low half of a 32-bit lane, the odd one high.
inline __m256i Pairs(const uint16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

inline __m256i Even(__m256i pairs) { return _mm256_and_si256(pairs, _mm256_set1_epi32(0xFFFF)); }
inline __m256i Odd(__m256i pairs) { return _mm256_srli_epi32(pairs, 16); }

// a + b + 2 (c - l - r), exact in 32 bits.
inline __m256i Estimate(__m256i a, __m256i b, __m256i c, __m256i l, __m256i r) {
    const __m256i inner = _mm256_sub_epi32(_mm256_sub_epi32(c, l), r);
    return _mm256_add_epi32(_mm256_add_epi32(a, b), _mm256_add_epi32(inner, inner));
}

inline __m256 RoundHalfEven(__m256 t) {
    const __m256 shifter = _mm256_set1_ps(12582912.0f);  // 1.5 * 2^23
    return _mm256_sub_ps(_mm256_add_ps(t, shifter), shifter);
}

// The twins' limit: value > 0 ? value : 0, then value < top ? value : top, truncated.
inline __m256i Limit(__m256 value, __m256 top) {
    return _mm256_cvttps_epi32(_mm256_min_ps(_mm256_max_ps(value, _mm256_setzero_ps()), top));
}

// Eight pairs of results: `colour` at the colour column of each pair, `green` at the other.
inline __m256i Interleave(__m256i colour, __m256i green, int32_t q) {
    return q == 0 ? _mm256_or_si256(colour, _mm256_slli_epi32(green, 16))
                  : _mm256_or_si256(green, _mm256_slli_epi32(colour, 16));
}

// Eight pairs of results to `out` at sample x, as 16-bit samples or as bytes, a value above 255 as 255.
inline void Store(__m256i pairs, bool bytes, void* out, int32_t x) {
    if (!bytes) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(static_cast<uint16_t*>(out) + x), pairs);
        return;
    }
    const __m256i narrow = _mm256_min_epu16(pairs, _mm256_set1_epi16(255));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(narrow, narrow), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(static_cast<uint8_t*>(out) + x), _mm256_castsi256_si128(packed));
}

void RowDifferences(const uint16_t* m, int32_t width, int32_t colourParity, float* out) {
    // +1 or -1 per column: green columns keep e, colour columns negate it.
    const __m256i signs = colourParity == 0 ? _mm256_setr_epi32(-1, 1, -1, 1, -1, 1, -1, 1)
                                            : _mm256_setr_epi32(1, -1, 1, -1, 1, -1, 1, -1);
    for (int32_t x = 0; x < width; x += 8) {
        const __m256i e = Estimate(Widen(m + x - 2), Widen(m + x + 2), Widen(m + x), Widen(m + x - 1), Widen(m + x + 1));
        _mm256_storeu_ps(out + x, _mm256_cvtepi32_ps(_mm256_sign_epi32(e, signs)));
    }
}

void ColumnDifferences(const uint16_t* m, intptr_t stride, int32_t count, int32_t sign, float* out) {
    const __m256i signs = _mm256_set1_epi32(sign);
    for (int32_t i = 0; i < count; i += 8) {
        const uint16_t* c = m + 2 * i;
        const __m256i e = Estimate(Even(Pairs(c - 2 * stride)), Even(Pairs(c + 2 * stride)), Even(Pairs(c)),
                                   Even(Pairs(c - stride)), Even(Pairs(c + stride)));
        _mm256_storeu_ps(out + i, _mm256_cvtepi32_ps(_mm256_sign_epi32(e, signs)));
    }
}

void CrossRow(const float* above, const float* upper, const float* lower, const float* below, int32_t count,
              float* out) {
    const auto pair = [](const float* row, int32_t at, int32_t other) {
        return _mm256_add_ps(_mm256_loadu_ps(row + at), _mm256_loadu_ps(row + other));
    };
    for (int32_t i = 0; i < count; i += 8) {
        const __m256 inner = _mm256_add_ps(pair(upper, i, i + 1), pair(lower, i, i + 1));
        const __m256 outer = _mm256_add_ps(_mm256_add_ps(pair(above, i, i + 1), pair(below, i, i + 1)),
                                           _mm256_add_ps(pair(upper, i - 1, i + 2), pair(lower, i - 1, i + 2)));
        _mm256_storeu_ps(out + i, _mm256_sub_ps(_mm256_mul_ps(_mm256_set1_ps(0.3125f), inner),
                                                _mm256_mul_ps(_mm256_set1_ps(0.03125f), outer)));
    }
}

void GreenRow(const uint16_t* m, const float* d, int32_t count, int32_t q, float top, bool bytes, void* out) {
    const __m256 quarter = _mm256_set1_ps(0.25f), limit = _mm256_set1_ps(top);
    for (int32_t i = 0; i < count; i += 8) {
        const __m256i pairs = Pairs(m + 2 * i);
        const __m256i colour = q == 0 ? Even(pairs) : Odd(pairs);
        const __m256i green = q == 0 ? Odd(pairs) : Even(pairs);
        const __m256 value = _mm256_add_ps(_mm256_cvtepi32_ps(colour),
                                           RoundHalfEven(_mm256_mul_ps(quarter, _mm256_loadu_ps(d + i))));
        Store(Interleave(Limit(value, limit), green, q), bytes, out, 2 * i);
    }
}

void ColourRow(const uint16_t* m, const float* cross, const float* d, const float* across, const float* up,
               const float* down, int32_t count, int32_t q, float top, bool bytes, void* out) {
    const __m256 quarter = _mm256_set1_ps(0.25f), sixteenth = _mm256_set1_ps(0.0625f), limit = _mm256_set1_ps(top);
    for (int32_t i = 0; i < count; i += 8) {
        const __m256i pairs = Pairs(m + 2 * i);
        __m256i colour = q == 0 ? Even(pairs) : Odd(pairs);
        const __m256i green = q == 0 ? Odd(pairs) : Even(pairs);
        if (cross != nullptr) {
            const __m256 difference = _mm256_sub_ps(_mm256_loadu_ps(cross + i), _mm256_loadu_ps(d + i));
            colour = Limit(_mm256_sub_ps(_mm256_cvtepi32_ps(colour), RoundHalfEven(_mm256_mul_ps(quarter, difference))),
                           limit);
        }
        const __m256 sum = _mm256_add_ps(
            _mm256_add_ps(_mm256_add_ps(_mm256_loadu_ps(across + i), _mm256_loadu_ps(across + i + 1)),
                          _mm256_loadu_ps(up + i)),
            _mm256_loadu_ps(down + i));
        const __m256i value =
            Limit(_mm256_sub_ps(_mm256_cvtepi32_ps(green), RoundHalfEven(_mm256_mul_ps(sixteenth, sum))), limit);
        Store(Interleave(colour, value, q), bytes, out, 2 * i);
    }
}

}  // namespace

LpaLineForms LpaLinesAvx2() { return {RowDifferences, ColumnDifferences, CrossRow, GreenRow, ColourRow}; }
