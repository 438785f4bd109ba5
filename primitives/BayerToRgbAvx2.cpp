// PxBayerToRgb_8u with AVX2: 32 pixels per step, one per byte lane of a 256-bit register.
#include "primitives/BayerInteriorKernel.h"

namespace {

struct Avx2Lanes {
    using Vec = __m256i;
    using Mask = __m256i;
    static constexpr int lanes = 32;

    static Vec Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static Vec Set(uint8_t value) { return _mm256_set1_epi8(static_cast<char>(value)); }
    static Vec Avg(Vec a, Vec b) { return _mm256_avg_epu8(a, b); }  // (a + b + 1) >> 1
    static Vec Sub(Vec a, Vec b) { return _mm256_sub_epi8(a, b); }
    static Vec And(Vec a, Vec b) { return _mm256_and_si256(a, b); }
    static Vec Or(Vec a, Vec b) { return _mm256_or_si256(a, b); }
    static Vec Xor(Vec a, Vec b) { return _mm256_xor_si256(a, b); }
    static Vec AbsDiff(Vec a, Vec b) { return _mm256_or_si256(_mm256_subs_epu8(a, b), _mm256_subs_epu8(b, a)); }
    static Mask GreaterOrEqual(Vec a, Vec b) { return _mm256_cmpeq_epi8(_mm256_max_epu8(a, b), a); }
    static Mask Equal(Vec a, Vec b) { return _mm256_cmpeq_epi8(a, b); }
    static Vec Select(Mask mask, Vec ifSet, Vec ifClear) { return _mm256_blendv_epi8(ifClear, ifSet, mask); }
    // first in the even lanes when evenLanes, else in the odd ones; second in the rest.
    template <bool evenLanes>
    static Vec SelectLanes(Vec first, Vec second) {
        return _mm256_blendv_epi8(second, first, _mm256_set1_epi16(evenLanes ? 0x00FF : static_cast<short>(0xFF00)));
    }
    // Each 128-bit half interleaves its own 16 pixels: the low half gives bytes 0-47, the high 48-95.
    static void StoreRgb(Vec r, Vec g, Vec b, uint8_t* out) {
        for (int chunk = 0; chunk < 3; ++chunk) {
            const auto mask = [chunk](int channel) {
                return _mm256_broadcastsi128_si256(
                    _mm_load_si128(reinterpret_cast<const __m128i*>(rgbInterleave[channel][chunk])));
            };
            const Vec rgb = _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(r, mask(0)), _mm256_shuffle_epi8(g, mask(1))),
                                            _mm256_shuffle_epi8(b, mask(2)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * chunk), _mm256_castsi256_si128(rgb));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 48 + 16 * chunk), _mm256_extracti128_si256(rgb, 1));
        }
    }
};

}  // namespace

PxStatus BayerToRgbAvx2(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                        int32_t dstStep, int32_t grid, int32_t) {
    return BayerToRgbWide<Avx2Lanes>(src, srcRoi, srcSize, srcStep, dst, dstStep, grid);
}
