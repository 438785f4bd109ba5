#include "demosaic/LPAICIa.h"

#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"
#include "stream/Log.h"

#include <cstring>

namespace {

constexpr int32_t ring = 2;  // rows above and below, columns left and right, of the mosaic and the site planes
constexpr int32_t columnRing = 32;  // rows of column differences kept: more than the 23 that windows reach

template <class T>
T* At(T* plane, int32_t stepBytes, int32_t row) {
    return reinterpret_cast<T*>(reinterpret_cast<uintptr_t>(plane) + intptr_t(row) * stepBytes);
}

}  // namespace

float LPAICIa::RoundHalfEven(float t) { return LpaRoundHalfEven(t); }

LPAICIa::LPAICIa() {
    windows.BuildKernels(float(orderBlend));
    windows.gamma = float(iciThreshold);
}

LPAICIa::~LPAICIa() { platform::AlignedFree(block); }

bool LPAICIa::AllocateWorkspace(const void* params) {
    if (height < minimumHeight) {
        Log(LogFailure, "DeBayer (HQ): LPA-ICI needs an image height of at least %u rows (%u * %u)", minimumHeight,
            width, height);
        return false;
    }
    const size_t w = width, h = height;
    mosaicStride = int32_t(2 * w + 8);
    halfRowBytes = int32_t((w >> 1) * 4);
    diffStride = halfRowBytes + 16;
    resultStride = int32_t(2 * w);
    const size_t mosaicBytes = (h + 2 * ring) * size_t(mosaicStride);
    const size_t sitePlaneBytes = (h / 2 + 2 * ring) * size_t(diffStride);
    // Behind the planes: the two halves of the row that the row pass is working on.
    const size_t splitBytes = (size_t(LpaSplitLength(int32_t(w), 0)) * sizeof(float) + 31) & ~size_t(31);
    block = static_cast<uint8_t*>(
        platform::AlignedAlloc(mosaicBytes + 6 * w * h + 4 * sitePlaneBytes + 2 * splitBytes, 32));
    if (block == nullptr) return false;

    mosaic = reinterpret_cast<uint16_t*>(block + ring * mosaicStride + ring * sizeof(uint16_t));
    uint8_t* shared = block + mosaicBytes;
    rowDiff = reinterpret_cast<float*>(shared);
    colDiff = reinterpret_cast<float*>(shared + 2 * w * h);
    fuseSum = reinterpret_cast<float*>(shared + 4 * w * h);
    fuseWeight = reinterpret_cast<float*>(shared + 5 * w * h);
    planeG = reinterpret_cast<uint16_t*>(shared);
    planeEven = reinterpret_cast<uint16_t*>(shared + 2 * w * h);
    planeOdd = reinterpret_cast<uint16_t*>(shared + 4 * w * h);
    uint8_t* sitePlanes = shared + 6 * w * h + ring * diffStride + ring * sizeof(float);
    siteDiff0 = reinterpret_cast<float*>(sitePlanes);
    crossDiff0 = reinterpret_cast<float*>(sitePlanes + sitePlaneBytes);
    crossDiff1 = reinterpret_cast<float*>(sitePlanes + 2 * sitePlaneBytes);
    siteDiff1 = reinterpret_cast<float*>(sitePlanes + 3 * sitePlaneBytes);
    splitEven = reinterpret_cast<float*>(shared + 6 * w * h + 4 * sitePlaneBytes);
    splitOdd = reinterpret_cast<float*>(shared + 6 * w * h + 4 * sitePlaneBytes + splitBytes);

    const bool wide = PxProcessorLevel() >= PxLevelAvx2;
    accumulate = wide ? LpaAccumulateLineAvx2 : LpaAccumulateLineScalar;
    lines = wide ? LpaLinesAvx2() : LpaLinesScalar();
    if (params != nullptr) {
        double values[2];
        std::memcpy(values, params, sizeof values);
        SetParameter(0, &values[0]);
        SetParameter(1, &values[1]);
    }
    return true;
}

bool LPAICIa::SetParameter(uint32_t id, const void* value) {
    if (value == nullptr || id > 1) return false;
    double v;
    std::memcpy(&v, value, sizeof v);
    if (id == 0)
        orderBlend = v <= 0.0 ? 0.0 : v < 1.0 ? v : 1.0;
    else
        iciThreshold = v <= 0.1 ? 0.1 : v < 10.0 ? v : 10.0;
    return true;
}

float LPAICIa::SiteDifference(int k, int32_t j, int32_t i) const {
    return At(k == 0 ? siteDiff0 : siteDiff1, diffStride, j)[i];
}

float LPAICIa::CrossDifference(int k, int32_t j, int32_t i) const {
    return At(k == 0 ? crossDiff0 : crossDiff1, diffStride, j)[i];
}

// Every colour site of Ck gathers the forward and backward estimates of its row, then of its column, and the
// fused difference is their ratio. A row of sites at a time, so that everything it touches stays in the cache:
// the row's differences go to the first row of rowDiff, and the column differences that its columns' windows
// reach to a ring of rows at the start of colDiff, each row of colDiff made once, in order; the sums and weights
// start at zero in the first rows of fuseSum and fuseWeight, take the row pass along the split row and then the
// column pass of all columns at once, whose taps are rows of the ring, and are divided into the site plane. Each
// site sees the order of the definition.
// The differences are four times the Hamilton-Adams estimates of G - Ck, exact integers: along rows of parity k
// e at a green site and -e at a colour site; down the colour columns -e on rows of parity k and e on the others.
void LPAICIa::FusePasses(int k) {
    const int32_t w = int32_t(width), h = int32_t(height), half = w / 2;
    const int32_t q = ((BayerPhase >> 1) ^ k) & 1;  // column parity of the colour sites on rows of parity k
    const intptr_t ms = mosaicStride / 2;
    float* site = k == 0 ? siteDiff0 : siteDiff1;
    int32_t columnRows = 0;  // rows of colDiff made so far
    for (int32_t j = 0; j < h / 2; ++j) {
        const int32_t y = 2 * j + k;
        for (const int32_t reach = y + 12 < h ? y + 12 : h; columnRows < reach; ++columnRows)
            lines.columnDifferences(mosaic + columnRows * ms + q, ms, half, (columnRows & 1) == k ? -1 : 1,
                                    colDiff + intptr_t(columnRows % columnRing) * half);
        lines.rowDifferences(mosaic + y * ms, w, q, rowDiff);

        std::memset(fuseSum, 0, size_t(halfRowBytes));
        std::memset(fuseWeight, 0, size_t(halfRowBytes));
        LpaTaps taps;
        LpaSplitLine(rowDiff, w, q, splitEven, splitOdd, &taps);
        accumulate(windows, taps, half, fuseSum, fuseWeight);
        LpaColumnTaps(colDiff, halfRowBytes, h, y, &taps, columnRing);
        accumulate(windows, taps, half, fuseSum, fuseWeight);
        PxDivImage_32f(fuseWeight, halfRowBytes, fuseSum, halfRowBytes, At(site, diffStride, j), diffStride, {half, 1});
    }
    const PxSize sites{half, h / 2};
    PxCopyReplicateBorder_32f_I(site, diffStride, sites, {half + 2 * ring, h / 2 + 2 * ring}, ring, ring);
}

// The difference of Ck at each site of the other colour, from the sixteen-tap diagonal neighbourhood of Ck sites:
// 0.3125 times the inner four, minus 0.03125 times the outer eight.
void LPAICIa::CrossPlane(int k) {
    const int32_t half = int32_t(width / 2), rows = int32_t(height / 2);
    const float* d = k == 0 ? siteDiff0 : siteDiff1;
    float* cross = k == 0 ? crossDiff0 : crossDiff1;
    const int32_t r = k == 0 ? 0 : -1;
    const int32_t c = ((BayerPhase >> 1) ^ k) & 1 ? -1 : 0;
    for (int32_t j = 0; j < rows; ++j) {
        const float* above = At(d, diffStride, j + r - 1) + c;
        const float* upper = At(d, diffStride, j + r) + c;
        const float* lower = At(d, diffStride, j + r + 1) + c;
        const float* below = At(d, diffStride, j + r + 2) + c;
        lines.crossRow(above, upper, lower, below, half, At(cross, diffStride, j));
    }
    PxCopyReplicateBorder_32f_I(cross, diffStride, {half, rows}, {half + 2 * ring, rows + 2 * ring}, ring, ring);
}

// Row y of the three result planes. Green: the mosaic at green sites, M + rint(D / 4) at the colour sites. The
// colour Ck: the mosaic at its own sites, M - rint((Ek - Dm) / 4) at the other colour's sites and
// M - rint((l + r + u + d) / 16) at green sites from the field of Ck's differences around them. At an output depth
// of 8 bits or less the row is narrowed as it is made: its bytes at byte y * resultStride, each sample above 255
// as 255, as narrowing the finished plane in place gives, since no row of a plane is read once made.
void LPAICIa::BuildRows(int32_t y) {
    const int32_t half = int32_t(width / 2);
    const float top = float(InputMaximum());
    const bool bytes = outFormat.bitDepth <= 8;
    const int32_t p = y & 1, j = y >> 1;
    const int32_t q = ((BayerPhase >> 1) ^ p) & 1;  // colour column parity of this row; green is 1 - q
    const uint16_t* m = mosaic + intptr_t(y) * (mosaicStride / 2);
    const float* d = At(p == 0 ? siteDiff0 : siteDiff1, diffStride, j);  // the difference of this row's colour
    const auto row = [&](uint16_t* plane) { return reinterpret_cast<uint8_t*>(plane) + intptr_t(y) * resultStride; };
    lines.greenRow(m, d, half, q, top, bytes, row(planeG));
    for (int k = 0; k < 2; ++k) {
        const float* own = k == 0 ? siteDiff0 : siteDiff1;
        const float* cross = k == 0 ? crossDiff0 : crossDiff1;
        // The field of Ck on this row's colour sites and on the rows above and below.
        const float* across = At(p == k ? own : cross, diffStride, j) + (q == 0 ? 0 : -1);
        const float* vertical = p == k ? cross : own;
        const float* up = At(vertical, diffStride, p == 0 ? j - 1 : j);
        const float* down = At(vertical, diffStride, p == 0 ? j : j + 1);
        lines.colourRow(m, p == k ? nullptr : At(cross, diffStride, j), d, across, up, down, half, q, top, bytes,
                        row(k == 0 ? planeEven : planeOdd));
    }
}

bool LPAICIa::Interpolate(const void* src, int32_t srcStride) {
    const PxSize size{int32_t(width), int32_t(height)};
    if (inFormat.bitDepth > 8)
        PxCopyImage_16u(static_cast<const uint16_t*>(src), srcStride, mosaic, mosaicStride, size);
    else
        PxConvertImage_8u16u(static_cast<const uint8_t*>(src), srcStride, mosaic, mosaicStride, size);
    PxCopyMirrorBorder_16u_I(mosaic, mosaicStride, size, {size.width + 2 * ring, size.height + 2 * ring}, ring, ring);
    windows.BuildKernels(float(orderBlend));
    windows.gamma = float(iciThreshold);
    for (int k = 0; k < 2; ++k) {
        FusePasses(k);
        CrossPlane(k);
    }
    // The result planes overwrite the work planes, which are no longer read. The three planes are made row by row
    // together, so that the mosaic and difference rows are read once; none of them reads another.
    for (int32_t y = 0; y < int32_t(height); ++y) BuildRows(y);
    return true;
}

void LPAICIa::GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) {
    *planeWidth = width + 2 * ring;
    *planeRowBytes = uint32_t(resultStride);
    *planeHeight = height + 2 * ring;
}

bool LPAICIa::GetResultPlanes(void* planes[3]) {
    return PlanesInOutputOrder(planes, planeEven, planeG, planeOdd);
}
