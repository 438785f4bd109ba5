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

// The column parity of the colour sites of row y.
inline int32_t ColourParity(const HAPlanes& planes, int32_t y) { return ((planes.phase >> 1) & 1) ^ (y & 1); }

// Whether every value of the interpolation fits signed 16-bit lanes.
inline bool Narrow(const HAPlanes& planes) { return planes.sampleDepth <= 8; }

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

// ---- 16-bit lanes over row pairs (samples of up to 8 bits) ----
//
// The sites a step fills in row y lie at one column parity and those in row y + 1 at the other, so the two
// rows' sites make up all 16 words of a 16-column vector. Each operand sits at the same offset from its site in
// both rows: it is loaded from each row and the words of each row's parity taken with a blend. Every value
// then fits signed 16 bits (see HAPlanes::sampleDepth), so the arithmetic of the 32-bit form runs word-wise
// on 16 sites at once.

// The words of `first` at the parity-Q columns and those of `second` at the others.
template <int Q>
inline __m256i Pair(__m256i first, __m256i second) {
    return _mm256_blend_epi16(first, second, Q == 0 ? 0xAA : 0x55);
}

template <int Q>
inline __m256i PairAt(const uint16_t* first, const uint16_t* second) {
    return Pair<Q>(Load(first), Load(second));
}

// The results of a row pair written back: the parity-Q words to the first row, the others to the second.
template <int Q>
inline void StorePair(uint16_t* first, uint16_t* second, __m256i values) {
    Store(first, Pair<Q>(values, Load(first)));
    Store(second, Pair<Q>(Load(second), values));
}

// As Choose, from the sum of two picks: the smaller gradient's estimate twice, or both estimates on a tie. That
// sum is twice T, so one shift by 2 gives T >> 1; it stays within 16 bits as the sum of both estimates does.
inline __m256i Choose16(__m256i estimate1, __m256i estimate2, __m256i gradient1, __m256i gradient2) {
    const __m256i first = _mm256_blendv_epi8(estimate2, estimate1, _mm256_cmpgt_epi16(gradient2, gradient1));
    const __m256i second = _mm256_blendv_epi8(estimate1, estimate2, _mm256_cmpgt_epi16(gradient1, gradient2));
    return _mm256_max_epi16(_mm256_srai_epi16(_mm256_add_epi16(first, second), 2), _mm256_setzero_si256());
}

inline __m256i AlongPair16(__m256i twoGreen, __m256i green1, __m256i green2, __m256i colour1, __m256i colour2) {
    const __m256i laplacian = _mm256_sub_epi16(_mm256_sub_epi16(twoGreen, green1), green2);
    const __m256i sum = _mm256_add_epi16(_mm256_add_epi16(colour1, colour2), laplacian);
    return _mm256_max_epi16(_mm256_srai_epi16(sum, 1), _mm256_setzero_si256());
}

// Columns x - 1 to x + 14 from the vectors of columns x - 16 to x - 1 and x to x + 15.
inline __m256i ShiftInLeft(__m256i previous, __m256i current) {
    return _mm256_alignr_epi8(current, _mm256_permute2x128_si256(previous, current, 0x21), 14);
}

// Green at the sites of rows y and y + 1, whose mosaic rows are `m0` and `m1`; row y's sites have parity Q.
template <int Q>
void GreenRowPair(const uint16_t* m0, const uint16_t* m1, uint16_t* g0, uint16_t* g1, intptr_t stride,
                  int32_t width) {
    for (int32_t x = 0; x < width; x += 16) {
        const auto at = [&](intptr_t offset) { return PairAt<Q>(m0 + x + offset, m1 + x + offset); };
        const __m256i c = at(0);
        const __m256i gl = at(-1), gr = at(1), cl = at(-2), cr = at(2);
        const __m256i gu = at(-stride), gd = at(stride), cu = at(-2 * stride), cd = at(2 * stride);

        const __m256i ch = _mm256_sub_epi16(c, _mm256_srai_epi16(_mm256_add_epi16(cl, cr), 1));
        const __m256i cv = _mm256_sub_epi16(c, _mm256_srai_epi16(_mm256_add_epi16(cu, cd), 1));
        const __m256i hSum = _mm256_add_epi16(_mm256_add_epi16(gl, gr), ch);
        const __m256i vSum = _mm256_add_epi16(_mm256_add_epi16(gu, gd), cv);
        const __m256i h =
            _mm256_add_epi16(_mm256_abs_epi16(_mm256_sub_epi16(gl, gr)), _mm256_slli_epi16(_mm256_abs_epi16(ch), 1));
        const __m256i v =
            _mm256_add_epi16(_mm256_abs_epi16(_mm256_sub_epi16(gu, gd)), _mm256_slli_epi16(_mm256_abs_epi16(cv), 1));
        StorePair<Q>(g0 + x, g1 + x, Choose16(hSum, vSum, h, v));
    }
}

// Both colour steps at rows y and y + 1, whose colour sites have parity Q in row y and the other parity in row
// y + 1. `own0` and `other1` are rows y and y + 1 of the plane of row y's colour, `own1` and `other0` rows
// y + 1 and y of the other colour plane. The own rows get their colour at the green sites from the left and
// right; the other rows get theirs at the green sites from above and below and at the colour sites from the
// diagonals, which fills them completely. The two steps read only real samples of the colour planes, which
// neither writes, so they run together and share their loads. The left neighbours in the own rows are shifted
// in from the previous group's load rather than loaded, as a load one column to the left would partly overlap
// the previous group's store and wait for it to retire.
template <int Q>
void ColourRowPair(const uint16_t* g0, uint16_t* own0, uint16_t* own1, uint16_t* other0, uint16_t* other1,
                   intptr_t stride, int32_t width) {
    constexpr int R = 1 - Q;  // the parity of row y's green sites
    const uint16_t* g1 = g0 + stride;
    const uint16_t* aboveOther0 = other0 - stride;  // row y - 1, real samples of that colour
    const uint16_t* belowOther1 = other1 + stride;  // row y + 2
    __m256i previous0 = _mm256_setzero_si256(), previous1 = _mm256_setzero_si256();
    for (int32_t x = 0; x < width; x += 16) {
        const __m256i current0 = Load(own0 + x), current1 = Load(own1 + x);
        const __m256i left0 = x == 0 ? Load(own0 - 1) : ShiftInLeft(previous0, current0);
        const __m256i left1 = x == 0 ? Load(own1 - 1) : ShiftInLeft(previous1, current1);
        const __m256i right0 = Load(own0 + x + 1), right1 = Load(own1 + x + 1);
        previous0 = current0, previous1 = current1;
        const __m256i green0 = Load(g0 + x), green1 = Load(g1 + x);
        const __m256i greenLeft0 = Load(g0 + x - 1), greenLeft1 = Load(g1 + x - 1);
        const __m256i greenRight0 = Load(g0 + x + 1), greenRight1 = Load(g1 + x + 1);
        const uint16_t* above = g0 + x - stride;
        const uint16_t* below = g1 + x + stride;

        // Colour at the green sites.
        const __m256i twoGreenAtGreen = _mm256_slli_epi16(Pair<R>(green0, green1), 1);
        const __m256i along =
            AlongPair16(twoGreenAtGreen, Pair<R>(greenLeft0, greenLeft1), Pair<R>(greenRight0, greenRight1),
                        Pair<R>(left0, left1), Pair<R>(right0, right1));
        const __m256i across = AlongPair16(twoGreenAtGreen, Pair<R>(Load(above), green0),
                                           Pair<R>(green1, Load(below)), Pair<R>(Load(aboveOther0 + x), current0),
                                           Pair<R>(current1, Load(belowOther1 + x)));

        // Colour at the colour sites of the other colour.
        const __m256i twoGreen = _mm256_slli_epi16(Pair<Q>(green0, green1), 1);
        const __m256i gul = Pair<Q>(Load(above - 1), greenLeft0), gur = Pair<Q>(Load(above + 1), greenRight0);
        const __m256i gdl = Pair<Q>(greenLeft1, Load(below - 1)), gdr = Pair<Q>(greenRight1, Load(below + 1));
        const __m256i xul = Pair<Q>(Load(aboveOther0 + x - 1), left0);
        const __m256i xur = Pair<Q>(Load(aboveOther0 + x + 1), right0);
        const __m256i xdl = Pair<Q>(left1, Load(belowOther1 + x - 1));
        const __m256i xdr = Pair<Q>(right1, Load(belowOther1 + x + 1));
        const __m256i a = _mm256_sub_epi16(_mm256_sub_epi16(twoGreen, gul), gdr);
        const __m256i b = _mm256_sub_epi16(_mm256_sub_epi16(twoGreen, gur), gdl);
        const __m256i sum1 = _mm256_add_epi16(_mm256_add_epi16(xul, xdr), a);
        const __m256i sum2 = _mm256_add_epi16(_mm256_add_epi16(xur, xdl), b);
        const __m256i d1 = _mm256_add_epi16(_mm256_abs_epi16(_mm256_sub_epi16(xul, xdr)), _mm256_abs_epi16(a));
        const __m256i d2 = _mm256_add_epi16(_mm256_abs_epi16(_mm256_sub_epi16(xur, xdl)), _mm256_abs_epi16(b));
        const __m256i diagonal = Choose16(sum1, sum2, d1, d2);

        Store(own0 + x, Pair<R>(along, current0));
        Store(own1 + x, Pair<R>(current1, along));
        Store(other0 + x, Pair<R>(across, diagonal));
        Store(other1 + x, Pair<R>(diagonal, across));
    }
}

// Columns per strip of the row-pair loops. A pair reads up to twelve plane rows, which at full width can exceed
// the L1 cache; within a strip the rows a pair shares with the next are still there when it reads them.
constexpr int32_t stripColumns = 512;

// Calls pair(y, x, columns) for the row pairs from `firstRow` on, a strip of columns at a time, and returns the
// first row left without a partner.
template <class Body>
int32_t ForRowPairs(const HAPlanes& planes, int32_t firstRow, int32_t endRow, Body pair) {
    const int32_t pairsEnd = firstRow + ((endRow - firstRow) & ~1);
    for (int32_t x = 0; x < planes.width; x += stripColumns) {
        const int32_t columns = planes.width - x < stripColumns ? planes.width - x : stripColumns;
        for (int32_t y = firstRow; y < pairsEnd; y += 2) pair(y, x, columns);
    }
    return pairsEnd;
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

// The limit is left to the pack's saturation when `Limit` is false.
template <bool Limit>
inline __m256i Scale1Bytes(__m256i v, __m128i shift, __m256i limit) {
    const __m256i shifted = _mm256_srl_epi16(_mm256_add_epi16(v, Words(4)), shift);
    return Limit ? _mm256_min_epu16(shifted, limit) : shifted;
}

// One byte per sample; a shift count of 16 (input depth outside 5 to 20) gives zero, as the 16-bit shift does.
template <bool Limit>
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
            const __m256i a = Scale1Bytes<Limit>(Load(in + x), shift, maximum);
            const __m256i b = Scale1Bytes<Limit>(Load(in + x + 16), shift, maximum);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x),
                                _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
        }
        if (x < width) {
            const __m256i a = Scale1Bytes<Limit>(Load(in + x), shift, maximum);
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

// Samples of up to 8 bits take the 16-bit path over row pairs; deep samples, and a last row without a partner,
// the 32-bit path a row at a time.
void HAGreenAvx2(const HAPlanes& planes, int32_t firstRow, int32_t endRow) {
    const intptr_t stride = planes.stride;
    int32_t y = firstRow;
    if (Narrow(planes))
        y = ForRowPairs(planes, firstRow, endRow, [&](int32_t row, int32_t x, int32_t columns) {
            // The estimates read the mosaic from a colour plane, which this step leaves untouched: for even rows
            // the odd rows' colour plane, for odd rows the even rows'.
            const intptr_t offset = row * stride + x;
            const bool evenRow = (row & 1) == 0;
            const uint16_t* m0 = (evenRow ? planes.odd : planes.even) + offset;
            const uint16_t* m1 = (evenRow ? planes.even : planes.odd) + offset + stride;
            uint16_t* g0 = planes.g + offset;
            if (ColourParity(planes, row) != 0)
                GreenRowPair<1>(m0, m1, g0, g0 + stride, stride, columns);
            else
                GreenRowPair<0>(m0, m1, g0, g0 + stride, stride, columns);
        });
    for (; y < endRow; ++y) {
        const intptr_t offset = y * stride;
        const uint16_t* mosaic = ((y & 1) == 0 ? planes.odd : planes.even) + offset;
        if (ColourParity(planes, y) != 0)
            GreenRow<1>(mosaic, planes.g + offset, stride, planes.width);
        else
            GreenRow<0>(mosaic, planes.g + offset, stride, planes.width);
    }
}

void HAColourAvx2(const HAPlanes& planes, int32_t firstRow, int32_t endRow) {
    // Each step reads only real samples of the colour planes, never a site either step writes, so both run in
    // one sweep over the rows.
    const intptr_t stride = planes.stride;
    int32_t y = firstRow;
    if (Narrow(planes))
        y = ForRowPairs(planes, firstRow, endRow, [&](int32_t row, int32_t x, int32_t columns) {
            const intptr_t offset = row * stride + x;
            const bool evenRow = (row & 1) == 0;
            uint16_t* own0 = (evenRow ? planes.even : planes.odd) + offset;
            uint16_t* other0 = (evenRow ? planes.odd : planes.even) + offset;
            if (ColourParity(planes, row) != 0)
                ColourRowPair<1>(planes.g + offset, own0, other0 + stride, other0, own0 + stride, stride, columns);
            else
                ColourRowPair<0>(planes.g + offset, own0, other0 + stride, other0, own0 + stride, stride, columns);
        });
    for (; y < endRow; ++y) {
        const intptr_t offset = y * stride;
        const bool evenRow = (y & 1) == 0;
        uint16_t* own = (evenRow ? planes.even : planes.odd) + offset;
        uint16_t* other = (evenRow ? planes.odd : planes.even) + offset;
        // Green sites lie where the row's colour sites do not; the other colour fills the colour sites.
        if (ColourParity(planes, y) == 0) {
            ColourAtGreenRow<1>(planes.g + offset, own, other, stride, planes.width);
            ColourAtColourRow<0>(planes.g + offset, other, stride, planes.width);
        } else {
            ColourAtGreenRow<0>(planes.g + offset, own, other, stride, planes.width);
            ColourAtColourRow<1>(planes.g + offset, other, stride, planes.width);
        }
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
            // A shift by at least 1 leaves at most 0x7FFF, which the pack's signed saturation limits to 255.
            if (outDepth == 8 && byteLimit == 255 && inDepth >= 6)
                ReduceScale1Bytes<false>(plane, stride, width, firstOut, endOut, inDepth, byteLimit);
            else if (outDepth == 8)
                ReduceScale1Bytes<true>(plane, stride, width, firstOut, endOut, inDepth, byteLimit);
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
