// The array primitives: argument checks, shortcuts and dispatch in the public entries, and the
// scalar forms, which every processor level below AVX2 runs and which the AVX2 forms must match.
#include "primitives/ArrayArithmeticForms.h"
#include "primitives/Dispatch.h"
#include "primitives/PxArray.h"

#include <xmmintrin.h>
#include <cfloat>
#include <cmath>
#include <cstring>

namespace {

template <class... P>
PxStatus CheckArguments(int32_t len, P... pointers) {
    if (((pointers == nullptr) || ...)) return PxStatusNullPointer;
    return len < 1 ? PxStatusBadSize : PxStatusOk;
}

// The reciprocals mask every floating-point exception for the call and leave the caller's flags as
// they were: a zero or a negative input is reported by the status, not by a trap or a sticky flag.
// All float arithmetic here runs in the vector unit, whose control and status word holds the masks,
// the flags and the rounding mode; it is saved and put back directly, because some C libraries'
// fesetenv leaves that word's flags alone.
class KeepFloatEnvironment {
public:
    KeepFloatEnvironment() : saved_(_mm_getcsr()) { _mm_setcsr((saved_ | allMasks) & ~allFlags); }
    ~KeepFloatEnvironment() { _mm_setcsr(saved_); }
    KeepFloatEnvironment(const KeepFloatEnvironment&) = delete;
    KeepFloatEnvironment& operator=(const KeepFloatEnvironment&) = delete;

private:
    static constexpr unsigned allFlags = 0x3F, allMasks = 0x1F80;
    unsigned saved_;
};

// Each element is read before the same index is written, so dst may be either source.
template <class T, class Op>
PxStatus Elementwise(const T* a, const T* b, T* dst, int32_t len, Op op) {
    for (int32_t i = 0; i < len; ++i) dst[i] = op(a[i], b[i]);
    return PxStatusOk;
}

template <class T, class Op>
PxStatus InPlace(T* srcDst, int32_t len, Op op) {
    for (int32_t i = 0; i < len; ++i) srcDst[i] = op(srcDst[i]);
    return PxStatusOk;
}

// A zero divisor of either sign divides as +0: x / +0 gives +Inf, -Inf or NaN by the numerator's sign.
template <class T>
PxStatus Divide(const T* divisor, const T* numerator, T* dst, int32_t len) {
    bool zero = false;
    for (int32_t i = 0; i < len; ++i) {
        const T b = divisor[i], a = numerator[i];
        zero |= b == 0;
        dst[i] = a / (b == 0 ? T(0) : b);
    }
    return zero ? PxStatusDivideByZero : PxStatusOk;
}

template <class T>
PxStatus Invert(const T* src, T* dst, int32_t len) {
    PxStatus status = PxStatusOk;
    for (int32_t i = 0; i < len; ++i) {
        const T x = src[i];
        if (x == 0) status = PxStatusSingularity;
        dst[i] = T(1) / x;
    }
    return status;
}

template <class T>
PxStatus Fill(T value, T* dst, int32_t len) {
    for (int32_t i = 0; i < len; ++i) dst[i] = value;
    return PxStatusOk;
}

template <class T>
PxStatus Copy(const T* src, T* dst, int32_t len) {
    if (src != dst) std::memcpy(dst, src, size_t(len) * sizeof(T));
    return PxStatusOk;
}

PxStatus Set32fScalar(float value, float* dst, int32_t len) { return Fill(value, dst, len); }
PxStatus Set64fScalar(double value, double* dst, int32_t len) { return Fill(value, dst, len); }
PxStatus Copy16uScalar(const uint16_t* src, uint16_t* dst, int32_t len) { return Copy(src, dst, len); }
PxStatus Copy64fScalar(const double* src, double* dst, int32_t len) { return Copy(src, dst, len); }

constexpr auto add32fForms = PxForms(Add32fScalar, Add32fAvx2, Add32fAvx2);
constexpr auto add64fForms = PxForms(Add64fScalar, Add64fAvx2, Add64fAvx2);
constexpr auto sub32fForms = PxForms(Sub32fScalar, Sub32fAvx2, Sub32fAvx2);
constexpr auto sub64fForms = PxForms(Sub64fScalar, Sub64fAvx2, Sub64fAvx2);
constexpr auto mul32fForms = PxForms(Mul32fScalar, Mul32fAvx2, Mul32fAvx2);
constexpr auto mul64fForms = PxForms(Mul64fScalar, Mul64fAvx2, Mul64fAvx2);
constexpr auto div64fForms = PxForms(Div64fScalar, Div64fAvx2, Div64fAvx2);
constexpr auto add32fIForms = PxForms(Add32fIScalar, Add32fIAvx2, Add32fIAvx2);
constexpr auto add64fIForms = PxForms(Add64fIScalar, Add64fIAvx2, Add64fIAvx2);
constexpr auto sub32fIForms = PxForms(Sub32fIScalar, Sub32fIAvx2, Sub32fIAvx2);
constexpr auto sub64fIForms = PxForms(Sub64fIScalar, Sub64fIAvx2, Sub64fIAvx2);
constexpr auto mul64fIForms = PxForms(Mul64fIScalar, Mul64fIAvx2, Mul64fIAvx2);
constexpr auto div32fIForms = PxForms(Div32fIScalar, Div32fIAvx2, Div32fIAvx2);
constexpr auto div64fIForms = PxForms(Div64fIScalar, Div64fIAvx2, Div64fIAvx2);
constexpr auto addProduct32fForms = PxForms(AddProduct32fScalar, AddProduct32fAvx2, AddProduct32fAvx2);
constexpr auto abs32fIForms = PxForms(Abs32fIScalar, Abs32fIAvx2, Abs32fIAvx2);
constexpr auto sqr32fIForms = PxForms(Sqr32fIScalar, Sqr32fIAvx2, Sqr32fIAvx2);
constexpr auto sqr64fForms = PxForms(Sqr64fScalar, Sqr64fAvx2, Sqr64fAvx2);
constexpr auto addC32fIForms = PxForms(AddC32fIScalar, AddC32fIAvx2, AddC32fIAvx2);
constexpr auto addC64fIForms = PxForms(AddC64fIScalar, AddC64fIAvx2, AddC64fIAvx2);
constexpr auto mulC64fIForms = PxForms(MulC64fIScalar, MulC64fIAvx2, MulC64fIAvx2);
constexpr auto thresholdGT32fIForms = PxForms(ThresholdGT32fIScalar, ThresholdGT32fIAvx2, ThresholdGT32fIAvx2);
constexpr auto thresholdLT32fIForms = PxForms(ThresholdLT32fIScalar, ThresholdLT32fIAvx2, ThresholdLT32fIAvx2);
constexpr auto thresholdLT64fIForms = PxForms(ThresholdLT64fIScalar, ThresholdLT64fIAvx2, ThresholdLT64fIAvx2);
constexpr auto inv32fForms = PxForms(Inv32fScalar, Inv32fAvx2, Inv32fAvx2);
constexpr auto inv64fForms = PxForms(Inv64fScalar, Inv64fAvx2, Inv64fAvx2);
constexpr auto invSqrt64fForms = PxForms(InvSqrt64fScalar, InvSqrt64fAvx2, InvSqrt64fAvx2);
constexpr auto convert32f64fForms = PxForms(Convert32f64fScalar, Convert32f64fAvx2, Convert32f64fAvx2);
constexpr auto convert64f32fForms = PxForms(Convert64f32fScalar, Convert64f32fAvx2, Convert64f32fAvx2);
// A fill or a copy is bound by memory on any processor; one form serves every level.
constexpr auto set32fForms = PxForms(Set32fScalar, Set32fScalar, Set32fScalar);
constexpr auto set64fForms = PxForms(Set64fScalar, Set64fScalar, Set64fScalar);
constexpr auto copy16uForms = PxForms(Copy16uScalar, Copy16uScalar, Copy16uScalar);
constexpr auto copy64fForms = PxForms(Copy64fScalar, Copy64fScalar, Copy64fScalar);

}  // namespace

bool StreamConversion(int64_t bytesTouched) {
    if (bytesTouched <= 524288) return false;
    const uint32_t cache = PxLargestCacheSize();
    return cache != 0 && bytesTouched >= int64_t(cache);
}

// Scalar forms.

PxStatus Add32fScalar(const float* src1, const float* src2, float* dst, int32_t len) {
    return Elementwise(src1, src2, dst, len, [](float a, float b) { return a + b; });
}
PxStatus Add64fScalar(const double* src1, const double* src2, double* dst, int32_t len) {
    return Elementwise(src1, src2, dst, len, [](double a, double b) { return a + b; });
}
PxStatus Sub32fScalar(const float* src1, const float* src2, float* dst, int32_t len) {
    return Elementwise(src1, src2, dst, len, [](float a, float b) { return b - a; });
}
PxStatus Sub64fScalar(const double* src1, const double* src2, double* dst, int32_t len) {
    return Elementwise(src1, src2, dst, len, [](double a, double b) { return b - a; });
}
PxStatus Mul32fScalar(const float* src1, const float* src2, float* dst, int32_t len) {
    return Elementwise(src1, src2, dst, len, [](float a, float b) { return a * b; });
}
PxStatus Mul64fScalar(const double* src1, const double* src2, double* dst, int32_t len) {
    return Elementwise(src1, src2, dst, len, [](double a, double b) { return a * b; });
}
PxStatus Div64fScalar(const double* src1, const double* src2, double* dst, int32_t len) {
    return Divide(src1, src2, dst, len);
}
PxStatus Add32fIScalar(const float* src, float* srcDst, int32_t len) { return Add32fScalar(src, srcDst, srcDst, len); }
PxStatus Add64fIScalar(const double* src, double* srcDst, int32_t len) {
    return Add64fScalar(src, srcDst, srcDst, len);
}
PxStatus Sub32fIScalar(const float* src, float* srcDst, int32_t len) { return Sub32fScalar(src, srcDst, srcDst, len); }
PxStatus Sub64fIScalar(const double* src, double* srcDst, int32_t len) {
    return Sub64fScalar(src, srcDst, srcDst, len);
}
PxStatus Mul64fIScalar(const double* src, double* srcDst, int32_t len) {
    return Mul64fScalar(srcDst, src, srcDst, len);
}
PxStatus Div32fIScalar(const float* src, float* srcDst, int32_t len) { return Divide(src, srcDst, srcDst, len); }
PxStatus Div64fIScalar(const double* src, double* srcDst, int32_t len) { return Divide(src, srcDst, srcDst, len); }

// The product is rounded before the sum: this build targets no fused multiply-add here.
PxStatus AddProduct32fScalar(const float* src1, const float* src2, float* srcDst, int32_t len) {
    for (int32_t i = 0; i < len; ++i) {
        const float product = src1[i] * src2[i];
        srcDst[i] += product;
    }
    return PxStatusOk;
}

PxStatus Abs32fIScalar(float* srcDst, int32_t len) {
    for (int32_t i = 0; i < len; ++i) {
        uint32_t bits;
        std::memcpy(&bits, &srcDst[i], sizeof bits);
        bits &= 0x7FFFFFFFu;
        std::memcpy(&srcDst[i], &bits, sizeof bits);
    }
    return PxStatusOk;
}
PxStatus Sqr32fIScalar(float* srcDst, int32_t len) {
    return InPlace(srcDst, len, [](float x) { return x * x; });
}
PxStatus Sqr64fScalar(const double* src, double* dst, int32_t len) {
    return Elementwise(src, src, dst, len, [](double x, double) { return x * x; });
}
PxStatus AddC32fIScalar(float value, float* srcDst, int32_t len) {
    return InPlace(srcDst, len, [value](float x) { return x + value; });
}
PxStatus AddC64fIScalar(double value, double* srcDst, int32_t len) {
    return InPlace(srcDst, len, [value](double x) { return x + value; });
}
PxStatus MulC64fIScalar(double value, double* srcDst, int32_t len) {
    return InPlace(srcDst, len, [value](double x) { return x * value; });
}
PxStatus ThresholdGT32fIScalar(float* srcDst, int32_t len, float level) {
    return InPlace(srcDst, len, [level](float x) { return x < level ? x : level; });
}
PxStatus ThresholdLT32fIScalar(float* srcDst, int32_t len, float level) {
    return InPlace(srcDst, len, [level](float x) { return x > level ? x : level; });
}
PxStatus ThresholdLT64fIScalar(double* srcDst, int32_t len, double level) {
    return InPlace(srcDst, len, [level](double x) { return x > level ? x : level; });
}

// True division: the correctly rounded reciprocal, within the bound of the estimating forms.
PxStatus Inv32fScalar(const float* src, float* dst, int32_t len) { return Invert(src, dst, len); }
PxStatus Inv64fScalar(const double* src, double* dst, int32_t len) { return Invert(src, dst, len); }
PxStatus InvSqrt64fScalar(const double* src, double* dst, int32_t len) {
    PxStatus status = PxStatusOk;
    for (int32_t i = 0; i < len; ++i) {
        const double x = src[i];
        if (x == 0)
            status = PxStatusSingularity;
        else if (x < 0)
            status = PxStatusDomain;
        dst[i] = 1.0 / std::sqrt(x);  // sqrt(-0) is -0, so -0 gives -Inf
    }
    return status;
}

PxStatus Convert32f64fScalar(const float* src, double* dst, int32_t len) {
    for (int32_t i = 0; i < len; ++i) dst[i] = src[i];
    return PxStatusOk;
}
// The upper bound is taken first and lets NaN through to it; nothing can round up to infinity.
PxStatus Convert64f32fScalar(const double* src, float* dst, int32_t len) {
    constexpr double largest = FLT_MAX;
    for (int32_t i = 0; i < len; ++i) {
        double v = src[i];
        v = v < largest ? v : largest;
        v = v > -largest ? v : -largest;
        dst[i] = float(v);
    }
    return PxStatusOk;
}

// Public entries.

PxStatus PxAdd_32f(const float* src1, const float* src2, float* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, dst)) return s;
    return add32fForms(src1, src2, dst, len);
}
PxStatus PxAdd_64f(const double* src1, const double* src2, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, dst)) return s;
    return add64fForms(src1, src2, dst, len);
}
PxStatus PxSub_32f(const float* src1, const float* src2, float* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, dst)) return s;
    return sub32fForms(src1, src2, dst, len);
}
PxStatus PxSub_64f(const double* src1, const double* src2, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, dst)) return s;
    return sub64fForms(src1, src2, dst, len);
}
PxStatus PxMul_32f(const float* src1, const float* src2, float* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, dst)) return s;
    return mul32fForms(src1, src2, dst, len);
}
PxStatus PxMul_64f(const double* src1, const double* src2, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, dst)) return s;
    return mul64fForms(src1, src2, dst, len);
}
PxStatus PxDiv_64f(const double* src1, const double* src2, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, dst)) return s;
    return div64fForms(src1, src2, dst, len);
}

PxStatus PxAdd_32f_I(const float* src, float* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, srcDst)) return s;
    return add32fIForms(src, srcDst, len);
}
PxStatus PxAdd_64f_I(const double* src, double* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, srcDst)) return s;
    return add64fIForms(src, srcDst, len);
}
PxStatus PxSub_32f_I(const float* src, float* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, srcDst)) return s;
    return sub32fIForms(src, srcDst, len);
}
PxStatus PxSub_64f_I(const double* src, double* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, srcDst)) return s;
    return sub64fIForms(src, srcDst, len);
}
PxStatus PxMul_64f_I(const double* src, double* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, srcDst)) return s;
    return mul64fIForms(src, srcDst, len);
}
PxStatus PxDiv_32f_I(const float* src, float* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, srcDst)) return s;
    return div32fIForms(src, srcDst, len);
}
PxStatus PxDiv_64f_I(const double* src, double* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, srcDst)) return s;
    return div64fIForms(src, srcDst, len);
}
PxStatus PxAddProduct_32f(const float* src1, const float* src2, float* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src1, src2, srcDst)) return s;
    return addProduct32fForms(src1, src2, srcDst, len);
}

PxStatus PxAbs_32f_I(float* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    return abs32fIForms(srcDst, len);
}
PxStatus PxSqr_32f_I(float* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    return sqr32fIForms(srcDst, len);
}
PxStatus PxSqr_64f(const double* src, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    return sqr64fForms(src, dst, len);
}
PxStatus PxAddC_32f_I(float value, float* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    if (value == 0) return PxStatusOk;
    return addC32fIForms(value, srcDst, len);
}
PxStatus PxAddC_64f_I(double value, double* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    if (value == 0) return PxStatusOk;
    return addC64fIForms(value, srcDst, len);
}
// Zero clears the array outright, so NaN and infinities become 0 rather than NaN.
PxStatus PxMulC_64f_I(double value, double* srcDst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    if (value == 1.0) return PxStatusOk;
    if (value == 0.0) return set64fForms(0.0, srcDst, len);
    return mulC64fIForms(value, srcDst, len);
}
PxStatus PxThresholdGT_32f_I(float* srcDst, int32_t len, float level) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    return thresholdGT32fIForms(srcDst, len, level);
}
PxStatus PxThresholdLT_32f_I(float* srcDst, int32_t len, float level) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    return thresholdLT32fIForms(srcDst, len, level);
}
PxStatus PxThresholdLT_64f_I(double* srcDst, int32_t len, double level) {
    if (const PxStatus s = CheckArguments(len, srcDst)) return s;
    return thresholdLT64fIForms(srcDst, len, level);
}

PxStatus PxInv_32f(const float* src, float* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    const KeepFloatEnvironment keep;
    return inv32fForms(src, dst, len);
}
PxStatus PxInv_64f(const double* src, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    const KeepFloatEnvironment keep;
    return inv64fForms(src, dst, len);
}
PxStatus PxInvSqrt_64f(const double* src, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    const KeepFloatEnvironment keep;
    return invSqrt64fForms(src, dst, len);
}

PxStatus PxSet_32f(float value, float* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, dst)) return s;
    return set32fForms(value, dst, len);
}
PxStatus PxSet_64f(double value, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, dst)) return s;
    return set64fForms(value, dst, len);
}
PxStatus PxCopy_16u(const uint16_t* src, uint16_t* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    return copy16uForms(src, dst, len);
}
PxStatus PxCopy_64f(const double* src, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    return copy64fForms(src, dst, len);
}
PxStatus PxConvert_32f64f(const float* src, double* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    return convert32f64fForms(src, dst, len);
}
PxStatus PxConvert_64f32f(const double* src, float* dst, int32_t len) {
    if (const PxStatus s = CheckArguments(len, src, dst)) return s;
    return convert64f32fForms(src, dst, len);
}
