// The two filter wrappers of the residual algorithms over the filter primitives, with the work memory they share.
#pragma once

#include "demosaic/ImageBuffer.h"

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

// Correlation of src with a kernelWidth by kernelHeight kernel (coefficients row by row, not mirrored, centred at
// kernelWidth / 2, kernelHeight / 2) into dst, which is resized to src's size and must be another buffer. Border
// type 1 replicates the edge pixel, 3 mirrors about it without repeating it. Throws false if src.data or kernel
// is null, or if the filter primitives refuse the sizes or the border type; an empty image leaves nothing to do.
void FilterImage(FilterScratch& scratch, ImageBuffer32& dst, const ImageBuffer32& src, int32_t borderType,
                 uint32_t kernelWidth, uint32_t kernelHeight, const float* kernel);

// The mean over the 3 by 3 window of each pixel, the edge pixels replicated outward. Same rules as FilterImage.
void MeanFilter3x3(FilterScratch& scratch, ImageBuffer32& dst, const ImageBuffer32& src);
