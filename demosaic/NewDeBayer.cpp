#include "demosaic/NewDeBayer.h"

#include "demosaic/DeBayerLQ.h"
#include "demosaic/HA.h"
#include "demosaic/LPAICIa.h"
#include "stream/StageCreators.h"

// Selectors: 0 the fast stage, 1 Hamilton-Adams. Those whose classes are not part of this library yet yield
// null, so streams that ask for them are refused by the assembly; unknown selectors yield null without a message.
ImageProcessing* NewDeBayer(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                            uint32_t scale, uint32_t selector, const void*) {
    // Init is handed copies of both formats, never the caller's records.
    const ImageFormat inCopy = *in;
    const ImageFormat outCopy = *out;
    switch (selector) {
        case 0: return CreateStage<DeBayerLQ>(width, height, &inCopy, &outCopy, scale, selector, nullptr);
        case 1: return CreateStage<HA>(width, height, &inCopy, &outCopy, scale, selector, nullptr);
        case 2: return CreateStage<LPAICIa>(width, height, &inCopy, &outCopy, scale, selector, nullptr);
        default: return nullptr;
    }
}
