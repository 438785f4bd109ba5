// The general filter, the box filter and the border copies.
#pragma once

#include "primitives/PxTypes.h"

#include <cstdint>

// Where a filter reads a pixel outside the image from.
enum : int32_t {
    PxBorderReplicate = 1,  // the nearest pixel: row and column clamped to the image
    PxBorderMirror = 3,     // mirrored about the edge pixel, which is not repeated
};

// Element type codes of the filter set-up calls.
enum : int32_t {
    PxType8u = 1,
    PxType16u = 5,
    PxType16s = 7,
    PxType32f = 13,
    PxType64f = 19,
};

// The set-up of a general filter: kernel size, type and a private copy of the taps, written by
// PxFilterBorderInit_32f into caller's memory of the queried size (any alignment).
struct PxFilterBorderSpec;

// Sizes in bytes of the specification block and of the work buffer of one PxFilterBorder_32f call.
// Checks: dimensions, types, channel count, null pointers, then the buffer size (set to 0 on overflow).
PxStatus PxFilterBorderGetSize(PxSize kernelSize, PxSize roi, int32_t dataType, int32_t kernelType,
                               int32_t numChannels, int32_t* specSize, int32_t* bufferSize);

// Copies kernelSize.width x kernelSize.height taps, row by row, into filterSpec; they are not normalised.
PxStatus PxFilterBorderInit_32f(const float* kernel, PxSize kernelSize, int32_t dataType, int32_t numChannels,
                                int32_t roundMode, PxFilterBorderSpec* filterSpec);

// Correlation: dst(x, y) = sum K[j * kw + i] * s(x + i - (kw - 1) / 2, y + j - (kh - 1) / 2), the
// source read through the border rule in each axis. borderValue has no effect with codes 1 and 3.
PxStatus PxFilterBorder_32f(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                            int32_t borderType, const float* borderValue, const PxFilterBorderSpec* filterSpec,
                            uint8_t* buffer);

// PxFilterBorder_32f for the output rows firstRow to endRow - 1 of an image of roi.height rows, for computations
// that make and drop an image's rows in order: source row k is read at src + (k % srcRingRows) * srcStep and
// output row y written at dst + (y % dstRingRows) * dstStep. Only the source rows that these output rows reach
// through the border rule are read; they must be in their places. Every pixel gets the bits of the whole-image
// call, with the same specification and a work buffer of the size queried for the whole roi.
PxStatus PxFilterBorderRows_32f(const float* src, int32_t srcStep, int32_t srcRingRows, float* dst, int32_t dstStep,
                                int32_t dstRingRows, PxSize roi, int32_t firstRow, int32_t endRow, int32_t borderType,
                                const float* borderValue, const PxFilterBorderSpec* filterSpec, uint8_t* buffer);

// Size in bytes of the work buffer of one PxFilterBoxBorder_32f call.
PxStatus PxFilterBoxBorderGetBufferSize(PxSize roi, PxSize mask, int32_t dataType, int32_t numChannels,
                                        int32_t* bufferSize);

// Mean over a mask.width x mask.height window anchored like the general filter, by running sums.
PxStatus PxFilterBoxBorder_32f(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                               PxSize mask, int32_t borderType, const float* borderValue, uint8_t* buffer);

// Fill the ring of a block around a source region from the region itself. srcDst is the region's first
// pixel, top rows below and left columns right of the block's corner; dstRoi is the whole block.
PxStatus PxCopyMirrorBorder_16u_I(uint16_t* srcDst, int32_t step, PxSize srcRoi, PxSize dstRoi, int32_t top,
                                  int32_t left);
PxStatus PxCopyReplicateBorder_32f_I(float* srcDst, int32_t step, PxSize srcRoi, PxSize dstRoi, int32_t top,
                                     int32_t left);
// As the in-place form, but the region is first copied from src into the block whose corner is dst.
PxStatus PxCopyReplicateBorder_32f(const float* src, int32_t srcStep, PxSize srcRoi, float* dst, int32_t dstStep,
                                   PxSize dstRoi, int32_t top, int32_t left);
