// The array primitives with AVX2: one 256-bit register of results per step. Heads are peeled until
// the destination is 32-byte aligned, so the main loop stores aligned (and may stream); head and tail
// run the same vector step over a padded copy, which keeps every element's result identical.
#include "primitives/ArrayArithmeticForms.h"

#include <immintrin.h>

#include <cfloat>
#include <cstring>

namespace {

template <bool stream>
inline void Store(float* p, __m256 v) {
    if (stream)
        _mm256_stream_ps(p, v);
    else
        _mm256_storeu_ps(p, v);
}

template <bool stream>
inline void Store(double* p, __m256d v) {
    if (stream)
        _mm256_stream_pd(p, v);
    else
        _mm256_storeu_pd(p, v);
}

// The last warning of the call wins, as the blocks run in order.
inline void Note(PxStatus& status, PxStatus blockStatus) {
    if (blockStatus != PxStatusOk) status = blockStatus;
}

// Fewer than one block of elements: the sources are copied into a block padded with ones (no zero
// divisor, no negative root), the step runs on it and the first n results are copied out.
template <class Op>
PxStatus Partial(const Op& op, const typename Op::In* a, const typename Op::In* b, const typename Op::In* c,
                 typename Op::Out* d, int32_t n) {
    using In = typename Op::In;
    using Out = typename Op::Out;
    if (n <= 0) return PxStatusOk;
    In ta[Op::lanes], tb[Op::lanes], tc[Op::lanes];
    Out td[Op::lanes];
    for (int32_t k = 0; k < Op::lanes; ++k) ta[k] = tb[k] = tc[k] = In(1);
    memcpy(ta, a, size_t(n) * sizeof(In));
    memcpy(tb, b, size_t(n) * sizeof(In));
    memcpy(tc, c, size_t(n) * sizeof(In));
    const PxStatus status = op.template Block<false>(ta, tb, tc, td);
    memcpy(d, td, size_t(n) * sizeof(Out));
    return status;
}

// Runs op over len elements of up to three sources (unused ones repeat the first) into d.
template <class Op>
PxStatus Run(const Op& op, const typename Op::In* a, const typename Op::In* b, const typename Op::In* c,
             typename Op::Out* d, int32_t len, bool stream) {
    using Out = typename Op::Out;
    const uintptr_t address = reinterpret_cast<uintptr_t>(d);
    // A destination off its element alignment can never reach 32 bytes: it stays unaligned throughout.
    const bool elementAligned = address % sizeof(Out) == 0;
    int32_t i = elementAligned ? int32_t((0 - address) % 32 / sizeof(Out)) : 0;
    if (i > len) i = len;
    PxStatus status = Partial(op, a, b, c, d, i);
    const int32_t end = i + (len - i) / Op::lanes * Op::lanes;
    if (stream && elementAligned) {
        for (; i < end; i += Op::lanes) Note(status, op.template Block<true>(a + i, b + i, c + i, d + i));
        _mm_sfence();  // streaming stores are weakly ordered; publish them before returning
    } else {
        for (; i < end; i += Op::lanes) Note(status, op.template Block<false>(a + i, b + i, c + i, d + i));
    }
    Note(status, Partial(op, a + i, b + i, c + i, d + i, len - i));
    return status;
}

// Element-wise f(a, b) with no warnings.
template <class F>
struct Floats {
    using In = float;
    using Out = float;
    static constexpr int32_t lanes = 8;
    F f;
    template <bool stream>
    PxStatus Block(const float* a, const float* b, const float*, float* d) const {
        Store<stream>(d, f(_mm256_loadu_ps(a), _mm256_loadu_ps(b)));
        return PxStatusOk;
    }
};

template <class F>
struct Doubles {
    using In = double;
    using Out = double;
    static constexpr int32_t lanes = 4;
    F f;
    template <bool stream>
    PxStatus Block(const double* a, const double* b, const double*, double* d) const {
        Store<stream>(d, f(_mm256_loadu_pd(a), _mm256_loadu_pd(b)));
        return PxStatusOk;
    }
};

template <class F>
Floats<F> OnFloats(F f) {
    return Floats<F>{f};
}

template <class F>
Doubles<F> OnDoubles(F f) {
    return Doubles<F>{f};
}

inline bool StreamArithmetic(int32_t len, size_t elementSize) { return int64_t(len) * elementSize > arrayStreamBytes; }

// b / a, with a zero divisor of either sign replaced by +0.
struct DivideFloats {
    using In = float;
    using Out = float;
    static constexpr int32_t lanes = 8;
    template <bool stream>
    PxStatus Block(const float* a, const float* b, const float*, float* d) const {
        const __m256 divisor = _mm256_loadu_ps(a);
        const __m256 zero = _mm256_cmp_ps(divisor, _mm256_setzero_ps(), _CMP_EQ_OQ);
        Store<stream>(d, _mm256_div_ps(_mm256_loadu_ps(b), _mm256_andnot_ps(zero, divisor)));
        return _mm256_movemask_ps(zero) ? PxStatusDivideByZero : PxStatusOk;
    }
};

struct DivideDoubles {
    using In = double;
    using Out = double;
    static constexpr int32_t lanes = 4;
    template <bool stream>
    PxStatus Block(const double* a, const double* b, const double*, double* d) const {
        const __m256d divisor = _mm256_loadu_pd(a);
        const __m256d zero = _mm256_cmp_pd(divisor, _mm256_setzero_pd(), _CMP_EQ_OQ);
        Store<stream>(d, _mm256_div_pd(_mm256_loadu_pd(b), _mm256_andnot_pd(zero, divisor)));
        return _mm256_movemask_pd(zero) ? PxStatusDivideByZero : PxStatusOk;
    }
};

// c + a * b, rounded once.
struct AddProductFloats {
    using In = float;
    using Out = float;
    static constexpr int32_t lanes = 8;
    template <bool stream>
    PxStatus Block(const float* a, const float* b, const float* c, float* d) const {
        Store<stream>(d, _mm256_fmadd_ps(_mm256_loadu_ps(a), _mm256_loadu_ps(b), _mm256_loadu_ps(c)));
        return PxStatusOk;
    }
};

struct InvertFloats {
    using In = float;
    using Out = float;
    static constexpr int32_t lanes = 8;
    template <bool stream>
    PxStatus Block(const float* a, const float*, const float*, float* d) const {
        const __m256 x = _mm256_loadu_ps(a);
        Store<stream>(d, _mm256_div_ps(_mm256_set1_ps(1.0f), x));
        const __m256 zero = _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_EQ_OQ);
        return _mm256_movemask_ps(zero) ? PxStatusSingularity : PxStatusOk;
    }
};

struct InvertDoubles {
    using In = double;
    using Out = double;
    static constexpr int32_t lanes = 4;
    template <bool stream>
    PxStatus Block(const double* a, const double*, const double*, double* d) const {
        const __m256d x = _mm256_loadu_pd(a);
        Store<stream>(d, _mm256_div_pd(_mm256_set1_pd(1.0), x));
        const __m256d zero = _mm256_cmp_pd(x, _mm256_setzero_pd(), _CMP_EQ_OQ);
        return _mm256_movemask_pd(zero) ? PxStatusSingularity : PxStatusOk;
    }
};

struct InvertRootDoubles {
    using In = double;
    using Out = double;
    static constexpr int32_t lanes = 4;
    template <bool stream>
    PxStatus Block(const double* a, const double*, const double*, double* d) const {
        const __m256d x = _mm256_loadu_pd(a);
        Store<stream>(d, _mm256_div_pd(_mm256_set1_pd(1.0), _mm256_sqrt_pd(x)));
        const int zero = _mm256_movemask_pd(_mm256_cmp_pd(x, _mm256_setzero_pd(), _CMP_EQ_OQ));
        const int negative = _mm256_movemask_pd(_mm256_cmp_pd(x, _mm256_setzero_pd(), _CMP_LT_OQ));
        // The masks are disjoint, so the larger one holds the block's last warning.
        if (zero == 0 && negative == 0) return PxStatusOk;
        return zero > negative ? PxStatusSingularity : PxStatusDomain;
    }
};

struct WidenFloats {
    using In = float;
    using Out = double;
    static constexpr int32_t lanes = 8;
    template <bool stream>
    PxStatus Block(const float* a, const float*, const float*, double* d) const {
        const __m256 x = _mm256_loadu_ps(a);
        Store<stream>(d, _mm256_cvtps_pd(_mm256_castps256_ps128(x)));
        Store<stream>(d + 4, _mm256_cvtps_pd(_mm256_extractf128_ps(x, 1)));
        return PxStatusOk;
    }
};

// min and max return their second operand when the first is NaN: NaN meets the upper bound first.
struct NarrowDoubles {
    using In = double;
    using Out = float;
    static constexpr int32_t lanes = 8;
    template <bool stream>
    PxStatus Block(const double* a, const double*, const double*, float* d) const {
        const __m256d upper = _mm256_set1_pd(FLT_MAX), lower = _mm256_set1_pd(-FLT_MAX);
        const __m256d low = _mm256_max_pd(_mm256_min_pd(_mm256_loadu_pd(a), upper), lower);
        const __m256d high = _mm256_max_pd(_mm256_min_pd(_mm256_loadu_pd(a + 4), upper), lower);
        Store<stream>(d, _mm256_set_m128(_mm256_cvtpd_ps(high), _mm256_cvtpd_ps(low)));
        return PxStatusOk;
    }
};

}  // namespace

PxStatus Add32fAvx2(const float* src1, const float* src2, float* dst, int32_t len) {
    const auto op = OnFloats([](__m256 a, __m256 b) { return _mm256_add_ps(a, b); });
    return Run(op, src1, src2, src1, dst, len, StreamArithmetic(len, sizeof(float)));
}
PxStatus Add64fAvx2(const double* src1, const double* src2, double* dst, int32_t len) {
    const auto op = OnDoubles([](__m256d a, __m256d b) { return _mm256_add_pd(a, b); });
    return Run(op, src1, src2, src1, dst, len, StreamArithmetic(len, sizeof(double)));
}
PxStatus Sub32fAvx2(const float* src1, const float* src2, float* dst, int32_t len) {
    const auto op = OnFloats([](__m256 a, __m256 b) { return _mm256_sub_ps(b, a); });
    return Run(op, src1, src2, src1, dst, len, StreamArithmetic(len, sizeof(float)));
}
PxStatus Sub64fAvx2(const double* src1, const double* src2, double* dst, int32_t len) {
    const auto op = OnDoubles([](__m256d a, __m256d b) { return _mm256_sub_pd(b, a); });
    return Run(op, src1, src2, src1, dst, len, StreamArithmetic(len, sizeof(double)));
}
PxStatus Mul32fAvx2(const float* src1, const float* src2, float* dst, int32_t len) {
    const auto op = OnFloats([](__m256 a, __m256 b) { return _mm256_mul_ps(a, b); });
    return Run(op, src1, src2, src1, dst, len, StreamArithmetic(len, sizeof(float)));
}
PxStatus Mul64fAvx2(const double* src1, const double* src2, double* dst, int32_t len) {
    const auto op = OnDoubles([](__m256d a, __m256d b) { return _mm256_mul_pd(a, b); });
    return Run(op, src1, src2, src1, dst, len, StreamArithmetic(len, sizeof(double)));
}
PxStatus Div64fAvx2(const double* src1, const double* src2, double* dst, int32_t len) {
    return Run(DivideDoubles{}, src1, src2, src1, dst, len, false);
}

// The in-place forms update data the caller is about to use again: they keep it in the cache.
PxStatus Add32fIAvx2(const float* src, float* srcDst, int32_t len) {
    const auto op = OnFloats([](__m256 a, __m256 b) { return _mm256_add_ps(a, b); });
    return Run(op, src, srcDst, src, srcDst, len, false);
}
PxStatus Add64fIAvx2(const double* src, double* srcDst, int32_t len) {
    const auto op = OnDoubles([](__m256d a, __m256d b) { return _mm256_add_pd(a, b); });
    return Run(op, src, srcDst, src, srcDst, len, false);
}
PxStatus Sub32fIAvx2(const float* src, float* srcDst, int32_t len) {
    const auto op = OnFloats([](__m256 a, __m256 b) { return _mm256_sub_ps(b, a); });
    return Run(op, src, srcDst, src, srcDst, len, false);
}
PxStatus Sub64fIAvx2(const double* src, double* srcDst, int32_t len) {
    const auto op = OnDoubles([](__m256d a, __m256d b) { return _mm256_sub_pd(b, a); });
    return Run(op, src, srcDst, src, srcDst, len, false);
}
PxStatus Mul64fIAvx2(const double* src, double* srcDst, int32_t len) {
    const auto op = OnDoubles([](__m256d a, __m256d b) { return _mm256_mul_pd(b, a); });
    return Run(op, src, srcDst, src, srcDst, len, false);
}
PxStatus Div32fIAvx2(const float* src, float* srcDst, int32_t len) {
    return Run(DivideFloats{}, src, srcDst, src, srcDst, len, false);
}
PxStatus Div64fIAvx2(const double* src, double* srcDst, int32_t len) {
    return Run(DivideDoubles{}, src, srcDst, src, srcDst, len, false);
}
PxStatus AddProduct32fAvx2(const float* src1, const float* src2, float* srcDst, int32_t len) {
    return Run(AddProductFloats{}, src1, src2, srcDst, srcDst, len, false);
}

PxStatus Abs32fIAvx2(float* srcDst, int32_t len) {
    const auto op = OnFloats([](__m256 a, __m256) {
        return _mm256_and_ps(a, _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF)));
    });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}
PxStatus Sqr32fIAvx2(float* srcDst, int32_t len) {
    const auto op = OnFloats([](__m256 a, __m256) { return _mm256_mul_ps(a, a); });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}
PxStatus Sqr64fAvx2(const double* src, double* dst, int32_t len) {
    const auto op = OnDoubles([](__m256d a, __m256d) { return _mm256_mul_pd(a, a); });
    return Run(op, src, src, src, dst, len, false);
}
PxStatus AddC32fIAvx2(float value, float* srcDst, int32_t len) {
    const __m256 v = _mm256_set1_ps(value);
    const auto op = OnFloats([v](__m256 a, __m256) { return _mm256_add_ps(a, v); });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}
PxStatus AddC64fIAvx2(double value, double* srcDst, int32_t len) {
    const __m256d v = _mm256_set1_pd(value);
    const auto op = OnDoubles([v](__m256d a, __m256d) { return _mm256_add_pd(a, v); });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}
PxStatus MulC64fIAvx2(double value, double* srcDst, int32_t len) {
    const __m256d v = _mm256_set1_pd(value);
    const auto op = OnDoubles([v](__m256d a, __m256d) { return _mm256_mul_pd(a, v); });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}
// min(x, level) is x < level ? x : level, and max(x, level) is x > level ? x : level: NaN gives level.
PxStatus ThresholdGT32fIAvx2(float* srcDst, int32_t len, float level) {
    const __m256 v = _mm256_set1_ps(level);
    const auto op = OnFloats([v](__m256 a, __m256) { return _mm256_min_ps(a, v); });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}
PxStatus ThresholdLT32fIAvx2(float* srcDst, int32_t len, float level) {
    const __m256 v = _mm256_set1_ps(level);
    const auto op = OnFloats([v](__m256 a, __m256) { return _mm256_max_ps(a, v); });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}
PxStatus ThresholdLT64fIAvx2(double* srcDst, int32_t len, double level) {
    const __m256d v = _mm256_set1_pd(level);
    const auto op = OnDoubles([v](__m256d a, __m256d) { return _mm256_max_pd(a, v); });
    return Run(op, srcDst, srcDst, srcDst, srcDst, len, false);
}

PxStatus Inv32fAvx2(const float* src, float* dst, int32_t len) {
    return Run(InvertFloats{}, src, src, src, dst, len, false);
}
PxStatus Inv64fAvx2(const double* src, double* dst, int32_t len) {
    return Run(InvertDoubles{}, src, src, src, dst, len, false);
}
PxStatus InvSqrt64fAvx2(const double* src, double* dst, int32_t len) {
    return Run(InvertRootDoubles{}, src, src, src, dst, len, false);
}

PxStatus Convert32f64fAvx2(const float* src, double* dst, int32_t len) {
    return Run(WidenFloats{}, src, src, src, dst, len, StreamConversion(int64_t(len) * 12));
}
PxStatus Convert64f32fAvx2(const double* src, float* dst, int32_t len) {
    return Run(NarrowDoubles{}, src, src, src, dst, len, StreamConversion(int64_t(len) * 12));
}
