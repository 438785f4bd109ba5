// Shared pieces of the tests: a log sink that records, a host that records deliveries and
// gives buffers back, and builders of the host's records.
#pragma once

#include <framefeed/framefeed.h>

#include "perf/PerfTable.h"

#include <array>
#include <functional>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

struct LoggedMessage {
    uint32_t level;
    std::string text;
    bool operator==(const LoggedMessage& other) const { return level == other.level && text == other.text; }
};

// CreateStreamer measures the machine unless it finds a cache file of this host's version. The tests provide
// one with made-up rates (in a folder of their own where the platform allows), so no test waits for it.
void ProvideBenchmarkCache();
// The bytes of a cache file: the stamp, then the table, little-endian.
std::vector<uint8_t> BenchmarkCacheBytes(uint32_t stamp, const PerfTable& table);
// The rates of the tests' cache file: every cell a different nonzero figure.
PerfTable MadeUpRates();

// Records every message of the log sink, formatted. Install provides the benchmark cache first.
class LogCapture {
public:
    static void Install();  // CreateStreamer with this sink, and an empty record
    static void Sink(uint32_t level, const char* format, ...);
    static std::vector<LoggedMessage> Take();
    static std::vector<std::string> TakeTexts();
};

// One callback of the stream, as the host saw it.
struct Delivery {
    OutputFrame frame;      // copy: its header, data, freeList and lock pointers
    FrameHeader header;     // copy of the header at the time of the callback
    std::vector<uint8_t> payload;
};

// A host that records each delivery (with its payload when asked) and returns buffers on request.
class HostRecorder {
public:
    static void Reset(bool keepPayloads = true);
    static void Callback(OutputFrame* frame);
    static std::vector<Delivery> Take();
    static size_t Count();
    // Gives back every recorded buffer that is lent.
    static void ReturnAll(const std::vector<Delivery>& deliveries);
};

StreamConfig MakeConfig(uint32_t format, uint32_t width, uint32_t height, int32_t bitDepth, uint32_t bitsPerPixel,
                        uint32_t inputCompression = CompressionCode::Raw);

struct ParameterChoice {
    uint32_t scale = 1;
    uint32_t compression = CompressionCode::Jpeg;
    float quality = 0.75f;
    uint32_t demosaic = 0;
    uint8_t keepHighBpp = 0;
};
std::array<StreamParameters, 4> MakeParameters(const ParameterChoice& choice);

// Deterministic frame content: smooth gradients with a little noise, so JPEG has real work.
std::vector<uint8_t> MakeFrame(size_t bytes, uint32_t seed);

// The processor levels whose forms this machine can run: the scalar floor, AVX2 and AVX-512 where present.
std::vector<int32_t> SupportedLevels();

// Stages choose their kernels in Init, so each form runs in stages created after forcing its level:
// the scalar twin always, the AVX2 form when this processor has it. The level is chosen anew after.
void ForEachForm(const std::function<void()>& body);
