// Conversions, thresholds, copies and division on one-channel images.
#pragma once

#include "primitives/PxTypes.h"

#include <cstdint>

// Sample type conversions. Widening ones are exact; 16u8u saturates at 255. The narrowing forms may be
// called in place (same pointer, same step): each row's result is written over the start of that row.
PxStatus PxConvertImage_8u32f(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi);
PxStatus PxConvertImage_16u32f(const uint16_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi);
PxStatus PxConvertImage_8u16u(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi);
PxStatus PxConvertImage_16u8u(const uint16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi);

// Float to integer with saturation. roundMode 0 truncates, 1 rounds to nearest even, 2 or more takes
// floor(x + 0.5); a negative mode is refused. NaN gives 255 for 8u and 0 for 16u.
PxStatus PxConvertImage_32f8u(const float* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi,
                              int32_t roundMode);
PxStatus PxConvertImage_32f16u(const float* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi,
                               int32_t roundMode);

// x = min(x, level) in place.
PxStatus PxThresholdGTImage_8u_I(uint8_t* srcDst, int32_t step, PxSize roi, uint8_t level);
PxStatus PxThresholdGTImage_16u_I(uint16_t* srcDst, int32_t step, PxSize roi, uint16_t level);

// Row-by-row copy; steps are not checked.
PxStatus PxCopyImage_16u(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi);

// dst = src2 / src1, row by row. A zero divisor gives +Inf, -Inf or NaN by the numerator's sign (the
// zero's sign is ignored) and the call returns PxStatusDivideByZero after doing every row.
PxStatus PxDivImage_32f(const float* src1, int32_t step1, const float* src2, int32_t step2, float* dst,
                        int32_t dstStep, PxSize roi);
