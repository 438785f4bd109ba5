// bench and estimate: the start-up benchmark with its cache file, and the cost of a proposed stream from it.
#include "Commands.h"
#include "Frames.h"
#include "Host.h"
#include "Progress.h"
#include "ToolError.h"
#include "perf/PerfTable.h"
#include "perf/StartupBenchmark.h"
#include "perf/VersionStamp.h"

#include <framefeed/framefeed.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

// Rows the benchmark logs after "Benchmarking system...": 3 packing, 4 binning, 3 YUV, 5 fast and 5 good
// demosaicking, 1 fine demosaicking, 5 JPEG.
constexpr size_t benchmarkRows = 26;
constexpr uint32_t figuresLevel = 0x7FFFFFFF;

Progress* benchProgress = nullptr;
bool measuring = false;
std::vector<std::string> benchFailures;

void BenchSink(uint32_t level, const char* format, ...) {
    char text[1024];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    if (level == 1) {
        measuring = true;
        benchProgress->Note(text);
        benchProgress->Show("measuring the stages on 2048x2048 frames");
    } else if (level == figuresLevel) {
        benchProgress->Step(text);
    } else {
        benchFailures.push_back(text);
        benchProgress->Note(text);
    }
}

void QuietSink(uint32_t, const char*, ...) {}

std::string Rate(uint64_t rate) {
    if (rate == 0) return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", double(rate) / 1e6);
    return text;
}

void PrintRow(const std::string& label, const std::vector<std::string>& cells, size_t labelWidth) {
    std::printf("  %-*s", int(labelWidth), label.c_str());
    for (const std::string& cell : cells) std::printf(" %9s", cell.c_str());
    std::printf("\n");
}

void PrintTable(PerfTable& table) {
    std::printf("Rates in MPix/s (millions of input pixels per second, one core); - is not measured\n\n");
    PrintRow("Depth reduction to 8 bits", {"10-bit", "12-bit", "16-bit"}, 34);
    PrintRow("", {Rate(table.packRate(10)), Rate(table.packRate(12)), Rate(table.packRate(16))}, 34);
    std::printf("\n");

    const uint32_t scales[] = {1, 2, 4, 8, 16};
    std::vector<std::string> header;
    for (const uint32_t s : scales) header.push_back("x" + std::to_string(s));
    PrintRow("By scale", header, 34);
    const auto byScale = [&](const std::string& label, uint64_t& (PerfTable::*cell)(uint32_t)) {
        std::vector<std::string> cells;
        for (const uint32_t s : scales) cells.push_back(Rate((table.*cell)(s)));
        PrintRow(label, cells, 34);
    };
    byScale("Mono binning", &PerfTable::monoScaleRate);
    byScale("Packed YUV 4:2:2 planing", &PerfTable::yuvRate);
    byScale("Fast demosaicking (DeBayerLQ)", &PerfTable::fastDemosaicRate);
    for (const uint32_t depth : {8u, 10u, 12u}) {
        std::vector<std::string> cells;
        for (const uint32_t s : scales) cells.push_back(Rate(table.qualityDemosaicRate(depth, s)));
        PrintRow("Quality demosaicking, " + std::to_string(depth) + "-bit", cells, 34);
    }
    std::printf("  (quality demosaicking: x1 is the LPAICIa figure, x2 to x16 are HA)\n\n");

    std::vector<std::string> names, cells;
    for (uint32_t format = 0; format < PerfTable::jpegCells; ++format) {
        if (table.jpegRate(format) == 0) continue;
        names.push_back(FormatTitle(format).substr(0, 9));
        cells.push_back(Rate(table.jpegRate(format)));
    }
    PrintRow("JPEG by input format", {}, 34);
    for (size_t start = 0; start < names.size(); start += 6) {
        const size_t end = std::min(names.size(), start + 6);
        PrintRow("", std::vector<std::string>(names.begin() + long(start), names.begin() + long(end)), 2);
        PrintRow("", std::vector<std::string>(cells.begin() + long(start), cells.begin() + long(end)), 2);
    }
}

// True when the cache file holds this host's stamp and a whole table, as the plug-in reads it.
bool CacheIsValid(const std::string& path) {
    std::ifstream file(fs::u8path(path), std::ios::binary);
    uint8_t head[4];
    if (!file.read(reinterpret_cast<char*>(head), 4)) return false;
    const uint32_t stamp = head[0] | head[1] << 8 | head[2] << 16 | uint32_t(head[3]) << 24;
    if (stamp != HostVersionStamp()) return false;
    file.seekg(0, std::ios::end);
    return file.tellg() >= std::streamoff(4 + PerfTable::bytes);
}

}  // namespace

int RunBench(const BenchOptions& options) {
    const std::string path = PerfCachePath();
    const fs::path file = fs::u8path(path);
    std::error_code error;
    if (options.force && fs::exists(file, error) && !fs::remove(file, error))
        throw ToolError("cannot remove the cache file " + path + " to measure again: " + error.message());
    // The plug-in creates no folders; the tool makes the cache's folder so the figures are kept.
    fs::create_directories(file.parent_path(), error);

    bool ok = false;
    {
        Progress progress(benchmarkRows);
        benchProgress = &progress;
        ok = CreateStreamer(&BenchSink);
        benchProgress = nullptr;
    }
    if (!ok) {
        std::string reason = "the benchmark could not build one of its streams";
        for (const std::string& line : benchFailures) reason += "\n  " + line;
        throw ToolError(reason);
    }
    if (!measuring) std::printf("Loaded the figures measured earlier (--force measures again).\n");
    std::printf("\n");
    PrintTable(ThePerfTable());
    std::printf("\ncache file: %s", path.c_str());
    if (measuring && !fs::exists(file, error))
        std::printf(" (not written: the folder cannot be written; PROGRAMDATA names another common data folder)");
    std::printf("\n");
    return 0;
}

int RunEstimate(const EstimateOptions& options) {
    FrameLayout layout;
    ParseSize(options.size, "--size", layout.width, layout.height);
    layout.format = ParseFormatName(options.format, "--format");
    layout.bitDepth = options.depth;
    layout.bitsPerPixel = DefaultBitsPerPixel(layout.format, layout.bitDepth);
    CheckLayout(layout);
    CheckScale(options.scale);
    const uint32_t demosaic = ParseDemosaic(options.demosaic);
    if (!(options.fps > 0)) throw UsageError("--fps must be above 0");

    const std::string path = PerfCachePath();
    // Without the cache the plug-in would measure first; the estimate reads figures only.
    if (!CacheIsValid(path))
        throw ToolError("no benchmark figures for this host in " + path + "; run 'framefeed bench' first");
    CreateStreamer(&QuietSink);

    StreamConfig config{};
    config.format = layout.format;
    config.bitDepth = layout.bitDepth;
    config.bitsPerPixel = layout.bitsPerPixel;
    config.inputCompression = CompressionCode::Raw;
    config.width = layout.width;
    config.height = layout.height;
    StreamParameters parameters[4]{};
    parameters[0].scale = options.scale;
    parameters[0].demosaic = demosaic;
    parameters[0].compression = options.rawOutput ? CompressionCode::Raw : CompressionCode::Jpeg;
    parameters[0].quality = 0.75f;
    parameters[0].keepHighBpp = options.keepHighBpp ? 1 : 0;
    const float seconds = GetStreamerPerformance(&config, parameters);

    std::printf("stream: %ux%u %s %d-bit, scale %u, %s%s, %s output\n", layout.width, layout.height,
                FormatName(layout.format).c_str(), layout.bitDepth, options.scale,
                layout.format >= PixelFormat::BayerRGGB && layout.format <= PixelFormat::BayerGBRG
                    ? DemosaicName(demosaic)
                    : "no demosaicking",
                options.keepHighBpp ? ", high bit depth kept" : "", options.rawOutput ? "raw" : "JPEG");
    std::printf("figures from: %s\n", path.c_str());
    if (std::isinf(seconds) || std::isnan(seconds))
        throw ToolError(
            "the cache has no rate for a stage of this stream: the benchmark does not measure it, or the "
            "stream would refuse it");
    std::printf("seconds per frame: %.9g\n", double(seconds));
    if (seconds == 0) {
        std::printf("no stage runs: frames pass through at no processing cost\n");
        return 0;
    }
    const double framesPerSecond = 1.0 / double(seconds);
    std::printf("frames per second per core: %.1f\n", framesPerSecond);
    std::printf("cameras at %g fps per core: %lld\n", options.fps,
                (long long)std::floor(framesPerSecond / options.fps));
    return 0;
}
