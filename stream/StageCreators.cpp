#include "stream/StageCreators.h"

#include "stages/BitPacker.h"
#include "stages/JpegCompressor.h"
#include "stages/Scaler.h"
#include "stages/YUVPlaner.h"

ImageProcessing* NewYUVPlaner(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                              uint32_t scale, uint32_t mode, const void* param) {
    return CreateStage<YUVPlaner>(width, height, in, out, scale, mode, param);
}

ImageProcessing* NewBitPacker(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                              uint32_t scale, uint32_t mode, const void* param) {
    return CreateStage<BitPacker>(width, height, in, out, scale, mode, param);
}

ImageProcessing* NewScaler(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                           uint32_t scale, uint32_t mode, const void* param) {
    return CreateStage<Scaler>(width, height, in, out, scale, mode, param);
}

ImageProcessing* NewCompressor(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                               uint32_t scale, uint32_t mode, const void* param) {
    return CreateStage<JpegCompressor>(width, height, in, out, scale, mode, param);
}
