// The processor forms of the image primitives. Each form checks its arguments itself, so that the public
// entry is only the jump through the table and the first call of the process chooses the level even when
// its arguments are refused.
#pragma once

#include "primitives/PxImage.h"

#include <cstdint>

PxStatus ConvertImage8u32fScalar(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage8u32fAvx2(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage16u32fScalar(const uint16_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage16u32fAvx2(const uint16_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage8u16uScalar(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage8u16uAvx2(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage16u8uScalar(const uint16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage16u8uAvx2(const uint16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi);
PxStatus ConvertImage32f8uScalar(const float* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi,
                                 int32_t roundMode);
PxStatus ConvertImage32f8uAvx2(const float* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi,
                               int32_t roundMode);
PxStatus ConvertImage32f16uScalar(const float* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi,
                                  int32_t roundMode);
PxStatus ConvertImage32f16uAvx2(const float* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi,
                                int32_t roundMode);
PxStatus CopyImage16uScalar(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi);
PxStatus CopyImage16uAvx2(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi);
PxStatus DivImage32fScalar(const float* src1, int32_t step1, const float* src2, int32_t step2, float* dst,
                           int32_t dstStep, PxSize roi);
PxStatus DivImage32fAvx2(const float* src1, int32_t step1, const float* src2, int32_t step2, float* dst,
                         int32_t dstStep, PxSize roi);

// Argument checks, in the order of every image primitive: pointers, sizes, steps, then the mode.
static inline PxStatus PxCheckImages(const void* src, int32_t srcStep, const void* dst, int32_t dstStep, PxSize roi) {
    if (!src || !dst) return PxStatusNullPointer;
    if (roi.width < 1 || roi.height < 1) return PxStatusBadSize;
    if (srcStep < 1 || dstStep < 1) return PxStatusBadStep;
    return PxStatusOk;
}

static inline PxStatus PxCheckRounding(const void* src, int32_t srcStep, const void* dst, int32_t dstStep, PxSize roi,
                                       int32_t roundMode) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    return roundMode < 0 ? PxStatusBadArgument : PxStatusOk;  // 0, 1, and 2 or more are modes
}

// The copy takes any steps.
static inline PxStatus PxCheckCopy(const void* src, const void* dst, PxSize roi) {
    if (!src || !dst) return PxStatusNullPointer;
    return roi.width < 1 || roi.height < 1 ? PxStatusBadSize : PxStatusOk;
}

static inline PxStatus PxCheckDivision(const void* src1, int32_t step1, const void* src2, int32_t step2,
                                       const void* dst, int32_t dstStep, PxSize roi) {
    if (!src1 || !src2 || !dst) return PxStatusNullPointer;
    if (roi.width < 1 || roi.height < 1) return PxStatusBadSize;
    if (step1 < 1 || step2 < 1 || dstStep < 1) return PxStatusBadStep;
    return PxStatusOk;
}

// Rounding of one float already limited to (-1, 65536) (values at or below -1 give 0 in every mode, values
// from 65536 up saturate in both targets, so the caller clamps into that range first). Shared by the scalar
// form and the wide forms' row tails, so both round the same way. Static: each file gets its own copy,
// compiled with its own instruction set.
static inline int32_t PxRoundBounded(float v, int32_t roundMode) {
    const int32_t t = int32_t(v);  // toward zero
    if (roundMode == 0) return t;
    const int32_t floorV = float(t) > v ? t - 1 : t;
    // Exact for v >= 0 (Sterbenz); for v in (-0.5, 0) it may round, but never below 0.5, where the outcome is
    // 0 either way.
    const float frac = v - float(floorV);
    if (roundMode == 1) return floorV + ((frac > 0.5f || (frac == 0.5f && (floorV & 1))) ? 1 : 0);
    return floorV + (frac >= 0.5f ? 1 : 0);  // floor(v + 0.5) without the addition's rounding
}

static inline uint8_t PxRoundTo8u(float x, int32_t roundMode) {
    float v = x < 255.0f ? x : 255.0f;  // NaN takes the bound
    if (!(v > -1.0f)) return 0;
    const int32_t r = PxRoundBounded(v, roundMode);
    return uint8_t(r < 0 ? 0 : r > 255 ? 255 : r);
}

static inline uint16_t PxRoundTo16u(float x, int32_t roundMode) {
    float v = x > 0.0f ? x : 0.0f;  // NaN takes the bound
    if (v >= 65536.0f) return 65535;
    const int32_t r = PxRoundBounded(v, roundMode);
    return uint16_t(r > 65535 ? 65535 : r);
}

// a / b with the zero-divisor rule: the zero's sign is ignored. Sets *warned on a zero divisor.
static inline float PxDivideGuarded(float a, float b, bool* warned) {
    if (b != 0.0f) return a / b;
    *warned = true;
    const float inf = __builtin_inff();
    return a > 0.0f ? inf : a < 0.0f ? -inf : __builtin_nanf("");
}
