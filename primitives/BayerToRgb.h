// The forms of PxBayerToRgb_8u and what they share: argument checks, the border strip and the
// per-pixel rules that every form's interior must equal.
#pragma once

#include "primitives/Px.h"

#include <cstdint>

// One call, checked and clipped: the region [x0, x1) x [y0, y1) of a width x height mosaic.
struct BayerJob {
    const uint8_t* src;
    int32_t srcStep;
    int32_t width;
    int32_t height;
    uint8_t* dst;  // pixel (x0, y0)
    int32_t dstStep;
    int32_t grid;
    int32_t x0, y0, x1, y1;

    uint8_t* Out(int32_t x, int32_t y) const {
        return dst + static_cast<intptr_t>(y - y0) * dstStep + static_cast<intptr_t>(x - x0) * 3;
    }
    const uint8_t* In(int32_t x, int32_t y) const { return src + static_cast<intptr_t>(y) * srcStep + x; }
    // Interior pixels lie two samples away from every edge; only there is green chosen by gradients.
    int32_t InteriorX0() const { return x0 > 2 ? x0 : 2; }
    int32_t InteriorX1() const { return x1 < width - 2 ? x1 : width - 2; }
    int32_t InteriorY0() const { return y0 > 2 ? y0 : 2; }
    int32_t InteriorY1() const { return y1 < height - 2 ? y1 : height - 2; }
};

// Checks in order (null pointers, sizes, grid, then region and steps), clips srcRoi in place and
// fills job. Ok with an empty region means there is nothing to write.
PxStatus PrepareBayerJob(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                         int32_t dstStep, int32_t grid, BayerJob& job);

// Channel (0 red, 1 green, 2 blue) of the sample at column parity xOdd, row parity yOdd.
int BayerChannel(int32_t grid, int32_t xOdd, int32_t yOdd);

// Every pixel of the region that lies in the two outermost rows or columns, with mirrored neighbours.
void BayerBorderStrip(const BayerJob& job);

// Interior pixels [xBegin, xEnd) of interior row y, one by one: the scalar twin of the wide kernels.
void BayerInteriorPixels(const BayerJob& job, int32_t y, int32_t xBegin, int32_t xEnd);

PxStatus BayerToRgbScalar(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                          int32_t dstStep, int32_t grid, int32_t reserved);
PxStatus BayerToRgbAvx2(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                        int32_t dstStep, int32_t grid, int32_t reserved);
PxStatus BayerToRgbAvx512(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                          int32_t dstStep, int32_t grid, int32_t reserved);
