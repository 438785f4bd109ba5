// The streamed residual fit of MLRI against its definition, the chain of whole-plane steps written out here with
// the whole-plane operations: the very bits on random planes of many heights, every site, both windows and every
// pair of kernels the algorithm uses, also where planes are lower than the window.
#include "demosaic/MLRIFit.h"
#include "demosaic/SiteMasks.h"
#include "primitives/Px.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <tuple>

namespace {

constexpr float laplacian5x5[25] = {0, 0, -1, 0, 0, 0, 0, 0, 0, 0, -1, 0, 4, 0, -1, 0, 0, 0, 0, 0, 0, 0, -1, 0, 0};
constexpr float lineLaplacian[5] = {-1, 0, 2, 0, -1};
constexpr float midpoint[3] = {0.5f, 0, 0.5f};
constexpr float residual7[7] = {-1.0f / 16, 0, 9.0f / 16, 1, 9.0f / 16, 0, -1.0f / 16};

int32_t Count(const ImageBuffer32& image) { return int32_t(image.width * image.height); }

// The definition: each step over whole planes, in the order stated for the algorithm.
void WholePlaneFit(ImageBuffer32& out, const ImageBuffer32& source, const ImageBuffer32& raw, const FilterKernel& fit,
                   const FilterKernel& residual, uint32_t site, uint32_t window, double epsilon) {
    FilterScratch scratch;
    BoxRing ring;
    const int32_t p = RowParity(site), n = Count(source);
    const uint32_t w = source.width, h = source.height;
    const auto box = [&](ImageBuffer64& image, int32_t parity) { BoxSum(ring, image, window, window, parity); };
    ImageBuffer32 x, y, lapX, lapY;
    x.Resize(w, h);
    y.Resize(w, h);
    MaskBySites(x.data, source.data, site, w, h);
    MaskBySites(y.data, raw.data, site, w, h);
    FilterImage(scratch, lapX, x, PxBorderMirror, fit.width, fit.height, fit.coefficients);
    FilterImage(scratch, lapY, y, PxBorderMirror, fit.width, fit.height, fit.coefficients);
    ImageBuffer64 slope, offset, count, error, sum;
    for (ImageBuffer64* plane : {&slope, &offset, &count, &error, &sum}) plane->Resize(w, h);
    ProductToDouble(slope.data, lapX.data, lapY.data, n);
    box(slope, p);
    SquareToDouble(sum.data, lapX.data, n);
    box(sum, p);
    PxAddC_64f_I(epsilon, sum.data, n);
    PxDiv_64f_I(sum.data, slope.data, n);
    PxConvert_32f64f(y.data, offset.data, n);
    box(offset, p);
    PxConvert_32f64f(x.data, sum.data, n);
    box(sum, p);
    PxMul_64f_I(slope.data, sum.data, n);
    PxSub_64f_I(sum.data, offset.data, n);
    count.FillSitePattern(site);
    box(count, p);
    PxThresholdLT_64f_I(count.data, n, 1e-32);
    PxInv_64f(count.data, count.data, n);
    PxMul_64f_I(count.data, offset.data, n);
    SquareToDouble(sum.data, x.data, n);
    box(sum, p);
    PxMul_64f(sum.data, slope.data, error.data, n);
    ProductToDouble(sum.data, x.data, y.data, n);
    box(sum, p);
    PxMulC_64f_I(2.0, sum.data, n);
    PxSub_64f_I(sum.data, error.data, n);
    PxMul_64f_I(slope.data, error.data, n);
    SquareToDouble(sum.data, y.data, n);
    box(sum, p);
    PxAdd_64f_I(sum.data, error.data, n);
    PxMul_64f_I(count.data, error.data, n);
    PxSqr_64f(offset.data, sum.data, n);
    PxSub_64f_I(sum.data, error.data, n);
    PxThresholdLT_64f_I(error.data, n, double(1e-9f));
    PxInv_64f(error.data, error.data, n);
    PxMul_64f_I(error.data, offset.data, n);
    PxMul_64f_I(error.data, slope.data, n);
    box(offset, 0);
    box(slope, 0);
    box(error, 0);
    PxConvert_32f64f(source.data, sum.data, n);
    PxMul_64f_I(slope.data, sum.data, n);
    PxAdd_64f_I(offset.data, sum.data, n);
    PxDiv_64f_I(error.data, sum.data, n);
    out.Resize(w, h);
    PxConvert_64f32f(sum.data, out.data, n);
    PxThresholdLT_32f_I(out.data, n, 0.0f);
    SubtractBySites(y, out, site);
    FilterImage(scratch, x, y, PxBorderReplicate, residual.width, residual.height, residual.coefficients);
    PxAdd_32f_I(x.data, out.data, n);
}

TEST(MLRIFit, StreamedRowsGiveTheBitsOfTheWholePlaneSteps) {
    float residual7x7[49];
    for (int j = 0; j < 7; ++j)
        for (int i = 0; i < 7; ++i) residual7x7[j * 7 + i] = residual7[j] * residual7[i];
    const std::tuple<FilterKernel, FilterKernel> kernels[] = {
        {{5, 5, laplacian5x5}, {7, 7, residual7x7}},
        {{5, 1, lineLaplacian}, {3, 1, midpoint}},
        {{1, 5, lineLaplacian}, {1, 3, midpoint}},
    };
    std::mt19937 random(31);
    MLRIFit fit;  // one object for every case: its rings carry over as in a stream of frames
    ImageBuffer32 source, raw, streamed, whole;
    for (uint32_t round = 0; round < 60; ++round) {
        const uint32_t width = 16 * (1 + random() % 4), height = 2 + 2 * (random() % 40);
        const uint32_t window = round % 3 == 0 ? 7 : 11, phase = random() % 4;
        const SitePatterns sites = MakeSitePatterns(int32_t(phase));
        const uint32_t site = (&sites.siteGreenEven)[random() % 4];
        const auto& [fitKernel, residualKernel] = kernels[round % 3];
        source.Resize(width, height);
        raw.Resize(width, height);
        for (uint32_t i = 0; i < width * height; ++i) {
            raw.data[i] = float(random() % 25600) / 100.0f;
            source.data[i] = raw.data[i] * 0.8f + float(random() % 3000) / 100.0f;
        }
        fit.Run(streamed, source, raw, fitKernel, residualKernel, site, window, 1e-9);
        WholePlaneFit(whole, source, raw, fitKernel, residualKernel, site, window, 1e-9);
        ASSERT_EQ(streamed.Size(), whole.Size());
        ASSERT_EQ(0, std::memcmp(streamed.data, whole.data, size_t(width) * height * sizeof(float)))
            << width << "x" << height << " window " << window << " kernels " << round % 3 << " site " << site;
    }
}

}  // namespace
