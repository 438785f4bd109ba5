#include "Host.h"

#include "ToolError.h"
#include "stream/FrameFeed.h"
#include "stream/Log.h"

#include <framefeed/framefeed.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <typeinfo>
#if defined(__GNUC__)
#include <cxxabi.h>
#endif

namespace {

std::mutex logMutex;
std::vector<std::string> logLines;

void KeepLine(uint32_t level, const char* format, ...) {
    char text[1024];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    std::lock_guard<std::mutex> guard(logMutex);
    logLines.push_back("[" + std::to_string(level) + "] " + text);
}

// The callback's OutputFrame lives only during the call: keep a copy to give the buffer back afterwards.
OutputFrame lastFrame{};
FrameHeader lastHeader{};
bool frameDelivered = false;

void KeepFrame(OutputFrame* frame) {
    lastFrame = *frame;
    lastHeader = *frame->header;
    frameDelivered = true;
}

std::string StageName(const ImageProcessing& stage) {
    const char* name = typeid(stage).name();
#if defined(__GNUC__)
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    if (status == 0 && readable) return readable.get();
#endif
    return name;
}

std::string Describe(const StageSlot& slot) {
    return FormatTitle(slot.format.format) + " " + std::to_string(slot.format.bitDepth) + "-bit " +
           std::to_string(slot.width) + "x" + std::to_string(slot.height);
}

const char* const demosaicNames[] = {"DeBayerLQ", "HA", "LPAICIa", "MLRI"};

}  // namespace

void KeepLogLines() { SetLogSink(&KeepLine); }

std::vector<std::string> TakeLogLines() {
    std::lock_guard<std::mutex> guard(logMutex);
    std::vector<std::string> taken;
    taken.swap(logLines);
    return taken;
}

const char* DemosaicName(uint32_t demosaic) { return demosaic < 4 ? demosaicNames[demosaic] : demosaicNames[0]; }

uint32_t ParseDemosaic(const std::string& text) {
    std::string wanted = text;
    for (char& c : wanted) c = char(std::tolower(static_cast<unsigned char>(c)));
    for (uint32_t i = 0; i < 4; ++i) {
        std::string name = demosaicNames[i];
        for (char& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
        if (wanted == name || wanted == std::to_string(i)) return i;
    }
    if (wanted == "lq" || wanted == "fast") return 0;
    throw UsageError("unknown --demosaic '" + text +
                     "'; valid choices: lq (or 0, DeBayerLQ), ha (1), lpaicia (2), mlri (3)");
}

StreamOutcome RunStream(const StreamRequest& request, const std::vector<uint8_t>& frame) {
    StreamOutcome outcome;
    TakeLogLines();
    std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(&KeepFrame));

    StreamConfig config{};
    config.format = request.input.format;
    config.bitDepth = request.input.bitDepth;
    config.bitsPerPixel = request.input.bitsPerPixel;
    config.inputCompression = CompressionCode::Raw;
    config.width = request.input.width;
    config.height = request.input.height;
    StreamParameters parameters[4]{};  // element 0 counts
    parameters[0].scale = request.scale;
    parameters[0].demosaic = request.demosaic;
    parameters[0].compression = request.jpeg ? CompressionCode::Jpeg : CompressionCode::Raw;
    parameters[0].quality = request.quality;
    parameters[0].keepHighBpp = request.keepHighBpp ? 1 : 0;

    outcome.built = stream->Init(1, &config, parameters, 0);
    if (!outcome.built) {
        outcome.log = TakeLogLines();
        return outcome;
    }
    // The chain is not part of the host interface; the stream object shows it to tools.
    if (const FrameFeed* feed = dynamic_cast<const FrameFeed*>(stream.get())) {
        outcome.chain = Describe(feed->Slot(0));
        for (uint32_t i = 1; i < feed->SlotCount(); ++i) {
            const StageSlot& slot = feed->Slot(i);
            const std::string stage = StageName(*slot.stage);
            outcome.chain += " -> " + stage + " -> ";
            outcome.chain += stage == "JpegCompressor" ? "JPEG" : Describe(slot);
        }
        if (feed->SlotCount() == 1) outcome.chain += " (no stages: the frame passes through)";
        const StageSlot& last = feed->Slot(feed->SlotCount() - 1);
        outcome.output =
            FrameLayout{last.format.format, last.format.bitDepth, last.format.bitsPerPixel, last.width, last.height};
    }
    outcome.jpeg = request.jpeg;

    const uint32_t frames = std::max<uint32_t>(request.frames, 1);
    using Clock = std::chrono::steady_clock;
    Clock::time_point timingStart = Clock::now();
    for (uint32_t i = 0; i < frames; ++i) {
        if (i == 1) timingStart = Clock::now();
        frameDelivered = false;
        const Clock::time_point start = Clock::now();
        if (!stream->ProcessFrame(frame.data(), uint32_t(frame.size()), i, 0) || !frameDelivered)
            throw ToolError("the stream dropped frame " + std::to_string(i + 1));
        if (i == 0) {
            outcome.secondsPerFrame = std::chrono::duration<double>(Clock::now() - start).count();
            const uint8_t* data = static_cast<const uint8_t*>(lastFrame.data);
            outcome.payload.assign(data, data + lastHeader.payloadSize);
            outcome.output.width = lastHeader.frameWidth;
            outcome.output.height = lastHeader.frameHeight;
        }
        FrameFeedReturnBuffer(lastFrame);
    }
    if (frames > 1)
        outcome.secondsPerFrame = std::chrono::duration<double>(Clock::now() - timingStart).count() / (frames - 1);
    stream.reset();
    outcome.log = TakeLogLines();
    return outcome;
}
