#include "demosaic/NewDeBayer.h"

#include "demosaic/DeBayerLQ.h"
#include "demosaic/ARI.h"
#include "demosaic/HA.h"
#include "demosaic/LPAICIa.h"
#include "demosaic/MLRI.h"
#include "stream/StageCreators.h"

// Selectors: 0 the fast stage, 1 Hamilton-Adams, 2 LPA-ICI, 3 ARI, 4 MLRI; unknown selectors yield null without
// a message.
ImageProcessing* NewDeBayer(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                            uint32_t scale, uint32_t selector, const void*) {
    // Init is handed copies of both formats, never the caller's records.
    const ImageFormat inCopy = *in;
    const ImageFormat outCopy = *out;
    switch (selector) {
        case 0: return CreateStage<DeBayerLQ>(width, height, &inCopy, &outCopy, scale, selector, nullptr);
        case 1: return CreateStage<HA>(width, height, &inCopy, &outCopy, scale, selector, nullptr);
        case 2: return CreateStage<LPAICIa>(width, height, &inCopy, &outCopy, scale, selector, nullptr);
        case 3: return CreateARI(width, height, &inCopy, &outCopy, scale, selector);
        case 4: return CreateMLRI(width, height, &inCopy, &outCopy, scale, selector);
        default: return nullptr;
    }
}
