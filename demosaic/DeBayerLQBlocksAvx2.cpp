// AVX2 forms of the DeBayerLQ block kernels. This file is compiled for AVX2: apart from the exported kernels
// everything stays in the anonymous namespace and no library template is used, so that no AVX2 code can be
// chosen by the linker for a function that baseline code also calls.
//
// Each iteration takes 32 columns as two 16-column steps, one per 128-bit lane. The rows of a step are
// deinterleaved by a byte shuffle so that one maddubs with ones adds the two nearest samples of the same site;
// the rows of a site are then added in 16-bit lanes (at most 32 samples of 255 = 8160) and shifted to the
// truncated site means. An odd 16-column remainder of a band is left to the scalar twin.
#include "demosaic/DeBayerLQBlocks.h"

#include <immintrin.h>

namespace {

// Where the site means stand, per lane, once a scale's reduction is done: site (a, b) of the lane's block k
// is byte k * blockStride + a * rowParityStride + b.
struct SiteLayout {
    uint32_t blocksPerLane;
    uint32_t blockStride;
    uint32_t rowParityStride;
};

uint8_t SitePosition(const SiteLayout& layout, uint32_t block, uint32_t site) {
    return static_cast<uint8_t>(block * layout.blockStride + (site >> 1) * layout.rowParityStride + (site & 1));
}

// The two byte shuffles of colour placement, made once per frame from the format's sites.
struct PlacementMasks {
    __m256i pairGreens;    // green B of each block onto green A's byte; every other byte stays where it is
    __m256i placeColours;  // R, green, B, zero for each output pixel of the lane
};

PlacementMasks MakePlacementMasks(const BayerSites& sites, const SiteLayout& layout) {
    uint8_t pairGreens[32];
    uint8_t placeColours[32];
    for (uint32_t i = 0; i < 16; ++i) {
        pairGreens[i] = static_cast<uint8_t>(i);
        placeColours[i] = 0x80;  // a set top bit makes the shuffle write zero: the padding byte
    }
    for (uint32_t block = 0; block < layout.blocksPerLane; ++block) {
        pairGreens[SitePosition(layout, block, sites.greenA)] = SitePosition(layout, block, sites.greenB);
        placeColours[4 * block + 0] = SitePosition(layout, block, sites.red);
        placeColours[4 * block + 1] = SitePosition(layout, block, sites.greenA);
        placeColours[4 * block + 2] = SitePosition(layout, block, sites.blue);
    }
    for (uint32_t i = 0; i < 16; ++i) {
        pairGreens[16 + i] = pairGreens[i];
        placeColours[16 + i] = placeColours[i];
    }
    return PlacementMasks{_mm256_loadu_si256(reinterpret_cast<const __m256i*>(pairGreens)),
                          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(placeColours))};
}

// The byte average rounds up, (x + y + 1) >> 1: the green mean on green A's byte, and the byte itself wherever
// the green pairing left a byte in place.
inline __m256i PlaceColours(__m256i siteMeans, const PlacementMasks& masks) {
    const __m256i pairedGreens = _mm256_shuffle_epi8(siteMeans, masks.pairGreens);
    return _mm256_shuffle_epi8(_mm256_avg_epu8(siteMeans, pairedGreens), masks.placeColours);
}

inline __m256i BothLanes(__m128i lane) { return _mm256_broadcastsi128_si256(lane); }

// 16-bit sums of the byte pairs that the deinterleaving shuffle brought together.
inline __m256i PairSums(const uint8_t* row, __m256i deinterleave, __m256i ones) {
    const __m256i samples = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row));
    return _mm256_maddubs_epi16(_mm256_shuffle_epi8(samples, deinterleave), ones);
}

}  // namespace

void DeBayerBlocks2Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                        const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    // Interleaving the words of the two rows puts each block's four sites in one 32-bit group.
    const PlacementMasks masks = MakePlacementMasks(sites, SiteLayout{4, 4, 2});
    const uint32_t wideColumns = columns & ~31u;
    for (uint32_t band = 0; band < blockRows; ++band) {
        const uint8_t* row0 = mosaic + size_t(band) * 2 * mosaicStep;
        const uint8_t* row1 = row0 + mosaicStep;
        uint8_t* out = rgbx + size_t(band) * rgbxStep;
        for (uint32_t x = 0; x < wideColumns; x += 32) {
            const __m256i even = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row0 + x));
            const __m256i odd = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row1 + x));
            // Per lane, blocks 0-3 and 4-7 of its 16 columns; the lane swap restores the order of the row.
            const __m256i low = PlaceColours(_mm256_unpacklo_epi16(even, odd), masks);
            const __m256i high = PlaceColours(_mm256_unpackhi_epi16(even, odd), masks);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * x), _mm256_permute2x128_si256(low, high, 0x20));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * x + 32),
                                _mm256_permute2x128_si256(low, high, 0x31));
        }
        if (wideColumns < columns)
            DeBayerBlocks2(row0 + wideColumns, mosaicStep, columns - wideColumns, 1, sites, out + 2 * wideColumns,
                           rgbxStep);
    }
}

void DeBayerBlocks4Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                        const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    // Columns c, c+2 and c+1, c+3 side by side: one pair sum per site and row.
    const __m256i deinterleave = BothLanes(_mm_setr_epi8(0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15));
    const __m256i ones = _mm256_set1_epi8(1);
    // Packing the even-row sums before the odd-row sums: per lane 4 blocks of (m00, m01), then of (m10, m11).
    const PlacementMasks masks = MakePlacementMasks(sites, SiteLayout{4, 2, 8});
    const uint32_t wideColumns = columns & ~31u;
    for (uint32_t band = 0; band < blockRows; ++band) {
        const uint8_t* row0 = mosaic + size_t(band) * 4 * mosaicStep;
        uint8_t* out = rgbx + size_t(band) * rgbxStep;
        for (uint32_t x = 0; x < wideColumns; x += 32) {
            const uint8_t* top = row0 + x;
            const __m256i evenRows = _mm256_add_epi16(PairSums(top, deinterleave, ones),
                                                      PairSums(top + 2 * mosaicStep, deinterleave, ones));
            const __m256i oddRows = _mm256_add_epi16(PairSums(top + mosaicStep, deinterleave, ones),
                                                     PairSums(top + 3 * mosaicStep, deinterleave, ones));
            const __m256i means =
                _mm256_packus_epi16(_mm256_srli_epi16(evenRows, 2), _mm256_srli_epi16(oddRows, 2));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), PlaceColours(means, masks));
        }
        if (wideColumns < columns)
            DeBayerBlocks4(row0 + wideColumns, mosaicStep, columns - wideColumns, 1, sites, out + wideColumns,
                           rgbxStep);
    }
}

void DeBayerBlocks8Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                        const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    // Per 8-column block: columns c, c+2 | c+4, c+6 | c+1, c+3 | c+5, c+7, so that after the row sums one
    // horizontal add of word pairs completes each site.
    const __m256i deinterleave = BothLanes(_mm_setr_epi8(0, 2, 4, 6, 1, 3, 5, 7, 8, 10, 12, 14, 9, 11, 13, 15));
    const __m256i ones = _mm256_set1_epi8(1);
    // After the horizontal add: per lane (m00, m01) of blocks 0 and 1, then (m10, m11) of both.
    const PlacementMasks masks = MakePlacementMasks(sites, SiteLayout{2, 2, 4});
    const uint32_t wideColumns = columns & ~31u;
    for (uint32_t band = 0; band < blockRows; ++band) {
        const uint8_t* row0 = mosaic + size_t(band) * 8 * mosaicStep;
        uint8_t* out = rgbx + size_t(band) * rgbxStep;
        for (uint32_t x = 0; x < wideColumns; x += 32) {
            const uint8_t* top = row0 + x;
            __m256i evenRows = PairSums(top, deinterleave, ones);
            __m256i oddRows = PairSums(top + mosaicStep, deinterleave, ones);
            for (uint32_t r = 2; r < 8; r += 2) {
                evenRows = _mm256_add_epi16(evenRows, PairSums(top + r * mosaicStep, deinterleave, ones));
                oddRows = _mm256_add_epi16(oddRows, PairSums(top + (r + 1) * mosaicStep, deinterleave, ones));
            }
            const __m256i sums = _mm256_hadd_epi16(evenRows, oddRows);
            const __m256i means = _mm256_srli_epi16(sums, 4);
            const __m256i pixels = PlaceColours(_mm256_packus_epi16(means, means), masks);
            // Two pixels in the low 8 bytes of each lane.
            const __m256i packed = _mm256_permute4x64_epi64(pixels, 0x08);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x / 2), _mm256_castsi256_si128(packed));
        }
        if (wideColumns < columns)
            DeBayerBlocks8(row0 + wideColumns, mosaicStep, columns - wideColumns, 1, sites, out + wideColumns / 2,
                           rgbxStep);
    }
}

void DeBayerBlocks16Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                         const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    // The 8 even columns of a lane, then its 8 odd ones: four pair sums per site and row.
    const __m256i deinterleave = BothLanes(_mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15));
    const __m256i ones = _mm256_set1_epi8(1);
    // After two horizontal adds: per lane m00, m01, m10, m11 of its one block.
    const PlacementMasks masks = MakePlacementMasks(sites, SiteLayout{1, 4, 2});
    const uint32_t wideColumns = columns & ~31u;
    for (uint32_t band = 0; band < blockRows; ++band) {
        const uint8_t* row0 = mosaic + size_t(band) * 16 * mosaicStep;
        uint8_t* out = rgbx + size_t(band) * rgbxStep;
        for (uint32_t x = 0; x < wideColumns; x += 32) {
            // Rows 0, 1, 4, 5, 8, 9, 12, 13 of the block; the others are never read.
            const uint8_t* top = row0 + x;
            __m256i evenRows = PairSums(top, deinterleave, ones);
            __m256i oddRows = PairSums(top + mosaicStep, deinterleave, ones);
            for (uint32_t r = 4; r < 16; r += 4) {
                evenRows = _mm256_add_epi16(evenRows, PairSums(top + r * mosaicStep, deinterleave, ones));
                oddRows = _mm256_add_epi16(oddRows, PairSums(top + (r + 1) * mosaicStep, deinterleave, ones));
            }
            const __m256i quarterSums = _mm256_hadd_epi16(evenRows, oddRows);
            const __m256i sums = _mm256_hadd_epi16(quarterSums, quarterSums);
            const __m256i means = _mm256_srli_epi16(sums, 5);
            const __m256i pixels = PlaceColours(_mm256_packus_epi16(means, means), masks);
            // One pixel in the low 4 bytes of each lane.
            const __m128i bothPixels =
                _mm_unpacklo_epi32(_mm256_castsi256_si128(pixels), _mm256_extracti128_si256(pixels, 1));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x / 4), bothPixels);
        }
        if (wideColumns < columns)
            DeBayerBlocks16(row0 + wideColumns, mosaicStep, columns - wideColumns, 1, sites, out + wideColumns / 4,
                            rgbxStep);
    }
}
