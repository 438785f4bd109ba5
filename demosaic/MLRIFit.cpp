#include "demosaic/MLRIFit.h"

#include "demosaic/SiteMasks.h"
#include "primitives/Px.h"

#include <algorithm>

namespace {

// The site count of a window without samples, and the floor of a window's error: 1e-9 in single precision.
constexpr double countFloor = 1e-32;
constexpr double errorFloor = double(1e-9f);

// Rows of the residual spread at a time.
constexpr uint32_t spreadRows = 4;

}  // namespace

// Ring sizes follow from how far each step trails the newest sample row (see Run): a window sum holds its rows
// from the last final one to the last one put in, at most v + 5 under the pace of Run, and all rows of an image
// lower than the window; y is read until the residual spread has passed it, about 2 v + fitReach + 2
// residualReach + 7 rows behind the newest row.
void MLRIFit::Reserve(uint32_t width, uint32_t height, uint32_t window, uint32_t fitReach, uint32_t residualReach) {
    const uint32_t v = window >> 1;
    const uint32_t windowSumRows = std::min(height, std::max(v + 6, 2 * v + 1));
    x.Resize(width, std::min(height, 2 * fitReach + 6));
    y.Resize(width, std::min(height, 2 * v + fitReach + 2 * residualReach + 12));
    lapX.Resize(width, std::min(height, 2u));
    lapY.Resize(width, std::min(height, 2u));
    spread.Resize(width, std::min(height, spreadRows));
    work.Resize(width, 2);
    for (ImageBuffer64& rows : sumRows) rows.Resize(width, windowSumRows);
}

void MLRIFit::MakeSamples(const ImageBuffer32& source, const ImageBuffer32& raw, uint32_t site, uint32_t row) {
    const size_t offset = size_t(row) * source.width;
    MaskRowBySites(Ring(x).Row(row), source.data + offset, site, row, source.width);
    MaskRowBySites(Ring(y).Row(row), raw.data + offset, site, row, source.width);
}

// The fit Laplacians of rows firstRow to endRow - 1 and the products the first window sums take from them. Rows
// of the other parity than the site's are zero in every one of these planes and the sums skip them, so they are
// not made.
void MLRIFit::FeedFirstSums(uint32_t site, uint32_t firstRow, uint32_t endRow) {
    const uint32_t n = x.width;
    const int32_t p = RowParity(site);
    for (uint32_t k = firstRow; k < endRow; ++k) {
        if ((p > 0 && (k & 1) != 0) || (p < 0 && (k & 1) == 0)) continue;
        fitFilter.Rows(Ring(x), Ring(lapX), k, k + 1);
        fitFilter.Rows(Ring(y), Ring(lapY), k, k + 1);
        const float *xk = Ring(x).Row(k), *yk = Ring(y).Row(k);
        const float *lapXk = Ring(lapX).Row(k), *lapYk = Ring(lapY).Row(k);
        const auto row = [&](FirstSum s) { return Ring(sumRows[s]).Row(k); };
        ProductToDouble(row(sumLapXY), lapXk, lapYk, n);
        SquareToDouble(row(sumLapXX), lapXk, n);
        PxConvert_32f64f(yk, row(sumY), int32_t(n));
        PxConvert_32f64f(xk, row(sumX), int32_t(n));
        FillSitePatternRow(row(sumCount), site, k, n);
        SquareToDouble(row(sumXX), xk, n);
        ProductToDouble(row(sumXY), xk, yk, n);
        SquareToDouble(row(sumYY), yk, n);
    }
    for (uint32_t s = 0; s < firstSums; ++s) streams[s].FeedThrough(endRow);
}

// The line of each window on one row, from the first window sums, weighted by the reciprocal of its error: the
// whole-plane steps with their operations and operand order, the sums read in place and left as they are (the
// stream still needs them) and the results written where the second window sums take them.
void MLRIFit::FitLine(uint32_t row, double epsilon) {
    const int32_t n = int32_t(x.width);
    const auto first = [&](FirstSum s) { return Ring(sumRows[s]).Row(row); };
    double* const offset = Ring(sumRows[firstSums + sumOffset]).Row(row);
    double* const slope = Ring(sumRows[firstSums + sumSlope]).Row(row);
    double* const error = Ring(sumRows[firstSums + sumWeight]).Row(row);
    double* const sum = work.data;
    double* const count = work.data + n;

    PxCopy_64f(first(sumLapXX), sum, n);
    PxAddC_64f_I(epsilon, sum, n);
    PxDiv_64f(sum, first(sumLapXY), slope, n);
    PxMul_64f(first(sumX), slope, error, n);  // the slope times the sum of x, held in error for the moment
    PxSub_64f(error, first(sumY), offset, n);
    PxCopy_64f(first(sumCount), count, n);
    PxThresholdLT_64f_I(count, n, countFloor);
    PxInv_64f(count, count, n);
    PxMul_64f_I(count, offset, n);

    PxMul_64f(first(sumXX), slope, error, n);
    PxAdd_64f(first(sumXY), first(sumXY), sum, n);  // doubled: x + x has the bits of 2 x
    PxSub_64f_I(sum, error, n);
    PxMul_64f_I(slope, error, n);
    PxAdd_64f_I(first(sumYY), error, n);
    PxMul_64f_I(count, error, n);
    PxSqr_64f(offset, sum, n);
    PxSub_64f_I(sum, error, n);

    double* const weight = error;
    PxThresholdLT_64f_I(weight, n, errorFloor);
    PxInv_64f(weight, weight, n);
    PxMul_64f_I(weight, offset, n);
    PxMul_64f_I(weight, slope, n);
}

// Row `row` of out, the weighted mean of the lines over each pixel, clamped at 0; and of y, the residual there.
void MLRIFit::MeanLine(ImageBuffer32& out, const ImageBuffer32& source, uint32_t site, uint32_t row) {
    const int32_t n = int32_t(x.width);
    const size_t offset = size_t(row) * source.width;
    double* const mean = work.data;
    PxConvert_32f64f(source.data + offset, mean, n);
    PxMul_64f_I(Ring(sumRows[firstSums + sumSlope]).Row(row), mean, n);
    PxAdd_64f_I(Ring(sumRows[firstSums + sumOffset]).Row(row), mean, n);
    PxDiv_64f_I(Ring(sumRows[firstSums + sumWeight]).Row(row), mean, n);
    float* const outRow = out.data + offset;
    PxConvert_64f32f(mean, outRow, n);
    // Only the fit is clamped: the residual added later restores a sampled site exactly.
    PxThresholdLT_32f_I(outRow, n, 0.0f);
    SubtractRowBySites(Ring(y).Row(row), outRow, site, row, uint32_t(n));
}

// Each pass makes two sample rows and lets every later step take the rows that have become possible for it: the
// fit Laplacians once their reach is in, a window's line once its sums are final, a pixel's mean line once the
// second sums over it are final, the residual spread once its reach is in. Nothing trails the newest sample row
// by more than the rings hold.
void MLRIFit::Run(ImageBuffer32& out, const ImageBuffer32& source, const ImageBuffer32& raw,
                  const FilterKernel& fitKernel, const FilterKernel& residualKernel, uint32_t site, uint32_t window,
                  double epsilon) {
    if (source.data == nullptr || raw.data == nullptr || source.Size() != raw.Size()) throw false;
    const uint32_t width = source.width, height = source.height;
    out.Resize(width, height);
    if (width == 0 || height == 0) return;
    fitFilter.Setup(width, height, PxBorderMirror, fitKernel);
    residualFilter.Setup(width, height, PxBorderReplicate, residualKernel);
    const uint32_t fitReach = fitFilter.ReachBelow(), residualReach = residualFilter.ReachBelow();
    Reserve(width, height, window, fitReach, residualReach);
    const int32_t p = RowParity(site);
    for (uint32_t s = 0; s < sums; ++s)
        streams[s].Begin(boxRings[s], Ring(sumRows[s]), height, window, window, s < firstSums ? p : 0);

    uint32_t made = 0, laplaced = 0, fitted = 0, meant = 0, spreadDone = 0;
    while (spreadDone < height) {
        for (const uint32_t end = std::min(height, made + 2); made < end; ++made) MakeSamples(source, raw, site, made);

        const uint32_t lapEnd = made == height ? height : (made > fitReach ? (made - fitReach) & ~1u : 0);
        if (lapEnd > laplaced) {
            FeedFirstSums(site, laplaced, lapEnd);
            laplaced = lapEnd;
        }

        for (const uint32_t end = streams[0].RowsDone(); fitted < end;) {
            FitLine(fitted, epsilon);
            ++fitted;
            for (uint32_t s = firstSums; s < sums; ++s) streams[s].FeedThrough(fitted);
            for (const uint32_t final = streams[firstSums].RowsDone(); meant < final; ++meant)
                MeanLine(out, source, site, meant);
        }

        const uint32_t spreadEnd = meant == height ? height : (meant > residualReach ? meant - residualReach : 0);
        while (spreadDone < spreadEnd) {
            const uint32_t end = std::min(spreadEnd, spreadDone + spreadRows);
            residualFilter.Rows(Ring(y), Ring(spread), spreadDone, end);
            for (; spreadDone < end; ++spreadDone)
                PxAdd_32f_I(Ring(spread).Row(spreadDone), out.data + size_t(spreadDone) * width, int32_t(width));
        }
    }
}
