// The interior of PxBayerToRgb_8u in wide steps, written once over a vector-lanes type and
// instantiated by each wide form in its own file. Everything here has internal linkage, so code
// compiled for one instruction set never stands in for another's.
#pragma once

#include "primitives/BayerToRgb.h"

#include <immintrin.h>

#include <cstddef>

namespace {

// pshufb masks that interleave 16 red, 16 green and 16 blue bytes into 48 bytes of RGB, used in
// every 128-bit lane of a wide register: [channel][output chunk][byte].
alignas(16) const int8_t rgbInterleave[3][3][16] = {
    {{0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1, -1, 5},
     {-1, -1, 6, -1, -1, 7, -1, -1, 8, -1, -1, 9, -1, -1, 10, -1},
     {-1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15, -1, -1}},
    {{-1, 0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1, -1},
     {5, -1, -1, 6, -1, -1, 7, -1, -1, 8, -1, -1, 9, -1, -1, 10},
     {-1, -1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15, -1}},
    {{-1, -1, 0, -1, -1, 1, -1, -1, 2, -1, -1, 3, -1, -1, 4, -1},
     {-1, 5, -1, -1, 6, -1, -1, 7, -1, -1, 8, -1, -1, 9, -1, -1},
     {10, -1, -1, 11, -1, -1, 12, -1, -1, 13, -1, -1, 14, -1, -1, 15}},
};

// The 5x5 neighbourhood a row of interior pixels needs, one sample per byte lane.
template <class V>
struct Neighbourhood {
    typename V::Vec own, left, right, left2, right2;  // this row
    typename V::Vec up, upLeft, upRight, up2;          // rows above
    typename V::Vec down, downLeft, downRight, down2;  // rows below
};

// (a + b + c + d + 2) >> 2 exactly, in bytes, from the rounded pair means ab = avg(a, b) and
// cd = avg(c, d): their mean is one too high when a pair lost a half and ab + cd is odd.
template <class V>
inline typename V::Vec MeanOfFour(typename V::Vec a, typename V::Vec b, typename V::Vec ab, typename V::Vec c,
                                  typename V::Vec d, typename V::Vec cd) {
    const typename V::Vec lostHalf = V::Or(V::Xor(a, b), V::Xor(c, d));
    const typename V::Vec correction = V::And(V::And(lostHalf, V::Xor(ab, cd)), V::Set(1));
    return V::Sub(V::Avg(ab, cd), correction);
}

// Red, green and blue of V::lanes interior pixels. lane0Green: lane 0 is a green site; chromaIsRed:
// the chroma samples of this row are red.
template <class V, bool lane0Green, bool chromaIsRed>
inline void InteriorRgb(const Neighbourhood<V>& n, typename V::Vec& red, typename V::Vec& greenOut,
                        typename V::Vec& blue) {
    using Vec = typename V::Vec;
    const Vec horizontal = V::Avg(n.left, n.right);
    const Vec vertical = V::Avg(n.up, n.down);
    const Vec diagonal = MeanOfFour<V>(n.upLeft, n.upRight, V::Avg(n.upLeft, n.upRight), n.downLeft, n.downRight,
                                       V::Avg(n.downLeft, n.downRight));
    const Vec cross = MeanOfFour<V>(n.left, n.right, horizontal, n.up, n.down, vertical);
    const Vec dV = V::AbsDiff(n.up2, n.down2);
    const Vec dH = V::AbsDiff(n.left2, n.right2);
    // The smaller gradient picks its direction; a tie keeps the four-neighbour mean.
    const auto verticalAtLeast = V::GreaterOrEqual(dV, dH);
    const auto tie = V::Equal(dV, dH);
    const Vec chromaGreen = V::Select(tie, cross, V::Select(verticalAtLeast, horizontal, vertical));

    greenOut = V::template SelectLanes<lane0Green>(n.own, chromaGreen);
    const Vec rowChroma = V::template SelectLanes<lane0Green>(horizontal, n.own);
    const Vec otherChroma = V::template SelectLanes<lane0Green>(vertical, diagonal);
    red = chromaIsRed ? rowChroma : otherChroma;
    blue = chromaIsRed ? otherChroma : rowChroma;
}

// Two interior rows y and y + 1 from column x, V::lanes pixels each, sharing their loads.
template <class V, bool lane0Green, bool chromaIsRed>
inline void InteriorPair(const BayerJob& job, int32_t x, int32_t y, uint8_t* outA, uint8_t* outB) {
    const ptrdiff_t step = job.srcStep;
    const uint8_t* r0 = job.In(x, y);  // row y
    const uint8_t* r1 = r0 + step;     // row y + 1
    Neighbourhood<V> a, b;
    a.left2 = V::Load(r0 - 2), a.left = V::Load(r0 - 1), a.own = V::Load(r0), a.right = V::Load(r0 + 1);
    a.right2 = V::Load(r0 + 2);
    b.left2 = V::Load(r1 - 2), b.left = V::Load(r1 - 1), b.own = V::Load(r1), b.right = V::Load(r1 + 1);
    b.right2 = V::Load(r1 + 2);
    a.up2 = V::Load(r0 - 2 * step);
    a.upLeft = V::Load(r0 - step - 1), a.up = V::Load(r0 - step), a.upRight = V::Load(r0 - step + 1);
    a.downLeft = b.left, a.down = b.own, a.downRight = b.right;
    a.down2 = V::Load(r1 + step);
    b.up2 = a.up;
    b.upLeft = a.left, b.up = a.own, b.upRight = a.right;
    b.downLeft = V::Load(r1 + step - 1), b.down = a.down2, b.downRight = V::Load(r1 + step + 1);
    b.down2 = V::Load(r1 + 2 * step);

    typename V::Vec red, green, blue;
    InteriorRgb<V, lane0Green, chromaIsRed>(a, red, green, blue);
    V::StoreRgb(red, green, blue, outA);
    InteriorRgb<V, !lane0Green, !chromaIsRed>(b, red, green, blue);
    V::StoreRgb(red, green, blue, outB);
}

template <class V, bool lane0Green, bool chromaIsRed>
inline void InteriorSingle(const BayerJob& job, int32_t x, int32_t y, uint8_t* out) {
    const ptrdiff_t step = job.srcStep;
    const uint8_t* r = job.In(x, y);
    Neighbourhood<V> n;
    n.left2 = V::Load(r - 2), n.left = V::Load(r - 1), n.own = V::Load(r), n.right = V::Load(r + 1);
    n.right2 = V::Load(r + 2);
    n.up2 = V::Load(r - 2 * step);
    n.upLeft = V::Load(r - step - 1), n.up = V::Load(r - step), n.upRight = V::Load(r - step + 1);
    n.downLeft = V::Load(r + step - 1), n.down = V::Load(r + step), n.downRight = V::Load(r + step + 1);
    n.down2 = V::Load(r + 2 * step);
    typename V::Vec red, green, blue;
    InteriorRgb<V, lane0Green, chromaIsRed>(n, red, green, blue);
    V::StoreRgb(red, green, blue, out);
}

// Interior rows in pairs, an odd last row alone; wide steps from x0, the last one moved back (by an
// even count, keeping the kernel's phase) to end at or one short of x1.
template <class V, bool lane0Green, bool chromaIsRed>
void InteriorRows(const BayerJob& job, int32_t x0, int32_t x1, int32_t y0, int32_t y1) {
    int32_t last = x1 - V::lanes;
    last -= (last - x0) & 1;
    int32_t y = y0;
    for (; y + 1 < y1; y += 2) {
        for (int32_t x = x0; x < last; x += V::lanes)
            InteriorPair<V, lane0Green, chromaIsRed>(job, x, y, job.Out(x, y), job.Out(x, y + 1));
        InteriorPair<V, lane0Green, chromaIsRed>(job, last, y, job.Out(last, y), job.Out(last, y + 1));
    }
    if (y < y1) {
        for (int32_t x = x0; x < last; x += V::lanes) InteriorSingle<V, lane0Green, chromaIsRed>(job, x, y, job.Out(x, y));
        InteriorSingle<V, lane0Green, chromaIsRed>(job, last, y, job.Out(last, y));
    }
}

// A whole call: checks, border strip per pixel, interior in wide steps.
template <class V>
PxStatus BayerToRgbWide(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                        int32_t dstStep, int32_t grid) {
    BayerJob job;
    const PxStatus status = PrepareBayerJob(src, srcRoi, srcSize, srcStep, dst, dstStep, grid, job);
    if (status != PxStatusOk || job.x0 == job.x1) return status;
    BayerBorderStrip(job);
    const int32_t x0 = job.InteriorX0(), x1 = job.InteriorX1(), y0 = job.InteriorY0(), y1 = job.InteriorY1();
    if (x0 >= x1 || y0 >= y1) return PxStatusOk;
    // Interiors narrower than one step, and the column a moved-back last step may leave, go by the twin.
    if (x1 - x0 <= V::lanes) {
        for (int32_t y = y0; y < y1; ++y) BayerInteriorPixels(job, y, x0, x1);
        return PxStatusOk;
    }

    // One of four kernels, by where the 2x2 cell stands relative to the first interior pixel.
    const bool lane0Green = BayerChannel(grid, x0 & 1, y0 & 1) == 1;
    const bool chromaIsRed = BayerChannel(grid, (x0 + (lane0Green ? 1 : 0)) & 1, y0 & 1) == 0;
    if (lane0Green && chromaIsRed)
        InteriorRows<V, true, true>(job, x0, x1, y0, y1);
    else if (lane0Green)
        InteriorRows<V, true, false>(job, x0, x1, y0, y1);
    else if (chromaIsRed)
        InteriorRows<V, false, true>(job, x0, x1, y0, y1);
    else
        InteriorRows<V, false, false>(job, x0, x1, y0, y1);

    if (((x1 - V::lanes - x0) & 1) != 0)
        for (int32_t y = y0; y < y1; ++y) BayerInteriorPixels(job, y, x1 - 1, x1);
    return PxStatusOk;
}

}  // namespace
