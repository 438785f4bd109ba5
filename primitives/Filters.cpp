// The general filter, the box filter and the border copies: argument checks, border assembly and the
// scalar forms. The AVX2 forms of both filters share the drivers here and bring their own row arithmetic.
#include "primitives/Dispatch.h"
#include "primitives/FilterForms.h"
#include "primitives/Px.h"

#include <cstring>

namespace {

constexpr int64_t maxBytes = 2147483647;
constexpr intptr_t blockAlignment = 64;
constexpr int64_t tapsOffset = 64;  // taps start one cache line into the aligned specification
constexpr int32_t sideRowsPerPass = 64;

// The aligned start of a specification block.
struct SpecRecord {
    int32_t kw, kh, dataType, numChannels;
    const float* ReversedTaps() const {
        return reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(this) + tapsOffset);
    }
};

template <class P>
P* AlignUp(P* p) {
    const uintptr_t a = reinterpret_cast<uintptr_t>(p);
    return reinterpret_cast<P*>((a + blockAlignment - 1) & ~uintptr_t(blockAlignment - 1));
}

int64_t Max(int64_t a, int64_t b) { return a > b ? a : b; }
int64_t Min(int64_t a, int64_t b) { return a < b ? a : b; }

bool IsFilterDataType(int32_t type) {
    return type == PxType8u || type == PxType16u || type == PxType16s || type == PxType32f;
}

// Codes 1, 3 and 6 with any of the flags in bits 4 to 7, and 240 alone. Only 1 and 3 have forms of
// their own; the system passes nothing else, so every other accepted code reads as replicate.
bool BorderAccepted(int32_t code) {
    if (uint32_t(code) > 255) return false;
    const int32_t rule = code & 15;
    return rule == 1 || rule == 3 || rule == 6 || code == 240;
}
bool IsMirror(int32_t code) { return (code & 15) == PxBorderMirror; }

int32_t ReplicateIndex(int64_t i, int32_t n) { return int32_t(i < 0 ? 0 : i >= n ? n - 1 : i); }

// Folds back and forth with period 2n - 2, so any offset lands inside the image.
int32_t MirrorIndex(int64_t i, int32_t n) {
    if (n == 1) return 0;
    const int64_t period = 2 * int64_t(n) - 2;
    int64_t r = i % period;
    if (r < 0) r += period;
    return int32_t(r < n ? r : period - r);
}

int32_t BorderIndex(bool mirror, int64_t i, int32_t n) { return mirror ? MirrorIndex(i, n) : ReplicateIndex(i, n); }

// ---- General filter ----

// Floats of work buffer: one pass over the top or bottom strip at full width, or sideRowsPerPass rows of
// a left or right strip; each pass holds its rows with their padding.
int64_t FilterBufferFloats(int32_t kw, int32_t kh, int32_t width, int32_t height) {
    const int64_t ax = (kw - 1) / 2, rx = kw - 1 - ax, ay = (kh - 1) / 2, ry = kh - 1 - ay;
    const int64_t stripRows = Min(height, Max(Max(ay, ry), 1));
    const int64_t full = (stripRows + kh - 1) * (int64_t(width) + kw - 1);
    const int64_t sideWidth = width - ax - rx > 0 ? Max(ax, rx) : width;
    const int64_t side = (Min(height, sideRowsPerPass) + kh - 1) * (sideWidth + kw - 1);
    return Max(full, side);
}

void FilterRowsScalar(const uint8_t* in, intptr_t inStride, uint8_t* out, intptr_t outStride, int32_t width,
                      int32_t rows, const float* reversedTaps, int32_t kw, int32_t kh) {
    const float* lastTap = reversedTaps + int64_t(kw) * kh - 1;  // tap t is lastTap[-t]
    for (int32_t y = 0; y < rows; ++y) {
        float* o = reinterpret_cast<float*>(out + y * outStride);
        for (int32_t x = 0; x < width; ++x) {
            float total = 0.0f;
            for (int32_t j = 0; j < kh; ++j) {
                const float* s = reinterpret_cast<const float*>(in + (y + j) * inStride) + x;
                const float* k = lastTap - int64_t(j) * kw;
                // Even taps into the total, odd ones into a second sum that joins it at the row's end.
                float odd = 0.0f;
                int32_t i = 0;
                for (; i + 1 < kw; i += 2) {
                    total += k[-i] * s[i];
                    odd += k[-i - 1] * s[i + 1];
                }
                total += odd;
                if (i < kw) total += k[-i] * s[i];
            }
            o[x] = total;
        }
    }
}

struct FilterJob {
    FilterRowsFn filterRows;
    const uint8_t* src;
    intptr_t srcStep;
    int32_t srcRingRows;  // source row k is at src + (k % srcRingRows) * srcStep
    uint8_t* dst;
    intptr_t dstStep;
    int32_t dstRingRows;  // output row y is at dst + (y % dstRingRows) * dstStep
    int32_t width, height;
    bool mirror;
    const SpecRecord* filterSpec;
    float* buffer;
    int64_t capacity;  // floats

    const uint8_t* SourceRow(int32_t k) const { return src + intptr_t(k % srcRingRows) * srcStep; }
    uint8_t* OutputRow(int32_t y) const { return dst + intptr_t(y % dstRingRows) * dstStep; }
    // Output rows from y on that follow one another in memory, at most `rows`.
    int32_t UnbrokenOutputRows(int32_t y, int32_t rows) const {
        return int32_t(Min(rows, dstRingRows - y % dstRingRows));
    }

    // Output [x0, x1) x [y0, y1) through the work buffer: its source rows and columns, padded through the
    // border rule, are assembled a pass of rows at a time and filtered from there.
    void ThroughBuffer(int32_t x0, int32_t x1, int32_t y0, int32_t y1) const {
        const int32_t kw = filterSpec->kw, kh = filterSpec->kh, ax = (kw - 1) / 2, ay = (kh - 1) / 2;
        const int32_t paddedWidth = x1 - x0 + kw - 1;
        const int32_t firstColumn = x0 - ax;
        // Padded columns [spanBegin, spanEnd) lie inside the image and are copied as one run.
        const int32_t spanBegin = int32_t(Max(0, -int64_t(firstColumn)));
        const int32_t spanEnd = int32_t(Min(paddedWidth, int64_t(width) - firstColumn));
        const int32_t rowsPerPass = int32_t(Max(1, capacity / paddedWidth - (kh - 1)));
        for (int32_t ya = y0, yb; ya < y1; ya = yb) {
            yb = ya + UnbrokenOutputRows(ya, int32_t(Min(y1 - ya, rowsPerPass)));
            for (int32_t r = 0; r < yb - ya + kh - 1; ++r) {
                const float* s =
                    reinterpret_cast<const float*>(SourceRow(BorderIndex(mirror, int64_t(ya) - ay + r, height)));
                float* b = buffer + int64_t(r) * paddedWidth;
                if (spanBegin < spanEnd) {
                    for (int32_t c = 0; c < spanBegin; ++c) b[c] = s[BorderIndex(mirror, firstColumn + c, width)];
                    std::memcpy(b + spanBegin, s + firstColumn + spanBegin,
                                size_t(spanEnd - spanBegin) * sizeof(float));
                    for (int32_t c = spanEnd; c < paddedWidth; ++c)
                        b[c] = s[BorderIndex(mirror, int64_t(firstColumn) + c, width)];
                } else {
                    for (int32_t c = 0; c < paddedWidth; ++c)
                        b[c] = s[BorderIndex(mirror, int64_t(firstColumn) + c, width)];
                }
            }
            filterRows(reinterpret_cast<const uint8_t*>(buffer), intptr_t(paddedWidth) * sizeof(float),
                       OutputRow(ya) + intptr_t(x0) * sizeof(float), dstStep, x1 - x0, yb - ya,
                       filterSpec->ReversedTaps(), kw, kh);
        }
    }

    // Output rows [y0, y1), whose reach lies inside the image's rows. Pixels whose reach also lies inside its
    // columns are filtered straight from the source rows wherever these follow one another in memory; the rest
    // go through the work buffer.
    void InnerRows(int32_t y0, int32_t y1) const {
        const int32_t kw = filterSpec->kw, kh = filterSpec->kh, ax = (kw - 1) / 2, rx = kw - 1 - ax;
        const int32_t ay = (kh - 1) / 2;
        if (ax >= width - rx) return ThroughBuffer(0, width, y0, y1);
        for (int32_t ya = y0, yb; ya < y1; ya = yb) {
            // Output rows whose source rows, ya - ay on, stay unbroken in the ring.
            const int32_t unbroken = srcRingRows - (ya - ay) % srcRingRows - (kh - 1);
            yb = ya + UnbrokenOutputRows(ya, int32_t(Min(y1 - ya, Max(1, unbroken))));
            if (unbroken < 1) {
                ThroughBuffer(0, width, ya, yb);
                continue;
            }
            if (ax > 0) ThroughBuffer(0, ax, ya, yb);
            if (rx > 0) ThroughBuffer(width - rx, width, ya, yb);
            filterRows(SourceRow(ya - ay), srcStep, OutputRow(ya) + intptr_t(ax) * sizeof(float), dstStep,
                       width - ax - rx, yb - ya, filterSpec->ReversedTaps(), kw, kh);
        }
    }
};

PxStatus FilterBorderRingScalar(const float* src, int32_t srcStep, int32_t srcRingRows, float* dst, int32_t dstStep,
                                int32_t dstRingRows, PxSize roi, int32_t firstRow, int32_t endRow, int32_t borderType,
                                const float* borderValue, const PxFilterBorderSpec* filterSpec, uint8_t* buffer) {
    return FilterBorderRingWithRows(FilterRowsScalar, src, srcStep, srcRingRows, dst, dstStep, dstRingRows, roi,
                                    firstRow, endRow, borderType, borderValue, filterSpec, buffer);
}

PxStatus FilterBorderScalar(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                            int32_t borderType, const float* borderValue, const PxFilterBorderSpec* filterSpec,
                            uint8_t* buffer) {
    return FilterBorderWithRows(FilterRowsScalar, src, srcStep, dst, dstStep, roi, borderType, borderValue, filterSpec,
                                buffer);
}

PxStatus FilterBorderGetSizeScalar(PxSize kernelSize, PxSize roi, int32_t dataType, int32_t kernelType,
                                   int32_t numChannels, int32_t* specSize, int32_t* bufferSize) {
    if (kernelSize.width < 1 || kernelSize.height < 1 || roi.width < 1 || roi.height < 1) return PxStatusBadSize;
    if (!IsFilterDataType(dataType) || (kernelType != PxType16s && kernelType != PxType32f))
        return PxStatusBadDataType;
    if (numChannels < 1 || numChannels > 4) return PxStatusBadChannelCount;
    if (specSize == nullptr || bufferSize == nullptr) return PxStatusNullPointer;
    const int64_t specBytes = blockAlignment + tapsOffset + int64_t(kernelSize.width) * kernelSize.height * 4;
    const int64_t bufferFloats = FilterBufferFloats(kernelSize.width, kernelSize.height, roi.width, roi.height);
    const int64_t bufferBytes = blockAlignment + bufferFloats * 4 * numChannels;
    if (bufferBytes > maxBytes || specBytes > maxBytes) {
        *bufferSize = 0;
        return PxStatusSizeOverflow;
    }
    *specSize = int32_t(specBytes);
    *bufferSize = int32_t(bufferBytes);
    return PxStatusOk;
}

PxStatus FilterBorderInitScalar(const float* kernel, PxSize kernelSize, int32_t dataType, int32_t numChannels,
                                int32_t roundMode, PxFilterBorderSpec* filterSpec) {
    if (kernel == nullptr || filterSpec == nullptr) return PxStatusNullPointer;
    if (kernelSize.width < 1 || kernelSize.height < 1) return PxStatusBadSize;
    if (!IsFilterDataType(dataType)) return PxStatusBadDataType;
    if (numChannels < 1 || numChannels > 4) return PxStatusBadChannelCount;
    if (roundMode != 0 && roundMode != 1 && roundMode != 2 && roundMode != 16 && roundMode != 17 && roundMode != 18)
        return PxStatusBadRoundMode;
    SpecRecord* record = AlignUp(reinterpret_cast<SpecRecord*>(filterSpec));
    *record = SpecRecord{kernelSize.width, kernelSize.height, dataType, numChannels};
    float* reversed = reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(record) + tapsOffset);
    const int64_t taps = int64_t(kernelSize.width) * kernelSize.height;
    for (int64_t t = 0; t < taps; ++t) reversed[taps - 1 - t] = kernel[t];
    return PxStatusOk;
}

// ---- Box filter ----

struct BoxLayout {
    int64_t columnSums, columnMap, rowMap, expanded, total;  // offsets in floats past the aligned start
};

int64_t RoundUp16(int64_t floats) { return (floats + 15) & ~int64_t(15); }

// Column sums and the two index maps over the padded extent; an image no wider or no higher than its
// mask is also expanded whole, with its padding, into the buffer.
BoxLayout BoxBufferLayout(PxSize roi, PxSize mask) {
    const int64_t paddedWidth = int64_t(roi.width) + mask.width - 1;
    const int64_t paddedHeight = int64_t(roi.height) + mask.height - 1;
    const bool expand = roi.width <= mask.width || roi.height <= mask.height;
    BoxLayout l;
    l.columnSums = 0;
    l.columnMap = RoundUp16(paddedWidth);
    l.rowMap = l.columnMap + RoundUp16(paddedWidth);
    l.expanded = l.rowMap + RoundUp16(paddedHeight);
    l.total = l.expanded + (expand ? paddedWidth * paddedHeight : 0);
    return l;
}

PxStatus FilterBoxBorderGetBufferSizeScalar(PxSize roi, PxSize mask, int32_t dataType, int32_t numChannels,
                                            int32_t* bufferSize) {
    if (bufferSize == nullptr) return PxStatusNullPointer;
    if (roi.width < 1 || roi.height < 1) return PxStatusBadSize;
    if (mask.width < 1 || mask.height < 1) return PxStatusBadMaskSize;
    if (!IsFilterDataType(dataType)) return PxStatusBadDataType;
    if (numChannels != 1 && numChannels != 3 && numChannels != 4) return PxStatusBadChannels;
    const int64_t bytes = blockAlignment + BoxBufferLayout(roi, mask).total * 4 * numChannels;
    if (bytes > maxBytes) return PxStatusSizeOverflow;
    *bufferSize = int32_t(bytes);
    return PxStatusOk;
}

void UpdateColumnsScalar(float* sums, const float* entering, const float* leaving, int32_t count) {
    for (int32_t c = 0; c < count; ++c) sums[c] = sums[c] + entering[c] - leaving[c];
}

void WindowRowScalar(const float* sums, float* out, int32_t width, int32_t mw, float factor) {
    float window = 0.0f;
    for (int32_t c = 0; c < mw; ++c) window += sums[c];
    out[0] = window * factor;
    for (int32_t x = 1; x < width; ++x) {
        window = window + sums[x + mw - 1] - sums[x - 1];
        out[x] = window * factor;
    }
}

PxStatus FilterBoxBorderScalar(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                               PxSize mask, int32_t borderType, const float* borderValue, uint8_t* buffer) {
    return FilterBoxBorderWithRows(UpdateColumnsScalar, WindowRowScalar, src, srcStep, dst, dstStep, roi, mask,
                                   borderType, borderValue, buffer);
}

// ---- Border copies ----

PxStatus CheckBorderCopy(const void* a, const void* b, int32_t stepA, int32_t stepB, PxSize srcRoi, PxSize dstRoi,
                         int32_t top, int32_t left) {
    if (a == nullptr || b == nullptr) return PxStatusNullPointer;
    if (stepA < 1 || stepB < 1) return PxStatusBadStep;
    if (srcRoi.width < 1 || srcRoi.height < 1 || dstRoi.width < 1 || dstRoi.height < 1 || top < 0 || left < 0 ||
        dstRoi.width < int64_t(left) + srcRoi.width || dstRoi.height < int64_t(top) + srcRoi.height)
        return PxStatusBadSize;
    return PxStatusOk;
}

// Every pixel of the block outside the region, from the region's pixel that the rule gives. Only
// region pixels are read, so the ring may be written in any order.
template <class T>
void FillRing(uint8_t* corner, intptr_t step, PxSize srcRoi, PxSize dstRoi, int32_t top, int32_t left, bool mirror) {
    const int32_t w = srcRoi.width, h = srcRoi.height;
    for (int32_t y = 0; y < dstRoi.height; ++y) {
        T* o = reinterpret_cast<T*>(corner + intptr_t(y) * step);
        const int32_t v = y - top;
        if (v >= 0 && v < h) {
            const T* s = o + left;
            for (int32_t x = 0; x < left; ++x) o[x] = s[BorderIndex(mirror, x - left, w)];
            for (int32_t x = left + w; x < dstRoi.width; ++x) o[x] = s[BorderIndex(mirror, x - left, w)];
        } else {
            const T* s = reinterpret_cast<const T*>(corner + intptr_t(top + BorderIndex(mirror, v, h)) * step) + left;
            for (int32_t x = 0; x < dstRoi.width; ++x) o[x] = s[BorderIndex(mirror, int64_t(x) - left, w)];
        }
    }
}

template <class T>
uint8_t* Corner(T* region, int32_t step, int32_t top, int32_t left) {
    return reinterpret_cast<uint8_t*>(region) - intptr_t(top) * step - intptr_t(left) * sizeof(T);
}

PxStatus CopyMirrorBorderScalar(uint16_t* srcDst, int32_t step, PxSize srcRoi, PxSize dstRoi, int32_t top,
                                int32_t left) {
    const PxStatus status = CheckBorderCopy(srcDst, srcDst, step, step, srcRoi, dstRoi, top, left);
    if (status != PxStatusOk) return status;
    FillRing<uint16_t>(Corner(srcDst, step, top, left), step, srcRoi, dstRoi, top, left, true);
    return PxStatusOk;
}

PxStatus CopyReplicateBorderInPlaceScalar(float* srcDst, int32_t step, PxSize srcRoi, PxSize dstRoi, int32_t top,
                                          int32_t left) {
    const PxStatus status = CheckBorderCopy(srcDst, srcDst, step, step, srcRoi, dstRoi, top, left);
    if (status != PxStatusOk) return status;
    FillRing<uint32_t>(Corner(srcDst, step, top, left), step, srcRoi, dstRoi, top, left, false);
    return PxStatusOk;
}

PxStatus CopyReplicateBorderScalar(const float* src, int32_t srcStep, PxSize srcRoi, float* dst, int32_t dstStep,
                                   PxSize dstRoi, int32_t top, int32_t left) {
    const PxStatus status = CheckBorderCopy(src, dst, srcStep, dstStep, srcRoi, dstRoi, top, left);
    if (status != PxStatusOk) return status;
    // The same pointer names the region inside the block, as in the in-place form.
    if (src == dst) return CopyReplicateBorderInPlaceScalar(dst, dstStep, srcRoi, dstRoi, top, left);
    uint8_t* corner = reinterpret_cast<uint8_t*>(dst);
    for (int32_t y = 0; y < srcRoi.height; ++y)
        std::memcpy(corner + intptr_t(top + y) * dstStep + intptr_t(left) * sizeof(float),
                    reinterpret_cast<const uint8_t*>(src) + intptr_t(y) * srcStep,
                    size_t(srcRoi.width) * sizeof(float));
    FillRing<uint32_t>(corner, dstStep, srcRoi, dstRoi, top, left, false);
    return PxStatusOk;
}

constexpr auto filterGetSizeForms =
    PxForms(FilterBorderGetSizeScalar, FilterBorderGetSizeScalar, FilterBorderGetSizeScalar);
constexpr auto filterInitForms = PxForms(FilterBorderInitScalar, FilterBorderInitScalar, FilterBorderInitScalar);
constexpr auto filterForms = PxForms(FilterBorderScalar, FilterBorderAvx2, FilterBorderAvx2);
constexpr auto filterRingForms = PxForms(FilterBorderRingScalar, FilterBorderRingAvx2, FilterBorderRingAvx2);
constexpr auto boxGetSizeForms = PxForms(FilterBoxBorderGetBufferSizeScalar, FilterBoxBorderGetBufferSizeScalar,
                                         FilterBoxBorderGetBufferSizeScalar);
constexpr auto boxForms = PxForms(FilterBoxBorderScalar, FilterBoxBorderAvx2, FilterBoxBorderAvx2);
constexpr auto mirrorCopyForms = PxForms(CopyMirrorBorderScalar, CopyMirrorBorderScalar, CopyMirrorBorderScalar);
constexpr auto replicateInPlaceForms =
    PxForms(CopyReplicateBorderInPlaceScalar, CopyReplicateBorderInPlaceScalar, CopyReplicateBorderInPlaceScalar);
constexpr auto replicateCopyForms =
    PxForms(CopyReplicateBorderScalar, CopyReplicateBorderScalar, CopyReplicateBorderScalar);

}  // namespace

PxStatus FilterBorderRingWithRows(FilterRowsFn filterRows, const float* src, int32_t srcStep, int32_t srcRingRows,
                                  float* dst, int32_t dstStep, int32_t dstRingRows, PxSize roi, int32_t firstRow,
                                  int32_t endRow, int32_t borderType, const float*,
                                  const PxFilterBorderSpec* filterSpec, uint8_t* buffer) {
    if (src == nullptr || dst == nullptr || filterSpec == nullptr || buffer == nullptr) return PxStatusNullPointer;
    if (roi.width < 1 || roi.height < 1 || srcRingRows < 1 || dstRingRows < 1 || firstRow < 0 || endRow > roi.height)
        return PxStatusBadSize;
    if (srcStep < 1 || dstStep < int64_t(roi.width) * 4) return PxStatusBadStep;
    if (!BorderAccepted(borderType)) return PxStatusBadBorder;

    const SpecRecord* record = AlignUp(reinterpret_cast<const SpecRecord*>(filterSpec));
    const int32_t width = roi.width, height = roi.height;
    const FilterJob job{filterRows,
                        reinterpret_cast<const uint8_t*>(src),
                        srcStep,
                        srcRingRows,
                        reinterpret_cast<uint8_t*>(dst),
                        dstStep,
                        dstRingRows,
                        width,
                        height,
                        IsMirror(borderType),
                        record,
                        AlignUp(reinterpret_cast<float*>(buffer)),
                        FilterBufferFloats(record->kw, record->kh, width, height)};
    const int32_t ay = (record->kh - 1) / 2, ry = record->kh - 1 - ay;
    // Rows whose reach crosses the top or bottom edge go through the work buffer.
    const int32_t innerBegin = int32_t(Max(firstRow, ay)), innerEnd = int32_t(Min(endRow, int64_t(height) - ry));
    if (innerBegin >= innerEnd) {
        if (firstRow < endRow) job.ThroughBuffer(0, width, firstRow, endRow);
        return PxStatusOk;
    }
    if (firstRow < innerBegin) job.ThroughBuffer(0, width, firstRow, innerBegin);
    if (innerEnd < endRow) job.ThroughBuffer(0, width, innerEnd, endRow);
    job.InnerRows(innerBegin, innerEnd);
    return PxStatusOk;
}

PxStatus FilterBorderWithRows(FilterRowsFn filterRows, const float* src, int32_t srcStep, float* dst,
                              int32_t dstStep, PxSize roi, int32_t borderType, const float* borderValue,
                              const PxFilterBorderSpec* filterSpec, uint8_t* buffer) {
    return FilterBorderRingWithRows(filterRows, src, srcStep, roi.height, dst, dstStep, roi.height, roi, 0,
                                    roi.height, borderType, borderValue, filterSpec, buffer);
}

PxStatus FilterBoxBorderWithRows(UpdateColumnsFn updateColumns, WindowRowFn windowRow, const float* src,
                                 int32_t srcStep, float* dst, int32_t dstStep, PxSize roi, PxSize mask,
                                 int32_t borderType, const float*, uint8_t* buffer) {
    if (src == nullptr || dst == nullptr || buffer == nullptr) return PxStatusNullPointer;
    if (srcStep < 1 || dstStep < 1) return PxStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return PxStatusBadSize;
    if (mask.width < 1 || mask.height < 1) return PxStatusBadMaskSize;
    if (!BorderAccepted(borderType)) return PxStatusBadBorder;

    const bool mirror = IsMirror(borderType);
    const int32_t width = roi.width, height = roi.height, mw = mask.width, mh = mask.height;
    const int32_t ax = (mw - 1) / 2, ay = (mh - 1) / 2;
    const int32_t paddedWidth = width + mw - 1, paddedHeight = height + mh - 1;
    const BoxLayout layout = BoxBufferLayout(roi, mask);
    float* base = AlignUp(reinterpret_cast<float*>(buffer));
    float* columnSums = base + layout.columnSums;
    int32_t* columnMap = reinterpret_cast<int32_t*>(base + layout.columnMap);
    int32_t* rowMap = reinterpret_cast<int32_t*>(base + layout.rowMap);

    // Padded column c and padded row r read source column columnMap[c] and row rowMap[r] of image.
    const uint8_t* image = reinterpret_cast<const uint8_t*>(src);
    intptr_t step = srcStep;
    for (int32_t c = 0; c < paddedWidth; ++c) columnMap[c] = BorderIndex(mirror, int64_t(c) - ax, width);
    for (int32_t r = 0; r < paddedHeight; ++r) rowMap[r] = BorderIndex(mirror, int64_t(r) - ay, height);
    if (layout.expanded < layout.total) {
        float* expanded = base + layout.expanded;
        for (int32_t r = 0; r < paddedHeight; ++r) {
            const float* s = reinterpret_cast<const float*>(image + intptr_t(rowMap[r]) * step);
            for (int32_t c = 0; c < paddedWidth; ++c) expanded[int64_t(r) * paddedWidth + c] = s[columnMap[c]];
        }
        // From here the padding is real memory around the image's origin.
        image = reinterpret_cast<const uint8_t*>(expanded + int64_t(ay) * paddedWidth + ax);
        step = intptr_t(paddedWidth) * sizeof(float);
        for (int32_t c = 0; c < paddedWidth; ++c) columnMap[c] = c - ax;
        for (int32_t r = 0; r < paddedHeight; ++r) rowMap[r] = r - ay;
    }

    const auto row = [&](int32_t r) { return reinterpret_cast<const float*>(image + intptr_t(rowMap[r]) * step); };
    for (int32_t c = 0; c < paddedWidth; ++c) columnSums[c] = 0.0f;
    for (int32_t r = 0; r < mh; ++r) {
        const float* s = row(r);
        for (int32_t c = 0; c < paddedWidth; ++c) columnSums[c] += s[columnMap[c]];
    }
    const float factor = 1.0f / float(int64_t(mw) * mh);
    for (int32_t y = 0; y < height; ++y) {
        windowRow(columnSums, reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(dst) + intptr_t(y) * dstStep), width,
                  mw, factor);
        if (y + 1 == height) break;
        // Row y + mh enters the column sums, row y leaves them. Inside the image the columns are direct.
        const float* entering = row(y + mh);
        const float* leaving = row(y);
        for (int32_t c = 0; c < ax; ++c)
            columnSums[c] = columnSums[c] + entering[columnMap[c]] - leaving[columnMap[c]];
        updateColumns(columnSums + ax, entering, leaving, width);
        for (int32_t c = ax + width; c < paddedWidth; ++c)
            columnSums[c] = columnSums[c] + entering[columnMap[c]] - leaving[columnMap[c]];
    }
    return PxStatusOk;
}

PxStatus PxFilterBorderGetSize(PxSize kernelSize, PxSize roi, int32_t dataType, int32_t kernelType,
                               int32_t numChannels, int32_t* specSize, int32_t* bufferSize) {
    return filterGetSizeForms(kernelSize, roi, dataType, kernelType, numChannels, specSize, bufferSize);
}

PxStatus PxFilterBorderInit_32f(const float* kernel, PxSize kernelSize, int32_t dataType, int32_t numChannels,
                                int32_t roundMode, PxFilterBorderSpec* filterSpec) {
    return filterInitForms(kernel, kernelSize, dataType, numChannels, roundMode, filterSpec);
}

PxStatus PxFilterBorder_32f(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                            int32_t borderType, const float* borderValue, const PxFilterBorderSpec* filterSpec,
                            uint8_t* buffer) {
    return filterForms(src, srcStep, dst, dstStep, roi, borderType, borderValue, filterSpec, buffer);
}

PxStatus PxFilterBorderRows_32f(const float* src, int32_t srcStep, int32_t srcRingRows, float* dst, int32_t dstStep,
                                int32_t dstRingRows, PxSize roi, int32_t firstRow, int32_t endRow, int32_t borderType,
                                const float* borderValue, const PxFilterBorderSpec* filterSpec, uint8_t* buffer) {
    return filterRingForms(src, srcStep, srcRingRows, dst, dstStep, dstRingRows, roi, firstRow, endRow, borderType,
                           borderValue, filterSpec, buffer);
}

PxStatus PxFilterBoxBorderGetBufferSize(PxSize roi, PxSize mask, int32_t dataType, int32_t numChannels,
                                        int32_t* bufferSize) {
    return boxGetSizeForms(roi, mask, dataType, numChannels, bufferSize);
}

PxStatus PxFilterBoxBorder_32f(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                               PxSize mask, int32_t borderType, const float* borderValue, uint8_t* buffer) {
    return boxForms(src, srcStep, dst, dstStep, roi, mask, borderType, borderValue, buffer);
}

PxStatus PxCopyMirrorBorder_16u_I(uint16_t* srcDst, int32_t step, PxSize srcRoi, PxSize dstRoi, int32_t top,
                                  int32_t left) {
    return mirrorCopyForms(srcDst, step, srcRoi, dstRoi, top, left);
}

PxStatus PxCopyReplicateBorder_32f_I(float* srcDst, int32_t step, PxSize srcRoi, PxSize dstRoi, int32_t top,
                                     int32_t left) {
    return replicateInPlaceForms(srcDst, step, srcRoi, dstRoi, top, left);
}

PxStatus PxCopyReplicateBorder_32f(const float* src, int32_t srcStep, PxSize srcRoi, float* dst, int32_t dstStep,
                                   PxSize dstRoi, int32_t top, int32_t left) {
    return replicateCopyForms(src, srcStep, srcRoi, dst, dstStep, dstRoi, top, left);
}
