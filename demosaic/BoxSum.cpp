#include "demosaic/BoxSum.h"

#include "primitives/Px.h"

#include <algorithm>

namespace {

// The window sums of one row, r (1 to n) elements to either side, with `vertical(i, sum)` called for each element
// in ascending order once its sum is final: the vertical pass of the same column rides along, hidden in the latency
// of the running sum.
//
// The line buffer (n + 2 r + 2 doubles) gets r + 1 zeros, then the running sums (element r + 1 + i sums source
// elements 0 to i), then r + 1 copies of the total. The window sum of element i is line element i + 2 r + 1 minus line
// element i; `vertical` may write it into the line itself, or into src, since both lag behind the running sum.
template <class Vertical>
inline void SumRow(double* line, const double* src, uint32_t n, uint32_t r, Vertical vertical) {
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
        vertical(i - r, total - line[i - r]);
    }
    for (uint32_t k = 0; k <= r; ++k) sums[n + k] = total;
    for (uint32_t i = n - r; i < n; ++i) vertical(i, total - line[i]);
}

// A ring row as the vertical pass reads it. With r above 0 the ring keeps each row's line buffer and a window sum is
// the difference of two of its elements, taken afresh on every read, so that feeding a row stores the line only;
// with r = 0 the ring keeps the source row itself.
class RingRows {
public:
    RingRows(double* rows, uint32_t lineLength, uint32_t count, uint32_t r)
        : rows(rows), lineLength(lineLength), count(count), span(r == 0 ? 0 : 2 * r + 1) {}

    double* Line(uint32_t j) const { return rows + size_t(j % count) * lineLength; }
    double Sum(const double* line, uint32_t i) const { return span == 0 ? line[i] : line[i + span] - line[i]; }

    // Feeds source row j, or skips it by the ring's row parity, which flips on every row: a row whose turn makes
    // it positive is skipped without writing anything, so its ring row keeps its zeros.
    template <class Vertical>
    void Feed(uint32_t j, const double* src, uint32_t n, int32_t& rowParity, Vertical vertical) const {
        rowParity = -rowParity;
        if (rowParity > 0) return;
        double* line = Line(j);
        if (span == 0) {
            PxCopy_64f(src, line, int32_t(n));
            for (uint32_t i = 0; i < n; ++i) vertical(i, line[i]);
        } else {
            SumRow(line, src, n, span >> 1, vertical);
        }
    }

    // Whole-row steps of the vertical pass; `out` may be `above`.
    void Add(double* out, const double* above, const double* entering, uint32_t n) const {
        if (span == 0)
            for (uint32_t i = 0; i < n; ++i) out[i] = above[i] + entering[i];
        else
            for (uint32_t i = 0; i < n; ++i) out[i] = above[i] + (entering[i + span] - entering[i]);
    }
    void Subtract(double* out, const double* above, const double* leaving, uint32_t n) const {
        if (span == 0)
            for (uint32_t i = 0; i < n; ++i) out[i] = above[i] - leaving[i];
        else
            for (uint32_t i = 0; i < n; ++i) out[i] = above[i] - (leaving[i + span] - leaving[i]);
    }
    // out = ring row a + ring row b.
    void Pair(double* out, const double* a, const double* b, uint32_t n) const {
        for (uint32_t i = 0; i < n; ++i) out[i] = Sum(a, i) + Sum(b, i);
    }

private:
    double* const rows;
    const uint32_t lineLength, count, span;
};

constexpr auto noVertical = [](uint32_t, double) {};

// Images lower than the window (fewer than 2 v + 1 rows): every row fits the ring at once, so all rows are fed
// first and each output row then follows from the one above, adding the row entering its window or subtracting
// the row leaving it. No row outside the image is read.
void BoxSumLow(const RowRing<double>& image, uint32_t height, const RingRows& rows, uint32_t v) {
    const uint32_t n = image.width;
    const auto out = [&](uint32_t y) { return image.Row(y); };
    const uint32_t lastOfFirst = std::min(v, height - 1);
    if (lastOfFirst == 0) {
        for (uint32_t i = 0; i < n; ++i) out(0)[i] = rows.Sum(rows.Line(0), i);
    } else {
        rows.Pair(out(0), rows.Line(0), rows.Line(1), n);
        for (uint32_t j = 2; j <= lastOfFirst; ++j) rows.Add(out(0), out(0), rows.Line(j), n);
    }
    for (uint32_t y = 1; y < height; ++y) {
        if (y + v < height)
            rows.Add(out(y), out(y - 1), rows.Line(y + v), n);
        else if (y > v)
            rows.Subtract(out(y), out(y - 1), rows.Line(y - v - 1), n);
        else
            PxCopy_64f(out(y - 1), out(y), int32_t(n));
    }
}

}  // namespace

void BoxSumStream::Begin(BoxRing& boxRing, const RowRing<double>& rowsOfImage, uint32_t imageHeight,
                         uint32_t windowWidth, uint32_t windowHeight, int32_t rowParity) {
    if (rowsOfImage.data == nullptr) throw false;
    ring = &boxRing;
    image = rowsOfImage;
    height = imageHeight;
    fed = done = 0;
    const uint32_t n = image.width;
    if (n == 0 || height == 0) {
        done = fed = height;
        return;
    }
    // A half-width of n or more already covers the whole row for every element and gives the same bits as any
    // larger one, so the line is kept short.
    r = std::min(windowWidth >> 1, n);
    v = windowHeight >> 1;
    low = height < 2 * uint64_t(v) + 1;
    lineLength = n + 2 * (r + 1);
    ringRows = low ? height + (height & 1) : 2 * v + 2;  // even: a row returns to its own parity
    if (uint64_t(lineLength) * ringRows * sizeof(double) > UINT32_MAX) throw false;
    ring->rowParity = rowParity;
    ring->buffer.Resize(lineLength, ringRows);
    PxSet_64f(0.0, ring->buffer.data, int32_t(lineLength * ringRows));
}

uint32_t BoxSumStream::FeedThrough(uint32_t endRow) {
    for (endRow = std::min(endRow, height); fed < endRow;) FeedRow(fed);
    return done;
}

// Feeds row j, and under a row parity possibly the skipped row after it; sets fed and done.
void BoxSumStream::FeedRow(uint32_t j) {
    const uint32_t n = image.width;
    const auto out = [this](uint32_t y) { return image.Row(y); };
    fed = j + 1;
    if (v == 0) {
        // Each row in place, with ring row 0 as line buffer.
        double* row = out(j);
        if (r > 0) SumRow(ring->buffer.data, row, n, r, [row](uint32_t i, double sum) { row[i] = sum; });
        done = fed;
        return;
    }
    const RingRows rows(ring->buffer.data, lineLength, ringRows, r);
    const auto feed = [&](uint32_t k) { rows.Feed(k, out(k), n, ring->rowParity, noVertical); };
    if (low) {
        feed(j);
        if (fed == height) {
            BoxSumLow(image, height, rows, v);
            done = height;
        }
        return;
    }

    if (j <= 2 * v) {
        // Start: output rows 0 to v from source rows 0 to 2 v.
        feed(j);
        if (j == 1)
            rows.Pair(out(0), rows.Line(0), rows.Line(1), n);
        else if (j >= 2 && j <= v)
            rows.Add(out(0), out(0), rows.Line(j), n);
        else if (j > v)
            rows.Add(out(j - v), out(j - v - 1), rows.Line(j), n);
        done = j >= v ? j - v + 1 : 0;
    } else {
        // Middle: source row j enters output row j - v's window, row j - 2 v - 1 leaves it. Under a row parity only
        // one of the two can be non-zero, and the skipped one is left out. Each output row is made in the loop that
        // sums the row entering it; under a row parity a summed row also carries the next, skipped row's output,
        // which only loses a row.
        const uint32_t y = j - v;
        const double* const leaving = rows.Line(j + 1);  // j - 2 v - 1 in a ring of 2 v + 2 rows
        double* const output = out(y);
        const double* const above = out(y - 1);
        const int32_t parity = -ring->rowParity;  // this row's turn
        if (parity == 0) {
            rows.Feed(j, out(j), n, ring->rowParity,
                      [=](uint32_t i, double sum) { output[i] = (above[i] + sum) - rows.Sum(leaving, i); });
        } else if (parity > 0) {
            feed(j);  // skipped: the output row only loses a row
            rows.Subtract(output, above, leaving, n);
        } else if (j + 1 == height) {
            rows.Feed(j, out(j), n, ring->rowParity, [=](uint32_t i, double sum) { output[i] = above[i] + sum; });
        } else {
            double* const next = out(y + 1);
            const double* const leavingNext = rows.Line(j + 2);
            rows.Feed(j, out(j), n, ring->rowParity, [=](uint32_t i, double sum) {
                const double value = above[i] + sum;
                output[i] = value;
                next[i] = value - rows.Sum(leavingNext, i);
            });
            feed(j + 1);
            fed = j + 2;
        }
        done = fed - v;
    }
    if (fed == height) {
        // End: the last v output rows only lose rows; skipped rows subtract the zeros their ring rows hold.
        for (uint32_t y = height - v; y < height; ++y) rows.Subtract(out(y), out(y - 1), rows.Line(y - v - 1), n);
        done = height;
    }
}

void BoxSum(BoxRing& ring, ImageBuffer64& image, uint32_t windowWidth, uint32_t windowHeight, int32_t rowParity) {
    if (image.data == nullptr) throw false;
    BoxSumStream stream;
    stream.Begin(ring, {image.data, image.width, std::max(image.height, 1u)}, image.height, windowWidth,
                 windowHeight, rowParity);
    stream.FeedThrough(image.height);
}
