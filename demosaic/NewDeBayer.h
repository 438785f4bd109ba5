// Factory of the demosaicking stages by selector: 0 DeBayerLQ, 1 HA, 2 LPAICIa, 3 ARI, 4 MLRI.
#pragma once

#include "stream/ImageProcessing.h"

ImageProcessing* NewDeBayer(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                            uint32_t scale, uint32_t selector, const void* param);
