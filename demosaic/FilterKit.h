// The two filter wrappers of the residual algorithms over the filter primitives, with the work memory they share.
#pragma once

#include "demosaic/ImageBuffer.h"
#include "demosaic/RowRing.h"

#include <cstddef>
#include <cstdint>

// Work memory of the filter wrappers: 64-byte aligned, grows only, by reallocation. The destructor releases it.
struct FilterScratch {
    FilterScratch() = default;
    ~FilterScratch();
    FilterScratch(const FilterScratch&) = delete;
    FilterScratch& operator=(const FilterScratch&) = delete;

    // Makes capacity at least `bytes`; the content is kept. A failed reallocation throws false and keeps the block.
    void Grow(uint32_t bytes);

    uint32_t capacity = 0;  // bytes allocated
    uint8_t* data = nullptr;
};

// A filter kernel: width by height coefficients, row by row.
struct FilterKernel {
    uint32_t width;
    uint32_t height;
    const float* coefficients;
};

// Correlation of src with a kernelWidth by kernelHeight kernel (coefficients row by row, not mirrored, centred at
// kernelWidth / 2, kernelHeight / 2) into dst, which is resized to src's size and must be another buffer. Border
// type 1 replicates the edge pixel, 3 mirrors about it without repeating it. Throws false if src.data or kernel
// is null, or if the filter primitives refuse the sizes or the border type; an empty image leaves nothing to do.
void FilterImage(FilterScratch& scratch, ImageBuffer32& dst, const ImageBuffer32& src, int32_t borderType,
                 uint32_t kernelWidth, uint32_t kernelHeight, const float* kernel);

// The mean over the 3 by 3 window of each pixel, the edge pixels replicated outward. Same rules as FilterImage.
void MeanFilter3x3(FilterScratch& scratch, ImageBuffer32& dst, const ImageBuffer32& src);

// FilterImage set up once for planes of one size and run a range of rows at a time on rows held in rings, for
// computations that make and drop a plane's rows in order. Each pixel gets the bits FilterImage gives it.
class RingFilter {
public:
    // Throws false if kernel.coefficients is null, if the filter primitives refuse the sizes or the border type,
    // or on a failed allocation.
    void Setup(uint32_t width, uint32_t height, int32_t borderType, const FilterKernel& kernel);
    // Output rows firstRow to endRow - 1 from src into dst; the source rows these reach through the border rule
    // must be in their places.
    void Rows(const RowRing<float>& src, const RowRing<float>& dst, uint32_t firstRow, uint32_t endRow);
    // How many rows below a pixel its result reads.
    uint32_t ReachBelow() const { return reachBelow; }

private:
    FilterScratch scratch;
    uint32_t width = 0, height = 0, bufferBytes = 0, reachBelow = 0;
    int32_t borderType = 0;
};
