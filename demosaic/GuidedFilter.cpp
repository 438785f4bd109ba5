#include "demosaic/GuidedFilter.h"

#include "demosaic/PlaneStrips.h"
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

// offset = meanFirst - slope * meanSecond over one strip.
void GuidedFilter::FitOffset(size_t o, int32_t count) {
    PxMul_64f(slope.data + o, meanSecond.data + o, work.data + o, count);
    PxSub_64f(work.data + o, meanFirst.data + o, offset.data + o, count);
}

// Sizes work and offset like slope for FitOffset.
void GuidedFilter::SizeFit() {
    for (ImageBuffer64* plane : {&meanFirst, &meanSecond})
        if (plane->data == nullptr || plane->Size() != slope.Size()) throw false;
    work.Resize(slope.width, slope.height);
    offset.Resize(slope.width, slope.height);
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
    InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        PxThresholdLT_64f_I(denominator.data + o, n, countFloor);
        PxInv_64f(denominator.data + o, denominator.data + o, n);
    });

    meanFirst.Resize(width, height);
    PxConvert_32f64f(first.data, meanFirst.data, count);
    Sum(meanFirst, p);
    meanSecond.Resize(width, height);
    PxConvert_32f64f(second.data, meanSecond.data, count);
    Sum(meanSecond, p);
    meanSqFirst.Resize(width, height);
    SquareToDouble(meanSqFirst.data, first.data, uint32_t(count));
    Sum(meanSqFirst, p);
    meanSqSecond.Resize(width, height);
    SquareToDouble(meanSqSecond.data, second.data, uint32_t(count));
    Sum(meanSqSecond, p);
    cross.Resize(width, height);
    ProductToDouble(cross.data, first.data, second.data, uint32_t(count));
    Sum(cross, p);
    InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        for (ImageBuffer64* mean : {&meanFirst, &meanSecond, &meanSqFirst, &meanSqSecond, &cross})
            PxMul_64f_I(denominator.data + o, mean->data + o, n);
    });
}

void GuidedFilter::ApplyWeighted(ImageBuffer32& out, const ImageBuffer32& guide) { Apply(out, guide, false, 0); }

void GuidedFilter::Apply(ImageBuffer32& out, const ImageBuffer32& guide, bool masked, uint32_t pattern) {
    if (guide.data == nullptr) throw false;
    const uint32_t width = guide.width, height = guide.height;
    if (width == 0 || height == 0) {
        out.Resize(width, height);
        return;
    }
    for (const ImageBuffer64* plane : {&slope, &offset, &cross, &meanSqFirst, &meanSqSecond})
        RequireShape(*plane, guide);
    work.Resize(width, height);
    denominator.Resize(width, height);

    // The mean squared error of each window's line over its samples:
    // mean(target^2) + slope^2 mean(guide^2) - slope cross - offset^2; each window's weight, the reciprocal root
    // of its error, bounded by the floor.
    InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        double* const w = work.data + o;
        double* const d = denominator.data + o;
        PxMul_64f(slope.data + o, meanSqSecond.data + o, w, n);
        PxSub_64f_I(cross.data + o, w, n);
        PxMul_64f_I(slope.data + o, w, n);
        PxAdd_64f(meanSqFirst.data + o, w, d, n);
        PxSqr_64f(offset.data + o, w, n);
        PxSub_64f(w, d, d, n);
        PxThresholdLT_64f_I(d, n, errorFloor);
        PxInvSqrt_64f(d, d, n);
        PxMul_64f_I(d, offset.data + o, n);
        PxMul_64f_I(d, slope.data + o, n);
    });

    // Sums of the weights and of the weighted lines over the windows covering each pixel; a fit exists at every
    // pixel, so no row parity applies.
    Sum(denominator, 0);
    Sum(offset, 0);
    Sum(slope, 0);

    out.Resize(width, height);
    InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t rows) {
        double* const w = work.data + o;
        PxConvert_32f64f(guide.data + o, w, n);
        PxMul_64f_I(slope.data + o, w, n);
        PxAdd_64f_I(offset.data + o, w, n);
        PxDiv_64f_I(denominator.data + o, w, n);
        PxConvert_64f32f(w, out.data + o, n);
        if (masked) MaskBySites(out.data + o, out.data + o, pattern, width, rows);
    });
}

void GuidedFilter::FilterPairPlain(ImageBuffer32& outFirst, ImageBuffer32& outSecond, const ImageBuffer32& first,
                                   const ImageBuffer32& second, uint32_t patternA, uint32_t patternB) {
    if (!RequireOperands(first, second)) {
        outFirst.Resize(first.width, first.height);
        outSecond.Resize(first.width, first.height);
        return;
    }
    const uint32_t q = patternA | patternB;
    const uint32_t width = first.width, height = first.height;
    ComputeMeans(first, second, q);

    ImageBuffer64 covariance;
    covariance.Resize(width, height);
    work.Resize(width, height);
    InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        PxMul_64f(meanFirst.data + o, meanSecond.data + o, work.data + o, n);
        PxSub_64f(work.data + o, cross.data + o, covariance.data + o, n);
        PxMulC_64f_I(2.0, cross.data + o, n);
    });

    // The slope of the first plane on the second, then the second on the first: the covariance is shared, the
    // variance is the guide's.
    const auto fitLine = [&] {
        denominator.Resize(width, height);
        slope.Resize(width, height);
        SizeFit();
        InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t) {
            double* const d = denominator.data + o;
            PxMul_64f(meanSecond.data + o, meanSecond.data + o, work.data + o, n);
            PxSub_64f(work.data + o, meanSqSecond.data + o, d, n);
            PxAddC_64f_I(epsilon, d, n);
            PxDiv_64f(d, covariance.data + o, slope.data + o, n);
            FitOffset(o, n);
        });
    };
    fitLine();
    Apply(outFirst, second, true, q);

    Exchange(meanFirst, meanSecond);
    Exchange(meanSqFirst, meanSqSecond);
    fitLine();
    Apply(outSecond, first, true, q);
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
    const uint32_t width = first.width, height = first.height;
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
        out.Resize(width, height);
        slope.Resize(width, height);
        offset.Resize(width, height);
        InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t rows) {
            MaskBySites(out.data + o, lapGuide.data + o, samples, width, rows);
            ProductToDouble(slope.data + o, out.data + o, lapTarget.data + o, uint32_t(n));
            ProductToDouble(offset.data + o, out.data + o, lapGuide.data + o, uint32_t(n));
        });
        const int32_t p = RowParity(samples);
        Sum(slope, p);
        Sum(offset, p);
        FitSlopeOverOffset();
    };
    fitLine(outFirst, lapFirst, lapSecond, patternA);
    Apply(outFirst, second, true, q);

    Exchange(meanFirst, meanSecond);
    Exchange(meanSqFirst, meanSqSecond);
    fitLine(outSecond, lapSecond, lapFirst, patternB);
    Apply(outSecond, first, true, q);
}

void GuidedFilter::FilterColour(ImageBuffer32& out, const ImageBuffer32& raw, const ImageBuffer32& green,
                                uint32_t pattern) {
    if (!RequireOperands(raw, green)) {
        out.Resize(raw.width, raw.height);
        return;
    }
    const int32_t p = RowParity(pattern);
    const uint32_t width = raw.width, height = raw.height;

    ImageBuffer32 first, second;
    first.Resize(width, height);
    MaskBySites(first.data, raw.data, pattern, width, height);
    second.Resize(width, height);
    MaskBySites(second.data, green.data, pattern, width, height);
    ComputeMeans(first, second, pattern);
    Double(cross);

    // first and second become their Laplacians; out lends its block as the filter's destination.
    FilterImage(filterScratch, out, first, PxBorderMirror, 5, 5, squareLaplacian);
    Exchange(out, first);
    FilterImage(filterScratch, out, second, PxBorderMirror, 5, 5, squareLaplacian);
    Exchange(out, second);

    slope.Resize(width, height);
    offset.Resize(width, height);
    InStrips(width, height, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        ProductToDouble(slope.data + o, first.data + o, second.data + o, uint32_t(n));
        SquareToDouble(offset.data + o, second.data + o, uint32_t(n));
    });
    Sum(slope, p);
    Sum(offset, p);
    FitSlopeOverOffset();
    Apply(out, green, false, 0);
}

// slope = slope / (offset + epsilon), then the offset of that slope's line.
void GuidedFilter::FitSlopeOverOffset() {
    SizeFit();
    InStrips(slope.width, slope.height, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        PxAddC_64f_I(epsilon, offset.data + o, n);
        PxDiv_64f_I(offset.data + o, slope.data + o, n);
        FitOffset(o, n);
    });
}
