// Element-wise arithmetic, fills, copies and conversions on plain arrays of len elements.
//
// Every entry checks its pointers first (PxStatusNullPointer), then len < 1 (PxStatusBadSize), and
// writes nothing when it refuses. In two-source forms the first source is the one subtracted and the
// divisor; in-place forms take the untouched operand first; fill and scalar forms take the value
// first. The destination may be one of the sources; partly overlapping arrays are not allowed.
#pragma once

#include "primitives/PxTypes.h"

#include <cstdint>

// dst = src1 + src2, dst = src2 - src1, dst = src1 * src2: one IEEE operation per element.
PxStatus PxAdd_32f(const float* src1, const float* src2, float* dst, int32_t len);
PxStatus PxAdd_64f(const double* src1, const double* src2, double* dst, int32_t len);
PxStatus PxSub_32f(const float* src1, const float* src2, float* dst, int32_t len);
PxStatus PxSub_64f(const double* src1, const double* src2, double* dst, int32_t len);
PxStatus PxMul_32f(const float* src1, const float* src2, float* dst, int32_t len);
PxStatus PxMul_64f(const double* src1, const double* src2, double* dst, int32_t len);

// Division, dst = src2 / src1 (or srcDst / src). A zero divisor counts as +0 whatever its sign, so a
// positive numerator gives +Inf, a negative one -Inf, zero or NaN gives NaN; every element is still
// done and the call returns PxStatusDivideByZero.
PxStatus PxDiv_64f(const double* src1, const double* src2, double* dst, int32_t len);
PxStatus PxDiv_32f_I(const float* src, float* srcDst, int32_t len);
PxStatus PxDiv_64f_I(const double* src, double* srcDst, int32_t len);

// srcDst += src, srcDst -= src, srcDst *= src.
PxStatus PxAdd_32f_I(const float* src, float* srcDst, int32_t len);
PxStatus PxAdd_64f_I(const double* src, double* srcDst, int32_t len);
PxStatus PxSub_32f_I(const float* src, float* srcDst, int32_t len);
PxStatus PxSub_64f_I(const double* src, double* srcDst, int32_t len);
PxStatus PxMul_64f_I(const double* src, double* srcDst, int32_t len);

// srcDst += src1 * src2; the AVX2 form fuses the multiply and the add, so the last bit may differ.
PxStatus PxAddProduct_32f(const float* src1, const float* src2, float* srcDst, int32_t len);

// Clears the sign bit of every element, NaN included.
PxStatus PxAbs_32f_I(float* srcDst, int32_t len);
PxStatus PxSqr_32f_I(float* srcDst, int32_t len);
PxStatus PxSqr_64f(const double* src, double* dst, int32_t len);

// srcDst += value; a value of exactly 0 returns without touching the data.
PxStatus PxAddC_32f_I(float value, float* srcDst, int32_t len);
PxStatus PxAddC_64f_I(double value, double* srcDst, int32_t len);
// srcDst *= value; 1.0 returns without touching the data, 0.0 stores 0.0 everywhere (NaN included).
PxStatus PxMulC_64f_I(double value, double* srcDst, int32_t len);

// x < level ? x : level, and x > level ? x : level: NaN becomes level.
PxStatus PxThresholdGT_32f_I(float* srcDst, int32_t len, float level);
PxStatus PxThresholdLT_32f_I(float* srcDst, int32_t len, float level);
PxStatus PxThresholdLT_64f_I(double* srcDst, int32_t len, double level);

// dst = 1 / src and dst = 1 / sqrt(src), close to correctly rounded. The caller's floating-point
// environment is kept. A zero gives an infinity of its sign and PxStatusSingularity; a negative value
// in PxInvSqrt_64f gives NaN and PxStatusDomain; with both, the last such element's status wins.
PxStatus PxInv_32f(const float* src, float* dst, int32_t len);
PxStatus PxInv_64f(const double* src, double* dst, int32_t len);
PxStatus PxInvSqrt_64f(const double* src, double* dst, int32_t len);

PxStatus PxSet_32f(float value, float* dst, int32_t len);
PxStatus PxSet_64f(double value, double* dst, int32_t len);
PxStatus PxCopy_16u(const uint16_t* src, uint16_t* dst, int32_t len);
PxStatus PxCopy_64f(const double* src, double* dst, int32_t len);

// Widens exactly.
PxStatus PxConvert_32f64f(const float* src, double* dst, int32_t len);
// Clamps to +-FLT_MAX (upper bound first, so NaN gives +FLT_MAX), then rounds to nearest.
PxStatus PxConvert_64f32f(const double* src, float* dst, int32_t len);
