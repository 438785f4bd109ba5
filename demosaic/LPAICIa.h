// LPA-ICI demosaicking: directional Hamilton-Adams colour differences along every row and column, fused at each
// colour site from one-sided line fits whose lengths the intersection of confidence intervals chooses, then
// green and both colours reconstructed from the fused differences. Single-precision floats on half-resolution
// planes, samples in their sensor scale; scale 1 only.
#pragma once

#include "demosaic/DeBayerHQ.h"
#include "demosaic/LpaLines.h"
#include "demosaic/LpaWindows.h"

class LPAICIa : public DeBayerHQ {
public:
    // The defaults and the kernels built for them, before Init.
    LPAICIa();
    ~LPAICIa() override;

    // Refuses images lower than 12 rows with a level 3 message (the column pass needs lines of 12 samples);
    // false without a message when the allocation fails. A non-null params is two f64: ids 0 and 1.
    bool AllocateWorkspace(const void* params) override;
    // Id 0 (f64): orderBlend, 0.0 to 1.0. Id 1 (f64): iciThreshold, 0.1 to 10.0.
    bool SetParameter(uint32_t id, const void* value) override;
    // Always true.
    bool Interpolate(const void* src, int32_t srcStride) override;
    void GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) override;
    bool GetResultPlanes(void* planes[3]) override;

    static constexpr uint32_t minimumHeight = 12;
    // The reconstruction's rounding: to the nearest integer, ties to even.
    static float RoundHalfEven(float t);

    // Tests only.
    double OrderBlend() const { return orderBlend; }
    double IciThreshold() const { return iciThreshold; }
    const LpaWindows& Windows() const { return windows; }
    // Element (j, i) of the fused difference plane of the colour of the even (k = 0) or odd rows, 4 (G - C).
    float SiteDifference(int k, int32_t j, int32_t i) const;
    float CrossDifference(int k, int32_t j, int32_t i) const;

private:
    void FusePasses(int k);
    void CrossPlane(int k);
    void BuildRows(int32_t y);

    LpaWindows windows;
    double orderBlend = 0.1;
    double iciThreshold = 1.0;
    uint8_t* block = nullptr;    // the one workspace allocation
    int32_t mosaicStride = 0;    // bytes: 2 w + 8
    uint16_t* mosaic = nullptr;  // element (0, 0), two ring rows and columns on every side
    int32_t halfRowBytes = 0;    // bytes of w / 2 floats
    // Regions of h / 2 rows of w, h rows of w / 2, and twice h / 2 rows of w / 2 floats. The fusion works a row
    // of sites at a time and uses their starts: the row differences of that row (w), a ring of 32 rows of column
    // differences (w / 2 each), and the sums and weights of that row of sites (w / 2 each).
    float* rowDiff = nullptr;
    float* colDiff = nullptr;
    float* fuseSum = nullptr;
    float* fuseWeight = nullptr;
    int32_t diffStride = 0;  // bytes: halfRowBytes + 16
    float* siteDiff0 = nullptr;  // element (0, 0) of the four planes with rings
    float* crossDiff0 = nullptr;
    float* crossDiff1 = nullptr;
    float* siteDiff1 = nullptr;
    int32_t resultStride = 0;  // bytes: 2 w
    uint16_t* planeG = nullptr;
    uint16_t* planeEven = nullptr;  // the colour of the even rows
    uint16_t* planeOdd = nullptr;   // the colour of the odd rows
    float* splitEven = nullptr;  // the row differences being worked on, split by LpaSplitLine, behind the planes
    float* splitOdd = nullptr;
    LpaAccumulateForm accumulate = LpaAccumulateLineScalar;  // the forms of the processor level
    LpaLineForms lines = LpaLinesScalar();
};
