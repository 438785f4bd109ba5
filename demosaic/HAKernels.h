// Plane kernels of the Hamilton-Adams interpolation over 16-bit working planes. Each kernel has a plain scalar
// form, the definition, and an AVX2 form with the same signature that gives the same bits: every step is exact
// integer arithmetic. The wide forms take 16 columns at a time: for samples of up to 8 bits the sites of two
// neighbouring rows in the 16-bit lanes of a 256-bit vector, for deeper samples eight sites of one parity in
// the 32-bit lanes; both write back with a word blend, so the words of other sites keep their values.
#pragma once

#include <cstddef>
#include <cstdint>

// The three working planes of one frame. Each pointer is element (0, 0); every plane has a ring of two
// rows above and below and two columns left and right (columns -2, -1, width, width + 1), and rows are
// `stride` elements apart. `width` is a multiple of 16, `height` is even and at least 2.
struct HAPlanes {
    uint16_t* g;     // green
    uint16_t* even;  // the colour the even rows carry
    uint16_t* odd;   // the colour the odd rows carry
    intptr_t stride;  // elements between rows
    int32_t width;
    int32_t height;
    int32_t phase;  // BayerPhase: bit 1 set when row 0 begins with a green sample
    // Bits per sensor sample. Up to 8, the colour planes hold at most 8 * 255 and green at most 12 * 255, as the
    // steps leave them for such samples; every value the interpolation computes then lies within -12240 to
    // 20400, and the wide forms work in signed 16-bit lanes.
    int32_t sampleDepth = 16;
};

// The interpolation kernels work on the rows `firstRow` to `endRow` - 1 of the planes. Each reads the rows up
// to two (green) or one (the colour steps) beyond its range, ring rows included, and writes only its range.

// The mosaic's rows into all three planes as working samples (times 8): bytes when `deep` is false, else
// little-endian 16-bit words; source rows `srcStride` bytes apart, `src` is row 0. The colour planes also get
// their ring columns, mirrored about the edge sample (column -1 is column 1, column width is width - 2).
using HALoadKernel = void (*)(const HAPlanes& planes, const void* src, intptr_t srcStride, bool deep,
                              int32_t firstRow, int32_t endRow);
// Green at the colour sites, reading the mosaic from `odd` for even rows and from `even` for odd rows and
// writing `g` only.
using HAGreenKernel = void (*)(const HAPlanes& planes, int32_t firstRow, int32_t endRow);
// Both colour steps from the interpolated green: each colour at the green sites (horizontal pass, then
// vertical), then each colour at the sites of the other colour, from its diagonal neighbours.
using HAColourKernel = void (*)(const HAPlanes& planes, int32_t firstRow, int32_t endRow);

// Output reduction of one plane in place, output rows `firstOut` to `endOut` - 1. `plane` is element (0, 0),
// `stride` elements between rows. `inDepth` and `outDepth` are the stage's input and output bit depths;
// `rowScratch` holds at least 2 * (2 * width + 64) bytes, 32-byte aligned, for the kernels that want it.
// Output rows are packed from the start of the plane as a whole-frame reduction packs them, so a range of
// rows overwrites only bytes before its own input rows; the caller keeps rows still to be read beyond it.
using HAReduceKernel = void (*)(uint16_t* plane, intptr_t stride, int32_t width, int32_t height, int32_t scale,
                                int32_t inDepth, int32_t outDepth, uint8_t* rowScratch, int32_t firstOut,
                                int32_t endOut);

struct HAKernelSet {
    HALoadKernel load;
    HAGreenKernel green;
    HAColourKernel colour;
    HAReduceKernel reduce;
};

void HALoadScalar(const HAPlanes& planes, const void* src, intptr_t srcStride, bool deep, int32_t firstRow,
                  int32_t endRow);
void HAGreenScalar(const HAPlanes& planes, int32_t firstRow, int32_t endRow);
// The two colour steps on their own, and both in order.
void HAColourAtGreenScalar(const HAPlanes& planes, int32_t firstRow, int32_t endRow);
void HAColourAtColourScalar(const HAPlanes& planes, int32_t firstRow, int32_t endRow);
void HAColourScalar(const HAPlanes& planes, int32_t firstRow, int32_t endRow);
void HAReduceScalar(uint16_t* plane, intptr_t stride, int32_t width, int32_t height, int32_t scale, int32_t inDepth,
                    int32_t outDepth, uint8_t* rowScratch, int32_t firstOut, int32_t endOut);

void HALoadAvx2(const HAPlanes& planes, const void* src, intptr_t srcStride, bool deep, int32_t firstRow,
                int32_t endRow);
void HAGreenAvx2(const HAPlanes& planes, int32_t firstRow, int32_t endRow);
void HAColourAvx2(const HAPlanes& planes, int32_t firstRow, int32_t endRow);
void HAReduceAvx2(uint16_t* plane, intptr_t stride, int32_t width, int32_t height, int32_t scale, int32_t inDepth,
                  int32_t outDepth, uint8_t* rowScratch, int32_t firstOut, int32_t endOut);

// Output rows a reduction of `height` input rows gives: all of them at scale 1, the whole blocks otherwise.
inline int32_t HAOutputRows(int32_t height, int32_t scale) { return scale == 1 ? height : height / scale; }

// The scalar set, or the AVX2 set when `avx2` is true.
const HAKernelSet& HAKernelsFor(bool avx2);
