// Minimised-Laplacian residual interpolation. Green comes from eight local linear fits along the rows and columns,
// blended as colour differences with gradient weights; each other colour from one two-dimensional fit against the
// finished green. A fit's slope minimises the energy of the Laplacian of its residual, and the residual left at the
// sampled sites is interpolated and added back. Float planes and double statistics in raw sensor units; scale 1.
#pragma once

#include "demosaic/DeBayerHQ.h"
#include "demosaic/FilterKit.h"
#include "demosaic/ImageBuffer.h"
#include "demosaic/MLRIFit.h"

#include <cstdint>

// Creates the stage and runs Init; null when Init refuses.
ImageProcessing* CreateMLRI(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                            uint32_t scale, uint32_t mode);

class MLRI : public DeBayerHQ {
public:
    ~MLRI() override;

    // Sizes the four planes (false if that fails) and sets the site patterns. A non-null params is two f64:
    // ids 5 and 6.
    bool AllocateWorkspace(const void* params) override;
    // Id 5 (f64): epsilon, 1e-9 to 0.1. Id 6 (f64): sigma, 0.01 to 100.0.
    bool SetParameter(uint32_t id, const void* value) override;
    // False when a plane operation failed (an allocation, most likely); the planes are then undefined.
    bool Interpolate(const void* src, int32_t srcStride) override;
    void GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) override;
    bool GetResultPlanes(void* planes[3]) override;

    using KernelSpec = FilterKernel;

    // The normalised one-sided Gaussian of 9 taps: side -1 weighs the pixel (index 4) and the four after it,
    // side +1 the pixel and the four before it. Single precision throughout.
    static void BuildSideKernel(float table[9], double sigma, int32_t side);

    // Tests only.
    double Epsilon() const { return epsilon; }
    double Sigma() const { return sigma; }
    uint32_t GreenWindow() const { return greenWindow; }
    uint32_t ColourWindow() const { return colourWindow; }
    const ImageBuffer32& PlaneG() const { return planeG; }

private:
    void EstimateGreen();
    // One direction's two colour-difference terms of the green blend: 0 along rows, 1 along columns.
    void DirectionalGreen(uint32_t direction);
    // out estimates raw at every pixel from source, fitted over the sites of site in windows of window by window,
    // plus the residual at those sites interpolated by residualKernel.
    void ResidualFit(ImageBuffer32& out, const ImageBuffer32& source, const KernelSpec& fitKernel,
                     const KernelSpec& residualKernel, uint32_t site, uint32_t window);

    double epsilon = 1e-9;
    double sigma = 1.0;
    uint32_t greenWindow = 7;
    uint32_t colourWindow = 11;
    ImageBuffer32 raw;
    ImageBuffer32 planeG;     // green; during a directional step the mosaic interpolated along it
    ImageBuffer32 planeEven;  // the colour of the even rows; while green is built, the weighted differences
    ImageBuffer32 planeOdd;   // the colour of the odd rows; while green is built, the sum of the weights
    uint32_t siteGreenEven = 0;
    uint32_t siteColourEven = 0;
    uint32_t siteGreenOdd = 0;
    uint32_t siteColourOdd = 0;
    FilterScratch filterScratch;
    MLRIFit fit;  // the rings of the residual fit, kept from frame to frame
    ImageBlockPool imagePool;  // the blocks of the images each step makes and drops, from frame to frame
};
