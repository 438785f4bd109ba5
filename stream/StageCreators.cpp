#include "stream/StageCreators.h"

#include "stages/JpegCompressor.h"

// Bit-depth reduction, binning and packed-YUV conversion are not part of this library yet:
// their creators yield null, so streams that need them are refused by the assembly.

ImageProcessing* NewYUVPlaner(uint32_t, uint32_t, const ImageFormat*, const ImageFormat*, uint32_t, uint32_t,
                              const void*) {
    return nullptr;
}

ImageProcessing* NewBitPacker(uint32_t, uint32_t, const ImageFormat*, const ImageFormat*, uint32_t, uint32_t,
                              const void*) {
    return nullptr;
}

ImageProcessing* NewScaler(uint32_t, uint32_t, const ImageFormat*, const ImageFormat*, uint32_t, uint32_t,
                           const void*) {
    return nullptr;
}

ImageProcessing* NewCompressor(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                               uint32_t scale, uint32_t mode, const void* param) {
    return CreateStage<JpegCompressor>(width, height, in, out, scale, mode, param);
}
