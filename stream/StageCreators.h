// Creators of the chain's stages: each creates its stage and runs Init with the given arguments,
// and yields null (having destroyed the stage) when Init refuses.
#pragma once

#include "stream/ImageProcessing.h"

#include <cstdint>

using StageCreator = ImageProcessing* (*)(uint32_t width, uint32_t height, const ImageFormat* in,
                                           const ImageFormat* out, uint32_t scale, uint32_t mode,
                                           const void* param);

template <class Stage>
ImageProcessing* CreateStage(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                             uint32_t scale, uint32_t mode, const void* param) {
    ImageProcessing* stage = new Stage();
    if (stage->Init(width, height, in, out, scale, mode, param)) return stage;
    delete stage;
    return nullptr;
}

ImageProcessing* NewYUVPlaner(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                              uint32_t scale, uint32_t mode, const void* param);
ImageProcessing* NewBitPacker(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                              uint32_t scale, uint32_t mode, const void* param);
ImageProcessing* NewScaler(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                           uint32_t scale, uint32_t mode, const void* param);
ImageProcessing* NewCompressor(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                               uint32_t scale, uint32_t mode, const void* param);
