// AVX2 form of the LPA-ICI accumulation over a run of sites. This file is compiled for AVX2: apart from the
// exported function everything stays in the anonymous namespace and no library template is used, so that no
// AVX2 code can be chosen by the linker for a function that baseline code also calls.
//
// Eight sites at a time, one per lane: every tap of a window is one vector load, and each sum is formed exactly as
// the scalar definition forms it, (p0 + p1) + (p2 + p3) per group of four taps and the groups added in ascending
// order. The definition also adds a kernel's zero padding and zeros for absent groups; those additions can change
// only the sign of a zero estimate or slope, which reaches neither a variance (a sum of squares), nor an interval
// comparison, nor a total (q * e of a zero estimate adds nothing either way), so they are left out.
// Contraction into fused multiply-adds is switched off: the definition rounds every product and every sum.
#pragma GCC optimize("fp-contract=off")

#include "demosaic/LpaWindows.h"

#include <immintrin.h>

namespace {

// The kernels and constants, each broadcast over the eight lanes.
struct Constants {
    __m256 f4[4], g4[4], f6[6], g6[6], f8[8], g8[8], f12[12], g12[12];
    __m256 seven, eleven;
    __m256 gamma, epsilon;
};

void Broadcast(__m256* out, const float* in, int n) {
    for (int t = 0; t < n; ++t) out[t] = _mm256_set1_ps(in[t]);
}

// The taps of one direction for the block of sites at `offset`; in the last, partial block only the lanes below
// `count` are read.
template <bool partial>
struct Window {
    const float* const* taps;
    intptr_t offset;
    __m256i lanes;

    __m256 operator[](int t) const {
        const float* p = taps[t] + offset;
        return partial ? _mm256_maskload_ps(p, lanes) : _mm256_loadu_ps(p);
    }
};

// Estimate e and slope s of one length: the taps by pairs, (p0 + p1) and (p2 + p3) of a group of four, the groups
// added in ascending order.
template <int n, bool partial>
inline void Fit(const Window<partial>& w, const __m256* f, const __m256* g, __m256& e, __m256& s) {
    __m256 pe[6], ps[6];
#pragma GCC unroll 6
    for (int t = 0; t < n; t += 2) {
        const __m256 w0 = w[t], w1 = w[t + 1];
        pe[t / 2] = _mm256_add_ps(_mm256_mul_ps(f[t], w0), _mm256_mul_ps(f[t + 1], w1));
        ps[t / 2] = _mm256_add_ps(_mm256_mul_ps(g[t], w0), _mm256_mul_ps(g[t + 1], w1));
    }
    e = _mm256_add_ps(pe[0], pe[1]);
    s = _mm256_add_ps(ps[0], ps[1]);
    if (n == 6) {
        e = _mm256_add_ps(e, pe[2]);
        s = _mm256_add_ps(s, ps[2]);
    }
    if (n >= 8) {
        e = _mm256_add_ps(e, _mm256_add_ps(pe[2], pe[3]));
        s = _mm256_add_ps(s, _mm256_add_ps(ps[2], ps[3]));
    }
    if (n == 12) {
        e = _mm256_add_ps(e, _mm256_add_ps(pe[4], pe[5]));
        s = _mm256_add_ps(s, _mm256_add_ps(ps[4], ps[5]));
    }
}

// The products t * s. Multiples by powers of two are exact, and a sum or difference of two exact multiples is
// rounded once, like the product: 3s = 2s + s, 7s = 8s - s and so on. Adds in place of products balance the
// multiply and add units; 11s (and 7s where 8s is not at hand) stays a product.
template <int n>
inline void Slopes(const Constants& c, __m256 s, __m256* ts) {
    ts[1] = s;
    ts[2] = _mm256_add_ps(s, s);
    ts[3] = _mm256_add_ps(ts[2], s);
    if (n < 6) return;
    ts[4] = _mm256_add_ps(ts[2], ts[2]);
    ts[5] = _mm256_add_ps(ts[4], s);
    if (n < 8) return;
    ts[6] = _mm256_add_ps(ts[4], ts[2]);
    if (n < 12) {
        ts[7] = _mm256_mul_ps(c.seven, s);
        return;
    }
    ts[8] = _mm256_add_ps(ts[4], ts[4]);
    ts[7] = _mm256_sub_ps(ts[8], s);
    ts[9] = _mm256_add_ps(ts[8], s);
    ts[10] = _mm256_add_ps(ts[8], ts[2]);
    ts[11] = _mm256_mul_ps(c.eleven, s);
}

// The variance: f * ((w - e) - t * s), squared and summed like the estimate. At t = 0 the product t * s is a zero,
// which can change no more than the sign of a zero difference, and the square drops that sign.
template <int n, bool partial>
inline __m256 Variance(const Constants& c, const Window<partial>& w, const __m256* f, __m256 e, __m256 s) {
    __m256 ts[12], pv[6];
    Slopes<n>(c, s, ts);
#pragma GCC unroll 6
    for (int t = 0; t < n; t += 2) {
        const __m256 d0 = _mm256_sub_ps(w[t], e);
        const __m256 r0 = _mm256_mul_ps(f[t], t == 0 ? d0 : _mm256_sub_ps(d0, ts[t]));
        const __m256 r1 = _mm256_mul_ps(f[t + 1], _mm256_sub_ps(_mm256_sub_ps(w[t + 1], e), ts[t + 1]));
        pv[t / 2] = _mm256_add_ps(_mm256_mul_ps(r0, r0), _mm256_mul_ps(r1, r1));
    }
    __m256 v = _mm256_add_ps(pv[0], pv[1]);
    if (n == 6) v = _mm256_add_ps(v, pv[2]);
    if (n >= 8) v = _mm256_add_ps(v, _mm256_add_ps(pv[2], pv[3]));
    if (n == 12) v = _mm256_add_ps(v, _mm256_add_ps(pv[4], pv[5]));
    return v;
}

// The estimates and slopes of all lengths of one direction.
template <bool partial>
__attribute__((always_inline)) inline void Fits(const Constants& c, const Window<partial>& w, __m256* e, __m256* s) {
    Fit<4>(w, c.f4, c.g4, e[0], s[0]);
    Fit<6>(w, c.f6, c.g6, e[1], s[1]);
    Fit<8>(w, c.f8, c.g8, e[2], s[2]);
    Fit<12>(w, c.f12, c.g12, e[3], s[3]);
}

template <bool partial>
__attribute__((always_inline)) inline void Variances(const Constants& c, const Window<partial>& w, const __m256* e,
                                                     const __m256* s, __m256* v) {
    v[0] = Variance<4>(c, w, c.f4, e[0], s[0]);
    v[1] = Variance<6>(c, w, c.f6, e[1], s[1]);
    v[2] = Variance<8>(c, w, c.f8, e[2], s[2]);
    v[3] = Variance<12>(c, w, c.f12, e[3], s[3]);
}

// The ICI rule: the running largest lower and smallest upper bound; a length counts while every intersection up
// to it is not empty, and the last length that counts gives q and e.
__attribute__((always_inline)) inline void Choose(const Constants& c, const __m256* e, const __m256* v, __m256& sum,
                                                  __m256& weight) {
    __m256 half = _mm256_mul_ps(_mm256_sqrt_ps(v[0]), c.gamma);
    __m256 lower = _mm256_sub_ps(e[0], half), upper = _mm256_add_ps(e[0], half);
    __m256 q = _mm256_rcp_ps(_mm256_add_ps(v[0], c.epsilon)), chosen = e[0];
    __m256 counting = _mm256_castsi256_ps(_mm256_set1_epi32(-1));
#pragma GCC unroll 3
    for (int l = 1; l < 4; ++l) {
        half = _mm256_mul_ps(_mm256_sqrt_ps(v[l]), c.gamma);
        lower = _mm256_max_ps(_mm256_sub_ps(e[l], half), lower);
        upper = _mm256_min_ps(_mm256_add_ps(e[l], half), upper);
        counting = _mm256_and_ps(counting, _mm256_cmp_ps(upper, lower, _CMP_GE_OQ));
        q = _mm256_blendv_ps(q, _mm256_rcp_ps(_mm256_add_ps(v[l], c.epsilon)), counting);
        chosen = _mm256_blendv_ps(chosen, e[l], counting);
    }
    sum = _mm256_add_ps(sum, _mm256_mul_ps(q, chosen));
    weight = _mm256_add_ps(weight, q);
}

// Eight sites, each window in three steps: the fits of all lengths, their variances, the ICI rule. The steps of
// the two windows alternate, so that no step waits for the one just before it.
template <bool partial>
inline void Block(const Constants& c, const LpaTaps& taps, intptr_t offset, __m256i lanes, float* sum, float* weight) {
    __m256 total = partial ? _mm256_maskload_ps(sum + offset, lanes) : _mm256_loadu_ps(sum + offset);
    __m256 q = partial ? _mm256_maskload_ps(weight + offset, lanes) : _mm256_loadu_ps(weight + offset);
    const Window<partial> forward{taps.forward, offset, lanes}, backward{taps.backward, offset, lanes};
    __m256 ef[4], sf[4], vf[4], eb[4], sb[4], vb[4];
    Fits(c, forward, ef, sf);
    Variances(c, forward, ef, sf, vf);
    Fits(c, backward, eb, sb);
    Choose(c, ef, vf, total, q);
    Variances(c, backward, eb, sb, vb);
    Choose(c, eb, vb, total, q);
    if (partial) {
        _mm256_maskstore_ps(sum + offset, lanes, total);
        _mm256_maskstore_ps(weight + offset, lanes, q);
    } else {
        _mm256_storeu_ps(sum + offset, total);
        _mm256_storeu_ps(weight + offset, q);
    }
}

}  // namespace

void LpaAccumulateLineAvx2(const LpaWindows& windows, const LpaTaps& taps, int32_t count, float* sum, float* weight) {
    Constants c;
    Broadcast(c.f4, windows.kernel4, 4);
    Broadcast(c.g4, windows.kernel4 + 4, 4);
    Broadcast(c.f6, windows.kernel6, 6);
    Broadcast(c.g6, windows.kernel6 + 8, 6);
    Broadcast(c.f8, windows.kernel8, 8);
    Broadcast(c.g8, windows.kernel8 + 8, 8);
    Broadcast(c.f12, windows.kernel12, 12);
    Broadcast(c.g12, windows.kernel12 + 12, 12);
    c.seven = _mm256_set1_ps(7.0f);
    c.eleven = _mm256_set1_ps(11.0f);
    c.gamma = _mm256_set1_ps(windows.gamma);
    c.epsilon = _mm256_set1_ps(1e-6f);

    const __m256i all = _mm256_set1_epi32(-1);
    intptr_t s = 0;
    for (; s + 8 <= count; s += 8) Block<false>(c, taps, s, all, sum, weight);
    if (s < count) {
        const __m256i lanes = _mm256_cmpgt_epi32(_mm256_set1_epi32(int32_t(count - s)), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
        Block<true>(c, taps, s, lanes, sum, weight);
    }
}
