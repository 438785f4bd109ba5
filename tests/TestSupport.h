// Shared pieces of the tests: a log sink that records, a host that records deliveries and
// gives buffers back, builders of the host's records, and sensor data made and packed.
#pragma once

#include <framefeed/framefeed.h>
#include <gtest/gtest.h>

#include "demosaic/HAKernels.h"
#include "perf/PerfTable.h"
#include "stream/ImageProcessing.h"

#include <array>
#include <condition_variable>
#include <deque>
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

// One frame through a new stream of these records: Init must accept, the stream must deliver once and, when
// `quiet`, log nothing. The delivery, its buffer already given back.
Delivery RunOneFrame(const StreamConfig& config, const ParameterChoice& choice, const std::vector<uint8_t>& frame,
                     bool quiet = true);

using Bytes = std::vector<uint8_t>;

// One frame through a stage into an OutputSize buffer that starts out as 0xA5 bytes.
Bytes RunStage(ImageProcessing& stage, const Bytes& input);

// Fails each allocation of one frame in turn until a frame makes fewer: each failure must log "Debayer failed"
// alone, leave the output unwritten and, given a measure of the heap, free all it took; and the next frame must be
// whole again. The number of allocations the frame makes.
uint32_t FailEachAllocationOfAFrame(ImageProcessing& stage, const Bytes& input, size_t (*heapInUse)() = nullptr);

// The colour of a site of a Bayer format: 0 red, 1 green, 2 blue.
int BayerSiteColour(uint32_t format, uint32_t x, uint32_t y);
// A mosaic in a Bayer format of the picture colour(x, y, channel).
std::vector<uint16_t> BayerMosaic(uint32_t format, uint32_t width, uint32_t height,
                                  const std::function<uint32_t(uint32_t x, uint32_t y, int channel)>& colour);
// Samples as a sensor sends them at `bits` per sample: 8 one per byte, 10 four in 5 bytes, 12 two in 3 (least
// significant bit first), 16 little-endian words.
Bytes PackSamples(const std::vector<uint16_t>& samples, int bits);

struct JpegInfo {
    int width = 0, height = 0, subsampling = -1;
};
// The header of a JPEG image; a failure to read it fails the test.
JpegInfo ReadJpegHeader(const Bytes& jpeg);

// Uniformly random bytes of a seed.
Bytes RandomBytes(size_t count, uint32_t seed);
// Deterministic frame content: smooth gradients with a little noise, so JPEG has real work.
std::vector<uint8_t> MakeFrame(size_t bytes, uint32_t seed);

// Lent buffers wait here until a returner thread of the test gives them back; Pop waits for one, and gives false
// once the queue is closed and empty.
class ReturnQueue {
public:
    void Push(const OutputFrame& frame);
    bool Pop(OutputFrame& frame);
    void Close();

private:
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<OutputFrame> frames;
    bool closed = false;
};

// Three Hamilton-Adams planes in the stage's layout: a ring of two rows and columns, width + 32 elements per row,
// and slack after the last ring row.
struct HAPlaneStore {
    HAPlaneStore(int32_t width, int32_t height, int32_t phase)
        : width(width), height(height), phase(phase), stride(width + 32),
          planeElements(size_t(height + 4) * size_t(width + 32) + 32), storage(3 * planeElements) {}
    uint16_t* Origin(int plane) { return storage.data() + size_t(plane) * planeElements + 2 * stride + 2; }
    uint16_t& At(int plane, int32_t y, int32_t x) { return Origin(plane)[y * stride + x]; }
    HAPlanes View() { return HAPlanes{Origin(0), Origin(1), Origin(2), stride, width, height, phase}; }

    int32_t width, height, phase;
    intptr_t stride;
    size_t planeElements;
    std::vector<uint16_t> storage;
};

// Runs `body` and tells whether it threw the boolean false, as the work images report a failure (anything
// else thrown fails the test).
bool ThrowsFalse(const std::function<void()>& body);

// The processor levels whose forms this machine can run: the scalar floor, AVX2 and AVX-512 where present.
std::vector<int32_t> SupportedLevels();

// Stages choose their kernels in Init, so each form runs in stages created after forcing its level:
// the scalar twin always, the AVX2 form when this processor has it. The level is chosen anew after.
void ForEachForm(const std::function<void()>& body);

// Tests of stages: the log is captured; allocations stop failing and the processor chooses its level again
// when a test ends.
class StageTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// Tests of streams: the log is captured and the host records deliveries with their payloads; buffers still lent
// go home when a test ends.
class StreamTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// Tests instantiated over SupportedLevels: each runs with its level forced, and the processor chooses again after.
class AtEachLevel : public ::testing::TestWithParam<int32_t> {
protected:
    void SetUp() override;
    void TearDown() override;
};
std::string LevelName(const ::testing::TestParamInfo<int32_t>& info);
