// Random stream configurations through the exports as a host would use them: Init, frames of exactly the
// size the configuration implies, a Reconfigure, frames again, destruction. Sizes stay small unless the
// input asks for one of the extremes, which Init must refuse. No log sink is installed and the start-up
// measurement is not run: streams need neither.
#include "FuzzInput.h"

#include <framefeed/framefeed.h>

#include <memory>
#include <vector>

namespace {

// The host gives every buffer back at once.
void ReturnAtOnce(OutputFrame* frame) { FrameFeedReturnBuffer(*frame); }

StreamParameters TakeParameters(FuzzInput& in) {
    StreamParameters p{};
    const uint32_t scales[] = {0, 1, 2, 3, 4, 8, 16, 17, 0xFFFFFFFFu};
    p.scale = in.Pick(scales);
    p.demosaic = in.Take<uint8_t>() % 6;
    const uint32_t compressions[] = {0, 1, 2, 3, 0xFFFFFFFFu};
    p.compression = in.Pick(compressions);
    const float qualities[] = {0.0f, 0.5f, 1.0f, -1.0f, 2.0f, 1e30f};
    p.quality = in.Pick(qualities);
    p.keepHighBpp = in.Take<uint8_t>() & 1;
    p.reserved8 = in.Take<double>();
    return p;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);

    StreamConfig config{};
    const uint32_t formats[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 300};
    config.format = in.Pick(formats);
    const int32_t depths[] = {8, 8, 10, 12, 14, 16, 0, -1, 1, 7, 9, 13, 32};
    config.bitDepth = in.Pick(depths);
    const uint32_t bpps[] = {8, 10, 12, 16, 24, 32, 4, 0, 9, 64, 0xFFFFFFFFu};
    config.bitsPerPixel = in.Pick(bpps);
    const uint32_t compressions[] = {1, 1, 1, 3, 0, 2};
    config.inputCompression = in.Pick(compressions);
    const uint8_t sizeChoice = in.Take<uint8_t>();
    if (sizeChoice < 240) {
        config.width = 16 * (1 + in.Take<uint8_t>() % 16) + (sizeChoice & 1 ? in.Take<uint8_t>() % 16 : 0);
        config.height = 2 * (1 + in.Take<uint8_t>() % 24) + (sizeChoice & 2 ? 1 : 0);
    } else {
        // Extremes: all beyond the 32-bit byte counts of the contract.
        const uint32_t extremes[] = {0xFFFFFFFFu, 0x80000000u, 0x10000u, 0x40000u};
        config.width = in.Pick(extremes);
        config.height = in.Pick(extremes);
    }
    StreamParameters parameters[4] = {TakeParameters(in), {}, {}, {}};
    const uint32_t flags = in.Take<uint8_t>() & 3;

    std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(&ReturnAtOnce));
    if (!stream->Init(7, &config, parameters, flags)) return 0;
    // Raw frames of a size beyond the contract must have been refused; JPEG frames pass as they come.
    if (config.inputCompression == 1 && uint64_t(config.width) * config.height * config.bitsPerPixel > 0xFFFFFFFFull)
        __builtin_trap();
    if (config.width > 4096 || config.height > 4096) return 0;

    const size_t frameBytes = config.inputCompression == 3 ? 64 + in.Take<uint8_t>()
                                                           : size_t(config.width) * config.height * config.bitsPerPixel / 8;
    std::vector<uint8_t> frame(frameBytes);
    for (size_t i = 0; i < frameBytes; ++i) frame[i] = uint8_t(i * 73 + in.Take<uint8_t>());
    const int frames = 1 + in.Take<uint8_t>() % 3;
    for (int i = 0; i < frames; ++i) stream->ProcessFrame(frame.data(), uint32_t(frameBytes), i, 0);
    StreamParameters changed[4] = {TakeParameters(in), {}, {}, {}};
    if (stream->Reconfigure(changed))
        for (int i = 0; i < frames; ++i) stream->ProcessFrame(frame.data(), uint32_t(frameBytes), i, 1);
    return 0;
}
