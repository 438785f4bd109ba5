// The forms behind the array primitives of PxArray.h. The public entries check the arguments and
// take the shortcuts; a form is only called with valid pointers and len >= 1, and returns the
// warning status of its work. The AVX2 forms give the same bits as the scalar ones, except where
// PxArray.h says otherwise.
#pragma once

#include "primitives/PxTypes.h"

#include <cstdint>

// Out-of-place add, subtract and multiply stream their stores past the cache above this many bytes
// of destination (87,376 single-precision elements).
constexpr int64_t arrayStreamBytes = 87376 * 4;

// Conversions stream when the bytes they touch exceed 512 KiB and the largest cache, if known.
bool StreamConversion(int64_t bytesTouched);

#define PX_ARRAY_FORMS(Form)                                                                        \
    PxStatus Add32f##Form(const float* src1, const float* src2, float* dst, int32_t len);           \
    PxStatus Add64f##Form(const double* src1, const double* src2, double* dst, int32_t len);        \
    PxStatus Sub32f##Form(const float* src1, const float* src2, float* dst, int32_t len);           \
    PxStatus Sub64f##Form(const double* src1, const double* src2, double* dst, int32_t len);        \
    PxStatus Mul32f##Form(const float* src1, const float* src2, float* dst, int32_t len);           \
    PxStatus Mul64f##Form(const double* src1, const double* src2, double* dst, int32_t len);        \
    PxStatus Div64f##Form(const double* src1, const double* src2, double* dst, int32_t len);        \
    PxStatus Add32fI##Form(const float* src, float* srcDst, int32_t len);                           \
    PxStatus Add64fI##Form(const double* src, double* srcDst, int32_t len);                         \
    PxStatus Sub32fI##Form(const float* src, float* srcDst, int32_t len);                           \
    PxStatus Sub64fI##Form(const double* src, double* srcDst, int32_t len);                         \
    PxStatus Mul64fI##Form(const double* src, double* srcDst, int32_t len);                         \
    PxStatus Div32fI##Form(const float* src, float* srcDst, int32_t len);                           \
    PxStatus Div64fI##Form(const double* src, double* srcDst, int32_t len);                         \
    PxStatus AddProduct32f##Form(const float* src1, const float* src2, float* srcDst, int32_t len); \
    PxStatus Abs32fI##Form(float* srcDst, int32_t len);                                             \
    PxStatus Sqr32fI##Form(float* srcDst, int32_t len);                                             \
    PxStatus Sqr64f##Form(const double* src, double* dst, int32_t len);                             \
    PxStatus AddC32fI##Form(float value, float* srcDst, int32_t len);                               \
    PxStatus AddC64fI##Form(double value, double* srcDst, int32_t len);                             \
    PxStatus MulC64fI##Form(double value, double* srcDst, int32_t len);                             \
    PxStatus ThresholdGT32fI##Form(float* srcDst, int32_t len, float level);                        \
    PxStatus ThresholdLT32fI##Form(float* srcDst, int32_t len, float level);                        \
    PxStatus ThresholdLT64fI##Form(double* srcDst, int32_t len, double level);                      \
    PxStatus Inv32f##Form(const float* src, float* dst, int32_t len);                               \
    PxStatus Inv64f##Form(const double* src, double* dst, int32_t len);                             \
    PxStatus InvSqrt64f##Form(const double* src, double* dst, int32_t len);                         \
    PxStatus Convert32f64f##Form(const float* src, double* dst, int32_t len);                       \
    PxStatus Convert64f32f##Form(const double* src, float* dst, int32_t len);

PX_ARRAY_FORMS(Scalar)
PX_ARRAY_FORMS(Avx2)

#undef PX_ARRAY_FORMS
