#include "TestSupport.h"

#include "perf/PerfTable.h"
#include "perf/StartupBenchmark.h"
#include "perf/VersionStamp.h"
#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>

namespace {
std::mutex logMutex;
std::vector<LoggedMessage> logged;

std::mutex hostMutex;
std::vector<Delivery> delivered;
bool keepPayloads = true;
}  // namespace

void LogCapture::Install() {
    ProvideBenchmarkCache();
    CreateStreamer(&LogCapture::Sink);
    Take();
}

void LogCapture::Sink(uint32_t level, const char* format, ...) {
    char text[1024];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    std::lock_guard<std::mutex> guard(logMutex);
    logged.push_back(LoggedMessage{level, text});
}

std::vector<LoggedMessage> LogCapture::Take() {
    std::lock_guard<std::mutex> guard(logMutex);
    std::vector<LoggedMessage> taken;
    taken.swap(logged);
    return taken;
}

std::vector<std::string> LogCapture::TakeTexts() {
    std::vector<std::string> texts;
    for (const LoggedMessage& message : Take()) texts.push_back(message.text);
    return texts;
}

void HostRecorder::Reset(bool keep) {
    std::lock_guard<std::mutex> guard(hostMutex);
    delivered.clear();
    keepPayloads = keep;
}

void HostRecorder::Callback(OutputFrame* frame) {
    Delivery delivery{*frame, *frame->header, {}};
    std::lock_guard<std::mutex> guard(hostMutex);
    if (keepPayloads) {
        const uint8_t* bytes = static_cast<const uint8_t*>(frame->data);
        delivery.payload.assign(bytes, bytes + frame->header->payloadSize);
    }
    delivered.push_back(std::move(delivery));
}

std::vector<Delivery> HostRecorder::Take() {
    std::lock_guard<std::mutex> guard(hostMutex);
    std::vector<Delivery> taken;
    taken.swap(delivered);
    return taken;
}

size_t HostRecorder::Count() {
    std::lock_guard<std::mutex> guard(hostMutex);
    return delivered.size();
}

void HostRecorder::ReturnAll(const std::vector<Delivery>& deliveries) {
    for (const Delivery& delivery : deliveries) FrameFeedReturnBuffer(delivery.frame);
}

StreamConfig MakeConfig(uint32_t format, uint32_t width, uint32_t height, int32_t bitDepth, uint32_t bitsPerPixel,
                        uint32_t inputCompression) {
    StreamConfig config{};
    config.format = format;
    config.bitDepth = bitDepth;
    config.bitsPerPixel = bitsPerPixel;
    config.inputCompression = inputCompression;
    config.width = width;
    config.height = height;
    return config;
}

std::array<StreamParameters, 4> MakeParameters(const ParameterChoice& choice) {
    std::array<StreamParameters, 4> parameters{};
    parameters[0].scale = choice.scale;
    parameters[0].demosaic = choice.demosaic;
    parameters[0].compression = choice.compression;
    parameters[0].quality = choice.quality;
    parameters[0].keepHighBpp = choice.keepHighBpp;
    return parameters;
}

Delivery RunOneFrame(const StreamConfig& config, const ParameterChoice& choice, const std::vector<uint8_t>& frame,
                     bool quiet) {
    std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(&HostRecorder::Callback));
    const auto parameters = MakeParameters(choice);
    EXPECT_TRUE(stream->Init(9, &config, parameters.data(), 0)) << testing::PrintToString(LogCapture::TakeTexts());
    EXPECT_TRUE(stream->ProcessFrame(frame.data(), uint32_t(frame.size()), 1, 2));
    const auto deliveries = HostRecorder::Take();
    HostRecorder::ReturnAll(deliveries);
    EXPECT_EQ(deliveries.size(), 1u);
    if (quiet) EXPECT_TRUE(LogCapture::Take().empty());
    return deliveries.empty() ? Delivery{} : deliveries[0];
}

void ReturnQueue::Push(const OutputFrame& frame) {
    {
        std::lock_guard<std::mutex> guard(mutex);
        frames.push_back(frame);
    }
    ready.notify_one();
}

bool ReturnQueue::Pop(OutputFrame& frame) {
    std::unique_lock<std::mutex> lock(mutex);
    ready.wait(lock, [&] { return !frames.empty() || closed; });
    if (frames.empty()) return false;
    frame = frames.front();
    frames.pop_front();
    return true;
}

void ReturnQueue::Close() {
    {
        std::lock_guard<std::mutex> guard(mutex);
        closed = true;
    }
    ready.notify_all();
}

bool ThrowsFalse(const std::function<void()>& body) {
    try {
        body();
    } catch (bool thrown) {
        return !thrown;
    }
    return false;
}

Bytes RunStage(ImageProcessing& stage, const Bytes& input) {
    Bytes out(stage.OutputSize(), 0xA5);
    EXPECT_EQ(stage.Process(input.data(), out.data(), nullptr), stage.OutputSize());
    return out;
}

uint32_t FailEachAllocationOfAFrame(ImageProcessing& stage, const Bytes& input, size_t (*heapInUse)()) {
    const Bytes whole = RunStage(stage, input);  // also grows the work memory that stays with the stage
    EXPECT_TRUE(LogCapture::Take().empty());
    const size_t heapBefore = heapInUse ? heapInUse() : 0;
    for (uint32_t failing = 1; failing < 5000 && !::testing::Test::HasFailure(); ++failing) {
        {
            platform::FailAllocationAfter(failing);
            const Bytes out = RunStage(stage, input);
            platform::FailAllocationAfter(0);
            const auto messages = LogCapture::Take();
            if (messages.empty()) {  // the frame makes fewer allocations than this
                EXPECT_EQ(out, whole);
                return failing - 1;
            }
            EXPECT_EQ(messages, (std::vector<LoggedMessage>{{3, "Debayer failed"}})) << "allocation " << failing;
            EXPECT_EQ(out, Bytes(out.size(), 0xA5)) << "allocation " << failing;
        }
        if (heapInUse) EXPECT_EQ(heapInUse(), heapBefore) << "allocation " << failing;
        EXPECT_EQ(RunStage(stage, input), whole) << "after allocation " << failing;
        EXPECT_TRUE(LogCapture::Take().empty());
    }
    ADD_FAILURE() << "a frame that never finishes allocating, or failed as it should not";
    return 0;
}

int BayerSiteColour(uint32_t format, uint32_t x, uint32_t y) {
    static const int layouts[4][4] = {{0, 1, 1, 2}, {1, 0, 2, 1}, {2, 1, 1, 0}, {1, 2, 0, 1}};  // RGGB GRBG BGGR GBRG
    return layouts[format - PixelFormat::BayerRGGB][(y & 1) * 2 + (x & 1)];
}

std::vector<uint16_t> BayerMosaic(uint32_t format, uint32_t width, uint32_t height,
                                  const std::function<uint32_t(uint32_t x, uint32_t y, int channel)>& colour) {
    std::vector<uint16_t> mosaic(size_t(width) * height);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            mosaic[size_t(y) * width + x] = uint16_t(colour(x, y, BayerSiteColour(format, x, y)));
    return mosaic;
}

Bytes PackSamples(const std::vector<uint16_t>& samples, int bits) {
    Bytes packed;
    const size_t group = bits == 10 ? 4 : bits == 12 ? 2 : 1;
    for (size_t i = 0; i < samples.size(); i += group) {
        uint64_t word = 0;
        for (size_t k = 0; k < group; ++k) word |= uint64_t(samples[i + k]) << (bits * k);
        for (size_t b = 0; b < (group * bits + 7) / 8; ++b) packed.push_back(uint8_t(word >> (8 * b)));
    }
    return packed;
}

JpegInfo ReadJpegHeader(const Bytes& jpeg) {
    JpegInfo info;
    int colourspace = 0;
    tjhandle decoder = tjInitDecompress();
    EXPECT_EQ(tjDecompressHeader3(decoder, jpeg.data(), static_cast<unsigned long>(jpeg.size()), &info.width,
                                  &info.height, &info.subsampling, &colourspace),
              0);
    tjDestroy(decoder);
    return info;
}

Bytes RandomBytes(size_t count, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    return bytes;
}

std::vector<uint8_t> MakeFrame(size_t bytes, uint32_t seed) {
    std::vector<uint8_t> frame(bytes);
    uint32_t state = seed * 2654435761u + 1;
    for (size_t i = 0; i < bytes; ++i) {
        state = state * 1664525u + 1013904223u;
        frame[i] = static_cast<uint8_t>((i * 7 / 13 + (i >> 9) * 3) + (state >> 29));
    }
    return frame;
}

void ForEachForm(const std::function<void()>& body) {
    PxForceProcessorLevel(PxLevelUnset);
    const int32_t naturalLevel = PxProcessorLevel();
    for (const int32_t level : {int32_t(PxLevelSse2), int32_t(PxLevelAvx2)}) {
        if (level > naturalLevel) continue;
        SCOPED_TRACE(level == PxLevelAvx2 ? "AVX2 form" : "scalar twin");
        PxForceProcessorLevel(level);
        body();
    }
    PxForceProcessorLevel(PxLevelUnset);
}

std::vector<int32_t> SupportedLevels() {
    const int32_t natural = PxChooseRow(PxFeatureMask());
    std::vector<int32_t> levels{PxLevelSse2};
    if (natural >= PxLevelAvx2) levels.push_back(PxLevelAvx2);
    if (natural >= PxLevelAvx512) levels.push_back(PxLevelAvx512);
    return levels;
}

std::vector<uint8_t> BenchmarkCacheBytes(uint32_t stamp, const PerfTable& table) {
    std::vector<uint8_t> bytes;
    for (int i = 0; i < 4; ++i) bytes.push_back(uint8_t(stamp >> (8 * i)));
    for (const uint64_t cell : table.cells)
        for (int i = 0; i < 8; ++i) bytes.push_back(uint8_t(cell >> (8 * i)));
    return bytes;
}

PerfTable MadeUpRates() {
    PerfTable table{};
    for (size_t i = 0; i < PerfTable::cellCount; ++i) table.cells[i] = 100000000 + 1000 * i;
    return table;
}

void ProvideBenchmarkCache() {
    static bool provided = false;
    if (provided) return;
    provided = true;
#ifndef _WIN32
    // Keep the tests' cache out of the machine's own folder.
    if (std::getenv("PROGRAMDATA") == nullptr)
        setenv("PROGRAMDATA", (testing::TempDir() + "framefeed-programdata").c_str(), 1);
#endif
    const std::filesystem::path path = std::filesystem::u8path(PerfCachePath());
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    const uint32_t stamp = HostVersionStamp();
    std::ifstream existing(path, std::ios::binary);
    std::vector<uint8_t> head(4);
    if (existing.read(reinterpret_cast<char*>(head.data()), 4) &&
        (head[0] | head[1] << 8 | head[2] << 16 | uint32_t(head[3]) << 24) == stamp) {
        existing.seekg(0, std::ios::end);
        if (existing.tellg() >= std::streamoff(4 + PerfTable::bytes)) return;
    }
    existing.close();
    const std::vector<uint8_t> bytes = BenchmarkCacheBytes(stamp, MadeUpRates());
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

void StageTest::SetUp() { LogCapture::Install(); }

void StageTest::TearDown() {
    platform::FailAllocationAfter(0);
    PxForceProcessorLevel(PxLevelUnset);
}

void StreamTest::SetUp() {
    LogCapture::Install();
    HostRecorder::Reset();
}

void StreamTest::TearDown() { HostRecorder::ReturnAll(HostRecorder::Take()); }

void AtEachLevel::SetUp() { PxForceProcessorLevel(GetParam()); }

void AtEachLevel::TearDown() { PxForceProcessorLevel(PxLevelUnset); }

std::string LevelName(const ::testing::TestParamInfo<int32_t>& info) { return "Level" + std::to_string(info.param); }
