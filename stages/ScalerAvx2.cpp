// AVX2 forms of the binning kernels. This file is compiled for AVX2: apart from the exported kernels everything
// stays in the anonymous namespace and no library template is used, so that the linker can never pick AVX2 code
// for a function that baseline code also calls.
//
// A band is read in slices of 32 columns. Each slice's rows are added in registers, which holds the same sums as
// the twin's two passes through rowSums; rowSums serves only the twin that finishes a row. Sums of pairs come
// from maddubs with ones, sums of 8 from sad against zero; every block sum stays below 2^15, so the means are
// exact in 16-bit lanes.
#include "stages/Scaler.h"

#include <immintrin.h>

namespace {

inline __m256i Load(const uint8_t* samples) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples)); }

inline __m256i PairSums(const uint8_t* samples) { return _mm256_maddubs_epi16(Load(samples), _mm256_set1_epi8(1)); }

inline __m256i OctetSums(const uint8_t* samples) { return _mm256_sad_epu8(Load(samples), _mm256_setzero_si256()); }

// (sums + Rounding) >> Shift in one instruction: mulhrs by 2^(15 - Shift) gives (sums * 2^(15 - Shift) + 2^14) >> 15,
// which is the same for every sum below 2^15 because each factor's rounding term is half its divisor.
template <int Rounding, int Shift>
inline __m256i RoundedMeans(__m256i sums) {
    static_assert(Rounding == 1 << (Shift - 1), "the rounding term is half the divisor");
    return _mm256_mulhrs_epi16(sums, _mm256_set1_epi16(1 << (15 - Shift)));
}

// Four slices' sums, each in the low word of its 64-bit lanes, in one register: slice k in word k of each lane.
inline __m256i InterleaveQuadSums(const __m256i* sums) {
    return _mm256_or_si256(_mm256_or_si256(sums[0], _mm256_slli_epi64(sums[1], 16)),
                           _mm256_or_si256(_mm256_slli_epi64(sums[2], 32), _mm256_slli_epi64(sums[3], 48)));
}

// Each factor gives the sums of one slice and packs the sums of a group of `slices` slices into their means, in
// row order from byte 0; a slice left as zero only adds bytes behind those of the slices before it. A wide step
// takes `groups` groups: two at factor 2, so that every factor reads 128 columns of its rows per step.
struct Bin2 {
    static constexpr uint32_t factor = 2, slices = 2, groups = 2;
    // 16 block sums in row order.
    static __m256i SliceSums(const uint8_t* top, size_t step) {
        return _mm256_add_epi16(PairSums(top), PairSums(top + step));
    }
    static __m256i Means(const __m256i* sums) {
        const __m256i packed = _mm256_packus_epi16(RoundedMeans<2, 2>(sums[0]), RoundedMeans<2, 2>(sums[1]));
        return _mm256_permute4x64_epi64(packed, 0xD8);  // undo the per-lane packing
    }
};

struct Bin4 {
    static constexpr uint32_t factor = 4, slices = 4, groups = 1;
    // 16 sums of column pairs over 4 rows; neighbouring words make one block.
    static __m256i SliceSums(const uint8_t* top, size_t step) {
        return _mm256_add_epi16(_mm256_add_epi16(PairSums(top), PairSums(top + step)),
                                _mm256_add_epi16(PairSums(top + 2 * step), PairSums(top + 3 * step)));
    }
    static __m256i Means(const __m256i* sums) {
        // Per lane, 4 blocks of each slice in turn; the dword permutation restores the row order.
        const __m256i first = RoundedMeans<8, 4>(_mm256_hadd_epi16(sums[0], sums[1]));
        const __m256i second = RoundedMeans<8, 4>(_mm256_hadd_epi16(sums[2], sums[3]));
        const __m256i rowOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(first, second), rowOrder);
    }
};

struct Bin8 {
    static constexpr uint32_t factor = 8, slices = 4, groups = 1;
    // The 4 block sums in the low words of the 64-bit lanes.
    static __m256i SliceSums(const uint8_t* top, size_t step) {
        __m256i sums = OctetSums(top);
        for (uint32_t r = 1; r < 8; ++r) sums = _mm256_add_epi16(sums, OctetSums(top + r * step));
        return sums;
    }
    static __m256i Means(const __m256i* sums) {
        // 64-bit lane i holds block i of slices 0-3. The byte shuffle pairs blocks 0, 1 (low lane) and 2, 3 (high
        // lane) of each slice; interleaving the two lanes' pairs restores the row order.
        const __m256i means = RoundedMeans<32, 6>(InterleaveQuadSums(sums));
        const __m256i pairs = _mm256_shuffle_epi8(
            means, _mm256_setr_epi8(0, 8, 2, 10, 4, 12, 6, 14, -1, -1, -1, -1, -1, -1, -1, -1, 0, 8, 2, 10, 4, 12, 6,
                                    14, -1, -1, -1, -1, -1, -1, -1, -1));
        return _mm256_castsi128_si256(
            _mm_unpacklo_epi16(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1)));
    }
};

struct Bin16 {
    static constexpr uint32_t factor = 16, slices = 4, groups = 1;
    // Even rows only: sums of 8 by 8 samples in the low words of the 64-bit lanes, two per block.
    static __m256i SliceSums(const uint8_t* top, size_t step) {
        __m256i sums = OctetSums(top);
        for (uint32_t r = 2; r < 16; r += 2) sums = _mm256_add_epi16(sums, OctetSums(top + r * step));
        return sums;
    }
    static __m256i Means(const __m256i* sums) {
        // Adding the 64-bit lanes of each 128-bit lane completes block 0 of every slice in the low lane and block 1
        // in the high lane.
        const __m256i halves = InterleaveQuadSums(sums);
        const __m256i means = RoundedMeans<64, 7>(_mm256_add_epi16(halves, _mm256_shuffle_epi32(halves, 0x4E)));
        const __m128i ordered = _mm_unpacklo_epi16(_mm256_castsi256_si128(means), _mm256_extracti128_si256(means, 1));
        return _mm256_castsi128_si256(_mm_packus_epi16(ordered, ordered));
    }
};

// Stores the first `bytes` bytes of a register of means.
inline void StoreMeans(uint8_t* out, __m256i means, uint32_t bytes) {
    const __m128i low = _mm256_castsi256_si128(means);
    switch (bytes) {
        case 32: _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), means); break;
        case 16: _mm_storeu_si128(reinterpret_cast<__m128i*>(out), low); break;
        case 8: _mm_storel_epi64(reinterpret_cast<__m128i*>(out), low); break;
        case 4: _mm_storeu_si32(out, low); break;
        default: _mm_storeu_si16(out, low); break;
    }
}

template <class Bin>
void BinBandsWide(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                  uint8_t* out, size_t outStep, BinKernel twin) {
    constexpr uint32_t f = Bin::factor;
    constexpr uint32_t groupColumns = 32 * Bin::slices;
    constexpr uint32_t stepColumns = groupColumns * Bin::groups;
    const uint32_t wideColumns = columns / stepColumns * stepColumns;
    const uint32_t sliceColumns = columns & ~31u;
    for (uint32_t band = 0; band < bands; ++band) {
        const uint8_t* top = in + size_t(band) * f * inStep;
        uint8_t* outRow = out + size_t(band) * outStep;
        const uint8_t* slice = top;
        uint8_t* target = outRow;
        for (const uint8_t* end = top + wideColumns; slice != end; slice += stepColumns, target += stepColumns / f) {
            for (uint32_t g = 0; g < Bin::groups; ++g) {
                __m256i sums[Bin::slices];
                for (uint32_t s = 0; s < Bin::slices; ++s)
                    sums[s] = Bin::SliceSums(slice + g * groupColumns + 32 * s, inStep);
                StoreMeans(target + g * groupColumns / f, Bin::Means(sums), groupColumns / f);
            }
        }
        // Single slices, with zero sums standing in for the slices that are not there.
        for (const uint8_t* end = top + sliceColumns; slice != end; slice += 32, target += 32 / f) {
            __m256i sums[Bin::slices];
            sums[0] = Bin::SliceSums(slice, inStep);
            for (uint32_t s = 1; s < Bin::slices; ++s) sums[s] = _mm256_setzero_si256();
            StoreMeans(target, Bin::Means(sums), 32 / f);
        }
        if (columns - sliceColumns >= f) twin(slice, inStep, columns - sliceColumns, 1, rowSums, target, outStep);
    }
}

}  // namespace

void BinBands2Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                   uint8_t* out, size_t outStep) {
    BinBandsWide<Bin2>(in, inStep, columns, bands, rowSums, out, outStep, BinBands2);
}

void BinBands4Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                   uint8_t* out, size_t outStep) {
    BinBandsWide<Bin4>(in, inStep, columns, bands, rowSums, out, outStep, BinBands4);
}

void BinBands8Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                   uint8_t* out, size_t outStep) {
    BinBandsWide<Bin8>(in, inStep, columns, bands, rowSums, out, outStep, BinBands8);
}

void BinBands16Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                    uint8_t* out, size_t outStep) {
    BinBandsWide<Bin16>(in, inStep, columns, bands, rowSums, out, outStep, BinBands16);
}
