// Hamilton-Adams demosaicking in integer arithmetic on 16-bit planes whose samples carry three fraction
// bits. The only high-quality algorithm that also reduces: at scale 2, 4, 8 or 16 it demosaics at full
// resolution, then averages blocks.
#pragma once

#include "demosaic/DeBayerHQ.h"
#include "demosaic/HAKernels.h"

class HA : public DeBayerHQ {
public:
    ~HA() override;

    // Refuses a scale other than 1, 2, 4, 8 and 16 with a level 3 message; false when an allocation fails.
    // params is ignored.
    bool AllocateWorkspace(const void* params) override;
    // HA has no parameters: always true, nothing stored.
    bool SetParameter(uint32_t id, const void* value) override;
    // Always true.
    bool Interpolate(const void* src, int32_t srcStride) override;
    void GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) override;
    bool GetResultPlanes(void* planes[3]) override;

    // Tests only: the planes' layout, and the rows of a band of the pipelined steps.
    HAPlanes Planes() const;
    int32_t BandRows() const;

private:
    uint8_t* block = nullptr;       // the three planes, plain allocator
    uint8_t* rowScratch = nullptr;  // 2 * (2 * width + 64) bytes, 32-byte aligned
    int32_t planeStride = 0;        // bytes between plane rows: 2 * width + 64
    uint16_t* planeG = nullptr;     // element (0, 0) of each plane
    uint16_t* planeEven = nullptr;  // the colour of the even rows
    uint16_t* planeOdd = nullptr;   // the colour of the odd rows
    const HAKernelSet* kernels = nullptr;
};
