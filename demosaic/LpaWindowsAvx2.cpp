// AVX2 form of the LPA-ICI site accumulation. This file is compiled for AVX2: apart from the exported function
// everything stays in the anonymous namespace and no library template is used, so that no AVX2 code can be
// chosen by the linker for a function that baseline code also calls.
//
// The forward window lies in the low half of each 256-bit vector and the backward window in the high half; the
// four lanes of a half hold the lengths 4, 6, 8 and 12 once the taps are summed. Pairwise sums give exactly the
// scalar twin's order, (p0 + p1) + (p2 + p3) per group, and the twin adds the same zeros for absent groups.
// Contraction into fused multiply-adds is switched off: the twin rounds every product and every sum.
#pragma GCC optimize("fp-contract=off")

#include "demosaic/LpaWindows.h"

#include <immintrin.h>

namespace {

inline __m256 Windows(const float* forward, const float* backward) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_load_ps(forward)), _mm_load_ps(backward), 1);
}

inline __m256 Both(const float* kernel) { return _mm256_broadcast_ps(reinterpret_cast<const __m128*>(kernel)); }

// [a0 + a1, a2 + a3, b0 + b1, b2 + b3] in each half: the sums of a horizontal add, from two plain shuffles and
// one add.
inline __m256 Pairs(__m256 a, __m256 b) {
    return _mm256_add_ps(_mm256_shuffle_ps(a, b, 0x88), _mm256_shuffle_ps(a, b, 0xDD));
}

// Products of the eight groups: length 4 (a), 6 (b0, b1), 8 (c0, c1), 12 (d0, d1, d2).
struct Products {
    __m256 a, b0, b1, c0, c1, d0, d1, d2;
};

// Per half: first = group 0 of each length, second = group 1 (zero for length 4), third = group 2 (length 12
// only); (first + second) + third. The second and third groups share one vector of sums until the end.
inline __m256 Reduce(const Products& p) {
    const __m256 zero = _mm256_setzero_ps();
    const __m256 first = Pairs(Pairs(p.a, p.b0), Pairs(p.c0, p.d0));
    const __m256 later = Pairs(Pairs(p.d2, p.b1), Pairs(p.c1, p.d1));  // d2, b1, c1, d1
    const __m256 second = _mm256_blend_ps(later, zero, 0x11);
    const __m256 third = _mm256_blend_ps(_mm256_permute_ps(later, 0x00), zero, 0x77);
    return _mm256_add_ps(_mm256_add_ps(first, second), third);
}

// f * ((w - e) - t * s), squared.
inline __m256 Residual(__m256 f, __m256 w, __m256 t, __m256 e, __m256 s) {
    const __m256 p = _mm256_mul_ps(f, _mm256_sub_ps(_mm256_sub_ps(w, e), _mm256_mul_ps(t, s)));
    return _mm256_mul_ps(p, p);
}

}  // namespace

void LpaAccumulateSiteAvx2(const LpaWindows& windows, float* sum, float* weight) {
    const __m256 w0 = Windows(windows.forward, windows.backward);
    const __m256 w1 = Windows(windows.forward + 4, windows.backward + 4);
    const __m256 w2 = Windows(windows.forward + 8, windows.backward + 8);
    const float* k4 = windows.kernel4;
    const float* k6 = windows.kernel6;
    const float* k8 = windows.kernel8;
    const float* k12 = windows.kernel12;

    const __m256 fa = Both(k4), fb0 = Both(k6), fb1 = Both(k6 + 4), fc0 = Both(k8), fc1 = Both(k8 + 4);
    const __m256 fd0 = Both(k12), fd1 = Both(k12 + 4), fd2 = Both(k12 + 8);
    const __m256 e = Reduce({_mm256_mul_ps(fa, w0), _mm256_mul_ps(fb0, w0), _mm256_mul_ps(fb1, w1),
                             _mm256_mul_ps(fc0, w0), _mm256_mul_ps(fc1, w1), _mm256_mul_ps(fd0, w0),
                             _mm256_mul_ps(fd1, w1), _mm256_mul_ps(fd2, w2)});
    const __m256 s = Reduce({_mm256_mul_ps(Both(k4 + 4), w0), _mm256_mul_ps(Both(k6 + 8), w0),
                             _mm256_mul_ps(Both(k6 + 12), w1), _mm256_mul_ps(Both(k8 + 8), w0),
                             _mm256_mul_ps(Both(k8 + 12), w1), _mm256_mul_ps(Both(k12 + 12), w0),
                             _mm256_mul_ps(Both(k12 + 16), w1), _mm256_mul_ps(Both(k12 + 20), w2)});

    const __m256 t0 = _mm256_setr_ps(0, 1, 2, 3, 0, 1, 2, 3);
    const __m256 t1 = _mm256_setr_ps(4, 5, 6, 7, 4, 5, 6, 7);
    const __m256 t2 = _mm256_setr_ps(8, 9, 10, 11, 8, 9, 10, 11);
    const __m256 ea = _mm256_permute_ps(e, 0x00), eb = _mm256_permute_ps(e, 0x55);
    const __m256 ec = _mm256_permute_ps(e, 0xAA), ed = _mm256_permute_ps(e, 0xFF);
    const __m256 sa = _mm256_permute_ps(s, 0x00), sb = _mm256_permute_ps(s, 0x55);
    const __m256 sc = _mm256_permute_ps(s, 0xAA), sd = _mm256_permute_ps(s, 0xFF);
    const __m256 v = Reduce({Residual(fa, w0, t0, ea, sa), Residual(fb0, w0, t0, eb, sb), Residual(fb1, w1, t1, eb, sb),
                             Residual(fc0, w0, t0, ec, sc), Residual(fc1, w1, t1, ec, sc), Residual(fd0, w0, t0, ed, sd),
                             Residual(fd1, w1, t1, ed, sd), Residual(fd2, w2, t2, ed, sd)});

    const __m256 half = _mm256_mul_ps(_mm256_sqrt_ps(v), _mm256_set1_ps(windows.gamma));
    const __m256 q = _mm256_rcp_ps(_mm256_add_ps(v, _mm256_set1_ps(1e-6f)));
    // Running largest lower and smallest upper bound over the lengths, in two shifted steps.
    __m256 lower = _mm256_sub_ps(e, half);
    __m256 upper = _mm256_add_ps(e, half);
    lower = _mm256_max_ps(lower, _mm256_permute_ps(lower, 0x90));
    upper = _mm256_min_ps(upper, _mm256_permute_ps(upper, 0x90));
    lower = _mm256_max_ps(lower, _mm256_permute_ps(lower, 0x40));
    upper = _mm256_min_ps(upper, _mm256_permute_ps(upper, 0x40));
    // A length counts while its intersection and those of all shorter lengths are not empty; length 4 always
    // counts. The chosen one is the last that counts: a one-hot mask per half.
    __m256 counts = _mm256_or_ps(_mm256_cmp_ps(upper, lower, _CMP_GE_OQ),
                                 _mm256_castsi256_ps(_mm256_setr_epi32(-1, 0, 0, 0, -1, 0, 0, 0)));
    counts = _mm256_and_ps(counts, _mm256_permute_ps(counts, 0x90));
    counts = _mm256_and_ps(counts, _mm256_permute_ps(counts, 0x40));
    const __m256 nextCounts = _mm256_blend_ps(_mm256_permute_ps(counts, 0xF9), _mm256_setzero_ps(), 0x88);
    const __m256 chosen = _mm256_andnot_ps(nextCounts, counts);
    // The chosen q * e and q, moved out by OR over the lanes (the others are zero bits): lane 0 and 1 of a half.
    const __m256 qe = _mm256_and_ps(chosen, _mm256_mul_ps(q, e));
    const __m256 qs = _mm256_and_ps(chosen, q);
    __m256 picked = _mm256_or_ps(_mm256_unpacklo_ps(qe, qs), _mm256_unpackhi_ps(qe, qs));
    picked = _mm256_or_ps(picked, _mm256_permute_ps(picked, 0xEE));
    // Forward, then backward: sum in lane 0, weight in lane 1.
    __m128 totals = _mm_unpacklo_ps(_mm_load_ss(sum), _mm_load_ss(weight));
    totals = _mm_add_ps(totals, _mm256_castps256_ps128(picked));
    totals = _mm_add_ps(totals, _mm256_extractf128_ps(picked, 1));
    _mm_store_ss(sum, totals);
    _mm_store_ss(weight, _mm_movehdup_ps(totals));
}
