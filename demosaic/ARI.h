// Adaptive residual interpolation. Along the rows and along the columns, and with a plain and a Laplacian guided
// filter, green is estimated iteratively: each iteration fits the guided filter in a larger window and adds back
// the residual of the mosaic, interpolated along the line; per pixel the iteration with the smallest criterion
// wins, and the four results are blended by the reciprocals of their criteria. Each colour then follows from
// green by one guided filter and one residual interpolation. Float and double planes in raw sensor units; scale 1
// only.
#pragma once

#include "demosaic/DeBayerHQ.h"
#include "demosaic/FilterKit.h"
#include "demosaic/ImageBuffer.h"

#include <cstdint>

// Creates the stage with its defaults and runs Init; null when Init refuses.
ImageProcessing* CreateARI(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                           uint32_t scale, uint32_t mode);

class ARI : public DeBayerHQ {
public:
    ~ARI() override;

    // Sizes the four planes and sets the site patterns; false, without a message, when an allocation fails. A
    // non-null params is an f64 at offset 0 (id 2) and two u32 at offsets 8 and 12 (ids 3 and 4).
    bool AllocateWorkspace(const void* params) override;
    // Id 2 (f64): epsilon, 1e-9 to 0.1. Id 3 (u32): riIterations, up to 16. Id 4 (u32): mlriIterations, up to 16.
    bool SetParameter(uint32_t id, const void* value) override;
    // False when a plane operation failed (an allocation, in practice); the planes are then undefined.
    bool Interpolate(const void* src, int32_t srcStride) override;
    void GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) override;
    bool GetResultPlanes(void* planes[3]) override;

    // The fixed kernels, correlations with the first coefficient on the lowest index.
    static const float MidpointKernel[3];
    static const float ResidualKernel[3];
    static const float GradientKernel[3];
    // Gaussian of standard deviation 2, normalised to sum 1 and rounded to single precision.
    static const float CriterionKernel[25];
    // 7 by 7: (-1, 0, 9, 16, 9, 0, -1) / 16 times itself.
    static const float* const ColourResidualKernel;

    // Tests only.
    uint32_t RiIterations() const { return riIterations; }
    uint32_t MlriIterations() const { return mlriIterations; }
    double Epsilon() const { return epsilon; }
    // Runs the green estimate alone on a float mosaic of the stage's size; planeG then holds green and planeEven
    // the sum of the blending weights. False when a plane operation failed.
    bool EstimateGreenOf(const float* mosaic);
    const ImageBuffer32& GreenPlane() const { return planeG; }
    const ImageBuffer32& WeightSums() const { return planeEven; }

private:
    void EstimateGreen();
    void DirectionalPass(uint32_t direction, uint32_t variant);
    void DirectionalCriterion(ImageBuffer32& criterion, ImageBuffer32& g0, ImageBuffer32& g1, ImageBuffer32& c0,
                              ImageBuffer32& c1, uint32_t direction);
    void EstimateColour(uint32_t index);
    void FinishPlane(ImageBuffer32& plane);

    uint32_t riIterations = 10;    // iterations of the plain variant
    uint32_t mlriIterations = 10;  // iterations of the Laplacian variant
    double epsilon = 1e-9;         // regularisation of every guided filter
    FilterScratch filterScratch;
    ImageBlockPool imagePool;  // the blocks of the images each step makes and drops, from frame to frame
    ImageBuffer32 raw;        // the mosaic as floats
    ImageBuffer32 planeG;     // green
    ImageBuffer32 planeEven;  // the colour of the even rows; the sum of blending weights while green is estimated
    ImageBuffer32 planeOdd;   // the colour of the odd rows; the mosaic interpolated along the line meanwhile
    uint32_t siteGreenEven = 0;
    uint32_t siteColourEven = 0;
    uint32_t siteGreenOdd = 0;
    uint32_t siteColourOdd = 0;
};
