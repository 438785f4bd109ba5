// The guided filter of the residual algorithms: in every window a straight line from a guide plane to a target
// plane, fitted over the sampled sites; the fits of all windows over a pixel are averaged, each weighted by the
// reciprocal root of its own mean squared error, and the averaged line is evaluated at the pixel. Statistics are
// double planes; inputs and outputs are float planes of raw sensor units, epsilon is in those units squared.
//
// Every operation throws false on null data, operands of different sizes or a failed allocation, and the fitting
// operations also on a width that is no multiple of 8 or an odd height, which the site operations cannot cover;
// every buffer is released while the exception unwinds. Empty operands give empty outputs. Outputs must be
// buffers other than the inputs.
#pragma once

#include "demosaic/BoxSum.h"
#include "demosaic/FilterKit.h"
#include "demosaic/ImageBuffer.h"

#include <cstddef>
#include <cstdint>

class GuidedFilter {
public:
    GuidedFilter(uint32_t windowWidth, uint32_t windowHeight, uint32_t vertical, double epsilon)
        : windowWidth(windowWidth), windowHeight(windowHeight), vertical(vertical), epsilon(epsilon) {}
    GuidedFilter(const GuidedFilter&) = delete;
    GuidedFilter& operator=(const GuidedFilter&) = delete;

    // Window means over the sites of pattern: meanFirst, meanSecond, meanSqFirst, meanSqSecond and cross (the
    // mean product). A window without a sampled site counts 1e-32 sites, so its means are 0.
    void ComputeMeans(const ImageBuffer32& first, const ImageBuffer32& second, uint32_t pattern);
    // first holds real samples at patternA, second at patternB (two sites of one row or one column). outFirst
    // estimates first from second and outSecond second from first, with slopes from the covariance; both are
    // zero off the sites of patternA | patternB.
    void FilterPairPlain(ImageBuffer32& outFirst, ImageBuffer32& outSecond, const ImageBuffer32& first,
                         const ImageBuffer32& second, uint32_t patternA, uint32_t patternB);
    // The same with each slope from the line Laplacians (-1, 0, 2, 0, -1), along the rows or, when vertical is
    // 1, the columns, summed over the sites where the target has real samples.
    void FilterPairLaplacian(ImageBuffer32& outFirst, ImageBuffer32& outSecond, const ImageBuffer32& first,
                             const ImageBuffer32& second, uint32_t patternA, uint32_t patternB);
    // out estimates raw's colour at every pixel from green, fitted over the sites of pattern with slopes from
    // the two-dimensional Laplacians (4 in the centre, -1 two pixels away in each direction). out is not masked.
    void FilterColour(ImageBuffer32& out, const ImageBuffer32& raw, const ImageBuffer32& green, uint32_t pattern);
    // Evaluates the weighted average of the window lines in slope and offset at guide into out. Needs slope,
    // offset, meanSqFirst, meanSqSecond and cross (twice the mean product) of guide's size.
    void ApplyWeighted(ImageBuffer32& out, const ImageBuffer32& guide);

    uint32_t windowWidth;
    uint32_t windowHeight;
    uint32_t vertical;  // orientation of the line Laplacian of FilterPairLaplacian
    double epsilon;     // regularisation of every slope
    ImageBuffer64 work;
    ImageBuffer64 denominator;
    ImageBuffer64 meanFirst;
    ImageBuffer64 meanSecond;
    ImageBuffer64 meanSqFirst;
    ImageBuffer64 meanSqSecond;
    ImageBuffer64 cross;
    ImageBuffer64 offset;
    ImageBuffer64 slope;
    FilterScratch filterScratch;
    BoxRing boxRing;

private:
    void Sum(ImageBuffer64& plane, int32_t rowParity);
    void SizeFit();
    void FitOffset(size_t offsetOfStrip, int32_t count);
    void FitSlopeOverOffset();
    // ApplyWeighted, with out masked to the sites of pattern when masked is set.
    void Apply(ImageBuffer32& out, const ImageBuffer32& guide, bool masked, uint32_t pattern);
};
