#include "demosaic/NewDeBayer.h"

// No demosaicking stage is part of this library yet: every selector yields null, so Bayer
// streams are refused by the assembly.
ImageProcessing* NewDeBayer(uint32_t, uint32_t, const ImageFormat*, const ImageFormat*, uint32_t, uint32_t,
                            const void*) {
    return nullptr;
}
