#pragma once

#include "stream/ImageProcessing.h"

// Creates the stage and runs Init; null when Init refuses.
ImageProcessing* CreateARI(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
                        uint32_t mode);
