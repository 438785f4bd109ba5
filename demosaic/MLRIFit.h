// The residual fit of MLRI, streamed down the image. Its chain of whole-plane steps (site masks, fit Laplacians,
// eleven window sums, the line of each window and its error, the weighted mean of the lines, the residual filter)
// runs here row by row: each step takes its rows as soon as the steps before it have made them, so that every
// intermediate plane lives in a ring of a few rows that stays in the cache. The arithmetic, and the order of every
// sum, is that of the whole-plane steps, so the bits are theirs.
#pragma once

#include "demosaic/BoxSum.h"
#include "demosaic/FilterKit.h"
#include "demosaic/ImageBuffer.h"
#include "demosaic/RowRing.h"

#include <cstdint>

class MLRIFit {
public:
    // out estimates raw at every pixel from source: in each window of `window` by `window` pixels the line that
    // best explains the Laplacian (fitKernel, mirrored borders) of raw at the sites of `site` by that of source,
    // with the regularisation epsilon; the lines of all windows over a pixel averaged by the reciprocals of their
    // errors; plus the residual at those sites spread by residualKernel (replicated borders). out is resized; it
    // must be neither source nor raw. Throws false if source and raw differ in size or on a failed allocation.
    void Run(ImageBuffer32& out, const ImageBuffer32& source, const ImageBuffer32& raw, const FilterKernel& fitKernel,
             const FilterKernel& residualKernel, uint32_t site, uint32_t window, double epsilon);

private:
    // The window sums of the first stage, in the order the whole-plane steps make them.
    enum FirstSum : uint32_t {
        sumLapXY,     // Laplacian of x times Laplacian of y
        sumLapXX,     // Laplacian of x squared
        sumY,         // y
        sumX,         // x
        sumCount,     // the sites of the window
        sumXX,        // x squared
        sumXY,        // x times y
        sumYY,        // y squared
        firstSums
    };
    // The window sums of the second stage, over every row: each window's weighted offset, slope and weight.
    enum SecondSum : uint32_t { sumOffset, sumSlope, sumWeight, secondSums };
    static constexpr uint32_t sums = firstSums + secondSums;

    void Reserve(uint32_t width, uint32_t height, uint32_t window, uint32_t fitReach, uint32_t residualReach);
    void MakeSamples(const ImageBuffer32& source, const ImageBuffer32& raw, uint32_t site, uint32_t row);
    void FeedFirstSums(uint32_t site, uint32_t firstRow, uint32_t endRow);
    void FitLine(uint32_t row, double epsilon);
    void MeanLine(ImageBuffer32& out, const ImageBuffer32& source, uint32_t site, uint32_t row);

    RowRing<float> Ring(ImageBuffer32& plane) const { return {plane.data, plane.width, plane.height}; }
    RowRing<double> Ring(ImageBuffer64& plane) const { return {plane.data, plane.width, plane.height}; }

    ImageBuffer32 x, y;        // the samples of source and raw at the sites; y then holds the residual
    ImageBuffer32 lapX, lapY;  // the fit Laplacians of the rows being summed
    ImageBuffer32 spread;      // the residual filtered
    ImageBuffer64 sumRows[sums];
    ImageBuffer64 work;  // two rows of the line fit
    BoxRing boxRings[sums];
    BoxSumStream streams[sums];
    RingFilter fitFilter, residualFilter;
};
