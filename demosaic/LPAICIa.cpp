#include "demosaic/LPAICIa.h"

#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"
#include "stream/Log.h"

#include <cstring>

namespace {

constexpr int32_t ring = 2;  // rows above and below, columns left and right, of the mosaic and the site planes

inline uint16_t Limit(float value, float top) {
    value = value > 0.0f ? value : 0.0f;
    value = value < top ? value : top;
    return uint16_t(int32_t(value));
}

template <class T>
T* At(T* plane, int32_t stepBytes, int32_t row) {
    return reinterpret_cast<T*>(reinterpret_cast<uintptr_t>(plane) + intptr_t(row) * stepBytes);
}

}  // namespace

// By the float's own rounding: exact for |t| below 2^22, far above any difference of 16-bit samples, and plain
// arithmetic, so the loops around it vectorise.
float LPAICIa::RoundHalfEven(float t) {
    const float shifter = 12582912.0f;  // 1.5 * 2^23
    return (t + shifter) - shifter;
}

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
    block = static_cast<uint8_t*>(platform::AlignedAlloc(mosaicBytes + 6 * w * h + 4 * sitePlaneBytes, 32));
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

    accumulateSite = PxProcessorLevel() >= PxLevelAvx2 ? LpaAccumulateSiteAvx2 : LpaAccumulateSiteScalar;
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

// Four times the Hamilton-Adams estimate of G - Ck along each row of parity k (all columns) and along each
// colour column of Ck (all rows), in exact integers: e at a green site, -e at a colour site.
void LPAICIa::DifferencePlanes(int k) {
    const int32_t w = int32_t(width), h = int32_t(height), half = w / 2;
    const int32_t q = ((BayerPhase >> 1) ^ k) & 1;  // column parity of the colour sites on rows of parity k
    const intptr_t ms = mosaicStride / 2;
    for (int32_t j = 0; j < h / 2; ++j) {
        const uint16_t* m = mosaic + (2 * j + k) * ms;
        float* out = rowDiff + intptr_t(j) * w;
        const int32_t evenSign = q == 0 ? -1 : 1;  // columns 2i; the odd columns take the other sign
        for (int32_t x = 0; x < w; x += 2) {
            const int32_t e0 = int32_t(m[x - 2]) + m[x + 2] + 2 * (int32_t(m[x]) - m[x - 1] - m[x + 1]);
            const int32_t e1 = int32_t(m[x - 1]) + m[x + 3] + 2 * (int32_t(m[x + 1]) - m[x] - m[x + 2]);
            out[x] = float(evenSign * e0);
            out[x + 1] = float(-evenSign * e1);
        }
    }
    for (int32_t y = 0; y < h; ++y) {
        const uint16_t* m = mosaic + y * ms + q;
        float* out = colDiff + intptr_t(y) * half;
        const int32_t sign = (y & 1) == k ? -1 : 1;
        for (int32_t i = 0; i < half; ++i) {
            const uint16_t* c = m + 2 * i;
            const int32_t e = int32_t(c[-2 * ms]) + c[2 * ms] + 2 * (int32_t(c[0]) - c[-ms] - c[ms]);
            out[i] = float(sign * e);
        }
    }
}

// Every colour site of Ck gathers the forward and backward estimates of its row, then of its column.
void LPAICIa::FusePasses(int k) {
    const int32_t w = int32_t(width), h = int32_t(height), half = w / 2;
    const int32_t q = ((BayerPhase >> 1) ^ k) & 1;
    std::memset(fuseSum, 0, 2 * size_t(width) * height);  // fuseSum and fuseWeight
    for (int32_t j = 0; j < h / 2; ++j) {
        float* sum = fuseSum + intptr_t(j) * half;
        float* weight = fuseWeight + intptr_t(j) * half;
        windows.LoadLine(rowDiff + intptr_t(j) * w, sizeof(float), w, q);
        for (int32_t i = 0; i < half; ++i) {
            accumulateSite(windows, sum + i, weight + i);
            windows.AdvanceSite();
        }
    }
    for (int32_t i = 0; i < half; ++i) {
        windows.LoadLine(colDiff + i, halfRowBytes, h, k);
        for (int32_t j = 0; j < h / 2; ++j) {
            accumulateSite(windows, fuseSum + intptr_t(j) * half + i, fuseWeight + intptr_t(j) * half + i);
            windows.AdvanceSite();
        }
    }
    float* site = k == 0 ? siteDiff0 : siteDiff1;
    const PxSize sites{half, h / 2};
    PxDivImage_32f(fuseWeight, halfRowBytes, fuseSum, halfRowBytes, site, diffStride, sites);
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
        float* out = At(cross, diffStride, j);
        for (int32_t i = 0; i < half; ++i) {
            const float inner = (upper[i] + upper[i + 1]) + (lower[i] + lower[i + 1]);
            const float outer = ((above[i] + above[i + 1]) + (below[i] + below[i + 1])) +
                                ((upper[i - 1] + upper[i + 2]) + (lower[i - 1] + lower[i + 2]));
            out[i] = 0.3125f * inner - 0.03125f * outer;
        }
    }
    PxCopyReplicateBorder_32f_I(cross, diffStride, {half, rows}, {half + 2 * ring, rows + 2 * ring}, ring, ring);
}

// Green: the mosaic at green sites, M + rint(D / 4) at the colour sites.
void LPAICIa::BuildGreen() {
    const int32_t half = int32_t(width / 2);
    const float top = float(InputMaximum());
    for (int32_t y = 0; y < int32_t(height); ++y) {
        const int32_t p = y & 1, q = ((BayerPhase >> 1) ^ p) & 1;
        const uint16_t* m = mosaic + intptr_t(y) * (mosaicStride / 2);
        const float* d = At(p == 0 ? siteDiff0 : siteDiff1, diffStride, y >> 1);
        uint16_t* out = planeG + intptr_t(y) * (resultStride / 2);
        for (int32_t i = 0; i < half; ++i) {
            out[2 * i + q] = Limit(float(m[2 * i + q]) + RoundHalfEven(0.25f * d[i]), top);
            out[2 * i + 1 - q] = m[2 * i + 1 - q];
        }
    }
}

// The colour Ck: the mosaic at its own sites, M - rint((Ek - Dm) / 4) at the other colour's sites and
// M - rint((l + r + u + d) / 16) at green sites from the field of Ck's differences around them.
void LPAICIa::BuildColour(int k) {
    const int32_t half = int32_t(width / 2);
    const float top = float(InputMaximum());
    const float* own = k == 0 ? siteDiff0 : siteDiff1;
    const float* cross = k == 0 ? crossDiff0 : crossDiff1;
    uint16_t* plane = k == 0 ? planeEven : planeOdd;
    for (int32_t y = 0; y < int32_t(height); ++y) {
        const int32_t p = y & 1, j = y >> 1;
        const int32_t q = ((BayerPhase >> 1) ^ p) & 1;  // colour column parity of this row; green is 1 - q
        const uint16_t* m = mosaic + intptr_t(y) * (mosaicStride / 2);
        uint16_t* out = plane + intptr_t(y) * (resultStride / 2);
        // The field of Ck on this row's colour sites and on the rows above and below.
        const float* across = At(p == k ? own : cross, diffStride, j) + (q == 0 ? 0 : -1);
        const float* vertical = p == k ? cross : own;
        const float* up = At(vertical, diffStride, p == 0 ? j - 1 : j);
        const float* down = At(vertical, diffStride, p == 0 ? j : j + 1);
        if (p == k) {
            for (int32_t i = 0; i < half; ++i) out[2 * i + q] = m[2 * i + q];
        } else {
            const float* e = At(cross, diffStride, j);
            const float* d = At(p == 0 ? siteDiff0 : siteDiff1, diffStride, j);
            for (int32_t i = 0; i < half; ++i)
                out[2 * i + q] = Limit(float(m[2 * i + q]) - RoundHalfEven(0.25f * (e[i] - d[i])), top);
        }
        const int32_t g = 1 - q;
        for (int32_t i = 0; i < half; ++i) {
            const float sum = ((across[i] + across[i + 1]) + up[i]) + down[i];
            out[2 * i + g] = Limit(float(m[2 * i + g]) - RoundHalfEven(0.0625f * sum), top);
        }
    }
}

void LPAICIa::Narrow(uint16_t* plane) {
    if (outFormat.bitDepth <= 8)
        PxConvertImage_16u8u(plane, resultStride, reinterpret_cast<uint8_t*>(plane), resultStride,
                             {int32_t(width), int32_t(height)});
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
        DifferencePlanes(k);
        FusePasses(k);
        CrossPlane(k);
    }
    // The result planes overwrite the work planes, which are no longer read.
    BuildGreen();
    Narrow(planeG);
    BuildColour(0);
    Narrow(planeEven);
    BuildColour(1);
    Narrow(planeOdd);
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
