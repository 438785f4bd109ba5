// The array primitives: argument checks and their order, operand order, the edge values of
// division, reciprocals and narrowing, the value shortcuts, and every processor form this machine
// runs against the scalar one on random data, lengths and offsets.
#include "TestSupport.h"

#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

const float nanF = std::numeric_limits<float>::quiet_NaN(), infF = std::numeric_limits<float>::infinity();
const double nanD = std::numeric_limits<double>::quiet_NaN(), infD = std::numeric_limits<double>::infinity();

class ArrayArithmetic : public AtEachLevel {};

template <class T>
uint64_t Bits(T x) {
    if (sizeof(T) == 4) {
        uint32_t b;
        std::memcpy(&b, &x, 4);
        return b;
    }
    uint64_t b;
    std::memcpy(&b, &x, 8);
    return b;
}

TEST_P(ArrayArithmetic, NullPointerWinsOverLengthAndNothingIsWritten) {
    float f[4] = {1, 2, 3, 4}, g[4] = {5, 6, 7, 8};
    double d[4] = {1, 2, 3, 4}, e[4] = {5, 6, 7, 8};
    uint16_t u[4] = {1, 2, 3, 4};
    // Each primitive with (pointer present, len): null pointers come from present = false.
    const std::vector<std::pair<std::string, std::function<PxStatus(bool, int32_t)>>> calls = {
        {"Add_32f", [&](bool p, int32_t n) { return PxAdd_32f(f, p ? g : nullptr, g, n); }},
        {"Sub_64f", [&](bool p, int32_t n) { return PxSub_64f(p ? d : nullptr, e, e, n); }},
        {"Div_64f", [&](bool p, int32_t n) { return PxDiv_64f(d, p ? d : nullptr, e, n); }},
        {"Div_32f_I", [&](bool p, int32_t n) { return PxDiv_32f_I(p ? f : nullptr, g, n); }},
        {"Mul_64f_I", [&](bool p, int32_t n) { return PxMul_64f_I(p ? d : nullptr, e, n); }},
        {"AddProduct_32f", [&](bool p, int32_t n) { return PxAddProduct_32f(f, f, p ? g : nullptr, n); }},
        {"Sqr_64f", [&](bool p, int32_t n) { return PxSqr_64f(p ? d : nullptr, e, n); }},
        {"AddC_32f_I", [&](bool p, int32_t n) { return PxAddC_32f_I(0.0f, p ? g : nullptr, n); }},
        {"MulC_64f_I 0", [&](bool p, int32_t n) { return PxMulC_64f_I(0.0, p ? e : nullptr, n); }},
        {"MulC_64f_I 1", [&](bool p, int32_t n) { return PxMulC_64f_I(1.0, p ? e : nullptr, n); }},
        {"ThresholdGT_32f_I", [&](bool p, int32_t n) { return PxThresholdGT_32f_I(p ? g : nullptr, n, 0); }},
        {"Inv_32f", [&](bool p, int32_t n) { return PxInv_32f(f, p ? g : nullptr, n); }},
        {"InvSqrt_64f", [&](bool p, int32_t n) { return PxInvSqrt_64f(p ? d : nullptr, e, n); }},
        {"Copy_16u", [&](bool p, int32_t n) { return PxCopy_16u(u, p ? u + 2 : nullptr, n); }},
        {"Convert_64f32f", [&](bool p, int32_t n) { return PxConvert_64f32f(p ? d : nullptr, g, n); }},
    };
    for (const auto& call : calls) {
        EXPECT_EQ(call.second(false, 2), PxStatusNullPointer) << call.first;
        EXPECT_EQ(call.second(false, 0), PxStatusNullPointer) << call.first;
        EXPECT_EQ(call.second(true, 0), PxStatusBadSize) << call.first;  // also before the value shortcuts
        EXPECT_EQ(call.second(true, -1), PxStatusBadSize) << call.first;
    }
    const float f0[4] = {1, 2, 3, 4}, g0[4] = {5, 6, 7, 8};
    const double d0[4] = {1, 2, 3, 4}, e0[4] = {5, 6, 7, 8};
    EXPECT_EQ(std::memcmp(f, f0, sizeof f) | std::memcmp(g, g0, sizeof g), 0);
    EXPECT_EQ(std::memcmp(d, d0, sizeof d) | std::memcmp(e, e0, sizeof e), 0);
    EXPECT_EQ(u[2] + u[3], 7);
}

TEST_P(ArrayArithmetic, FirstSourceIsSubtractedAndDividesAndMayBeTheDestination) {
    std::vector<float> a{2, 8, -3, 1.5f, 0.25f, 10, 7, 9, 11}, b{10, 2, 4, 0.5f, 1, -10, 3, 1, 5};
    std::vector<float> out(a.size());
    ASSERT_EQ(PxSub_32f(a.data(), b.data(), out.data(), int32_t(a.size())), PxStatusOk);
    for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(out[i], b[i] - a[i]) << i;
    std::vector<float> q = b;
    ASSERT_EQ(PxDiv_32f_I(a.data(), q.data(), int32_t(a.size())), PxStatusOk);
    for (size_t i = 0; i < a.size(); ++i) EXPECT_FLOAT_EQ(q[i], b[i] / a[i]) << i;
    std::vector<float> s = b;
    ASSERT_EQ(PxSub_32f_I(a.data(), s.data(), int32_t(a.size())), PxStatusOk);
    for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(s[i], b[i] - a[i]) << i;

    std::vector<double> x{2, 8, -3, 1.5, 0.25, 10}, y{10, 2, 4, 0.5, 1, -10}, z(x.size());
    ASSERT_EQ(PxDiv_64f(x.data(), y.data(), z.data(), int32_t(x.size())), PxStatusOk);
    for (size_t i = 0; i < x.size(); ++i) EXPECT_EQ(z[i], y[i] / x[i]) << i;
    std::vector<double> w = y;  // destination is the second source
    ASSERT_EQ(PxSub_64f(x.data(), w.data(), w.data(), int32_t(x.size())), PxStatusOk);
    for (size_t i = 0; i < x.size(); ++i) EXPECT_EQ(w[i], y[i] - x[i]) << i;
    w = x;  // destination is the first source
    ASSERT_EQ(PxDiv_64f(w.data(), y.data(), w.data(), int32_t(x.size())), PxStatusOk);
    for (size_t i = 0; i < x.size(); ++i) EXPECT_EQ(w[i], y[i] / x[i]) << i;
}

TEST_P(ArrayArithmetic, ZeroDivisorsIgnoreTheirSignAndWarnAfterFinishing) {
    // Numerators over divisors; the last pair comes after the zeros and must still be divided.
    const double num[] = {1, 1, -2, -2, 0, 0, nanD, 5, 6, 3};
    const double den[] = {-0.0, 0.0, 0.0, -0.0, 0.0, -0.0, 0.0, nanD, 3, 1.5};
    const double want[] = {infD, infD, -infD, -infD, nanD, nanD, nanD, nanD, 2, 2};
    const int32_t n = 10;
    std::vector<double> out(n), inPlace(num, num + n);
    std::vector<float> inPlaceF(num, num + n), denF(den, den + n);
    EXPECT_EQ(PxDiv_64f(den, num, out.data(), n), PxStatusDivideByZero);
    EXPECT_EQ(PxDiv_64f_I(den, inPlace.data(), n), PxStatusDivideByZero);
    EXPECT_EQ(PxDiv_32f_I(denF.data(), inPlaceF.data(), n), PxStatusDivideByZero);
    for (int32_t i = 0; i < n; ++i) {
        if (std::isnan(want[i])) {
            EXPECT_TRUE(std::isnan(out[i]) && std::isnan(inPlace[i]) && std::isnan(inPlaceF[i])) << i;
        } else {
            EXPECT_EQ(out[i], want[i]) << i;
            EXPECT_EQ(inPlace[i], want[i]) << i;
            EXPECT_EQ(inPlaceF[i], float(want[i])) << i;
        }
    }
    // A NaN divisor alone is no division by zero.
    EXPECT_EQ(PxDiv_64f(den + 7, num + 7, out.data(), 3), PxStatusOk);
}

TEST_P(ArrayArithmetic, ValueShortcutsAndThresholds) {
    std::vector<float> f{nanF, -0.0f, 3, -infF};
    ASSERT_EQ(PxAddC_32f_I(0.0f, f.data(), 4), PxStatusOk);
    EXPECT_TRUE(std::isnan(f[0]));
    EXPECT_TRUE(std::signbit(f[1]));  // no pass at all: -0 + 0 would give +0
    std::vector<double> d{nanD, -0.0, 3, -infD};
    ASSERT_EQ(PxAddC_64f_I(0.0, d.data(), 4), PxStatusOk);
    EXPECT_TRUE(std::isnan(d[0]) && std::signbit(d[1]));
    ASSERT_EQ(PxAddC_64f_I(0.5, d.data(), 4), PxStatusOk);
    EXPECT_TRUE(std::isnan(d[0]) && d[1] == 0.5 && d[2] == 3.5 && d[3] == -infD);
    ASSERT_EQ(PxMulC_64f_I(1.0, d.data(), 4), PxStatusOk);
    EXPECT_TRUE(std::isnan(d[0]) && d[3] == -infD);
    ASSERT_EQ(PxMulC_64f_I(-2.0, d.data(), 4), PxStatusOk);
    EXPECT_TRUE(std::isnan(d[0]) && d[1] == -1 && d[2] == -7 && d[3] == infD);
    ASSERT_EQ(PxMulC_64f_I(0.0, d.data(), 4), PxStatusOk);
    for (double x : d) EXPECT_EQ(Bits(x), Bits(0.0));

    std::vector<float> t{nanF, 5, 1, -infF, infF, 2};
    std::vector<float> gt = t, lt = t;
    ASSERT_EQ(PxThresholdGT_32f_I(gt.data(), 6, 2.0f), PxStatusOk);
    EXPECT_EQ(gt, (std::vector<float>{2, 2, 1, -infF, 2, 2}));
    ASSERT_EQ(PxThresholdLT_32f_I(lt.data(), 6, 2.0f), PxStatusOk);
    EXPECT_EQ(lt, (std::vector<float>{2, 5, 2, 2, infF, 2}));
    std::vector<double> ltd{nanD, 5, 1, -infD, 1e-300};  // the guard before a reciprocal
    ASSERT_EQ(PxThresholdLT_64f_I(ltd.data(), 5, 1e-6), PxStatusOk);
    EXPECT_EQ(ltd, (std::vector<double>{1e-6, 5, 1, 1e-6, 1e-6}));

    std::vector<float> a{-nanF, -0.0f, -infF, -2.5f, 3};
    ASSERT_EQ(PxAbs_32f_I(a.data(), 5), PxStatusOk);
    EXPECT_EQ(Bits(a[0]), Bits(nanF));
    EXPECT_EQ(Bits(a[1]), Bits(0.0f));
    EXPECT_TRUE(a[2] == infF && a[3] == 2.5f && a[4] == 3);
}

TEST_P(ArrayArithmetic, ReciprocalsWarnForTheLastBadElementAndKeepTheFloatEnvironment) {
    std::feclearexcept(FE_ALL_EXCEPT);
    std::feraiseexcept(FE_INEXACT);
    std::vector<float> f{0.0f, -0.0f, infF, -infF, 4, 3};
    ASSERT_EQ(PxInv_32f(f.data(), f.data(), 6), PxStatusSingularity);
    EXPECT_TRUE(f[0] == infF && f[1] == -infF && f[2] == 0 && !std::signbit(f[2]) && std::signbit(f[3]));
    EXPECT_EQ(f[4], 0.25f);
    EXPECT_NEAR(f[5], 1.0f / 3, 1.0f / 3 * 0x1p-21f);
    std::vector<double> d{-0.0, 0.0, 4.9e-324, 3, infD};
    ASSERT_EQ(PxInv_64f(d.data(), d.data(), 5), PxStatusSingularity);
    EXPECT_TRUE(d[0] == -infD && d[1] == infD && d[2] == infD && d[4] == 0);
    EXPECT_NEAR(d[3], 1.0 / 3, 1.0 / 3 * 0x1p-51);
    // Neither flags raised by the call nor a change of the caller's own flags may be seen.
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), FE_INEXACT);

    std::vector<double> r{4, 0.0, -0.0, infD, -1, 2};
    std::vector<double> out(6);
    EXPECT_EQ(PxInvSqrt_64f(r.data(), out.data(), 6), PxStatusDomain);
    EXPECT_TRUE(out[0] == 0.5 && out[1] == infD && out[2] == -infD && out[3] == 0 && std::isnan(out[4]));
    EXPECT_NEAR(out[5], std::sqrt(0.5), 0x1p-52);
    EXPECT_EQ(PxInvSqrt_64f(r.data(), out.data(), 4), PxStatusSingularity);  // zeros only
    r = {-1, 0, 4, -infD, 0, 1, 2, 3, 5};  // the last warning element is the zero at index 4
    EXPECT_EQ(PxInvSqrt_64f(r.data(), out.data(), 5), PxStatusSingularity);
    EXPECT_EQ(PxInvSqrt_64f(r.data(), out.data(), 4), PxStatusDomain);
    EXPECT_EQ(PxInvSqrt_64f(r.data() + 5, out.data(), 4), PxStatusOk);
    EXPECT_EQ(std::fetestexcept(FE_ALL_EXCEPT), FE_INEXACT);
    std::feclearexcept(FE_ALL_EXCEPT);
}

TEST_P(ArrayArithmetic, ConversionsClampNarrowingAndFillsAndCopiesAreExact) {
    const double src[] = {1e300, -1e300, nanD, infD, -infD, double(FLT_MAX) * (1 + 0x1p-25), 0.1, -0.0, 1e-50};
    std::vector<float> out(9);
    ASSERT_EQ(PxConvert_64f32f(src, out.data(), 9), PxStatusOk);
    EXPECT_EQ(out, (std::vector<float>{FLT_MAX, -FLT_MAX, FLT_MAX, FLT_MAX, -FLT_MAX, FLT_MAX, 0.1f, -0.0f, 0.0f}));
    EXPECT_TRUE(std::signbit(out[7]));
    std::vector<double> wide(9);
    ASSERT_EQ(PxConvert_32f64f(out.data(), wide.data(), 9), PxStatusOk);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(Bits(wide[i]), Bits(double(out[i]))) << i;

    std::vector<float> sf(37, 1);
    ASSERT_EQ(PxSet_32f(-2.5f, sf.data() + 1, 35), PxStatusOk);
    EXPECT_TRUE(sf[0] == 1 && sf[36] == 1 && sf[1] == -2.5f && sf[35] == -2.5f);
    std::vector<double> sd(5, 1);
    ASSERT_EQ(PxSet_64f(nanD, sd.data(), 4), PxStatusOk);
    EXPECT_TRUE(std::isnan(sd[3]) && sd[4] == 1);
    std::vector<uint16_t> u{1, 2, 65535, 4}, v(4);
    ASSERT_EQ(PxCopy_16u(u.data(), v.data(), 3), PxStatusOk);
    EXPECT_EQ(v, (std::vector<uint16_t>{1, 2, 65535, 0}));
    ASSERT_EQ(PxCopy_64f(sd.data(), sd.data(), 5), PxStatusOk);  // same array: nothing changes
    ASSERT_EQ(PxCopy_64f(sd.data(), wide.data(), 5), PxStatusOk);
    EXPECT_TRUE(std::isnan(wide[0]) && wide[4] == 1 && wide[5] == double(out[5]));
}

INSTANTIATE_TEST_SUITE_P(Array, ArrayArithmetic, ::testing::ValuesIn(SupportedLevels()), LevelName);

// Every form against the scalar one. Inputs: random values with zeros, signed zeros, NaN, infinities
// and huge values sprinkled in; outputs are widened to double (exact) for comparison.
struct Inputs {
    std::vector<float> f[3];
    std::vector<double> d[3];
    std::vector<uint16_t> u;
};

struct Output {
    PxStatus status;
    std::vector<double> values;
    std::vector<double> scale;  // what the tolerance is relative to, when not the value itself
};

template <class T>
Output Widen(PxStatus status, const std::vector<T>& v, int32_t offset) {
    return {status, std::vector<double>(v.begin() + offset, v.end()), {}};
}

// Source k (1 to 3) of the element type T.
template <class T>
const std::vector<T>& Source(const Inputs& in, int k) {
    if constexpr (std::is_same_v<T, float>) return in.f[k - 1];
    else return in.d[k - 1];
}

Inputs MakeInputs(size_t n, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-100, 100);
    std::uniform_int_distribution<int> pick(0, 49);
    const double unusual[] = {0.0, -0.0, nanD, infD, -infD, 1e300, -1e-310, 1e-40};
    auto draw = [&] {
        const int k = pick(random);
        return k < 8 ? unusual[k] : value(random);
    };
    Inputs in;
    for (size_t i = 0; i < n; ++i) {
        for (auto& f : in.f) f.push_back(float(draw()));
        for (auto& d : in.d) d.push_back(draw());
        in.u.push_back(uint16_t(random()));
    }
    return in;
}

struct FormCase {
    const char* name;
    double tolerance;  // relative; 0 demands the same bits
    std::function<Output(const Inputs&, int32_t offset, int32_t len)> run;
};

// Out-of-place two-source form on floats or doubles.
template <class T>
FormCase Binary(const char* name, PxStatus (*f)(const T*, const T*, T*, int32_t), double tolerance = 0) {
    return {name, tolerance, [f](const Inputs& in, int32_t o, int32_t n) {
                const std::vector<T>& a = Source<T>(in, 1);
                const std::vector<T>& b = Source<T>(in, 2);
                std::vector<T> out(size_t(o + n));
                const PxStatus s = f(a.data() + o, b.data() + o, out.data() + o, n);
                return Widen(s, out, o);
            }};
}

template <class T>
FormCase InPlace(const char* name, PxStatus (*f)(const T*, T*, int32_t), double tolerance = 0) {
    return {name, tolerance, [f](const Inputs& in, int32_t o, int32_t n) {
                const std::vector<T>& a = Source<T>(in, 1);
                std::vector<T> srcDst = Source<T>(in, 2);
                srcDst.resize(size_t(o + n));
                const PxStatus s = f(a.data() + o, srcDst.data() + o, n);
                return Widen(s, srcDst, o);
            }};
}

template <class T>
FormCase Unary(const char* name, std::function<PxStatus(T*, int32_t)> f, double tolerance = 0) {
    return {name, tolerance, [f](const Inputs& in, int32_t o, int32_t n) {
                std::vector<T> srcDst = Source<T>(in, 3);
                srcDst.resize(size_t(o + n));
                const PxStatus s = f(srcDst.data() + o, n);
                return Widen(s, srcDst, o);
            }};
}

std::vector<FormCase> FormCases() {
    return {
        Binary<float>("Add_32f", PxAdd_32f),
        Binary<double>("Add_64f", PxAdd_64f),
        Binary<float>("Sub_32f", PxSub_32f),
        Binary<double>("Sub_64f", PxSub_64f),
        Binary<float>("Mul_32f", PxMul_32f),
        Binary<double>("Mul_64f", PxMul_64f),
        Binary<double>("Div_64f", PxDiv_64f, 0x1p-50),
        InPlace<float>("Add_32f_I", PxAdd_32f_I),
        InPlace<double>("Add_64f_I", PxAdd_64f_I),
        InPlace<float>("Sub_32f_I", PxSub_32f_I),
        InPlace<double>("Sub_64f_I", PxSub_64f_I),
        InPlace<double>("Mul_64f_I", PxMul_64f_I),
        InPlace<float>("Div_32f_I", PxDiv_32f_I, 0x1p-21),
        InPlace<double>("Div_64f_I", PxDiv_64f_I, 0x1p-50),
        InPlace<double>("Sqr_64f", PxSqr_64f),
        InPlace<float>("Inv_32f", PxInv_32f, 0x1p-21),
        InPlace<double>("Inv_64f", PxInv_64f, 0x1p-51),
        InPlace<double>("InvSqrt_64f", PxInvSqrt_64f, 0x1p-51),
        {"AddProduct_32f", 0x1p-20,
         [](const Inputs& in, int32_t o, int32_t n) {
             std::vector<float> srcDst = in.f[2];
             srcDst.resize(size_t(o + n));
             // Fusing changes the sum by at most an ulp of the product, however much the sum cancels.
             const PxStatus status = PxAddProduct_32f(in.f[0].data() + o, in.f[1].data() + o, srcDst.data() + o, n);
             Output out = Widen(status, srcDst, o);
             for (int32_t i = o; i < o + n; ++i)
                 out.scale.push_back(std::fabs(double(in.f[0][i]) * in.f[1][i]) + std::fabs(double(in.f[2][i])));
             return out;
         }},
        Unary<float>("Abs_32f_I", PxAbs_32f_I),
        Unary<float>("Sqr_32f_I", PxSqr_32f_I),
        Unary<float>("AddC_32f_I", [](float* p, int32_t n) { return PxAddC_32f_I(-1.25f, p, n); }),
        Unary<double>("AddC_64f_I", [](double* p, int32_t n) { return PxAddC_64f_I(1e-3, p, n); }),
        Unary<double>("MulC_64f_I", [](double* p, int32_t n) { return PxMulC_64f_I(-0.3, p, n); }),
        Unary<float>("ThresholdGT_32f_I", [](float* p, int32_t n) { return PxThresholdGT_32f_I(p, n, 7.5f); }),
        Unary<float>("ThresholdLT_32f_I", [](float* p, int32_t n) { return PxThresholdLT_32f_I(p, n, -0.0f); }),
        Unary<double>("ThresholdLT_64f_I", [](double* p, int32_t n) { return PxThresholdLT_64f_I(p, n, 0.0); }),
        {"Convert_32f64f", 0,
         [](const Inputs& in, int32_t o, int32_t n) {
             std::vector<double> out(size_t(o + n));
             return Widen(PxConvert_32f64f(in.f[0].data() + o, out.data() + o, n), out, o);
         }},
        {"Convert_64f32f", 0,
         [](const Inputs& in, int32_t o, int32_t n) {
             std::vector<float> out(size_t(o + n));
             return Widen(PxConvert_64f32f(in.d[0].data() + o, out.data() + o, n), out, o);
         }},
        {"Copy_16u", 0,
         [](const Inputs& in, int32_t o, int32_t n) {
             std::vector<uint16_t> out(size_t(o + n));
             return Widen(PxCopy_16u(in.u.data() + o, out.data() + o, n), out, o);
         }},
    };
}

// Same bits (any NaN matching any NaN), or within the relative tolerance; infinities must match.
bool Close(double x, double y, double tolerance, double scale) {
    if (std::isnan(x) || std::isnan(y)) return std::isnan(x) && std::isnan(y);
    if (tolerance == 0 || std::isinf(x) || std::isinf(y)) return Bits(x) == Bits(y);
    return std::fabs(x - y) <= tolerance * scale;
}

TEST(ArrayArithmeticForms, EveryFormMatchesTheScalarOne) {
    const std::vector<int32_t> levels = SupportedLevels();
    if (levels.size() < 2) GTEST_SKIP() << "no AVX2 on this processor";
    // Short lengths cover every head and tail; 100,003 passes the streaming threshold.
    std::vector<int32_t> lengths;
    for (int32_t n = 1; n <= 100; ++n) lengths.push_back(n);
    lengths.insert(lengths.end(), {2999, 4096, 100003});
    const Inputs in = MakeInputs(100003 + 8, 7);
    for (const FormCase& c : FormCases()) {
        for (const int32_t n : lengths) {
            for (const int32_t offset : {0, 1, 3}) {
                if (n > 4096 && offset == 3) continue;
                PxForceProcessorLevel(PxLevelSse2);
                const Output want = c.run(in, offset, n);
                PxForceProcessorLevel(PxLevelAvx2);
                const Output got = c.run(in, offset, n);
                PxForceProcessorLevel(PxLevelUnset);
                ASSERT_EQ(got.status, want.status) << c.name << " len " << n << " offset " << offset;
                size_t bad = 0;
                for (size_t i = 0; i < want.values.size() && bad < 3; ++i)
                    if (!Close(got.values[i], want.values[i], c.tolerance,
                               want.scale.empty() ? std::fabs(want.values[i]) : want.scale[i])) {
                        ADD_FAILURE() << c.name << " len " << n << " offset " << offset << " [" << i
                                      << "]: " << got.values[i] << " vs " << want.values[i];
                        ++bad;
                    }
                if (bad) return;
            }
        }
    }
}

}  // namespace
