// The tool as a host of the plug-in: a log sink that keeps the lines, and one stream at a time run through
// NewStream, Init and ProcessFrame, with every lent buffer given back through the free list.
#pragma once

#include "Frames.h"

#include <cstdint>
#include <string>
#include <vector>

// Keeps every line of the plug-in's log from now on, without running the start-up benchmark; the benchmark and
// the estimate go through CreateStreamer instead.
void KeepLogLines();
// The lines since the last call, each "[level] text".
std::vector<std::string> TakeLogLines();

// What a stream is asked to do with its frames.
struct StreamRequest {
    FrameLayout input;
    uint32_t scale = 1;
    uint32_t demosaic = 0;
    bool jpeg = true;
    float quality = 0.75f;
    bool keepHighBpp = false;
    uint32_t frames = 1;  // frames run; the first one's output is kept
};

struct StreamOutcome {
    bool built = false;            // Init accepted the request
    std::vector<std::string> log;  // the plug-in's log lines while the stream lived
    std::string chain;             // the stages it built, with the image between each pair
    FrameLayout output;            // size and layout of the delivered frames
    bool jpeg = false;
    std::vector<uint8_t> payload;  // the first frame's output
    double secondsPerFrame = 0;    // mean over the frames after the first (the first when it is alone)
};

// Builds the stream and runs `request.frames` frames of `frame` through it. Throws ToolError when a frame is
// dropped or not delivered; a refused request comes back with built false and the stream's messages.
StreamOutcome RunStream(const StreamRequest& request, const std::vector<uint8_t>& frame);

// "DeBayerLQ", "HA", "LPAICIa", "MLRI" for the stream's demosaic values 0 to 3.
const char* DemosaicName(uint32_t demosaic);
// The demosaic value of a name or number; throws a usage error listing the valid names.
uint32_t ParseDemosaic(const std::string& text);
