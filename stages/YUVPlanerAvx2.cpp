// AVX2 forms of the YUVPlaner kernels. This file is compiled for AVX2: apart from the exported kernels everything
// stays in the anonymous namespace and no library template is used, so that no AVX2 code can be chosen by the
// linker for a function that baseline code also calls.
//
// A byte shuffle sorts each 16-byte lane of packed input (four pixel pairs) into its 8 Y bytes and its 4 U and
// 4 V bytes. The shuffles are written for YUYV; XOR with lumaOffset swaps the bytes of every 16-bit word, which
// turns them into the shuffles for UYVY. In the bin kernels, even vectors are sorted luma first and odd vectors
// chroma first, so that one dword blend puts the luma of two vectors in one register and their chroma in another.
// Rows are processed in 64-pixel steps; what is left of a row goes to the scalar twin.
#include "stages/YUVPlaner.h"

#include <immintrin.h>

namespace {

// Per lane: Y0..Y7, U0..U3, V0..V3 of YUYV, and the same with the chroma half first.
alignas(32) const int8_t sortLumaFirst[32] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 5, 9, 13, 3, 7, 11, 15,
                                              0, 2, 4, 6, 8, 10, 12, 14, 1, 5, 9, 13, 3, 7, 11, 15};
alignas(32) const int8_t sortChromaFirst[32] = {1, 5, 9, 13, 3, 7, 11, 15, 0, 2, 4, 6, 8, 10, 12, 14,
                                                1, 5, 9, 13, 3, 7, 11, 15, 0, 2, 4, 6, 8, 10, 12, 14};

inline __m256i Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void Store(uint8_t* p, __m256i value) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), value); }
inline void Store128(uint8_t* p, __m128i value) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), value); }

inline __m256i SortMask(const int8_t* yuyvMask, uint32_t lumaOffset) {
    return _mm256_xor_si256(_mm256_load_si256(reinterpret_cast<const __m256i*>(yuyvMask)),
                            _mm256_set1_epi8(static_cast<char>(lumaOffset)));
}

// The sorted rows of two neighbouring 16-pixel vectors: each lane's luma of both, then each lane's chroma of both,
// as dwords [U1 V1 U0 V0] (1 the odd vector, 0 the even one).
struct SortedPair {
    __m256i luma;
    __m256i chroma;
};

inline SortedPair SortPair(const uint8_t* packed, __m256i lumaFirst, __m256i chromaFirst) {
    const __m256i even = _mm256_shuffle_epi8(Load(packed), lumaFirst);
    const __m256i odd = _mm256_shuffle_epi8(Load(packed + 32), chromaFirst);
    return SortedPair{_mm256_blend_epi32(even, odd, 0xCC), _mm256_blend_epi32(even, odd, 0x33)};
}

// Dwords of both lanes interleaved: 0, 4, 1, 5, ... puts units of lane 0 and lane 1 back into row order.
inline __m256i InterleaveLanes(__m256i dwords) {
    return _mm256_permutevar8x32_epi32(dwords, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// The constants of one register of 10-bit windows: per lane, the byte pair of each of eight samples, the mask of
// its bits within that pair, and the multiplier that rounds it to 8 bits.
struct WindowConstants {
    int8_t pairBytes[32];
    int16_t sampleBits[16];
    int16_t rounding[16];
};

// Lane 0 holds window0 (samples 8 * window0 on) loaded from byte0 of the block, lane 1 window1 from byte1. Sample s
// of a block starts at bit 32 * (s / 3) + 10 * (s % 3): at bit 0, 2 or 4 of its first byte.
constexpr WindowConstants MakeWindows(uint32_t window0, uint32_t byte0, uint32_t window1, uint32_t byte1) {
    WindowConstants windows{};
    for (uint32_t lane = 0; lane < 2; ++lane) {
        for (uint32_t j = 0; j < 8; ++j) {
            const uint32_t sample = 8 * (lane ? window1 : window0) + j;
            const uint32_t bit = 32 * (sample / 3) + 10 * (sample % 3);
            const uint32_t byte = bit / 8 - (lane ? byte1 : byte0);
            windows.pairBytes[16 * lane + 2 * j] = static_cast<int8_t>(byte);
            windows.pairBytes[16 * lane + 2 * j + 1] = static_cast<int8_t>(byte + 1);
            windows.sampleBits[8 * lane + j] = static_cast<int16_t>(0x3FF << bit % 8);
            windows.rounding[8 * lane + j] = static_cast<int16_t>(1 << (13 - bit % 8));
        }
    }
    return windows;
}

// The twelve windows of a block, two to a register as (0, 2), (1, 3), (4, 6), (5, 7), (8, 10), (9, 11), so that
// packing two registers gives four windows in row order. Each lane is loaded at or a little before the first byte
// of its window, and none reads beyond the block; where the lanes lie 16 bytes apart, one 32-byte load serves.
// The layout repeats every 32 bytes, so registers share their constants: (0, 2) with (9, 11), (1, 3) with (4, 6),
// and (5, 7) with (8, 10).
struct WindowLoad {
    uint32_t byte0, byte1;
};
constexpr WindowLoad windowLoads[6] = {{0, 16}, {10, 32}, {42, 64}, {53, 74}, {85, 106}, {96, 112}};
constexpr WindowConstants windows02 = MakeWindows(0, 0, 2, 16);
constexpr WindowConstants windows13 = MakeWindows(1, 10, 3, 32);
constexpr WindowConstants windows57 = MakeWindows(5, 53, 7, 74);

inline __m256i LoadConstant(const void* constant) { return Load(static_cast<const uint8_t*>(constant)); }
inline __m128i Load128(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// Sixteen 8-bit samples as words, still to be clamped by the pack.
inline __m256i UnpackWindows(const uint8_t* block, const WindowLoad& load, const WindowConstants& windows) {
    const __m256i lanes = load.byte1 == load.byte0 + 16
                              ? Load(block + load.byte0)
                              : _mm256_inserti128_si256(_mm256_castsi128_si256(Load128(block + load.byte0)),
                                                        Load128(block + load.byte1), 1);
    const __m256i pairs = _mm256_shuffle_epi8(lanes, LoadConstant(windows.pairBytes));
    return _mm256_mulhrs_epi16(_mm256_and_si256(pairs, LoadConstant(windows.sampleBits)),
                               LoadConstant(windows.rounding));
}

}  // namespace

void SplitPackedYUVAvx2(const uint8_t* packed, size_t pixels, uint32_t lumaOffset, uint8_t* y, uint8_t* u,
                        uint8_t* v) {
    const __m256i sort = SortMask(sortLumaFirst, lumaOffset);
    const size_t widePixels = pixels & ~size_t(63);
    for (size_t i = 0; i < widePixels; i += 64) {
        // Per 16-pixel vector, qwords [Y, UV] of lane 0 then of lane 1.
        const __m256i a = _mm256_shuffle_epi8(Load(packed + 2 * i), sort);
        const __m256i b = _mm256_shuffle_epi8(Load(packed + 2 * i + 32), sort);
        const __m256i c = _mm256_shuffle_epi8(Load(packed + 2 * i + 64), sort);
        const __m256i d = _mm256_shuffle_epi8(Load(packed + 2 * i + 96), sort);
        Store(y + i, _mm256_permute4x64_epi64(_mm256_unpacklo_epi64(a, b), 0xD8));
        Store(y + i + 32, _mm256_permute4x64_epi64(_mm256_unpacklo_epi64(c, d), 0xD8));
        // Dwords [U V U V] of a and b per lane, then of c and d: U is dword 0, 2 of each, V dword 1, 3.
        const __m256 chromaAB = _mm256_castsi256_ps(_mm256_unpackhi_epi64(a, b));
        const __m256 chromaCD = _mm256_castsi256_ps(_mm256_unpackhi_epi64(c, d));
        Store(u + i / 2,
              InterleaveLanes(_mm256_castps_si256(_mm256_shuffle_ps(chromaAB, chromaCD, _MM_SHUFFLE(2, 0, 2, 0)))));
        Store(v + i / 2,
              InterleaveLanes(_mm256_castps_si256(_mm256_shuffle_ps(chromaAB, chromaCD, _MM_SHUFFLE(3, 1, 3, 1)))));
    }
    if (widePixels < pixels)
        SplitPackedYUV(packed + 2 * widePixels, pixels - widePixels, lumaOffset, y + widePixels, u + widePixels / 2,
                       v + widePixels / 2);
}

// 64 pixels of two rows per step, 32 samples out per plane. Chroma is (2a + 2b + 2) >> 2, which is the byte
// average (a + b + 1) >> 1; luma adds its pixel pairs by a multiply-add with ones.
void BinPackedYUV2Avx2(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands,
                       uint32_t lumaOffset, uint8_t* y, uint8_t* u, uint8_t* v) {
    const __m256i lumaFirst = SortMask(sortLumaFirst, lumaOffset);
    const __m256i chromaFirst = SortMask(sortChromaFirst, lumaOffset);
    const __m256i ones = _mm256_set1_epi8(1);
    const __m256i two = _mm256_set1_epi16(2);
    const uint32_t wideWidth = width & ~63u;
    const uint32_t outWidth = width / 2;
    for (uint32_t band = 0; band < bands; ++band) {
        const uint8_t* top = packed + size_t(band) * 2 * packedStep;
        uint8_t* yRow = y + size_t(band) * outWidth;
        uint8_t* uRow = u + size_t(band) * outWidth;
        uint8_t* vRow = v + size_t(band) * outWidth;
        for (uint32_t x = 0; x < wideWidth; x += 64) {
            const uint8_t* p = top + 2 * x;
            const SortedPair a0 = SortPair(p, lumaFirst, chromaFirst);
            const SortedPair a1 = SortPair(p + packedStep, lumaFirst, chromaFirst);
            const SortedPair b0 = SortPair(p + 64, lumaFirst, chromaFirst);
            const SortedPair b1 = SortPair(p + 64 + packedStep, lumaFirst, chromaFirst);
            const __m256i lumaA = _mm256_add_epi16(_mm256_maddubs_epi16(a0.luma, ones),
                                                   _mm256_maddubs_epi16(a1.luma, ones));
            const __m256i lumaB = _mm256_add_epi16(_mm256_maddubs_epi16(b0.luma, ones),
                                                   _mm256_maddubs_epi16(b1.luma, ones));
            const __m256i luma = _mm256_packus_epi16(_mm256_srli_epi16(_mm256_add_epi16(lumaA, two), 2),
                                                     _mm256_srli_epi16(_mm256_add_epi16(lumaB, two), 2));
            const __m256 chromaA = _mm256_castsi256_ps(_mm256_avg_epu8(a0.chroma, a1.chroma));
            const __m256 chromaB = _mm256_castsi256_ps(_mm256_avg_epu8(b0.chroma, b1.chroma));
            // Dwords [U1 V1 U0 V0] of A and of B: U is dword 2, 0 of each, V dword 3, 1.
            const __m256i chromaU = _mm256_castps_si256(_mm256_shuffle_ps(chromaA, chromaB, _MM_SHUFFLE(0, 2, 0, 2)));
            const __m256i chromaV = _mm256_castps_si256(_mm256_shuffle_ps(chromaA, chromaB, _MM_SHUFFLE(1, 3, 1, 3)));
            Store(yRow + x / 2, InterleaveLanes(luma));
            Store(uRow + x / 2, InterleaveLanes(chromaU));
            Store(vRow + x / 2, InterleaveLanes(chromaV));
        }
        if (wideWidth < width)
            BinPackedYUV2(top + 2 * wideWidth, packedStep, width - wideWidth, 1, lumaOffset, yRow + wideWidth / 2,
                          uRow + wideWidth / 2, vRow + wideWidth / 2);
    }
}

// 64 pixels of four rows per step, 16 samples out per plane. Chroma: the multiply-add adds the two U (or V) of an
// output pixel per row, and four rows give the sum S of eight samples; (2S + 8) >> 4 is (S + 4) >> 3. Luma: the
// pair sums of the rows, then a multiply-add of neighbouring words gives the sum of the block's 16 samples.
void BinPackedYUV4Avx2(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands,
                       uint32_t lumaOffset, uint8_t* y, uint8_t* u, uint8_t* v) {
    const __m256i lumaFirst = SortMask(sortLumaFirst, lumaOffset);
    const __m256i chromaFirst = SortMask(sortChromaFirst, lumaOffset);
    const __m256i ones = _mm256_set1_epi8(1);
    const __m256i wordOnes = _mm256_set1_epi16(1);
    const __m256i four = _mm256_set1_epi16(4);
    const __m256i eight = _mm256_set1_epi16(8);
    // After the lane-joining permute, the 2-byte units of source lanes 0 and 1 (the latter marked ') side by side:
    // luma in the low lane; in the high lane the chroma units [U1 V1 U0 V0] become U0 U0' U1 U1' V0 V0' V1 V1'.
    const __m256i joinUnits = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,  //
                                               4, 5, 12, 13, 0, 1, 8, 9, 6, 7, 14, 15, 2, 3, 10, 11);
    const uint32_t wideWidth = width & ~63u;
    const uint32_t outWidth = width / 4;
    for (uint32_t band = 0; band < bands; ++band) {
        const uint8_t* top = packed + size_t(band) * 4 * packedStep;
        uint8_t* yRow = y + size_t(band) * outWidth;
        uint8_t* uRow = u + size_t(band) * outWidth;
        uint8_t* vRow = v + size_t(band) * outWidth;
        for (uint32_t x = 0; x < wideWidth; x += 64) {
            const uint8_t* p = top + 2 * x;
            __m256i lumaA = _mm256_setzero_si256(), chromaA = lumaA, lumaB = lumaA, chromaB = lumaA;
            for (uint32_t row = 0; row < 4; ++row, p += packedStep) {
                const SortedPair a = SortPair(p, lumaFirst, chromaFirst);
                const SortedPair b = SortPair(p + 64, lumaFirst, chromaFirst);
                lumaA = _mm256_add_epi16(lumaA, _mm256_maddubs_epi16(a.luma, ones));
                chromaA = _mm256_add_epi16(chromaA, _mm256_maddubs_epi16(a.chroma, ones));
                lumaB = _mm256_add_epi16(lumaB, _mm256_maddubs_epi16(b.luma, ones));
                chromaB = _mm256_add_epi16(chromaB, _mm256_maddubs_epi16(b.chroma, ones));
            }
            // Per lane, luma words of vectors 0 to 3, two output pixels each.
            const __m256i lumaSums = _mm256_packs_epi32(_mm256_madd_epi16(lumaA, wordOnes),
                                                        _mm256_madd_epi16(lumaB, wordOnes));
            const __m256i luma = _mm256_srli_epi16(_mm256_add_epi16(lumaSums, eight), 4);
            const __m256i chromaOfA = _mm256_srli_epi16(_mm256_add_epi16(chromaA, four), 3);
            const __m256i chromaOfB = _mm256_srli_epi16(_mm256_add_epi16(chromaB, four), 3);
            // Qwords per lane: [luma, chroma of A] and [chroma of B, chroma of B].
            const __m256i lumaAndA = _mm256_packus_epi16(luma, chromaOfA);
            const __m256i onlyB = _mm256_packus_epi16(chromaOfB, chromaOfB);
            const __m256i joinedA = _mm256_shuffle_epi8(_mm256_permute4x64_epi64(lumaAndA, 0xD8), joinUnits);
            const __m128i joinedB =
                _mm256_extracti128_si256(_mm256_shuffle_epi8(_mm256_permute4x64_epi64(onlyB, 0xD8), joinUnits), 1);
            const __m128i chromaOfPairA = _mm256_extracti128_si256(joinedA, 1);
            Store128(yRow + x / 4, _mm256_castsi256_si128(joinedA));
            Store128(uRow + x / 4, _mm_unpacklo_epi64(chromaOfPairA, joinedB));
            Store128(vRow + x / 4, _mm_unpackhi_epi64(chromaOfPairA, joinedB));
        }
        if (wideWidth < width)
            BinPackedYUV4(top + 2 * wideWidth, packedStep, width - wideWidth, 1, lumaOffset, yRow + wideWidth / 4,
                          uRow + wideWidth / 4, vRow + wideWidth / 4);
    }
}

// 48 pixels (128 bytes, 96 samples) per step. Eight consecutive samples span at most 12 bytes, so each 128-bit
// lane, loaded on its own, holds one window of eight samples. A shuffle gives each sample the 16-bit word of its
// two bytes, a mask keeps the sample's bits (at bit 0, 2 or 4 of the word), and the rounding multiply
// ((a * b >> 14) + 1) >> 1 with b = 2^(13 - bit) yields (v + 2) >> 2; the saturating pack clamps 256 to 255.
void UnpackPackedYUV10Avx2(const uint8_t* words, uint32_t blocks, uint8_t* samples) {
    for (uint32_t b = 0; b < blocks; ++b, words += 128, samples += 96) {
        const __m256i windows02Words = UnpackWindows(words, windowLoads[0], windows02);
        const __m256i windows13Words = UnpackWindows(words, windowLoads[1], windows13);
        const __m256i windows46Words = UnpackWindows(words, windowLoads[2], windows13);
        const __m256i windows57Words = UnpackWindows(words, windowLoads[3], windows57);
        const __m256i windows810Words = UnpackWindows(words, windowLoads[4], windows57);
        const __m256i windows911Words = UnpackWindows(words, windowLoads[5], windows02);
        Store(samples, _mm256_packus_epi16(windows02Words, windows13Words));
        Store(samples + 32, _mm256_packus_epi16(windows46Words, windows57Words));
        Store(samples + 64, _mm256_packus_epi16(windows810Words, windows911Words));
    }
}
