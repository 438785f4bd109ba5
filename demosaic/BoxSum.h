// Sliding window sums in double precision over whole planes, in time independent of the window size. An image
// that holds data on rows of one parity only is summed in about half the time.
#pragma once

#include "demosaic/ImageBuffer.h"
#include "demosaic/RowRing.h"

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

// BoxSum fed a row at a time, for computations that make an image's rows in order and want each window sum as soon
// as it is final. It does the very additions of BoxSum in the same order, so the bits are those of BoxSum on the
// whole image. The image's rows live in a RowRing: a row must be in place before it is fed, and the sums are
// written back in place. The ring must hold every row from the last final one, which the stream reads again as the
// row above the next, to the last row put in; and all rows of an image lower than the window.
class BoxSumStream {
public:
    // Starts the sums of an image of `height` rows of image.width elements; arguments as for BoxSum. Throws false
    // if image.data is null or on a failed allocation of the ring.
    void Begin(BoxRing& ring, const RowRing<double>& image, uint32_t height, uint32_t windowWidth,
               uint32_t windowHeight, int32_t rowParity);
    // Feeds the rows up to endRow - 1 that are not fed yet; returns the number of rows from the top whose sums are
    // final. A row that the row parity skips may be taken before it is in place: it is never read.
    uint32_t FeedThrough(uint32_t endRow);
    uint32_t RowsDone() const { return done; }

private:
    void FeedRow(uint32_t j);

    BoxRing* ring = nullptr;
    RowRing<double> image;
    uint32_t height = 0, r = 0, v = 0, lineLength = 0, ringRows = 0;
    bool low = false;
    uint32_t fed = 0, done = 0;
};
