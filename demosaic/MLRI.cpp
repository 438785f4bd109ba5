#include "demosaic/MLRI.h"

// Not built yet.
ImageProcessing* CreateMLRI(uint32_t, uint32_t, const ImageFormat*, const ImageFormat*, uint32_t, uint32_t) {
    return nullptr;
}
