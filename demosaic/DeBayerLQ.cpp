#include "demosaic/DeBayerLQ.h"

#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"
#include "stream/Log.h"

namespace {

// The interpolation primitive's name for each Bayer format's phase.
int32_t GridOfBayerFormat(uint32_t pixelFormat) {
    switch (pixelFormat) {
        case PixelFormat::BayerGRBG: return PxGridGRBG;
        case PixelFormat::BayerBGGR: return PxGridBGGR;
        case PixelFormat::BayerGBRG: return PxGridGBRG;
        default: return PxGridRGGB;
    }
}

DeBayerBlockKernel BlockKernelFor(uint32_t scale, bool avx2) {
    switch (scale) {
        case 2: return avx2 ? DeBayerBlocks2Avx2 : DeBayerBlocks2;
        case 4: return avx2 ? DeBayerBlocks4Avx2 : DeBayerBlocks4;
        case 8: return avx2 ? DeBayerBlocks8Avx2 : DeBayerBlocks8;
        case 16: return avx2 ? DeBayerBlocks16Avx2 : DeBayerBlocks16;
        default: return nullptr;
    }
}

}  // namespace

bool DeBayerLQ::Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
                     uint32_t, const void*) {
    if (in->bitDepth != 8) {
        Log(LogFailure, "DeBayerLQ: Unsupported input bit depth (%u)", static_cast<uint32_t>(in->bitDepth));
        return false;
    }
    if (out->bitDepth != 8) {
        Log(LogFailure, "DeBayerLQ: Unsupported output bit depth (%u)", static_cast<uint32_t>(out->bitDepth));
        return false;
    }
    if (width % 16 != 0 || height % 2 != 0) {
        Log(LogFailure, "DeBayerLQ: Invalid image alignment (%u * %u, Scale = %u)", width, height, scale);
        return false;
    }
    if (scale != 1 && scale != 2 && scale != 4 && scale != 8 && scale != 16) {
        Log(LogFailure, "DeBayerLQ: Unsupported scale factor (%u)", scale);
        return false;
    }
    this->width = width;
    this->height = height;
    inFormat = *in;
    outFormat = *out;
    this->scale = scale;
    blockKernel = BlockKernelFor(scale, PxProcessorLevel() >= PxLevelAvx2);
    return true;
}

uint32_t DeBayerLQ::OutputSize() { return ScaledOutputSize(); }

uint32_t DeBayerLQ::Process(const void* in, void* out, const void*) {
    const uint8_t* mosaic = static_cast<const uint8_t*>(in);
    uint8_t* image = static_cast<uint8_t*>(out);
    if (scale == 1) {
        PxRect region{0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)};
        const PxSize size{static_cast<int32_t>(width), static_cast<int32_t>(height)};
        const int32_t srcStep = static_cast<int32_t>(inFormat.bitsPerPixel * width >> 3);
        const int32_t dstStep = static_cast<int32_t>(outFormat.bitsPerPixel * width >> 3);
        PxBayerToRgb_8u(mosaic, &region, size, srcStep, image, dstStep, GridOfBayerFormat(inFormat.format), 0);
    } else {
        blockKernel(mosaic, width, width, height / scale, SitesOfBayerFormat(inFormat.format), image,
                    size_t(width / scale) * 4);
    }
    return OutputSize();
}
