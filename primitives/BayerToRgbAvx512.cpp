// PxBayerToRgb_8u with AVX-512 (F, BW): 64 pixels per step, one per byte lane of a 512-bit register.
#pragma GCC diagnostic ignored "-Wuninitialized"  // GCC 12 warns inside its own AVX-512 headers
#include "primitives/BayerInteriorKernel.h"

namespace {

struct Avx512Lanes {
    using Vec = __m512i;
    using Mask = __mmask64;
    static constexpr int lanes = 64;

    static Vec Load(const uint8_t* p) { return _mm512_loadu_si512(p); }
    static Vec Set(uint8_t value) { return _mm512_set1_epi8(static_cast<char>(value)); }
    static Vec Avg(Vec a, Vec b) { return _mm512_avg_epu8(a, b); }  // (a + b + 1) >> 1
    static Vec Sub(Vec a, Vec b) { return _mm512_sub_epi8(a, b); }
    static Vec And(Vec a, Vec b) { return _mm512_and_si512(a, b); }
    static Vec Or(Vec a, Vec b) { return _mm512_or_si512(a, b); }
    static Vec Xor(Vec a, Vec b) { return _mm512_xor_si512(a, b); }
    static Vec AbsDiff(Vec a, Vec b) { return _mm512_or_si512(_mm512_subs_epu8(a, b), _mm512_subs_epu8(b, a)); }
    static Mask GreaterOrEqual(Vec a, Vec b) { return _mm512_cmpge_epu8_mask(a, b); }
    static Mask Equal(Vec a, Vec b) { return _mm512_cmpeq_epi8_mask(a, b); }
    static Vec Select(Mask mask, Vec ifSet, Vec ifClear) { return _mm512_mask_blend_epi8(mask, ifClear, ifSet); }
    // first in the even lanes when evenLanes, else in the odd ones; second in the rest.
    template <bool evenLanes>
    static Vec SelectLanes(Vec first, Vec second) {
        return _mm512_mask_blend_epi8(evenLanes ? 0x5555555555555555ull : 0xAAAAAAAAAAAAAAAAull, second, first);
    }
    // Each 128-bit lane k interleaves its own 16 pixels into bytes 48k to 48k + 47.
    static void StoreRgb(Vec r, Vec g, Vec b, uint8_t* out) {
        for (int chunk = 0; chunk < 3; ++chunk) {
            const auto mask = [chunk](int channel) {
                return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i*>(rgbInterleave[channel][chunk])));
            };
            const Vec rgb = _mm512_or_si512(_mm512_or_si512(_mm512_shuffle_epi8(r, mask(0)), _mm512_shuffle_epi8(g, mask(1))),
                                            _mm512_shuffle_epi8(b, mask(2)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * chunk), _mm512_extracti32x4_epi32(rgb, 0));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 48 + 16 * chunk), _mm512_extracti32x4_epi32(rgb, 1));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 96 + 16 * chunk), _mm512_extracti32x4_epi32(rgb, 2));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 144 + 16 * chunk), _mm512_extracti32x4_epi32(rgb, 3));
        }
    }
};

}  // namespace

PxStatus BayerToRgbAvx512(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                          int32_t dstStep, int32_t grid, int32_t) {
    return BayerToRgbWide<Avx512Lanes>(src, srcRoi, srcSize, srcStep, dst, dstStep, grid);
}
