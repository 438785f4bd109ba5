#include "demosaic/NewDeBayer.h"

#include "demosaic/DeBayerLQ.h"
#include "stream/StageCreators.h"

// Only the fast stage is part of this library yet: the high-quality selectors 1 to 4 yield null, so streams
// that ask for them are refused by the assembly. Unknown selectors yield null without a message.
ImageProcessing* NewDeBayer(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                            uint32_t scale, uint32_t selector, const void*) {
    // Init is handed copies of both formats, never the caller's records.
    const ImageFormat inCopy = *in;
    const ImageFormat outCopy = *out;
    switch (selector) {
        case 0: return CreateStage<DeBayerLQ>(width, height, &inCopy, &outCopy, scale, selector, nullptr);
        default: return nullptr;
    }
}
