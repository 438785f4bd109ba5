#include "perf/StartupBenchmark.h"

#include "perf/PerfTable.h"
#include "perf/VersionStamp.h"
#include "platform/Platform.h"
#include "stream/FormatFamilies.h"
#include "stream/Log.h"

#include <framefeed/framefeed.h>

#include <cstring>
#include <memory>

namespace {

constexpr uint32_t side = 2048;
constexpr uint64_t thirtyFrames = 0x7800000;  // 30 rounds of 2048 x 2048 pixels
constexpr uint64_t oneFrame = uint64_t(1) << 22;
constexpr size_t frameBlockBytes = 0x2000000;
constexpr uint32_t successLevel = 0x7FFFFFFF;

struct BlockDeleter {
    void operator()(void* block) const { platform::AlignedFree(block); }
};

// One measurement: the stream it builds, how often it runs, and where the rate goes.
struct Measurement {
    uint32_t format, bitDepth, bitsPerPixel, scale, demosaic, compression;
    float quality = 0.0f;
    bool fine = false;  // the LPA-ICI row: one frame, keepHighBpp and the two doubles set to 1.0
};

class Benchmark {
public:
    explicit Benchmark(void* frame) : frame(frame), frequency(platform::QueryCounterFrequency()) {}

    // Builds the stream, times it and returns the rate; 0 when Init refused it.
    uint64_t Measure(const Measurement& m) {
        std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(nullptr));
        StreamConfig config;
        std::memset(&config, 0, sizeof(config));
        config.format = m.format;
        config.bitDepth = int32_t(m.bitDepth);
        config.bitsPerPixel = m.bitsPerPixel;
        config.inputCompression = CompressionCode::Raw;
        config.width = side;
        config.height = side;
        StreamParameters parameters[4];
        std::memset(parameters, 0, sizeof(parameters));
        parameters[0].scale = m.scale;
        parameters[0].demosaic = m.demosaic;
        parameters[0].compression = m.compression;
        parameters[0].quality = m.quality;
        if (m.fine) {
            parameters[0].keepHighBpp = 1;
            parameters[0].reserved8 = 1.0;
            parameters[0].reserved16 = 1.0;
        }
        if (!stream->Init(1, &config, parameters, 0)) return 0;
        const uint32_t size = m.format == PixelFormat::Mono && m.bitDepth > 8 ? uint32_t(1) << 22 : m.bitsPerPixel << 19;
        const int rounds = m.fine ? 1 : 30;
        const uint64_t start = platform::QueryCounter();
        for (int i = 0; i < rounds; ++i) stream->ProcessFrame(frame, size, 0, 0);
        uint64_t ticks = platform::QueryCounter() - start;
        if (ticks < 1) ticks = 1;
        return frequency * (m.fine ? oneFrame : thirtyFrames) / ticks;
    }

private:
    void* frame;
    uint64_t frequency;
};

// The rows in order. Each returns false after logging its failure message when a stream was refused.
bool MeasureAll(Benchmark& benchmark, PerfTable& table) {
    const auto run = [&](const Measurement& m, const char* failure, uint64_t& rate) {
        rate = benchmark.Measure(m);
        if (rate == 0) Log(LogFailure, "%s", failure);
        return rate != 0;
    };
    uint64_t rate = 0;
    for (const uint32_t d : {10u, 12u, 16u}) {
        if (!run({PixelFormat::Mono, d, d, 1, 1, CompressionCode::Raw}, "Benchmark: Bit packer failed", rate))
            return false;
        table.packRate(d) = rate;
        Log(successLevel, "Benchmark: %u-bit -> 8-bit packing = %llu MPix/S", d, (unsigned long long)(rate >> 20));
    }
    for (const uint32_t s : {2u, 4u, 8u, 16u}) {
        if (!run({PixelFormat::Mono, 8, 8, s, 1, CompressionCode::Raw}, "Benchmark: Mono binning scaling failed", rate))
            return false;
        table.monoScaleRate(s) = rate;
        Log(successLevel, "Benchmark: 8-bit Mono x%u scaling = %llu MPix/S", s, (unsigned long long)(rate >> 20));
    }
    for (const uint32_t s : {1u, 2u, 4u}) {
        if (!run({PixelFormat::UYVY, 8, 16, s, 1, CompressionCode::Raw}, "Benchmark: YUV422 scaling failed", rate))
            return false;
        table.yuvRate(s) = rate;
        Log(successLevel, "Benchmark: 8-bit YUV422 planing with x%u scale = %llu MPix/S", s,
            (unsigned long long)(rate >> 20));
    }
    for (const uint32_t s : {1u, 2u, 4u, 8u, 16u}) {
        if (!run({PixelFormat::BayerBGGR, 8, 8, s, 0, CompressionCode::Raw}, "Benchmark: Fast DeBayer failed", rate))
            return false;
        table.fastDemosaicRate(s) = rate;
        Log(successLevel, "Benchmark: 8-bit Fast DeBayer (x%u scale) = %llu MPix/S", s, (unsigned long long)(rate >> 20));
    }
    // 8-bit input measures the three depth rows at once.
    for (const uint32_t s : {1u, 2u, 4u, 8u, 16u}) {
        if (!run({PixelFormat::BayerBGGR, 8, 8, s, 1, CompressionCode::Raw}, "Benchmark: Good DeBayer failed", rate))
            return false;
        for (const uint32_t depth : {8u, 10u, 12u}) table.qualityDemosaicRate(depth, s) = rate;
        Log(successLevel, "Benchmark: Good DeBayer (x%u scale) = %llu MPix/S", s, (unsigned long long)(rate >> 20));
    }
    Measurement fine{PixelFormat::BayerBGGR, 8, 8, 1, 2, CompressionCode::Raw};
    fine.fine = true;
    if (!run(fine, "Benchmark: Good DeBayer failed", rate)) return false;
    for (const uint32_t depth : {8u, 10u, 12u}) table.qualityDemosaicRate(depth, 1) = rate;
    Log(successLevel, "Benchmark: Fine DeBayer = %llu MPix/S", (unsigned long long)(rate >> 20));

    const std::pair<uint32_t, const char*> jpegRows[] = {{PixelFormat::Mono, "Mono"},
                                                         {PixelFormat::RGBX, "RGBX->420"},
                                                         {PixelFormat::YUV444P, "YUV444P"},
                                                         {PixelFormat::YUV422P, "YUV422P"},
                                                         {PixelFormat::YUV420P, "YUV420P"}};
    for (const auto& [format, label] : jpegRows) {
        // The frame block is far larger than any of these frames, but the assembly refuses a configuration
        // that declares fewer bits per pixel than its format is read with, so each declares its own.
        Measurement jpeg{format, 8, BitsPerPixelRead(format), 1, 1, CompressionCode::Jpeg};
        jpeg.quality = 0.7f;
        if (!run(jpeg, "Benchmark: JPEG failed", rate)) return false;
        table.jpegRate(format) = rate;
        Log(successLevel, "Benchmark: JPEG(%s) = %llu MPix/S", label, (unsigned long long)(rate >> 20));
    }
    return true;
}

void DeriveJpegRates(PerfTable& table) {
    for (const uint32_t bayer : {2u, 3u, 4u, 5u}) table.jpegRate(bayer) = table.jpegRate(PixelFormat::YUV444P);
    table.jpegRate(PixelFormat::UYVY) = table.jpegRate(PixelFormat::YUV422P);
    table.jpegRate(PixelFormat::YUYV) = table.jpegRate(PixelFormat::YUV422P);
    table.jpegRate(PixelFormat::RGB) = table.jpegRate(PixelFormat::RGBX);
}

void StoreLittleEndian(uint8_t* bytes, uint64_t value, int count) {
    for (int i = 0; i < count; ++i) bytes[i] = uint8_t(value >> (8 * i));
}

uint64_t LoadLittleEndian(const uint8_t* bytes, int count) {
    uint64_t value = 0;
    for (int i = 0; i < count; ++i) value |= uint64_t(bytes[i]) << (8 * i);
    return value;
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// True when the file holds this host's stamp and a whole table, which then fills `table`.
bool LoadCache(const std::string& path, uint32_t stamp, PerfTable& table) {
    File file(platform::OpenBinaryFile(path, false));
    if (!file) return false;
    uint8_t stampBytes[4];
    if (std::fread(stampBytes, 1, 4, file.get()) != 4 || LoadLittleEndian(stampBytes, 4) != stamp) return false;
    uint8_t bytes[PerfTable::bytes];
    if (std::fread(bytes, 1, sizeof(bytes), file.get()) != sizeof(bytes)) return false;
    for (size_t i = 0; i < PerfTable::cellCount; ++i) table.cells[i] = LoadLittleEndian(bytes + 8 * i, 8);
    return true;
}

void WriteCache(const std::string& path, uint32_t stamp, const PerfTable& table) {
    File file(platform::OpenBinaryFile(path, true));
    if (!file) return;
    uint8_t stampBytes[4];
    StoreLittleEndian(stampBytes, stamp, 4);
    if (std::fwrite(stampBytes, 1, 4, file.get()) != 4) return;
    uint8_t bytes[PerfTable::bytes];
    for (size_t i = 0; i < PerfTable::cellCount; ++i) StoreLittleEndian(bytes + 8 * i, table.cells[i], 8);
    std::fwrite(bytes, 1, sizeof(bytes), file.get());
}

}  // namespace

PerfTable& ThePerfTable() {
    static PerfTable table{};
    return table;
}

std::string PerfCachePath() { return platform::CommonAppDataFolder() + "/Kolvane/Config/Server/FrameFeedPerf.bin"; }

bool LoadOrMeasurePerformance() {
    const uint32_t stamp = HostVersionStamp();
    const std::string path = PerfCachePath();
    PerfTable& table = ThePerfTable();
    if (LoadCache(path, stamp, table)) return true;

    Log(1, "Benchmarking system...");
    std::memset(table.cells, 0, sizeof(table.cells));
    std::unique_ptr<void, BlockDeleter> frame(platform::AlignedAlloc(frameBlockBytes, 4096));
    if (!frame) {
        // Without a frame nothing can be measured: every estimate stays unmeasured and no file is written.
        Log(LogFailure, "Benchmark: Unable to allocate the benchmark frame");
        return true;
    }
    Benchmark benchmark(frame.get());
    if (!MeasureAll(benchmark, table)) return false;
    frame.reset();
    DeriveJpegRates(table);
    WriteCache(path, stamp, table);
    return true;
}
