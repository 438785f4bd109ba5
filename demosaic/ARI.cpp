#include "demosaic/ARI.h"

#include "demosaic/GuidedFilter.h"
#include "demosaic/PlaneStrips.h"
#include "demosaic/SiteMasks.h"
#include "primitives/Px.h"
#include "stream/StageCreators.h"

#include <cstring>
#include <initializer_list>

namespace {

constexpr uint32_t maxIterations = 16;
constexpr double minEpsilon = 1e-9;
constexpr double maxEpsilon = 0.1;

// The start of the weight sum (no zero divisor in the blend), the criterion every iteration must not exceed to
// be taken, and the floor added to the best criterion before its reciprocal becomes the pass's weight.
constexpr float weightSumStart = 1e-32f;
constexpr float criterionStart = 1e32f;
constexpr float criterionFloor = 1e-16f;

constexpr int32_t roundHalfUp = 2;

// The outer product of the 7-tap line (-1, 0, 9, 16, 9, 0, -1) / 16 with itself; every product is a multiple of
// 1/256 below 2 and so exact in single precision.
struct ColourResidualTable {
    float taps[49];
    constexpr ColourResidualTable() : taps() {
        constexpr float line[7] = {-1.0f / 16, 0.0f, 9.0f / 16, 1.0f, 9.0f / 16, 0.0f, -1.0f / 16};
        for (int j = 0; j < 7; ++j)
            for (int i = 0; i < 7; ++i) taps[7 * j + i] = line[j] * line[i];
    }
};
constexpr ColourResidualTable colourResidualTable;

int32_t Count(const ImageBuffer32& plane) { return int32_t(size_t(plane.width) * plane.height); }

}  // namespace

ImageProcessing* CreateARI(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                           uint32_t scale, uint32_t mode) {
    return CreateStage<ARI>(width, height, in, out, scale, mode, nullptr);
}

const float ARI::MidpointKernel[3] = {0.5f, 0.0f, 0.5f};
const float ARI::ResidualKernel[3] = {0.5f, 1.0f, 0.5f};
const float ARI::GradientKernel[3] = {-1.0f, 0.0f, 1.0f};

// exp(-(i * i + j * j) / 8) over its sum, for i, j from -2 to 2, each rounded once to single precision.
const float ARI::CriterionKernel[25] = {
    0.0232468396f, 0.0338239521f, 0.0383275598f, 0.0338239521f, 0.0232468396f,  //
    0.0338239521f, 0.0492135622f, 0.0557662696f, 0.0492135622f, 0.0338239521f,  //
    0.0383275598f, 0.0557662696f, 0.0631914660f, 0.0557662696f, 0.0383275598f,  //
    0.0338239521f, 0.0492135622f, 0.0557662696f, 0.0492135622f, 0.0338239521f,  //
    0.0232468396f, 0.0338239521f, 0.0383275598f, 0.0338239521f, 0.0232468396f,
};

const float* const ARI::ColourResidualKernel = colourResidualTable.taps;

ARI::~ARI() {
    raw.Release();
    planeG.Release();
    planeEven.Release();
    planeOdd.Release();
}

bool ARI::AllocateWorkspace(const void* params) {
    try {
        for (ImageBuffer32* plane : {&raw, &planeG, &planeEven, &planeOdd}) plane->Resize(width, height);
    } catch (bool) {
        return false;
    }
    const SitePatterns sites = MakeSitePatterns(BayerPhase);
    siteGreenEven = sites.siteGreenEven;
    siteColourEven = sites.siteColourEven;
    siteGreenOdd = sites.siteGreenOdd;
    siteColourOdd = sites.siteColourOdd;
    if (params != nullptr) {
        const auto* block = static_cast<const uint8_t*>(params);
        SetParameter(2, block);
        SetParameter(3, block + 8);
        SetParameter(4, block + 12);
    }
    return true;
}

bool ARI::SetParameter(uint32_t id, const void* value) {
    if (value == nullptr) return false;
    switch (id) {
        case 2: {
            double e;
            std::memcpy(&e, value, sizeof e);
            // A NaN is not above the floor either: it stores the floor.
            epsilon = !(e > minEpsilon) ? minEpsilon : e > maxEpsilon ? maxEpsilon : e;
            return true;
        }
        case 3:
        case 4: {
            uint32_t n;
            std::memcpy(&n, value, sizeof n);
            (id == 3 ? riIterations : mlriIterations) = n > maxIterations ? maxIterations : n;
            return true;
        }
        default: return false;
    }
}

void ARI::GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) {
    *planeWidth = planeG.width;
    *planeRowBytes = 4 * planeG.width;
    *planeHeight = planeG.height;
}

bool ARI::GetResultPlanes(void* planes[3]) {
    return PlanesInOutputOrder(planes, planeEven.data, planeG.data, planeOdd.data);
}

bool ARI::Interpolate(const void* src, int32_t srcStride) {
    const ImageBlockPool::Scope poolScope(imagePool);
    const PxSize roi{int32_t(raw.width), int32_t(raw.height)};
    const int32_t rawStep = int32_t(4 * raw.width);
    if (inFormat.bitDepth > 8)
        PxConvertImage_16u32f(static_cast<const uint16_t*>(src), srcStride, raw.data, rawStep, roi);
    else
        PxConvertImage_8u32f(static_cast<const uint8_t*>(src), srcStride, raw.data, rawStep, roi);
    try {
        EstimateGreen();
        EstimateColour(0);
        EstimateColour(1);
    } catch (bool caught) {
        return caught;
    }
    FinishPlane(planeG);
    FinishPlane(planeEven);
    FinishPlane(planeOdd);
    return true;
}

bool ARI::EstimateGreenOf(const float* mosaic) {
    std::memcpy(raw.data, mosaic, size_t(Count(raw)) * sizeof(float));
    try {
        EstimateGreen();
    } catch (bool caught) {
        return caught;
    }
    return true;
}

void ARI::EstimateGreen() {
    const int32_t count = Count(planeG);
    PxSet_32f(0.0f, planeG.data, count);
    PxSet_32f(weightSumStart, planeEven.data, count);
    // Both counts 0 would leave no estimate at all: one plain iteration runs instead, from now on.
    if (riIterations + mlriIterations == 0) riIterations = 1;

    // planeOdd: the mosaic interpolated along the line, mirrored so that the border stays on one Bayer phase.
    FilterImage(filterScratch, planeOdd, raw, PxBorderMirror, 3, 1, MidpointKernel);
    DirectionalPass(0, 0);
    DirectionalPass(0, 1);
    FilterImage(filterScratch, planeOdd, raw, PxBorderMirror, 1, 3, MidpointKernel);
    DirectionalPass(1, 0);
    DirectionalPass(1, 1);

    PxDiv_32f_I(planeEven.data, planeG.data, count);
    PxThresholdLT_32f_I(planeG.data, count, 0.0f);
    PxThresholdGT_32f_I(planeG.data, count, float(InputMaximum()));
}

void ARI::DirectionalPass(uint32_t direction, uint32_t variant) {
    const uint32_t n = variant == 0 ? riIterations : mlriIterations;
    if (n == 0) return;
    // pg0 and pc0 share one line of the direction, pg1 and pc1 the other: the row parities along rows, the
    // column parities along columns.
    const uint32_t pg0 = direction == 0 ? siteGreenEven : siteGreenOdd;
    const uint32_t pc0 = siteColourEven;
    const uint32_t pg1 = direction == 0 ? siteGreenOdd : siteGreenEven;
    const uint32_t pc1 = siteColourOdd;
    const uint32_t w = raw.width, h = raw.height;
    const int32_t count = Count(raw);
    const uint32_t lineWidth = direction == 0 ? 3 : 1, lineHeight = direction == 0 ? 1 : 3;

    // Each line's green-class and colour-class planes: samples at their own sites, the interpolated mosaic at
    // the line's other site.
    ImageBuffer32 green0, colour0, green1, colour1;
    green0.MergeBySites(raw, pg0, planeOdd, pc0);
    colour0.MergeBySites(raw, pc0, planeOdd, pg0);
    green1.MergeBySites(raw, pg1, planeOdd, pc1);
    colour1.MergeBySites(raw, pc1, planeOdd, pg1);

    ImageBuffer32 bestGreen, bestCriterion;
    bestGreen.Resize(w, h);
    PxAdd_32f(green1.data, green0.data, bestGreen.data, count);
    bestCriterion.Resize(w, h);
    PxSet_32f(criterionStart, bestCriterion.data, count);

    uint32_t a = 2 * variant + 2, b = 1 - variant;
    for (uint32_t k = 0; k < n; ++k, a += 2, b += 1) {
        ImageBuffer32 tentGreen0, tentColour0, tentGreen1, tentColour1;
        {
            const uint32_t along = 2 * a + 1, across = 2 * b + 1;
            GuidedFilter filter(direction == 0 ? along : across, direction == 0 ? across : along, direction, epsilon);
            if (variant == 0) {
                filter.FilterPairPlain(tentGreen0, tentColour0, green0, colour0, pg0, pc0);
                filter.FilterPairPlain(tentGreen1, tentColour1, green1, colour1, pg1, pc1);
            } else {
                filter.FilterPairLaplacian(tentGreen0, tentColour0, green0, colour0, pg0, pc0);
                filter.FilterPairLaplacian(tentGreen1, tentColour1, green1, colour1, pg1, pc1);
            }
        }
        InStrips(w, h, [&](size_t o, int32_t n, uint32_t, uint32_t) {
            PxSub_32f_I(tentGreen0.data + o, green0.data + o, n);
            PxSub_32f_I(tentColour0.data + o, colour0.data + o, n);
            PxSub_32f_I(tentGreen1.data + o, green1.data + o, n);
            PxSub_32f_I(tentColour1.data + o, colour1.data + o, n);
        });
        ImageBuffer32 criterion;
        DirectionalCriterion(criterion, green0, green1, colour0, colour1, direction);

        // The residuals of the samples against the tentative images, carried along the line to the neighbours.
        ImageBuffer32 residualGreen, residualColour, spreadGreen, spreadColour;
        residualGreen.Resize(w, h);
        residualColour.Resize(w, h);
        InStrips(w, h, [&](size_t o, int32_t n, uint32_t y, uint32_t rows) {
            PxSub_32f(tentGreen0.data + o, raw.data + o, green0.data + o, n);
            PxSub_32f(tentGreen1.data + o, raw.data + o, green1.data + o, n);
            PxSub_32f(tentColour0.data + o, raw.data + o, colour0.data + o, n);
            PxSub_32f(tentColour1.data + o, raw.data + o, colour1.data + o, n);
            MergeRowsBySites(residualGreen.data + o, green0.data + o, pg0, green1.data + o, pg1, w, y, rows);
            MergeRowsBySites(residualColour.data + o, colour0.data + o, pc0, colour1.data + o, pc1, w, y, rows);
        });
        FilterImage(filterScratch, spreadGreen, residualGreen, PxBorderReplicate, lineWidth, lineHeight,
                    ResidualKernel);
        FilterImage(filterScratch, spreadColour, residualColour, PxBorderReplicate, lineWidth, lineHeight,
                    ResidualKernel);

        // The new images, and per pixel the candidate replaces the best one unless its criterion is greater: an
        // equal criterion and a NaN replace it.
        ImageBuffer32& candidate = residualGreen;
        InStrips(w, h, [&](size_t o, int32_t n, uint32_t y, uint32_t rows) {
            PxAdd_32f_I(spreadGreen.data + o, tentGreen0.data + o, n);
            PxAdd_32f_I(spreadGreen.data + o, tentGreen1.data + o, n);
            PxAdd_32f_I(spreadColour.data + o, tentColour0.data + o, n);
            PxAdd_32f_I(spreadColour.data + o, tentColour1.data + o, n);
            MergeRowsBySites(green0.data + o, raw.data + o, pg0, tentGreen0.data + o, pc0, w, y, rows);
            MergeRowsBySites(colour0.data + o, raw.data + o, pc0, tentColour0.data + o, pg0, w, y, rows);
            MergeRowsBySites(green1.data + o, raw.data + o, pg1, tentGreen1.data + o, pc1, w, y, rows);
            MergeRowsBySites(colour1.data + o, raw.data + o, pc1, tentColour1.data + o, pg1, w, y, rows);
            PxAdd_32f(green1.data + o, green0.data + o, candidate.data + o, n);
            const float* c = criterion.data + o;
            const float* g = candidate.data + o;
            float* __restrict best = bestCriterion.data + o;
            float* __restrict kept = bestGreen.data + o;
            for (int32_t i = 0; i < n; ++i) {
                const bool keep = c[i] > best[i];
                best[i] = keep ? best[i] : c[i];
                kept[i] = keep ? kept[i] : g[i];
            }
        });
    }

    // The pass's weight is the reciprocal of its best criterion.
    PxAddC_32f_I(criterionFloor, bestCriterion.data, count);
    PxInv_32f(bestCriterion.data, bestCriterion.data, count);
    PxAdd_32f_I(bestCriterion.data, planeEven.data, count);
    PxAddProduct_32f(bestCriterion.data, bestGreen.data, planeG.data, count);
}

// (Smoothed size of the residuals) squared times (smoothed size of their gradients along the direction): small
// where the residuals are small and flat. The four residual planes serve as scratch.
void ARI::DirectionalCriterion(ImageBuffer32& criterion, ImageBuffer32& g0, ImageBuffer32& g1, ImageBuffer32& c0,
                               ImageBuffer32& c1, uint32_t direction) {
    const uint32_t w = g0.width, h = g0.height;
    const uint32_t lineWidth = direction == 0 ? 3 : 1, lineHeight = direction == 0 ? 1 : 3;
    InStrips(w, h, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        PxAdd_32f_I(g1.data + o, g0.data + o, n);
        PxAdd_32f_I(c1.data + o, c0.data + o, n);
    });
    FilterImage(filterScratch, g1, g0, PxBorderReplicate, lineWidth, lineHeight, GradientKernel);
    FilterImage(filterScratch, c1, c0, PxBorderReplicate, lineWidth, lineHeight, GradientKernel);
    InStrips(w, h, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        for (ImageBuffer32* plane : {&g0, &g1, &c0, &c1}) PxAbs_32f_I(plane->data + o, n);
        PxAdd_32f_I(g0.data + o, c0.data + o, n);
        PxAdd_32f_I(g1.data + o, c1.data + o, n);
    });
    FilterImage(filterScratch, g0, c0, PxBorderReplicate, 5, 5, CriterionKernel);
    FilterImage(filterScratch, g1, c1, PxBorderReplicate, 5, 5, CriterionKernel);
    criterion.Resize(w, h);
    InStrips(w, h, [&](size_t o, int32_t n, uint32_t, uint32_t) {
        PxSqr_32f_I(g0.data + o, n);
        PxMul_32f(g1.data + o, g0.data + o, criterion.data + o, n);
    });
}

void ARI::EstimateColour(uint32_t index) {
    ImageBuffer32& out = index == 0 ? planeEven : planeOdd;
    const uint32_t site = index == 0 ? siteColourEven : siteColourOdd;
    {
        GuidedFilter filter(11, 11, 0, epsilon);
        filter.FilterColour(out, raw, planeG, site);
    }
    const int32_t count = Count(out);
    PxThresholdLT_32f_I(out.data, count, 0.0f);
    PxThresholdGT_32f_I(out.data, count, float(InputMaximum()));

    // The residual at the plane's own sites, spread to the other sites; on the lattice of those sites the
    // kernel reaches only the centre, so they come back as their samples.
    ImageBuffer32 residual, masked;
    residual.Resize(raw.width, raw.height);
    PxSub_32f(out.data, raw.data, residual.data, count);
    masked.Resize(residual.width, residual.height);
    MaskBySites(masked.data, residual.data, site, masked.width, masked.height);
    FilterImage(filterScratch, residual, masked, PxBorderReplicate, 7, 7, ColourResidualKernel);
    PxAdd_32f_I(residual.data, out.data, count);
}

// Rounds half up into the plane's own memory, saturating at the type's limits; rows keep their float step.
void ARI::FinishPlane(ImageBuffer32& plane) {
    const PxSize roi{int32_t(plane.width), int32_t(plane.height)};
    const int32_t step = int32_t(4 * plane.width);
    const int32_t maxValue = InputMaximum();
    if (outFormat.bitDepth > 8) {
        auto* words = reinterpret_cast<uint16_t*>(plane.data);
        PxConvertImage_32f16u(plane.data, step, words, step, roi, roundHalfUp);
        if (maxValue < 65535) PxThresholdGTImage_16u_I(words, step, roi, uint16_t(maxValue));
    } else {
        auto* bytes = reinterpret_cast<uint8_t*>(plane.data);
        PxConvertImage_32f8u(plane.data, step, bytes, step, roi, roundHalfUp);
        if (maxValue < 255) PxThresholdGTImage_8u_I(bytes, step, roi, uint8_t(maxValue));
    }
}
