// Image conversions, thresholds, copy and division: argument checks, the scalar forms and the public
// entries, which dispatch to the form for this processor.
#include "primitives/Dispatch.h"
#include "primitives/ImageConversionsForms.h"

#include <cstring>

namespace {

// Calls rowFn(srcRow, dstRow, count) for each row. When both images are contiguous (steps equal to the
// rows' bytes) the whole image runs as one long row. Rows go top to bottom, which the in-place narrowing
// forms rely on: row y's result never reaches row y + 1's samples.
template <class S, class D, class F>
void ForEachRow(const S* src, int32_t srcStep, D* dst, int32_t dstStep, PxSize roi, F rowFn) {
    const size_t width = size_t(roi.width);
    if (size_t(srcStep) == width * sizeof(S) && size_t(dstStep) == width * sizeof(D)) {
        rowFn(src, dst, width * size_t(roi.height));
        return;
    }
    const char* s = reinterpret_cast<const char*>(src);
    char* d = reinterpret_cast<char*>(dst);
    for (int32_t y = 0; y < roi.height; ++y, s += srcStep, d += dstStep)
        rowFn(reinterpret_cast<const S*>(s), reinterpret_cast<D*>(d), width);
}

// Narrowing results are stored through memcpy so that the compiler never assumes they cannot alias the
// source samples still to be read in place.
template <class D>
inline void StoreAt(D* dst, size_t i, D value) {
    std::memcpy(reinterpret_cast<char*>(dst) + i * sizeof(D), &value, sizeof(D));
}

}  // namespace

PxStatus ConvertImage8u32fScalar(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi, [](const uint8_t* s, float* d, size_t n) {
        for (size_t i = 0; i < n; ++i) d[i] = float(s[i]);
    });
    return PxStatusOk;
}

PxStatus ConvertImage16u32fScalar(const uint16_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi, [](const uint16_t* s, float* d, size_t n) {
        for (size_t i = 0; i < n; ++i) d[i] = float(s[i]);
    });
    return PxStatusOk;
}

PxStatus ConvertImage8u16uScalar(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi, [](const uint8_t* s, uint16_t* d, size_t n) {
        for (size_t i = 0; i < n; ++i) d[i] = s[i];
    });
    return PxStatusOk;
}

PxStatus ConvertImage16u8uScalar(const uint16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckImages(src, srcStep, dst, dstStep, roi)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi, [](const uint16_t* s, uint8_t* d, size_t n) {
        for (size_t i = 0; i < n; ++i) StoreAt(d, i, uint8_t(s[i] > 255 ? 255 : s[i]));
    });
    return PxStatusOk;
}

PxStatus ConvertImage32f8uScalar(const float* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi,
                                 int32_t roundMode) {
    if (PxStatus s = PxCheckRounding(src, srcStep, dst, dstStep, roi, roundMode)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi, [roundMode](const float* s, uint8_t* d, size_t n) {
        for (size_t i = 0; i < n; ++i) StoreAt(d, i, PxRoundTo8u(s[i], roundMode));
    });
    return PxStatusOk;
}

PxStatus ConvertImage32f16uScalar(const float* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi,
                                  int32_t roundMode) {
    if (PxStatus s = PxCheckRounding(src, srcStep, dst, dstStep, roi, roundMode)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi, [roundMode](const float* s, uint16_t* d, size_t n) {
        for (size_t i = 0; i < n; ++i) StoreAt(d, i, PxRoundTo16u(s[i], roundMode));
    });
    return PxStatusOk;
}

PxStatus CopyImage16uScalar(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckCopy(src, dst, roi)) return s;
    ForEachRow(src, srcStep, dst, dstStep, roi,
               [](const uint16_t* s, uint16_t* d, size_t n) { std::memcpy(d, s, n * sizeof(uint16_t)); });
    return PxStatusOk;
}

PxStatus DivImage32fScalar(const float* src1, int32_t step1, const float* src2, int32_t step2, float* dst,
                           int32_t dstStep, PxSize roi) {
    if (PxStatus s = PxCheckDivision(src1, step1, src2, step2, dst, dstStep, roi)) return s;
    bool warned = false;
    const char* a = reinterpret_cast<const char*>(src1);
    const char* b = reinterpret_cast<const char*>(src2);
    char* d = reinterpret_cast<char*>(dst);
    for (int32_t y = 0; y < roi.height; ++y, a += step1, b += step2, d += dstStep) {
        const float* divisor = reinterpret_cast<const float*>(a);
        const float* numerator = reinterpret_cast<const float*>(b);
        float* quotient = reinterpret_cast<float*>(d);
        for (int32_t x = 0; x < roi.width; ++x) quotient[x] = PxDivideGuarded(numerator[x], divisor[x], &warned);
    }
    return warned ? PxStatusDivideByZero : PxStatusOk;
}

namespace {

// The thresholds are a single min per sample, which the compiler vectorises well: one form serves all rows.
template <class T>
PxStatus ThresholdGTImage(T* srcDst, int32_t step, PxSize roi, T level) {
    if (!srcDst) return PxStatusNullPointer;
    if (roi.width < 1 || roi.height < 1) return PxStatusBadSize;
    if (step < 1) return PxStatusBadStep;
    char* row = reinterpret_cast<char*>(srcDst);
    for (int32_t y = 0; y < roi.height; ++y, row += step) {
        T* p = reinterpret_cast<T*>(row);
        for (int32_t x = 0; x < roi.width; ++x) p[x] = p[x] > level ? level : p[x];
    }
    return PxStatusOk;
}

PxStatus ThresholdGTImage8u(uint8_t* srcDst, int32_t step, PxSize roi, uint8_t level) {
    return ThresholdGTImage(srcDst, step, roi, level);
}

PxStatus ThresholdGTImage16u(uint16_t* srcDst, int32_t step, PxSize roi, uint16_t level) {
    return ThresholdGTImage(srcDst, step, roi, level);
}

constexpr auto convert8u32fForms = PxForms(ConvertImage8u32fScalar, ConvertImage8u32fAvx2, ConvertImage8u32fAvx2);
constexpr auto convert16u32fForms =
    PxForms(ConvertImage16u32fScalar, ConvertImage16u32fAvx2, ConvertImage16u32fAvx2);
constexpr auto convert8u16uForms = PxForms(ConvertImage8u16uScalar, ConvertImage8u16uAvx2, ConvertImage8u16uAvx2);
constexpr auto convert16u8uForms = PxForms(ConvertImage16u8uScalar, ConvertImage16u8uAvx2, ConvertImage16u8uAvx2);
constexpr auto convert32f8uForms = PxForms(ConvertImage32f8uScalar, ConvertImage32f8uAvx2, ConvertImage32f8uAvx2);
constexpr auto convert32f16uForms =
    PxForms(ConvertImage32f16uScalar, ConvertImage32f16uAvx2, ConvertImage32f16uAvx2);
constexpr auto threshold8uForms = PxForms(ThresholdGTImage8u, ThresholdGTImage8u, ThresholdGTImage8u);
constexpr auto threshold16uForms = PxForms(ThresholdGTImage16u, ThresholdGTImage16u, ThresholdGTImage16u);
constexpr auto copy16uForms = PxForms(CopyImage16uScalar, CopyImage16uAvx2, CopyImage16uAvx2);
constexpr auto div32fForms = PxForms(DivImage32fScalar, DivImage32fAvx2, DivImage32fAvx2);

}  // namespace

PxStatus PxConvertImage_8u32f(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi) {
    return convert8u32fForms(src, srcStep, dst, dstStep, roi);
}

PxStatus PxConvertImage_16u32f(const uint16_t* src, int32_t srcStep, float* dst, int32_t dstStep, PxSize roi) {
    return convert16u32fForms(src, srcStep, dst, dstStep, roi);
}

PxStatus PxConvertImage_8u16u(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi) {
    return convert8u16uForms(src, srcStep, dst, dstStep, roi);
}

PxStatus PxConvertImage_16u8u(const uint16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi) {
    return convert16u8uForms(src, srcStep, dst, dstStep, roi);
}

PxStatus PxConvertImage_32f8u(const float* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, PxSize roi,
                              int32_t roundMode) {
    return convert32f8uForms(src, srcStep, dst, dstStep, roi, roundMode);
}

PxStatus PxConvertImage_32f16u(const float* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi,
                               int32_t roundMode) {
    return convert32f16uForms(src, srcStep, dst, dstStep, roi, roundMode);
}

PxStatus PxThresholdGTImage_8u_I(uint8_t* srcDst, int32_t step, PxSize roi, uint8_t level) {
    return threshold8uForms(srcDst, step, roi, level);
}

PxStatus PxThresholdGTImage_16u_I(uint16_t* srcDst, int32_t step, PxSize roi, uint16_t level) {
    return threshold16uForms(srcDst, step, roi, level);
}

PxStatus PxCopyImage_16u(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, PxSize roi) {
    return copy16uForms(src, srcStep, dst, dstStep, roi);
}

PxStatus PxDivImage_32f(const float* src1, int32_t step1, const float* src2, int32_t step2, float* dst,
                        int32_t dstStep, PxSize roi) {
    return div32fForms(src1, step1, src2, step2, dst, dstStep, roi);
}
