// AVX2 forms of the Hamilton-Adams plane kernels. This file is compiled for AVX2: apart from the exported kernels
// everything stays in the anonymous namespace and no library template is used, so that no AVX2 code can be
// chosen by the linker for a function that baseline code also calls.
//
// The interpolation kernels take 16 columns at a time. The sites of one column parity are the low (even
// columns) or high (odd columns) words of the 32-bit lanes; they are widened to signed 32 bits, computed on,
// and written back with a word blend so that the other parity of the row stays as it was. A load two columns
// to the left or right brings the neighbours at distance 1 and 2 into the same lanes.
//
// The reduction works in 16-bit lanes with wrap-around. Horizontal sums of neighbouring words come from madd
// with ones: its 32-bit result is a signed sum, but its low word is the 16-bit wrapped sum, which is all that
// is kept. The outputs of a row are written at or before the inputs of that row already read, so the packing
// from the start of the plane never overwrites a sample still to be read.
#include "demosaic/HAKernels.h"

#include <immintrin.h>

#include <cstring>

namespace {

inline __m256i Load(const uint16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

inline void Store(uint16_t* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

// The words of column parity Q of a 16-column load, zero-extended into the eight 32-bit lanes.
template <int Q>
inline __m256i Sites(__m256i v) {
    return Q == 0 ? _mm256_and_si256(v, _mm256_set1_epi32(0xFFFF)) : _mm256_srli_epi32(v, 16);
}

// `row` with its words of parity Q replaced by the low 16 bits of the lanes of `values`.
template <int Q>
inline __m256i Merge(__m256i row, __m256i values) {
    return Q == 0 ? _mm256_blend_epi16(row, values, 0x55)
                  : _mm256_blend_epi16(row, _mm256_slli_epi32(values, 16), 0xAA);
}

// The neighbours at t - 1 and t + 1 of the parity-Q sites t of the 16 columns from `p`.
template <int Q>
inline void Beside(const uint16_t* p, __m256i& left, __m256i& right) {
    if (Q == 0) {
        left = Sites<1>(Load(p - 2));
        right = Sites<1>(Load(p));
    } else {
        left = Sites<0>(Load(p));
        right = Sites<0>(Load(p + 2));
    }
}

// The estimate along the direction of the smaller gradient, the mean of both on a tie; then halved and
// clamped at zero. Shifts are arithmetic, without rounding term.
inline __m256i Choose(__m256i estimate1, __m256i estimate2, __m256i gradient1, __m256i gradient2) {
    const __m256i mean = _mm256_srai_epi32(_mm256_add_epi32(estimate1, estimate2), 1);
    __m256i t = _mm256_blendv_epi8(mean, estimate2, _mm256_cmpgt_epi32(gradient1, gradient2));
    t = _mm256_blendv_epi8(t, estimate1, _mm256_cmpgt_epi32(gradient2, gradient1));
    return _mm256_max_epi32(_mm256_srai_epi32(t, 1), _mm256_setzero_si256());
}

// Colour from two neighbours along one direction, corrected by the green Laplacian.
inline __m256i AlongPair(__m256i twoGreen, __m256i green1, __m256i green2, __m256i colour1, __m256i colour2) {
    const __m256i laplacian = _mm256_sub_epi32(_mm256_sub_epi32(twoGreen, green1), green2);
    const __m256i sum = _mm256_add_epi32(_mm256_add_epi32(colour1, colour2), laplacian);
    return _mm256_max_epi32(_mm256_srai_epi32(sum, 1), _mm256_setzero_si256());
}

inline __m256i Abs(__m256i v) { return _mm256_abs_epi32(v); }

// The kernels step through rows two apart, or through three planes at once, which the hardware prefetcher
// follows poorly: each group asks for the rows the next row will need.
inline void Prefetch(const uint16_t* p) { _mm_prefetch(reinterpret_cast<const char*>(p), _MM_HINT_T0); }

// Green at the parity-Q sites of one row, from the mosaic row `m`.
template <int Q>
void GreenRow(const uint16_t* m, uint16_t* g, intptr_t stride, int32_t width) {
    for (int32_t x = 0; x < width; x += 16) {
        const uint16_t* s = m + x;
        Prefetch(s + 3 * stride);
        Prefetch(s + 4 * stride);
        Prefetch(g + x + 2 * stride);
        const __m256i left = Load(s - 2);
        const __m256i centre = Load(s);
        const __m256i right = Load(s + 2);
        const __m256i c = Sites<Q>(centre);
        const __m256i gl = Q == 0 ? Sites<1>(left) : Sites<0>(centre);
        const __m256i gr = Q == 0 ? Sites<1>(centre) : Sites<0>(right);
        const __m256i cl = Sites<Q>(left);
        const __m256i cr = Sites<Q>(right);
        const __m256i gu = Sites<Q>(Load(s - stride));
        const __m256i gd = Sites<Q>(Load(s + stride));
        const __m256i cu = Sites<Q>(Load(s - 2 * stride));
        const __m256i cd = Sites<Q>(Load(s + 2 * stride));

        const __m256i ch = _mm256_sub_epi32(c, _mm256_srai_epi32(_mm256_add_epi32(cl, cr), 1));
        const __m256i cv = _mm256_sub_epi32(c, _mm256_srai_epi32(_mm256_add_epi32(cu, cd), 1));
        const __m256i hSum = _mm256_add_epi32(_mm256_add_epi32(gl, gr), ch);
        const __m256i vSum = _mm256_add_epi32(_mm256_add_epi32(gu, gd), cv);
        const __m256i h = _mm256_add_epi32(Abs(_mm256_sub_epi32(gl, gr)), _mm256_slli_epi32(Abs(ch), 1));
        const __m256i v = _mm256_add_epi32(Abs(_mm256_sub_epi32(gu, gd)), _mm256_slli_epi32(Abs(cv), 1));
        Store(g + x, Merge<Q>(Load(g + x), Choose(hSum, vSum, h, v)));
    }
}

// Both colours at the parity-Q green sites of one row: the row's own colour from its left and right
// neighbours, the other colour from the rows above and below. The two results go to different planes.
// The own row is read two columns beside the 16 being written: at parity 0 the read reaches to the left, so
// the row is walked from the right, and no read overlaps the previous group's store (a partial overlap would
// wait for the store to retire).
template <int Q>
void ColourAtGreenRow(const uint16_t* g, uint16_t* own, uint16_t* other, intptr_t stride, int32_t width) {
    for (int32_t i = 0; i < width; i += 16) {
        const int32_t x = Q == 0 ? width - 16 - i : i;
        Prefetch(g + x + 2 * stride);
        Prefetch(own + x + 2 * stride);
        const __m256i twoGreen = _mm256_slli_epi32(Sites<Q>(Load(g + x)), 1);
        __m256i gl, gr, ol, orr;
        Beside<Q>(g + x, gl, gr);
        Beside<Q>(own + x, ol, orr);
        const __m256i ownRow = Load(own + x);
        Store(own + x, Merge<Q>(ownRow, AlongPair(twoGreen, gl, gr, ol, orr)));

        const __m256i gu = Sites<Q>(Load(g + x - stride));
        const __m256i gd = Sites<Q>(Load(g + x + stride));
        const __m256i xu = Sites<Q>(Load(other + x - stride));
        const __m256i xd = Sites<Q>(Load(other + x + stride));
        const __m256i otherRow = Load(other + x);
        Store(other + x, Merge<Q>(otherRow, AlongPair(twoGreen, gu, gd, xu, xd)));
    }
}

// The colour of plane `x` at the parity-Q sites of one row, from its four diagonal neighbours.
template <int Q>
void ColourAtColourRow(const uint16_t* g, uint16_t* x, intptr_t stride, int32_t width) {
    for (int32_t c = 0; c < width; c += 16) {
        Prefetch(g + c + 2 * stride);
        Prefetch(x + c + 2 * stride);
        Prefetch(x + c + 3 * stride);
        const __m256i twoGreen = _mm256_slli_epi32(Sites<Q>(Load(g + c)), 1);
        __m256i gul, gur, gdl, gdr, xul, xur, xdl, xdr;
        Beside<Q>(g + c - stride, gul, gur);
        Beside<Q>(g + c + stride, gdl, gdr);
        Beside<Q>(x + c - stride, xul, xur);
        Beside<Q>(x + c + stride, xdl, xdr);
        const __m256i a = _mm256_sub_epi32(_mm256_sub_epi32(twoGreen, gul), gdr);
        const __m256i b = _mm256_sub_epi32(_mm256_sub_epi32(twoGreen, gur), gdl);
        const __m256i sum1 = _mm256_add_epi32(_mm256_add_epi32(xul, xdr), a);
        const __m256i sum2 = _mm256_add_epi32(_mm256_add_epi32(xur, xdl), b);
        const __m256i d1 = _mm256_add_epi32(Abs(_mm256_sub_epi32(xul, xdr)), Abs(a));
        const __m256i d2 = _mm256_add_epi32(Abs(_mm256_sub_epi32(xur, xdl)), Abs(b));
        Store(x + c, Merge<Q>(Load(x + c), Choose(sum1, sum2, d1, d2)));
    }
}

// The ring columns of one row, mirrored about the edge samples.
inline void MirrorColumns(uint16_t* row, int32_t width) {
    row[-2] = row[2];
    row[-1] = row[1];
    row[width] = row[width - 2];
    row[width + 1] = row[width - 3];
}

// ---- Output reduction ----

inline __m256i Words(int32_t value) { return _mm256_set1_epi16(static_cast<int16_t>(value)); }

inline __m256i LowWords() { return _mm256_set1_epi32(0xFFFF); }

inline __m256i LoadOrZero(const uint16_t* p, int32_t vector, int32_t vectors) {
    return vector < vectors ? Load(p + 16 * vector) : _mm256_setzero_si256();
}

// Sums of neighbouring word pairs, wrapped to 16 bits, in the low words of the 32-bit lanes; high words zero.
inline __m256i PairSums(__m256i v) {
    return _mm256_and_si256(_mm256_madd_epi16(v, _mm256_set1_epi16(1)), LowWords());
}

// Wrapped sums of four neighbouring words of 32 columns (two loads) in the low words of the 32-bit lanes,
// high words zero; lane 0 holds columns 0-7 and 16-23, lane 1 columns 8-15 and 24-31, in that order.
inline __m256i QuadSums(__m256i first, __m256i second) {
    return PairSums(_mm256_packus_epi32(PairSums(first), PairSums(second)));
}

// Copies the first `count` bytes of a vector's result to `out`.
inline void StorePart(uint8_t* out, __m128i bytes, int32_t count) {
    alignas(16) uint8_t lanes[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), bytes);
    for (int32_t i = 0; i < count; ++i) out[i] = lanes[i];
}

inline __m256i Scale1Bytes(__m256i v, __m128i shift, __m256i limit) {
    return _mm256_min_epu16(_mm256_srl_epi16(_mm256_add_epi16(v, Words(4)), shift), limit);
}

// One byte per sample; a shift count of 16 (input depth outside 5 to 20) gives zero, as the 16-bit shift does.
void ReduceScale1Bytes(uint16_t* plane, intptr_t stride, int32_t width, int32_t firstOut, int32_t endOut,
                       int32_t inDepth, int32_t limit) {
    const int32_t count = inDepth - 5;
    const __m128i shift = _mm_cvtsi32_si128(count >= 0 && count <= 15 ? count : 16);
    const __m256i maximum = Words(limit);
    for (int32_t j = firstOut; j < endOut; ++j) {
        const uint16_t* in = plane + j * stride;
        uint8_t* out = reinterpret_cast<uint8_t*>(plane) + intptr_t(j) * width;
        int32_t x = 0;
        for (; x + 32 <= width; x += 32) {
            const __m256i a = Scale1Bytes(Load(in + x), shift, maximum);
            const __m256i b = Scale1Bytes(Load(in + x + 16), shift, maximum);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x),
                                _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
        }
        if (x < width) {
            const __m256i a = Scale1Bytes(Load(in + x), shift, maximum);
            const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, a), 0xD8);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm256_castsi256_si128(packed));
        }
    }
}

void ReduceScale1Words(uint16_t* plane, intptr_t stride, int32_t width, int32_t firstOut, int32_t endOut,
                       int32_t maxValue) {
    const __m256i four = Words(4);
    const __m256i maximum = Words(maxValue);
    for (int32_t j = firstOut; j < endOut; ++j) {
        uint16_t* row = plane + j * stride;
        for (int32_t x = 0; x < width; x += 16)
            Store(row + x, _mm256_min_epu16(_mm256_srli_epi16(_mm256_add_epi16(Load(row + x), four), 3), maximum));
    }
}

// Scale 2, 64 columns (`vectors` loads of 16) of a row pair: 32 bytes in order.
inline __m256i Scale2Chunk(const uint16_t* row0, const uint16_t* row1, int32_t vectors, __m256i limit) {
    __m256i sums[4];
    for (int32_t k = 0; k < 4; ++k) {
        const __m256i mean = _mm256_srli_epi16(
            _mm256_add_epi16(_mm256_add_epi16(LoadOrZero(row0, k, vectors), LoadOrZero(row1, k, vectors)), Words(1)),
            1);
        const __m256i pair = _mm256_madd_epi16(mean, _mm256_set1_epi16(1));
        sums[k] = _mm256_and_si256(_mm256_srli_epi16(_mm256_add_epi16(pair, Words(8)), 4), LowWords());
    }
    const __m256i low = _mm256_min_epu16(_mm256_packus_epi32(sums[0], sums[1]), limit);
    const __m256i high = _mm256_min_epu16(_mm256_packus_epi32(sums[2], sums[3]), limit);
    // Dwords of four outputs stand lane-interleaved after the two packs.
    return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

// Scale 4, 64 columns of four rows: 16 bytes in order. The sum is linear in 16-bit wrap-around, so the rows
// are added first.
inline __m128i Scale4Chunk(const uint16_t* row, intptr_t stride, int32_t vectors) {
    __m256i sums[4];
    for (int32_t k = 0; k < 4; ++k) {
        __m256i s = LoadOrZero(row, k, vectors);
        for (int32_t n = 1; n < 4; ++n) s = _mm256_add_epi16(s, LoadOrZero(row + n * stride, k, vectors));
        sums[k] = s;
    }
    const __m256i rounding = _mm256_set1_epi32(64);
    // Columns 0-3, 4-7, 16-19, 20-23 | 8-11, 12-15, 24-27, 28-31 and the same from column 32.
    const __m256i first = _mm256_srli_epi16(_mm256_add_epi16(QuadSums(sums[0], sums[1]), rounding), 7);
    const __m256i second = _mm256_srli_epi16(_mm256_add_epi16(QuadSums(sums[2], sums[3]), rounding), 7);
    const __m256i words = _mm256_min_epu16(_mm256_packus_epi32(first, second), Words(255));
    const __m256i bytes = _mm256_packus_epi16(words, words);
    // Lane 0 holds outputs 0, 1, 4, 5, 8, 9, 12, 13, lane 1 the others: interleave byte pairs.
    return _mm_unpacklo_epi16(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
}

// Scale 8, 64 columns of eight rows: 8 bytes in order.
inline __m128i Scale8Chunk(const uint16_t* row, intptr_t stride, int32_t vectors) {
    __m256i total = _mm256_setzero_si256();
    for (int32_t n = 0; n < 8; ++n) {
        const uint16_t* r = row + n * stride;
        const __m256i first = QuadSums(LoadOrZero(r, 0, vectors), LoadOrZero(r, 1, vectors));
        const __m256i second = QuadSums(LoadOrZero(r, 2, vectors), LoadOrZero(r, 3, vectors));
        // Low words: columns 0-7, 16-23, 32-39, 48-55 | 8-15, 24-31, 40-47, 56-63.
        const __m256i eights = _mm256_madd_epi16(_mm256_packus_epi32(first, second), _mm256_set1_epi16(1));
        total = _mm256_add_epi16(total, _mm256_srli_epi16(_mm256_add_epi16(eights, Words(4)), 3));
    }
    const __m256i result = _mm256_and_si256(_mm256_srli_epi16(_mm256_add_epi16(total, Words(32)), 6), LowWords());
    const __m256i words = _mm256_min_epu16(_mm256_packus_epi32(result, result), Words(255));
    const __m256i bytes = _mm256_packus_epi16(words, words);
    return _mm_unpacklo_epi8(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1));
}

// Scale 16, 64 columns of sixteen rows: 4 bytes in order.
inline __m128i Scale16Chunk(const uint16_t* row, intptr_t stride, int32_t vectors) {
    __m128i total = _mm_setzero_si128();
    for (int32_t n = 0; n < 16; ++n) {
        const uint16_t* r = row + n * stride;
        // Rounding added to the low words only keeps the cleared high words zero.
        const __m256i rounding = _mm256_set1_epi32(4);
        const __m256i first = _mm256_srli_epi16(
            _mm256_add_epi16(QuadSums(LoadOrZero(r, 0, vectors), LoadOrZero(r, 1, vectors)), rounding), 3);
        const __m256i second = _mm256_srli_epi16(
            _mm256_add_epi16(QuadSums(LoadOrZero(r, 2, vectors), LoadOrZero(r, 3, vectors)), rounding), 3);
        // Pairs of the 4-column means, lane 0 the first two of each 16 columns, lane 1 the last two.
        const __m256i pairs = _mm256_madd_epi16(_mm256_packus_epi32(first, second), _mm256_set1_epi16(1));
        const __m128i sixteens = _mm_add_epi16(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
        total = _mm_add_epi16(total, _mm_srli_epi16(_mm_add_epi16(sixteens, _mm_set1_epi32(2)), 2));
    }
    const __m128i result =
        _mm_and_si128(_mm_srli_epi16(_mm_add_epi16(total, _mm_set1_epi16(32)), 6), _mm_set1_epi32(0xFFFF));
    const __m128i words = _mm_min_epu16(_mm_packus_epi32(result, result), _mm_set1_epi16(255));
    return _mm_packus_epi16(words, words);
}

void ReduceScale2(uint16_t* plane, intptr_t stride, int32_t width, int32_t firstOut, int32_t endOut, int32_t limit) {
    const __m256i maximum = Words(limit);
    const int32_t outWidth = width / 2;
    for (int32_t j = firstOut; j < endOut; ++j) {
        const uint16_t* row0 = plane + 2 * j * stride;
        const uint16_t* row1 = row0 + stride;
        uint8_t* out = reinterpret_cast<uint8_t*>(plane) + intptr_t(j) * outWidth;
        int32_t x = 0;
        for (; x + 64 <= width; x += 64)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x / 2), Scale2Chunk(row0 + x, row1 + x, 4, maximum));
        if (x < width) {
            const int32_t vectors = (width - x) / 16;
            const __m256i bytes = Scale2Chunk(row0 + x, row1 + x, vectors, maximum);
            StorePart(out + x / 2, _mm256_castsi256_si128(bytes), 8 * vectors < 16 ? 8 * vectors : 16);
            if (vectors == 3) StorePart(out + x / 2 + 16, _mm256_extracti128_si256(bytes, 1), 8);
        }
    }
}

void ReduceBlocks(uint16_t* plane, intptr_t stride, int32_t width, int32_t firstOut, int32_t endOut, int32_t scale) {
    const int32_t outWidth = width / scale;
    const int32_t perChunk = 64 / scale;
    for (int32_t j = firstOut; j < endOut; ++j) {
        const uint16_t* row = plane + intptr_t(j) * scale * stride;
        uint8_t* out = reinterpret_cast<uint8_t*>(plane) + intptr_t(j) * outWidth;
        for (int32_t x = 0; x < width; x += 64) {
            const int32_t vectors = width - x >= 64 ? 4 : (width - x) / 16;
            __m128i bytes;
            if (scale == 4)
                bytes = Scale4Chunk(row + x, stride, vectors);
            else if (scale == 8)
                bytes = Scale8Chunk(row + x, stride, vectors);
            else
                bytes = Scale16Chunk(row + x, stride, vectors);
            uint8_t* o = out + x / scale;
            if (vectors == 4) {
                if (scale == 4)
                    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), bytes);
                else if (scale == 8)
                    _mm_storel_epi64(reinterpret_cast<__m128i*>(o), bytes);
                else {
                    const int32_t four = _mm_cvtsi128_si32(bytes);
                    std::memcpy(o, &four, 4);
                }
            } else {
                StorePart(o, bytes, vectors * perChunk / 4);
            }
        }
    }
}

}  // namespace

void HALoadAvx2(const HAPlanes& planes, const void* src, intptr_t srcStride, bool deep, int32_t firstRow,
                int32_t endRow) {
    const int32_t width = planes.width;
    for (int32_t y = firstRow; y < endRow; ++y) {
        const uint8_t* s = static_cast<const uint8_t*>(src) + y * srcStride;
        const intptr_t offset = y * planes.stride;
        uint16_t* g = planes.g + offset;
        uint16_t* even = planes.even + offset;
        uint16_t* odd = planes.odd + offset;
        for (int32_t x = 0; x < width; x += 16) {
            const __m256i samples =
                deep ? _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 2 * x))
                     : _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + x)));
            const __m256i working = _mm256_slli_epi16(samples, 3);
            Store(g + x, working);
            Store(even + x, working);
            Store(odd + x, working);
        }
        MirrorColumns(even, width);
        MirrorColumns(odd, width);
    }
}

void HAGreenAvx2(const HAPlanes& planes, int32_t firstRow, int32_t endRow) {
    const int32_t firstColour = (planes.phase >> 1) & 1;
    for (int32_t k = 0; k < 2; ++k) {
        // The estimates read the mosaic from a colour plane, which this step leaves untouched.
        const uint16_t* mosaic = k == 0 ? planes.odd : planes.even;
        const bool oddColumns = (firstColour ^ k) != 0;
        for (int32_t y = firstRow + ((firstRow ^ k) & 1); y < endRow; y += 2) {
            const intptr_t offset = y * planes.stride;
            if (oddColumns)
                GreenRow<1>(mosaic + offset, planes.g + offset, planes.stride, planes.width);
            else
                GreenRow<0>(mosaic + offset, planes.g + offset, planes.stride, planes.width);
        }
    }
}

void HAColourAtGreenAvx2(const HAPlanes& planes, int32_t firstRow, int32_t endRow) {
    // The two passes read only real samples of the colour planes, never a site either pass writes, so both
    // run in one sweep over the rows.
    const int32_t firstColour = (planes.phase >> 1) & 1;
    for (int32_t y = firstRow; y < endRow; ++y) {
        const intptr_t offset = y * planes.stride;
        const bool evenRow = (y & 1) == 0;
        uint16_t* own = (evenRow ? planes.even : planes.odd) + offset;
        uint16_t* other = (evenRow ? planes.odd : planes.even) + offset;
        const bool oddGreenColumns = (firstColour ^ (y & 1)) == 0;
        if (oddGreenColumns)
            ColourAtGreenRow<1>(planes.g + offset, own, other, planes.stride, planes.width);
        else
            ColourAtGreenRow<0>(planes.g + offset, own, other, planes.stride, planes.width);
    }
}

void HAColourAtColourAvx2(const HAPlanes& planes, int32_t firstRow, int32_t endRow) {
    const int32_t firstColour = (planes.phase >> 1) & 1;
    for (int32_t y = firstRow; y < endRow; ++y) {
        const intptr_t offset = y * planes.stride;
        // Even rows fill the odd rows' colour, odd rows the even rows' colour.
        uint16_t* x = ((y & 1) == 0 ? planes.odd : planes.even) + offset;
        if ((firstColour ^ (y & 1)) != 0)
            ColourAtColourRow<1>(planes.g + offset, x, planes.stride, planes.width);
        else
            ColourAtColourRow<0>(planes.g + offset, x, planes.stride, planes.width);
    }
}

void HAReduceAvx2(uint16_t* plane, intptr_t stride, int32_t width, int32_t /*height*/, int32_t scale,
                  int32_t inDepth, int32_t outDepth, uint8_t* /*rowScratch*/, int32_t firstOut, int32_t endOut) {
    // The block reductions keep their row sums in registers, a 64-column group at a time: no scratch is needed.
    const int32_t maxValue = static_cast<uint16_t>((outDepth >= 16 ? 0u : 1u << outDepth) - 1u);
    // sat8 after the min with maxValue: one min with the smaller of the two.
    const int32_t byteLimit = maxValue < 255 ? maxValue : 255;
    switch (scale) {
        case 1:
            if (outDepth == 8)
                ReduceScale1Bytes(plane, stride, width, firstOut, endOut, inDepth, byteLimit);
            else
                ReduceScale1Words(plane, stride, width, firstOut, endOut, maxValue);
            break;
        case 2:
            ReduceScale2(plane, stride, width, firstOut, endOut, byteLimit);
            break;
        case 4:
        case 8:
        case 16:
            ReduceBlocks(plane, stride, width, firstOut, endOut, scale);
            break;
        default:
            break;  // other scales leave the plane as it is
    }
}
