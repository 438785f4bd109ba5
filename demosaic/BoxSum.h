// Sliding window sums in double precision over whole planes, in time independent of the window size. An image
// that holds data on rows of one parity only is summed in about half the time.
#pragma once

#include "demosaic/ImageBuffer.h"

#include <cstddef>
#include <cstdint>

// Work memory of BoxSum: a ring of row sums, resized on every call (its capacity stays), and the row parity of
// the rows being fed.
struct BoxRing {
    ImageBuffer64 buffer;
    int32_t rowParity = 0;
};

// Replaces every element of image with the sum of the window of windowWidth by windowHeight elements centred on
// it; positions outside the image count as zero and nothing is normalised. An even size acts as the next smaller
// odd one. rowParity above 0 promises that the odd rows are exactly zero, below 0 that the even rows are, and
// skips those rows; 0 makes no promise. The order of the additions is fixed: the vertical pass is a running sum.
// Images lower than the window are summed by the same rule. Throws false if image.data is null or on a failed
// allocation of the ring.
void BoxSum(BoxRing& ring, ImageBuffer64& image, uint32_t windowWidth, uint32_t windowHeight, int32_t rowParity);
