#include "demosaic/FilterKit.h"

#include "platform/Platform.h"
#include "primitives/Px.h"

namespace {

constexpr size_t scratchAlignment = 64;

PxSize PlaneSize(const ImageBuffer32& image) { return {int32_t(image.width), int32_t(image.height)}; }

// A refused primitive call would leave dst unwritten; that must not pass as a result.
void Require(PxStatus status) {
    if (status < 0) throw false;
}

}  // namespace

FilterScratch::~FilterScratch() { platform::AlignedFree(data); }

void FilterScratch::Grow(uint32_t bytes) {
    if (bytes <= capacity) return;
    void* grown = platform::AlignedRealloc(data, bytes, scratchAlignment);
    if (grown == nullptr) throw false;
    data = static_cast<uint8_t*>(grown);
    capacity = bytes;
}

void FilterImage(FilterScratch& scratch, ImageBuffer32& dst, const ImageBuffer32& src, int32_t borderType,
                 uint32_t kernelWidth, uint32_t kernelHeight, const float* kernel) {
    if (src.data == nullptr || kernel == nullptr) throw false;
    dst.Resize(src.width, src.height);
    if (src.width == 0 || src.height == 0) return;
    const PxSize roi = PlaneSize(src);
    const PxSize kernelSize = {int32_t(kernelWidth), int32_t(kernelHeight)};
    int32_t specSize = 0, bufferSize = 0;
    Require(PxFilterBorderGetSize(kernelSize, roi, PxType32f, PxType32f, 1, &specSize, &bufferSize));
    scratch.Grow(uint32_t(bufferSize) + uint32_t(specSize));
    // The work buffer first, the filter's set-up behind it; the set-up is rebuilt on every call.
    uint8_t* buffer = scratch.data;
    auto* filterSpec = reinterpret_cast<PxFilterBorderSpec*>(scratch.data + bufferSize);
    Require(PxFilterBorderInit_32f(kernel, kernelSize, PxType32f, 1, 2, filterSpec));
    const float borderValue = 0.0f;
    const int32_t step = int32_t(src.width * sizeof(float));
    Require(PxFilterBorder_32f(src.data, step, dst.data, step, roi, borderType, &borderValue, filterSpec, buffer));
}

void MeanFilter3x3(FilterScratch& scratch, ImageBuffer32& dst, const ImageBuffer32& src) {
    if (src.data == nullptr) throw false;
    dst.Resize(src.width, src.height);
    if (src.width == 0 || src.height == 0) return;
    const PxSize roi = PlaneSize(src), window = {3, 3};
    int32_t bufferSize = 0;
    Require(PxFilterBoxBorderGetBufferSize(roi, window, PxType32f, 1, &bufferSize));
    scratch.Grow(uint32_t(bufferSize));
    const float borderValue = 0.0f;
    const int32_t step = int32_t(src.width * sizeof(float));
    Require(PxFilterBoxBorder_32f(src.data, step, dst.data, step, roi, window, PxBorderReplicate, &borderValue,
                                  scratch.data));
}

void RingFilter::Setup(uint32_t planeWidth, uint32_t planeHeight, int32_t border, const FilterKernel& kernel) {
    if (kernel.coefficients == nullptr) throw false;
    width = planeWidth;
    height = planeHeight;
    borderType = border;
    reachBelow = kernel.height - 1 - (kernel.height - 1) / 2;
    if (width == 0 || height == 0) return;
    const PxSize kernelSize = {int32_t(kernel.width), int32_t(kernel.height)};
    int32_t specSize = 0, bufferSize = 0;
    Require(PxFilterBorderGetSize(kernelSize, {int32_t(width), int32_t(height)}, PxType32f, PxType32f, 1, &specSize,
                                  &bufferSize));
    scratch.Grow(uint32_t(bufferSize) + uint32_t(specSize));
    bufferBytes = uint32_t(bufferSize);
    Require(PxFilterBorderInit_32f(kernel.coefficients, kernelSize, PxType32f, 1, 2,
                                   reinterpret_cast<PxFilterBorderSpec*>(scratch.data + bufferBytes)));
}

void RingFilter::Rows(const RowRing<float>& src, const RowRing<float>& dst, uint32_t firstRow, uint32_t endRow) {
    if (width == 0 || height == 0 || firstRow >= endRow) return;
    const float borderValue = 0.0f;
    const int32_t step = int32_t(width * sizeof(float));
    Require(PxFilterBorderRows_32f(src.data, step, int32_t(src.rows), dst.data, step, int32_t(dst.rows),
                                   {int32_t(width), int32_t(height)}, int32_t(firstRow), int32_t(endRow), borderType,
                                   &borderValue, reinterpret_cast<const PxFilterBorderSpec*>(scratch.data + bufferBytes),
                                   scratch.data));
}
