#include "demosaic/HA.h"

#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"
#include "stream/Log.h"

#include <cstring>

namespace {

constexpr int32_t ring = 2;  // rows above and below, columns left and right

// Rows per band: the three planes' rows of a band and the few rows of lag behind it stay in the L2 cache. The
// count is even, so that the steps get whole row pairs, which the wide kernels take together.
constexpr int32_t bandBytes = 256 * 1024;

int32_t RowsPerBand(int32_t planeStride) {
    const int32_t rows = bandBytes / (3 * planeStride);
    return (rows < 8 ? 8 : rows > 64 ? 64 : rows) & ~1;
}

// The row a ring row takes its samples from: reflection about the edge row without repeating it, folding back
// again for images lower than the ring, as the border copy of the primitives does.
int32_t MirrorRow(int32_t row, int32_t height) {
    if (height == 1) return 0;
    const int32_t period = 2 * height - 2;
    int32_t r = row % period;
    if (r < 0) r += period;
    return r < height ? r : period - r;
}

// Ring row `to` of a plane as a copy of row `from`, ring columns included.
void CopyRow(uint16_t* plane, intptr_t stride, int32_t width, int32_t to, int32_t from) {
    std::memcpy(plane + to * stride - ring, plane + from * stride - ring, size_t(width + 2 * ring) * sizeof(uint16_t));
}

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
    return HAPlanes{planeG, planeEven, planeOdd, planeStride / 2, int32_t(width), int32_t(height), BayerPhase,
                    int32_t(inFormat.bitDepth)};
}

int32_t HA::BandRows() const { return RowsPerBand(planeStride); }

bool HA::Interpolate(const void* src, int32_t srcStride) {
    const HAPlanes planes = Planes();
    const intptr_t stride = planes.stride;
    const int32_t w = int32_t(width), h = int32_t(height), s = int32_t(scale);
    const bool deep = inFormat.bitDepth > 8;
    uint16_t* const colourPlanes[2] = {planeEven, planeOdd};
    uint16_t* const allPlanes[3] = {planeG, planeEven, planeOdd};

    // The steps run band by band down the frame, each a few rows behind the one it reads, so that a band's
    // rows are still in the cache when the next step comes to them:
    //   load     the mosaic's rows into all three planes (times 8), the colour planes' ring columns mirrored;
    //   green    rows whose mosaic rows two above and below are loaded, then green's ring columns;
    //   colour   both colour steps on rows whose green rows one above and below are final and whose mosaic
    //            samples green no longer reads;
    //   reduce   output rows whose input rows are final and whose packed bytes end before every row a pending
    //            step still reads.
    // The ring rows are copied once their source rows are final: the colour planes' after loading, green's
    // after interpolation. Green's ring holds interpolated green only, so it is never filled from the mosaic.
    const int32_t band = BandRows();
    const int32_t top[2] = {MirrorRow(-2, h), MirrorRow(-1, h)};
    const int32_t bottom[2] = {MirrorRow(h, h), MirrorRow(h + 1, h)};
    const int32_t topLast = top[0] > top[1] ? top[0] : top[1];
    const int32_t topFirst = top[0] < top[1] ? top[0] : top[1];
    const int32_t bottomLast = bottom[0] > bottom[1] ? bottom[0] : bottom[1];
    const int32_t bottomFirst = bottom[0] < bottom[1] ? bottom[0] : bottom[1];
    const int32_t outRows = HAOutputRows(h, s);
    const bool bytesOut = outFormat.bitDepth == 8 || s > 1;
    const intptr_t outRowBytes = s == 1 ? (bytesOut ? w : planeStride) : w / s;
    // Bytes an output row's packing needs beyond the start of its own packed row.
    const intptr_t outLastBytes = s == 1 ? (bytesOut ? w : 2 * w) : w / s;

    int32_t loaded = 0, green = 0, done = 0, reduced = 0;
    bool colourTop = false, colourBottom = false, greenTop = false, greenBottom = false;
    while (done < h || reduced < outRows) {
        if (loaded < h) {
            const int32_t end = h - loaded > band ? loaded + band : h;
            kernels->load(planes, src, srcStride, deep, loaded, end);
            loaded = end;
        }
        if (!colourTop && loaded > topLast) {
            for (uint16_t* plane : colourPlanes)
                for (int32_t i = 0; i < 2; ++i) CopyRow(plane, stride, w, i - 2, top[i]);
            colourTop = true;
        }
        if (!colourBottom && loaded > bottomLast) {
            for (uint16_t* plane : colourPlanes)
                for (int32_t i = 0; i < 2; ++i) CopyRow(plane, stride, w, h + i, bottom[i]);
            colourBottom = true;
        }

        const int32_t greenEnd = !colourTop ? green : loaded == h && colourBottom ? h : loaded - 2;
        if (greenEnd > green) {
            kernels->green(planes, green, greenEnd);
            for (int32_t y = green; y < greenEnd; ++y) {
                uint16_t* row = planeG + y * stride;
                row[-2] = row[2], row[-1] = row[1], row[w] = row[w - 2], row[w + 1] = row[w - 3];
            }
            green = greenEnd;
        }
        if (!greenTop && green > topLast) {
            for (int32_t i = 0; i < 2; ++i) CopyRow(planeG, stride, w, i - 2, top[i]);
            greenTop = true;
        }
        if (!greenBottom && green > bottomLast) {
            for (int32_t i = 0; i < 2; ++i) CopyRow(planeG, stride, w, h + i, bottom[i]);
            greenBottom = true;
        }

        // The colour steps overwrite the colour planes' samples at the sites green reads the mosaic from: they
        // stay two rows behind green as well as one row behind the green they read.
        const int32_t colourEnd = !greenTop ? done : green == h && greenBottom ? h : green - 2;
        if (colourEnd > done) {
            kernels->colour(planes, done, colourEnd);
            done = colourEnd;
        }

        // The packing runs from the start of the plane; it may reach up to the ring columns of the lowest row
        // that a pending step still reads.
        int32_t reducible = outRows;
        if (done < h) {
            int32_t lowest = done - 1;
            if (green < h && green - 2 < lowest) lowest = green - 2;
            if (!(colourTop && greenTop) && topFirst < lowest) lowest = topFirst;
            if (!(colourBottom && greenBottom) && bottomFirst < lowest) lowest = bottomFirst;
            const intptr_t limit = intptr_t(lowest) * planeStride - ring * intptr_t(sizeof(uint16_t));
            reducible = limit < outLastBytes ? 0 : int32_t((limit - outLastBytes) / outRowBytes) + 1;
            const int32_t ready = s == 1 ? done : done / s;  // output rows whose input rows are final
            if (ready < reducible) reducible = ready;
            if (outRows < reducible) reducible = outRows;
        }
        if (reducible > reduced) {
            for (uint16_t* plane : allPlanes)
                kernels->reduce(plane, stride, w, h, s, int32_t(inFormat.bitDepth), int32_t(outFormat.bitDepth),
                                rowScratch, reduced, reducible);
            reduced = reducible;
        }
    }
    return true;
}

void HA::GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) {
    *planeWidth = width + 32;
    *planeRowBytes = outFormat.bitDepth == 8 ? width : uint32_t(planeStride);
    *planeHeight = height + 2 * ring;
}

bool HA::GetResultPlanes(void* planes[3]) {
    return PlanesInOutputOrder(planes, planeEven, planeG, planeOdd);
}
