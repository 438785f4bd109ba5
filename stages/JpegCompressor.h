// Last stage of a chain: encodes Mono, RGB, RGBX or planar YUV 4:2:0, 4:2:2, 4:4:4 to JPEG
// straight into the output buffer.
#pragma once

#include "stream/ImageProcessing.h"

class JpegCompressor : public ImageProcessing {
public:
    ~JpegCompressor() override;
    // param: the initial quality, a float from 0 to 1. scale must be 1.
    bool Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
              uint32_t mode, const void* param) override;
    // The encoder's worst case at 4:4:4, so one buffer size suits every subsampling.
    uint32_t OutputSize() override;
    // param: null, or a float quality that wins for this frame only.
    uint32_t Process(const void* in, void* out, const void* param) override;

private:
    void* handle = nullptr;
    uint32_t bufferSize = 0;
    float defaultQuality = 0;
};
