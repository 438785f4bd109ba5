#include "demosaic/GuidedFilter.h"

#include "demosaic/SiteMasks.h"
#include "primitives/Px.h"

#include <initializer_list>
#include <utility>

namespace {

// The count floor of a window without sampled sites, and the error floor of a window: 1e-16 in single precision.
constexpr double countFloor = 1e-32;
constexpr double errorFloor = double(1e-16f);

constexpr float lineLaplacian[5] = {-1.0f, 0.0f, 2.0f, 0.0f, -1.0f};
constexpr float squareLaplacian[25] = {
    0.0f, 0.0f, -1.0f, 0.0f, 0.0f,   //
    0.0f, 0.0f, 0.0f,  0.0f, 0.0f,   //
    -1.0f, 0.0f, 4.0f, 0.0f, -1.0f,  //
    0.0f, 0.0f, 0.0f,  0.0f, 0.0f,   //
    0.0f, 0.0f, -1.0f, 0.0f, 0.0f,
};

template <class Element>
int32_t Count(const ImageBuffer<Element>& image) {
    return int32_t(size_t(image.width) * image.height);
}

// Throws false unless both operands have data and the same size, and the size suits the site operations (width
// a multiple of 8, even height). False when the operands are empty and there is nothing to do.
bool RequireOperands(const ImageBuffer32& a, const ImageBuffer32& b) {
    if (a.data == nullptr || b.data == nullptr || a.Size() != b.Size()) throw false;
    if (a.width == 0 || a.height == 0) return false;
    if (a.width % 8 != 0 || a.height % 2 != 0) throw false;
    return true;
}

void RequireShape(const ImageBuffer64& plane, const ImageBuffer32& like) {
    if (plane.data == nullptr || plane.Size() != like.Size()) throw false;
}

// Exchanges two buffers whole: sizes, capacities and blocks.
template <class Buffer>
void Exchange(Buffer& a, Buffer& b) {
    std::swap(a.width, b.width);
    std::swap(a.height, b.height);
    std::swap(a.capacity, b.capacity);
    std::swap(a.data, b.data);
}

void Double(ImageBuffer64& plane) { PxMulC_64f_I(2.0, plane.data, Count(plane)); }

}  // namespace

void GuidedFilter::Sum(ImageBuffer64& plane, int32_t rowParity) {
    BoxSum(boxRing, plane, windowWidth, windowHeight, rowParity);
}

void GuidedFilter::FitOffset() {
    work.Multiply(slope, meanSecond);
    offset.Subtract(meanFirst, work);
}

void GuidedFilter::ComputeMeans(const ImageBuffer32& first, const ImageBuffer32& second, uint32_t pattern) {
    const uint32_t width = first.width, height = first.height;
    if (!RequireOperands(first, second)) {
        for (ImageBuffer64* mean : {&meanFirst, &meanSecond, &meanSqFirst, &meanSqSecond, &cross})
            mean->Resize(width, height);
        return;
    }
    const int32_t p = RowParity(pattern);
    const int32_t count = Count(first);

    // The reciprocal of the number of sampled sites in each window.
    denominator.Resize(width, height);
    denominator.FillSitePattern(pattern);
    Sum(denominator, p);
    PxThresholdLT_64f_I(denominator.data, count, countFloor);
    PxInv_64f(denominator.data, denominator.data, count);

    meanFirst.Resize(width, height);
    PxConvert_32f64f(first.data, meanFirst.data, count);
    Sum(meanFirst, p);
    PxMul_64f_I(denominator.data, meanFirst.data, count);

    meanSecond.Resize(width, height);
    PxConvert_32f64f(second.data, meanSecond.data, count);
    Sum(meanSecond, p);
    PxMul_64f_I(denominator.data, meanSecond.data, count);

    meanSqFirst.Resize(width, height);
    SquareToDouble(meanSqFirst.data, first.data, uint32_t(count));
    Sum(meanSqFirst, p);
    PxMul_64f_I(denominator.data, meanSqFirst.data, count);

    meanSqSecond.Resize(width, height);
    SquareToDouble(meanSqSecond.data, second.data, uint32_t(count));
    Sum(meanSqSecond, p);
    PxMul_64f_I(denominator.data, meanSqSecond.data, count);

    cross.Resize(width, height);
    ProductToDouble(cross.data, first.data, second.data, uint32_t(count));
    Sum(cross, p);
    PxMul_64f_I(denominator.data, cross.data, count);
}

void GuidedFilter::ApplyWeighted(ImageBuffer32& out, const ImageBuffer32& guide) {
    if (guide.data == nullptr) throw false;
    if (guide.width == 0 || guide.height == 0) {
        out.Resize(guide.width, guide.height);
        return;
    }
    for (const ImageBuffer64* plane : {&slope, &offset, &cross, &meanSqFirst, &meanSqSecond})
        RequireShape(*plane, guide);
    const int32_t count = Count(guide);

    // The mean squared error of each window's line over its samples:
    // mean(target^2) + slope^2 mean(guide^2) - slope cross - offset^2.
    work.Multiply(slope, meanSqSecond);
    PxSub_64f_I(cross.data, work.data, count);
    PxMul_64f_I(slope.data, work.data, count);
    denominator.Resize(work.width, work.height);
    PxAdd_64f(meanSqFirst.data, work.data, denominator.data, count);
    PxSqr_64f(offset.data, work.data, count);
    denominator.Subtract(denominator, work);
    // Each window's weight, the reciprocal root of its error, bounded by the floor.
    PxThresholdLT_64f_I(denominator.data, count, errorFloor);
    PxInvSqrt_64f(denominator.data, denominator.data, count);
    PxMul_64f_I(denominator.data, offset.data, count);
    PxMul_64f_I(denominator.data, slope.data, count);

    // Sums of the weights and of the weighted lines over the windows covering each pixel; a fit exists at every
    // pixel, so no row parity applies.
    Sum(denominator, 0);
    Sum(offset, 0);
    Sum(slope, 0);

    work.Resize(guide.width, guide.height);
    PxConvert_32f64f(guide.data, work.data, count);
    PxMul_64f_I(slope.data, work.data, count);
    PxAdd_64f_I(offset.data, work.data, count);
    PxDiv_64f_I(denominator.data, work.data, count);
    out.Resize(work.width, work.height);
    PxConvert_64f32f(work.data, out.data, count);
}

void GuidedFilter::FilterPairPlain(ImageBuffer32& outFirst, ImageBuffer32& outSecond, const ImageBuffer32& first,
                                   const ImageBuffer32& second, uint32_t patternA, uint32_t patternB) {
    if (!RequireOperands(first, second)) {
        outFirst.Resize(first.width, first.height);
        outSecond.Resize(first.width, first.height);
        return;
    }
    const uint32_t q = patternA | patternB;
    const int32_t count = Count(first);
    ComputeMeans(first, second, q);

    work.Multiply(meanFirst, meanSecond);
    ImageBuffer64 covariance;
    covariance.Resize(cross.width, cross.height);
    covariance.Subtract(cross, work);
    Double(cross);

    // The slope of the first plane on the second, then the second on the first: the covariance is shared, the
    // variance is the guide's.
    const auto fitLine = [&] {
        work.Multiply(meanSecond, meanSecond);
        denominator.Subtract(meanSqSecond, work);
        PxAddC_64f_I(epsilon, denominator.data, count);
        slope.Resize(denominator.width, denominator.height);
        PxDiv_64f(denominator.data, covariance.data, slope.data, count);
        FitOffset();
    };
    fitLine();
    ApplyWeighted(outFirst, second);
    MaskBySites(outFirst.data, outFirst.data, q, outFirst.width, outFirst.height);

    Exchange(meanFirst, meanSecond);
    Exchange(meanSqFirst, meanSqSecond);
    fitLine();
    ApplyWeighted(outSecond, first);
    MaskBySites(outSecond.data, outSecond.data, q, outSecond.width, outSecond.height);
}

void GuidedFilter::FilterPairLaplacian(ImageBuffer32& outFirst, ImageBuffer32& outSecond,
                                       const ImageBuffer32& first, const ImageBuffer32& second, uint32_t patternA,
                                       uint32_t patternB) {
    if (!RequireOperands(first, second)) {
        outFirst.Resize(first.width, first.height);
        outSecond.Resize(first.width, first.height);
        return;
    }
    const uint32_t q = patternA | patternB;
    const int32_t count = Count(first);
    ComputeMeans(first, second, q);
    Double(cross);

    const uint32_t kernelWidth = vertical == 0 ? 5 : 1, kernelHeight = vertical == 0 ? 1 : 5;
    ImageBuffer32 lapFirst, lapSecond;
    FilterImage(filterScratch, lapFirst, first, PxBorderMirror, kernelWidth, kernelHeight, lineLaplacian);
    FilterImage(filterScratch, lapSecond, second, PxBorderMirror, kernelWidth, kernelHeight, lineLaplacian);

    // The slope of target on guide: the windowed sum of guide Laplacian times target Laplacian over the
    // windowed sum of the guide Laplacian squared, both over the target's own samples; out serves as the masked
    // guide Laplacian first.
    const auto fitLine = [&](ImageBuffer32& out, const ImageBuffer32& lapTarget, const ImageBuffer32& lapGuide,
                             uint32_t samples) {
        const int32_t p = RowParity(samples);
        out.Resize(lapGuide.width, lapGuide.height);
        MaskBySites(out.data, lapGuide.data, samples, out.width, out.height);
        slope.Resize(out.width, out.height);
        ProductToDouble(slope.data, out.data, lapTarget.data, uint32_t(count));
        Sum(slope, p);
        offset.Resize(out.width, out.height);
        ProductToDouble(offset.data, out.data, lapGuide.data, uint32_t(count));
        Sum(offset, p);
        PxAddC_64f_I(epsilon, offset.data, count);
        PxDiv_64f_I(offset.data, slope.data, count);
        FitOffset();
    };
    fitLine(outFirst, lapFirst, lapSecond, patternA);
    ApplyWeighted(outFirst, second);
    MaskBySites(outFirst.data, outFirst.data, q, outFirst.width, outFirst.height);

    Exchange(meanFirst, meanSecond);
    Exchange(meanSqFirst, meanSqSecond);
    fitLine(outSecond, lapSecond, lapFirst, patternB);
    ApplyWeighted(outSecond, first);
    MaskBySites(outSecond.data, outSecond.data, q, outSecond.width, outSecond.height);
}

void GuidedFilter::FilterColour(ImageBuffer32& out, const ImageBuffer32& raw, const ImageBuffer32& green,
                                uint32_t pattern) {
    if (!RequireOperands(raw, green)) {
        out.Resize(raw.width, raw.height);
        return;
    }
    const int32_t p = RowParity(pattern);
    const int32_t count = Count(raw);

    ImageBuffer32 first, second;
    first.Resize(raw.width, raw.height);
    MaskBySites(first.data, raw.data, pattern, first.width, first.height);
    second.Resize(green.width, green.height);
    MaskBySites(second.data, green.data, pattern, second.width, second.height);
    ComputeMeans(first, second, pattern);
    Double(cross);

    // first and second become their Laplacians; out lends its block as the filter's destination.
    FilterImage(filterScratch, out, first, PxBorderMirror, 5, 5, squareLaplacian);
    Exchange(out, first);
    FilterImage(filterScratch, out, second, PxBorderMirror, 5, 5, squareLaplacian);
    Exchange(out, second);

    slope.Resize(first.width, first.height);
    ProductToDouble(slope.data, first.data, second.data, uint32_t(count));
    Sum(slope, p);
    offset.Resize(second.width, second.height);
    SquareToDouble(offset.data, second.data, uint32_t(count));
    Sum(offset, p);
    PxAddC_64f_I(epsilon, offset.data, count);
    PxDiv_64f_I(offset.data, slope.data, count);
    FitOffset();
    ApplyWeighted(out, green);
}
