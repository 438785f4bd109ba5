#include "demosaic/HA.h"

#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"
#include "stream/Log.h"

#include <cstring>

namespace {

constexpr int32_t ring = 2;  // rows above and below, columns left and right

}  // namespace

HA::~HA() {
    platform::PlainFree(block);
    platform::AlignedFree(rowScratch);
}

bool HA::AllocateWorkspace(const void*) {
    if (scale != 1 && scale != 2 && scale != 4 && scale != 8 && scale != 16) {
        Log(LogFailure, "DeBayer (HQ): Unsupported scale factor (%u)", scale);
        return false;
    }
    planeStride = int32_t(2 * width + 64);
    const size_t planeBytes = size_t(height + 2 * ring) * size_t(planeStride) + 32;
    block = static_cast<uint8_t*>(platform::PlainAlloc(3 * planeBytes));
    if (block == nullptr) return false;
    rowScratch = static_cast<uint8_t*>(platform::AlignedAlloc(2 * (2 * size_t(width) + 64), 32));
    if (rowScratch == nullptr) return false;
    // Row 0 of the green plane 32-byte aligned with the ring's two rows and at least two elements before it.
    const uintptr_t first = (reinterpret_cast<uintptr_t>(block) + 2 * size_t(planeStride) + 35) & ~uintptr_t(31);
    planeG = reinterpret_cast<uint16_t*>(first);
    planeEven = reinterpret_cast<uint16_t*>(first + planeBytes);
    planeOdd = reinterpret_cast<uint16_t*>(first + 2 * planeBytes);
    kernels = &HAKernelsFor(PxProcessorLevel() >= PxLevelAvx2);
    return true;
}

bool HA::SetParameter(uint32_t, const void*) { return true; }

HAPlanes HA::Planes() const {
    return HAPlanes{planeG, planeEven, planeOdd, planeStride / 2, int32_t(width), int32_t(height), BayerPhase};
}

bool HA::Interpolate(const void* src, int32_t srcStride) {
    const HAPlanes planes = Planes();
    const intptr_t stride = planes.stride;
    // Working samples are the sensor's times 8: three fraction bits. All three planes start as the mirrored
    // mosaic; each is loaded and mirrored here rather than copied from the green plane afterwards, which gives
    // the same samples everywhere the steps read in one pass less over the frame.
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* s = static_cast<const uint8_t*>(src) + intptr_t(y) * srcStride;
        uint16_t* g = planeG + intptr_t(y) * stride;
        uint16_t* even = planeEven + intptr_t(y) * stride;
        uint16_t* odd = planeOdd + intptr_t(y) * stride;
        if (inFormat.bitDepth <= 8) {
            for (uint32_t x = 0; x < width; ++x) g[x] = even[x] = odd[x] = uint16_t(s[x] << 3);
        } else {
            for (uint32_t x = 0; x < width; ++x) g[x] = even[x] = odd[x] = uint16_t((s[2 * x] | s[2 * x + 1] << 8) << 3);
        }
    }
    const PxSize source{int32_t(width), int32_t(height)};
    const PxSize withRing{int32_t(width) + 2 * ring, int32_t(height) + 2 * ring};
    for (uint16_t* plane : {planeG, planeEven, planeOdd})
        PxCopyMirrorBorder_16u_I(plane, planeStride, source, withRing, ring, ring);

    kernels->green(planes);
    PxCopyMirrorBorder_16u_I(planeG, planeStride, source, withRing, ring, ring);
    kernels->colourAtGreen(planes);
    kernels->colourAtColour(planes);

    for (uint16_t* plane : {planeG, planeEven, planeOdd})
        kernels->reduce(plane, stride, int32_t(width), int32_t(height), int32_t(scale), int32_t(inFormat.bitDepth),
                        int32_t(outFormat.bitDepth), rowScratch);
    return true;
}

void HA::GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) {
    *planeWidth = width + 32;
    *planeRowBytes = outFormat.bitDepth == 8 ? width : uint32_t(planeStride);
    *planeHeight = height + 2 * ring;
}

bool HA::GetResultPlanes(void* planes[3]) {
    const bool redOnEvenRows = (BayerPhase & 1) != 0;
    planes[0] = redOnEvenRows ? planeEven : planeOdd;
    planes[1] = planeG;
    planes[2] = redOnEvenRows ? planeOdd : planeEven;
    return true;
}
