#include "demosaic/BoxSum.h"

#include "primitives/Px.h"

#include <algorithm>

namespace {

// The window sums of one row, r (at most n) elements to either side. The ring's row parity flips on every row, and a row
// whose turn makes it positive is skipped without writing anything: its ring row keeps its zeros.
//
// The line buffer (n + 2 r + 2 doubles) holds r + 1 zeros, then the running sums: element r + 1 + i sums source
// elements 0 to i, and every element past the last sum stands for the total. Element i of dst is line element i + 2 r + 1
// minus line element i. Both steps run in one upward pass, the difference trailing the running sum by 2 r + 1
// elements, so dst may be the line buffer itself: each line element is read before dst overwrites it.
void BoxSumRow(double* dst, double* line, const double* src, uint32_t n, uint32_t r, int32_t& rowParity) {
    rowParity = -rowParity;
    if (rowParity > 0) return;
    if (r == 0) {
        if (dst != src) PxCopy_64f(src, dst, int32_t(n));
        return;
    }
    for (uint32_t k = 0; k <= r; ++k) line[k] = 0.0;
    double* sums = line + r + 1;
    // The sum starts from +0.0, so a -0.0 source never makes a -0.0 sum.
    double total = 0.0;
    for (uint32_t i = 0; i < r; ++i) {
        total += src[i];
        sums[i] = total;
    }
    for (uint32_t i = r; i < n; ++i) {
        total += src[i];
        sums[i] = total;
        dst[i - r] = total - line[i - r];
    }
    for (uint32_t i = n - r; i < n; ++i) dst[i] = total - line[i];
}

// Whole-row steps of the vertical pass; every operand is a different row.
void AddRows(double* __restrict out, const double* __restrict a, const double* __restrict b, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] = a[i] + b[i];
}

void AddRow(double* __restrict out, const double* __restrict a, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] += a[i];
}

void SubtractRows(double* __restrict out, const double* __restrict a, const double* __restrict b, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] = a[i] - b[i];
}

// out = above + entering - leaving, the addition first.
void SlideRows(double* __restrict out, const double* __restrict above, const double* __restrict entering,
               const double* __restrict leaving, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) out[i] = (above[i] + entering[i]) - leaving[i];
}

// Images lower than the window (fewer than 2 v + 1 rows): every row fits the ring at once, so all rows are fed
// first and each output row then follows from the one above, adding the row entering its window or subtracting
// the row leaving it. No row outside the image is read.
void BoxSumLow(BoxRing& ring, ImageBuffer64& image, uint32_t r, uint32_t v) {
    const uint32_t n = image.width, height = image.height;
    const uint32_t lineLength = ring.buffer.width;
    double* const rows = ring.buffer.data;
    const auto ringRow = [&](uint32_t j) { return rows + size_t(j) * lineLength; };
    const auto out = [&](uint32_t y) { return image.data + size_t(y) * n; };
    for (uint32_t j = 0; j < height; ++j) BoxSumRow(ringRow(j), ringRow(j), out(j), n, r, ring.rowParity);

    const uint32_t lastOfFirst = std::min(v, height - 1);
    if (lastOfFirst == 0) {
        PxCopy_64f(ringRow(0), out(0), int32_t(n));
    } else {
        AddRows(out(0), ringRow(0), ringRow(1), n);
        for (uint32_t j = 2; j <= lastOfFirst; ++j) AddRow(out(0), ringRow(j), n);
    }
    for (uint32_t y = 1; y < height; ++y) {
        if (y + v < height)
            AddRows(out(y), out(y - 1), ringRow(y + v), n);
        else if (y > v)
            SubtractRows(out(y), out(y - 1), ringRow(y - v - 1), n);
        else
            PxCopy_64f(out(y - 1), out(y), int32_t(n));
    }
}

}  // namespace

void BoxSum(BoxRing& ring, ImageBuffer64& image, uint32_t windowWidth, uint32_t windowHeight, int32_t rowParity) {
    if (image.data == nullptr) throw false;
    const uint32_t n = image.width, height = image.height;
    if (n == 0 || height == 0) return;
    // A half-width of n or more already covers the whole row for every element and gives the same bits as any
    // larger one, so the line is kept short.
    const uint32_t r = std::min(windowWidth >> 1, n), v = windowHeight >> 1;
    const bool low = height < 2 * uint64_t(v) + 1;
    const uint32_t lineLength = n + 2 * (r + 1);
    const uint32_t ringRows = low ? height + (height & 1) : 2 * v + 2;  // even: a row returns to its own parity
    if (uint64_t(lineLength) * ringRows * sizeof(double) > UINT32_MAX) throw false;

    ring.rowParity = rowParity;
    ring.buffer.Resize(lineLength, ringRows);
    PxSet_64f(0.0, ring.buffer.data, int32_t(lineLength * ringRows));
    if (v == 0) {
        ring.rowParity = 0;
        for (uint32_t y = 0; y < height; ++y) {
            double* row = image.data + size_t(y) * n;
            BoxSumRow(row, ring.buffer.data, row, n, r, ring.rowParity);
        }
        return;
    }
    if (low) {
        BoxSumLow(ring, image, r, v);
        return;
    }

    // Rows are fed into the ring in order and the results written back into image: an output row trails the
    // row being read by at least v + 1.
    double* const rows = ring.buffer.data;
    const auto ringRow = [&](uint32_t j) { return rows + size_t(j % ringRows) * lineLength; };
    const auto out = [&](uint32_t y) { return image.data + size_t(y) * n; };
    const auto feed = [&](uint32_t j) { BoxSumRow(ringRow(j), ringRow(j), out(j), n, r, ring.rowParity); };

    // Start: output rows 0 to v from source rows 0 to 2 v.
    feed(0);
    feed(1);
    AddRows(out(0), ringRow(0), ringRow(1), n);
    for (uint32_t j = 2; j <= 2 * v; ++j) {
        feed(j);
        if (j <= v)
            AddRow(out(0), ringRow(j), n);
        else
            AddRows(out(j - v), out(j - v - 1), ringRow(j), n);
    }
    // Middle: source row j enters output row j - v's window, row j - 2 v - 1 leaves it. Under a row parity only
    // one of the two can be non-zero, and the skipped one is left out.
    for (uint32_t j = 2 * v + 1; j < height; ++j) {
        feed(j);
        const uint32_t y = j - v;
        const double* entering = ringRow(j);
        const double* leaving = ringRow(j + 1);  // j - 2 v - 1 in a ring of 2 v + 2 rows
        if (ring.rowParity == 0)
            SlideRows(out(y), out(y - 1), entering, leaving, n);
        else if (ring.rowParity < 0)
            AddRows(out(y), out(y - 1), entering, n);
        else
            SubtractRows(out(y), out(y - 1), leaving, n);
    }
    // End: the last v output rows only lose rows; skipped rows subtract the zeros their ring rows hold.
    for (uint32_t y = height - v; y < height; ++y) SubtractRows(out(y), out(y - 1), ringRow(y - v - 1), n);
}
