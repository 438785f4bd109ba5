// The fast demosaicking stage of 8-bit Bayer mosaics. At scale 1 it interpolates the whole frame to RGB; at
// 2, 4, 8 and 16 it interpolates nothing and builds each RGBX output pixel from one block of the mosaic.
#pragma once

#include "demosaic/DeBayerLQBlocks.h"
#include "stream/ImageProcessing.h"

class DeBayerLQ : public ImageProcessing {
public:
    // Accepts 8-bit input and output, a width that is a multiple of 16, an even height and a scale of
    // 1, 2, 4, 8 or 16. mode and param are not read.
    bool Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
              uint32_t mode, const void* param) override;
    uint32_t OutputSize() override;
    // Rows below the last whole block are not read, and the output bytes beyond the written rows keep what
    // they held. param is not read.
    uint32_t Process(const void* in, void* out, const void* param) override;

private:
    // The block kernel of this scale for this processor; null at scale 1.
    DeBayerBlockKernel blockKernel = nullptr;
};
