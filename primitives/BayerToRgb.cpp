#include "primitives/BayerToRgb.h"

#include "primitives/Dispatch.h"

namespace {

constexpr int red = 0, green = 1, blue = 2;

// Channel of each site of the 2x2 cell, by grid, then row parity, then column parity.
constexpr int channels[4][2][2] = {
    {{blue, green}, {green, red}},  // BGGR
    {{red, green}, {green, blue}},  // RGGB
    {{green, blue}, {red, green}},  // GBRG
    {{green, red}, {blue, green}},  // GRBG
};

// Pixels [xBegin, xEnd) of row y, one by one. Inside the interior green at a chroma site follows the
// smaller gradient; elsewhere it is the four-neighbour mean, and neighbours outside the mosaic mirror
// at its edge without repeating the edge sample.
template <bool interior>
void RowPixels(const BayerJob& job, int32_t y, int32_t xBegin, int32_t xEnd) {
    const int32_t lastRow = job.height - 1, lastColumn = job.width - 1;
    const uint8_t* row = job.In(0, y);
    const uint8_t* up = job.In(0, interior || y > 0 ? y - 1 : 1);
    const uint8_t* down = job.In(0, interior || y < lastRow ? y + 1 : lastRow - 1);
    for (int32_t x = xBegin; x < xEnd; ++x) {
        const int32_t left = interior || x > 0 ? x - 1 : 1;
        const int32_t right = interior || x < lastColumn ? x + 1 : lastColumn - 1;
        uint8_t* out = job.Out(x, y);
        const int own = BayerChannel(job.grid, x & 1, y & 1);
        const int horizontal = row[left] + row[right];
        const int vertical = up[x] + down[x];
        out[own] = row[x];
        if (own == green) {
            const int rowChroma = BayerChannel(job.grid, (x + 1) & 1, y & 1);
            out[rowChroma] = uint8_t((horizontal + 1) >> 1);
            out[2 - rowChroma] = uint8_t((vertical + 1) >> 1);
            continue;
        }
        out[2 - own] = uint8_t((up[left] + up[right] + down[left] + down[right] + 2) >> 2);
        int dV = 0, dH = 0;
        if (interior) {
            const int above = row[x - 2 * job.srcStep], below = row[x + 2 * job.srcStep];
            dV = above > below ? above - below : below - above;
            dH = row[x - 2] > row[x + 2] ? row[x - 2] - row[x + 2] : row[x + 2] - row[x - 2];
        }
        if (dV < dH)
            out[green] = uint8_t((vertical + 1) >> 1);
        else if (dH < dV)
            out[green] = uint8_t((horizontal + 1) >> 1);
        else
            out[green] = uint8_t((horizontal + vertical + 2) >> 2);
    }
}

constexpr auto bayerToRgbForms = PxForms(BayerToRgbScalar, BayerToRgbAvx2, BayerToRgbAvx512);

}  // namespace

PxStatus PxBayerToRgb_8u(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                         int32_t dstStep, int32_t grid, int32_t reserved) {
    return bayerToRgbForms(src, srcRoi, srcSize, srcStep, dst, dstStep, grid, reserved);
}

int BayerChannel(int32_t grid, int32_t xOdd, int32_t yOdd) { return channels[grid][yOdd][xOdd]; }

PxStatus PrepareBayerJob(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                         int32_t dstStep, int32_t grid, BayerJob& job) {
    if (src == nullptr || dst == nullptr || srcRoi == nullptr) return PxStatusNullPointer;
    if (srcSize.width < 2 || srcSize.height < 2) return PxStatusBadSize;
    if (grid < 0 || grid > 3) return PxStatusBadArgument;
    if (srcRoi->x < 0 || srcRoi->y < 0) return PxStatusBadArgument;

    if (int64_t(srcRoi->x) + srcRoi->width > srcSize.width)
        srcRoi->width = srcRoi->x < srcSize.width ? srcSize.width - srcRoi->x : 0;
    if (int64_t(srcRoi->y) + srcRoi->height > srcSize.height)
        srcRoi->height = srcRoi->y < srcSize.height ? srcSize.height - srcRoi->y : 0;
    job = BayerJob{src, srcStep, srcSize.width, srcSize.height, dst, dstStep, grid,
                   srcRoi->x, srcRoi->y, srcRoi->x + srcRoi->width, srcRoi->y + srcRoi->height};
    if (srcRoi->width <= 0 || srcRoi->height <= 0) {
        job.x1 = job.x0;
        job.y1 = job.y0;
        return PxStatusOk;
    }
    if (srcStep < srcSize.width || int64_t(dstStep) < int64_t(srcRoi->width) * 3) return PxStatusBadStep;
    return PxStatusOk;
}

void BayerBorderStrip(const BayerJob& job) {
    const int32_t ix0 = job.InteriorX0(), ix1 = job.InteriorX1();
    const int32_t iy0 = job.InteriorY0(), iy1 = job.InteriorY1();
    for (int32_t y = job.y0; y < job.y1; ++y) {
        if (y < iy0 || y >= iy1 || ix0 >= ix1) {
            RowPixels<false>(job, y, job.x0, job.x1);
            continue;
        }
        RowPixels<false>(job, y, job.x0, ix0);
        RowPixels<false>(job, y, ix1, job.x1);
    }
}

void BayerInteriorPixels(const BayerJob& job, int32_t y, int32_t xBegin, int32_t xEnd) {
    RowPixels<true>(job, y, xBegin, xEnd);
}

PxStatus BayerToRgbScalar(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                          int32_t dstStep, int32_t grid, int32_t) {
    BayerJob job;
    const PxStatus status = PrepareBayerJob(src, srcRoi, srcSize, srcStep, dst, dstStep, grid, job);
    if (status != PxStatusOk || job.x0 == job.x1) return status;
    BayerBorderStrip(job);
    for (int32_t y = job.InteriorY0(); y < job.InteriorY1(); ++y)
        BayerInteriorPixels(job, y, job.InteriorX0(), job.InteriorX1());
    return PxStatusOk;
}
