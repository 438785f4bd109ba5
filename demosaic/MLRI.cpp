#include "demosaic/MLRI.h"

#include "demosaic/SiteMasks.h"
#include "primitives/Px.h"
#include "stream/StageCreators.h"

#include <cmath>
#include <cstring>
#include <initializer_list>

namespace {

constexpr float lineLaplacian[5] = {-1.0f, 0.0f, 2.0f, 0.0f, -1.0f};
constexpr float midpoint[3] = {0.5f, 0.0f, 0.5f};
constexpr float gradient[3] = {1.0f, 0.0f, -1.0f};
constexpr float laplacian5x5[25] = {
    0.0f,  0.0f, -1.0f, 0.0f, 0.0f,   //
    0.0f,  0.0f, 0.0f,  0.0f, 0.0f,   //
    -1.0f, 0.0f, 4.0f,  0.0f, -1.0f,  //
    0.0f,  0.0f, 0.0f,  0.0f, 0.0f,   //
    0.0f,  0.0f, -1.0f, 0.0f, 0.0f,
};

// The outer product of (-1/16, 0, 9/16, 1, 9/16, 0, -1/16) with itself: on the lattice of one colour it reaches
// only the centre, so a sampled site keeps its residual exactly.
struct ColourResidualTable {
    float taps[49];
    constexpr ColourResidualTable() : taps() {
        constexpr float line[7] = {-1.0f / 16, 0.0f, 9.0f / 16, 1.0f, 9.0f / 16, 0.0f, -1.0f / 16};
        for (int j = 0; j < 7; ++j)
            for (int i = 0; i < 7; ++i) taps[j * 7 + i] = line[j] * line[i];
    }
};
constexpr ColourResidualTable colourResidual7x7;

// The floor of the mean gradient size squared: 1e-9 in single precision.
constexpr float gradientFloor = 1e-9f;

template <class Element>
int32_t Count(const ImageBuffer<Element>& image) {
    return int32_t(size_t(image.width) * image.height);
}

double ReadDouble(const void* value) {
    double v;
    std::memcpy(&v, value, sizeof v);
    return v;
}

double Clamp(double v, double low, double high) {
    if (!(v > low)) return low;
    return v > high ? high : v;
}

}  // namespace

ImageProcessing* CreateMLRI(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                            uint32_t scale, uint32_t mode) {
    // The defaults and the fixed windows 7 and 11 are the members' initial values.
    return CreateStage<MLRI>(width, height, in, out, scale, mode, nullptr);
}

MLRI::~MLRI() = default;

bool MLRI::AllocateWorkspace(const void* params) {
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
        SetParameter(5, params);
        SetParameter(6, static_cast<const uint8_t*>(params) + 8);
    }
    return true;
}

bool MLRI::SetParameter(uint32_t id, const void* value) {
    if (value == nullptr) return false;
    switch (id) {
        case 5: epsilon = Clamp(ReadDouble(value), 1e-9, 0.1); return true;
        case 6: sigma = Clamp(ReadDouble(value), 0.01, 100.0); return true;
        default: return false;
    }
}

void MLRI::GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) {
    *planeWidth = planeG.width;
    *planeRowBytes = 4 * planeG.width;
    *planeHeight = planeG.height;
}

bool MLRI::GetResultPlanes(void* planes[3]) {
    return PlanesInOutputOrder(planes, planeEven.data, planeG.data, planeOdd.data);
}

void MLRI::BuildSideKernel(float table[9], double sigma, int32_t side) {
    const float s = float(sigma);
    float e[5] = {1.0f};
    for (int k = 1; k <= 4; ++k) e[k] = std::exp(float(k * k) / (s * -2.0f * s));
    const float total = e[0] + e[1] + e[2] + e[3] + e[4];
    for (int i = 0; i < 9; ++i) {
        const int k = side < 0 ? i - 4 : 4 - i;  // distance from the pixel on the weighed side
        table[i] = k < 0 ? 0.0f : e[k] / total;
    }
}

bool MLRI::Interpolate(const void* src, int32_t srcStride) {
    const ImageBlockPool::Scope poolScope(imagePool);
    const PxSize size{int32_t(raw.width), int32_t(raw.height)};
    const int32_t rawStep = int32_t(4 * raw.width);
    if (inFormat.bitDepth > 8)
        PxConvertImage_16u32f(static_cast<const uint16_t*>(src), srcStride, raw.data, rawStep, size);
    else
        PxConvertImage_8u32f(static_cast<const uint8_t*>(src), srcStride, raw.data, rawStep, size);

    try {
        EstimateGreen();
        const KernelSpec fit{5, 5, laplacian5x5};
        const KernelSpec residual{7, 7, colourResidual7x7.taps};
        ResidualFit(planeEven, planeG, fit, residual, siteColourEven, colourWindow);
        PxThresholdGT_32f_I(planeEven.data, Count(planeEven), float(InputMaximum()));
        ResidualFit(planeOdd, planeG, fit, residual, siteColourOdd, colourWindow);
        PxThresholdGT_32f_I(planeOdd.data, Count(planeOdd), float(InputMaximum()));

        // In place: each row's samples land at its start and the row step stays 4 times the width.
        for (ImageBuffer32* plane : {&planeG, &planeEven, &planeOdd}) {
            const PxSize planeSize{int32_t(plane->width), int32_t(plane->height)};
            const int32_t step = int32_t(4 * plane->width);
            if (outFormat.bitDepth > 8)
                PxConvertImage_32f16u(plane->data, step, reinterpret_cast<uint16_t*>(plane->data), step, planeSize, 2);
            else
                PxConvertImage_32f8u(plane->data, step, reinterpret_cast<uint8_t*>(plane->data), step, planeSize, 2);
        }
    } catch (bool result) {
        return result;
    }
    return true;
}

void MLRI::EstimateGreen() {
    PxSet_32f(0.0f, planeEven.data, Count(planeEven));
    PxSet_32f(0.0f, planeOdd.data, Count(planeOdd));
    DirectionalGreen(0);
    DirectionalGreen(1);
    // The blended difference, green minus colour, counts only where a colour was sampled; a green site keeps
    // its sample.
    PxDiv_32f_I(planeOdd.data, planeEven.data, Count(planeEven));
    MaskBySites(planeEven.data, planeEven.data, siteColourEven | siteColourOdd, planeEven.width, planeEven.height);
    planeG.Resize(raw.width, raw.height);
    PxAdd_32f(planeEven.data, raw.data, planeG.data, Count(planeG));
    // No lower clamp: the colour fits see a green below 0 as it is.
    PxThresholdGT_32f_I(planeG.data, Count(planeG), float(InputMaximum()));
}

void MLRI::DirectionalGreen(uint32_t direction) {
    const bool alongRows = direction == 0;
    // Each pair of sites lies on one line of the direction.
    const uint32_t gA = siteGreenEven, gB = siteGreenOdd;
    const uint32_t cA = alongRows ? siteColourEven : siteColourOdd;
    const uint32_t cB = alongRows ? siteColourOdd : siteColourEven;
    const uint32_t allGreen = siteGreenEven | siteGreenOdd, allColour = siteColourEven | siteColourOdd;
    // Kernels of n taps run along the direction.
    const auto line = [alongRows](uint32_t taps, const float* coefficients) {
        return KernelSpec{alongRows ? taps : 1, alongRows ? 1 : taps, coefficients};
    };
    const KernelSpec fit = line(5, lineLaplacian), residual = line(3, midpoint);
    const auto filter = [this](ImageBuffer32& dst, const ImageBuffer32& src, int32_t border, const KernelSpec& k) {
        FilterImage(filterScratch, dst, src, border, k.width, k.height, k.coefficients);
    };
    const int32_t count = Count(raw);

    ImageBuffer32 greenFull, colourFull, guide, tentative;
    greenFull.Resize(raw.width, raw.height);
    MaskBySites(greenFull.data, raw.data, allGreen, raw.width, raw.height);
    colourFull.Resize(raw.width, raw.height);
    MaskBySites(colourFull.data, raw.data, allColour, raw.width, raw.height);
    filter(planeG, raw, PxBorderMirror, residual);

    // Green at the colour sites of each line, fitted on that line's green sites.
    guide.MergeBySites(raw, cA, planeG, gA);
    ResidualFit(tentative, guide, fit, residual, gA, greenWindow);
    AddBySites(greenFull, tentative, cA);
    guide.MergeBySites(raw, cB, planeG, gB);
    ResidualFit(tentative, guide, fit, residual, gB, greenWindow);
    AddBySites(greenFull, tentative, cB);

    // The line's colour at its green sites.
    guide.MergeBySites(raw, allGreen, planeG, allColour);
    ResidualFit(tentative, guide, fit, residual, cA, greenWindow);
    AddBySites(colourFull, tentative, gA);
    ResidualFit(tentative, guide, fit, residual, cB, greenWindow);
    AddBySites(colourFull, tentative, gB);

    ImageBuffer32& difference = greenFull;
    PxSub_32f_I(colourFull.data, difference.data, count);
    colourFull.Release();

    // The weight of a pixel: 1 / (mean gradient size squared + 1e-9).
    ImageBuffer32 weight;
    filter(guide, difference, PxBorderReplicate, line(3, gradient));
    PxAbs_32f_I(guide.data, count);
    MeanFilter3x3(filterScratch, weight, guide);
    PxSqr_32f_I(weight.data, count);
    PxAddC_32f_I(gradientFloor, weight.data, count);
    PxInv_32f(weight.data, weight.data, count);

    // Each side's one-sided average of the difference, weighted by the weight of the neighbour on that side.
    // The neighbour's weight is the weight plane moved by one pixel, the far edge replicated.
    const PxSize size{int32_t(raw.width), int32_t(raw.height)};
    const PxSize shorter{alongRows ? size.width - 1 : size.width, alongRows ? size.height : size.height - 1};
    const int32_t step = int32_t(4 * raw.width);
    const intptr_t next = alongRows ? 1 : intptr_t(raw.width);
    float table[9];
    for (const int32_t side : {-1, 1}) {
        BuildSideKernel(table, sigma, side);
        filter(tentative, difference, PxBorderReplicate, line(9, table));
        guide.Resize(raw.width, raw.height);
        if (side < 0)
            PxCopyReplicateBorder_32f(weight.data + next, step, shorter, guide.data, step, size, 0, 0);
        else
            PxCopyReplicateBorder_32f(weight.data, step, shorter, guide.data, step, size, alongRows ? 0 : 1,
                                      alongRows ? 1 : 0);
        PxAddProduct_32f(guide.data, tentative.data, planeEven.data, count);
        PxAdd_32f_I(guide.data, planeOdd.data, count);
    }
}

void MLRI::ResidualFit(ImageBuffer32& out, const ImageBuffer32& source, const KernelSpec& fitKernel,
                       const KernelSpec& residualKernel, uint32_t site, uint32_t window) {
    fit.Run(out, source, raw, fitKernel, residualKernel, site, window, epsilon);
}
