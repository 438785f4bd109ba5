#include "TestSupport.h"

#include "perf/PerfTable.h"
#include "perf/StartupBenchmark.h"
#include "perf/VersionStamp.h"
#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>

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
