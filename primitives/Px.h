// The image primitives: plain functions on plain pointers with byte steps. Each public entry
// dispatches once per process to the form written for this processor; no primitive allocates.
#pragma once

#include "primitives/PxArray.h"
#include "primitives/PxFilter.h"
#include "primitives/PxImage.h"
#include "primitives/PxTypes.h"

#include <cstdint>

// 8-bit Bayer mosaic to interleaved R, G, B: bilinear chroma, gradient-selected green inside the
// image, four-neighbour green in the two outermost rows and columns. srcRoi is clipped to srcSize
// in place; dst is the first pixel of the region. Exact integer result on every processor.
PxStatus PxBayerToRgb_8u(const uint8_t* src, PxRect* srcRoi, PxSize srcSize, int32_t srcStep, uint8_t* dst,
                         int32_t dstStep, int32_t grid, int32_t reserved);
