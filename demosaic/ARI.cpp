#include "demosaic/ARI.h"

// Not built yet.
ImageProcessing* CreateARI(uint32_t, uint32_t, const ImageFormat*, const ImageFormat*, uint32_t, uint32_t) {
    return nullptr;
}
