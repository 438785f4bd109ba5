// The shared drivers of the filter primitives and the forms that plug their row arithmetic into them.
#pragma once

#include "primitives/PxFilter.h"

#include <cstdint>

// Rows of a correlation read from a padded source: in is the sample under the first tap for the first
// output pixel, taps are stored last first. Shared by every form of PxFilterBorder_32f.
typedef void (*FilterRowsFn)(const uint8_t* in, intptr_t inStride, uint8_t* out, intptr_t outStride, int32_t width,
                             int32_t rows, const float* reversedTaps, int32_t kw, int32_t kh);

PxStatus FilterBorderWithRows(FilterRowsFn filterRows, const float* src, int32_t srcStep, float* dst,
                              int32_t dstStep, PxSize roi, int32_t borderType, const float* borderValue,
                              const PxFilterBorderSpec* filterSpec, uint8_t* buffer);
PxStatus FilterBorderRingWithRows(FilterRowsFn filterRows, const float* src, int32_t srcStep, int32_t srcRingRows,
                                  float* dst, int32_t dstStep, int32_t dstRingRows, PxSize roi, int32_t firstRow,
                                  int32_t endRow, int32_t borderType, const float* borderValue,
                                  const PxFilterBorderSpec* filterSpec, uint8_t* buffer);
// The box filter's two running sums, per form: the column sums over the image's columns, then one row.
typedef void (*UpdateColumnsFn)(float* sums, const float* entering, const float* leaving, int32_t count);
typedef void (*WindowRowFn)(const float* sums, float* out, int32_t width, int32_t mw, float factor);
PxStatus FilterBoxBorderWithRows(UpdateColumnsFn updateColumns, WindowRowFn windowRow, const float* src,
                                 int32_t srcStep, float* dst, int32_t dstStep, PxSize roi, PxSize mask,
                                 int32_t borderType, const float* borderValue, uint8_t* buffer);

PxStatus FilterBoxBorderAvx2(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                             PxSize mask, int32_t borderType, const float* borderValue, uint8_t* buffer);
PxStatus FilterBorderAvx2(const float* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi,
                          int32_t borderType, const float* borderValue, const PxFilterBorderSpec* filterSpec,
                          uint8_t* buffer);
PxStatus FilterBorderRingAvx2(const float* src, int32_t srcStep, int32_t srcRingRows, float* dst, int32_t dstStep,
                              int32_t dstRingRows, PxSize roi, int32_t firstRow, int32_t endRow, int32_t borderType,
                              const float* borderValue, const PxFilterBorderSpec* filterSpec, uint8_t* buffer);
