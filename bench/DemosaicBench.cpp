// Throughput of demosaicking on one thread: the Bayer-to-RGB primitive at each processor level and the fast
// stage's binning paths, next to OpenCV doing the same jobs on the same 2048 x 2048 RGGB mosaic, and, with
// frames rotated through more memory than the last-level cache holds, next to memcpy moving the same bytes.
// A table of the ratios and their targets follows Google Benchmark's report. Without OpenCV the peers' columns
// stay empty.
//
//   framefeed_demosaic_bench --benchmark_min_time=0.5 --benchmark_repetitions=3 --benchmark_report_aggregates_only
#include "BenchFrames.h"

#include "demosaic/DeBayerLQ.h"
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <benchmark/benchmark.h>
#ifdef __unix__
#include <unistd.h>
#endif

#ifdef FRAMEFEED_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int frameWidth = 2048;
constexpr int frameHeight = 2048;
constexpr double megapixelsPerFrame = double(frameWidth) * frameHeight / 1e6;
constexpr size_t mosaicBytes = size_t(frameWidth) * frameHeight;
constexpr size_t rgbBytes = mosaicBytes * 3;
constexpr uint32_t binningScales[] = {2, 4, 8, 16};

struct LevelCase {
    const char* name;
    int32_t level;
};

const LevelCase levelCases[] = {{"scalar", PxLevelSse2}, {"avx2", PxLevelAvx2}, {"avx512", PxLevelAvx512}};
const LevelCase avx2Level = levelCases[1];

// ---- Frames -----------------------------------------------------------------------------------------------

const std::vector<uint8_t>& Mosaic() {
    static const std::vector<uint8_t> mosaic =
        benchframes::RggbMosaic(frameWidth, frameHeight, benchframes::ShapedScene);
    return mosaic;
}

uint64_t Fingerprint(const uint8_t* bytes, size_t size) {
    uint64_t hash = 0xCBF29CE484222325ull;
    for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 0x100000001B3ull;
    return hash;
}

// Fingerprint of each case's output, to confirm that every processor level computes what the scalar form does:
// a wide form's speed means nothing if it gets there by computing something else.
std::map<std::string, uint64_t> outputFingerprints;

void NoteOutput(const std::string& name, const uint8_t* bytes, size_t size) {
    if (outputFingerprints.count(name) == 0) outputFingerprints[name] = Fingerprint(bytes, size);
}

// ---- Memory larger than the cache -------------------------------------------------------------------------

uint64_t LastLevelCacheBytes() {
    uint64_t bytes = PxLargestCacheSize();
#ifdef _SC_LEVEL3_CACHE_SIZE
    bytes = std::max<uint64_t>(bytes, std::max(0L, sysconf(_SC_LEVEL3_CACHE_SIZE)));
#endif
    // The kernel's figure ("32768K") is the slice a core shares; the C library's may count all of a socket's.
    // Sizing by the largest reading errs towards colder frames.
    std::ifstream sysfs("/sys/devices/system/cpu/cpu0/cache/index3/size");
    uint64_t kibibytes = 0;
    if (sysfs >> kibibytes) bytes = std::max(bytes, kibibytes * 1024);
    return bytes;
}

// Buffer bytes a case rotates its frames through: twice the largest reading of the last-level cache, so nothing
// of a frame is left in the cache when its turn comes round again.
size_t ColdRotationBytes() {
    static const size_t bytes = std::max<size_t>(2 * LastLevelCacheBytes(), size_t(64) << 20);
    return bytes;
}

// Memory for the cache-cold figures: input frames and outputs for a stage, sources and destinations for memcpy,
// each as large as a rotation, so the two sides never find each other's bytes in the cache either. A case
// rotates its frames through as many slots as make up a rotation. Every page is written here, so none is first
// touched while timed.
struct ColdArenas {
    std::vector<uint8_t> inputs;
    std::vector<uint8_t> outputs;
    std::vector<uint8_t> copySources;
    std::vector<uint8_t> copyDestinations;

    ColdArenas() {
        const size_t inputFrames = ColdRotationBytes() / mosaicBytes + 1;
        inputs.resize(inputFrames * mosaicBytes);
        for (size_t frame = 0; frame < inputFrames; ++frame)
            std::memcpy(inputs.data() + frame * mosaicBytes, Mosaic().data(), mosaicBytes);
        outputs.assign(ColdRotationBytes() + rgbBytes, 0);
        copySources.assign(ColdRotationBytes() + rgbBytes, 1);
        copyDestinations.assign(ColdRotationBytes() + rgbBytes, 0);
    }

    // Slots for a case whose frames take `inputBytes` and `outputBytes` of buffer.
    static size_t Slots(size_t inputBytes, size_t outputBytes) {
        return (ColdRotationBytes() + inputBytes + outputBytes - 1) / (inputBytes + outputBytes);
    }
};

ColdArenas& Arenas() {
    static ColdArenas arenas;
    return arenas;
}

// ---- Measurements for the summary -------------------------------------------------------------------------

struct Measurement {
    int64_t iterations;
    double value;  // MPix/s, or for a cold pair the stage's speed relative to memcpy's
};

// Keyed by benchmark name. Google Benchmark also runs shorter trials to size each run; those are told apart by
// their smaller iteration count.
std::map<std::string, std::vector<Measurement>> measurements;

// Median over the reported runs of one benchmark, 0 when it did not run.
double MedianOfReportedRuns(const std::string& name) {
    const auto found = measurements.find(name);
    if (found == measurements.end() || found->second.empty()) return 0;
    int64_t reportedIterations = 0;
    for (const Measurement& m : found->second) reportedIterations = std::max(reportedIterations, m.iterations);
    std::vector<double> values;
    for (const Measurement& m : found->second)
        if (m.iterations == reportedIterations) values.push_back(m.value);
    std::sort(values.begin(), values.end());
    const size_t mid = values.size() / 2;
    return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

// Times `frame()` once per iteration and files the rate in input megapixels per second under `name`.
template <class Frame>
void TimeFrames(benchmark::State& state, const std::string& name, Frame&& frame) {
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        frame();
        benchmark::ClobberMemory();
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    state.counters["MPix"] = benchmark::Counter(megapixelsPerFrame, benchmark::Counter::kIsIterationInvariantRate);
    if (elapsed.count() > 0)
        measurements[name].push_back(
            {state.iterations(), double(state.iterations()) * megapixelsPerFrame / elapsed.count()});
}

// Holds a processor level for the life of one benchmark run; the stage reads it in Init, the primitive per call.
class ForcedLevel {
public:
    explicit ForcedLevel(int32_t level) { PxForceProcessorLevel(level); }
    ~ForcedLevel() { PxForceProcessorLevel(PxLevelUnset); }
    ForcedLevel(const ForcedLevel&) = delete;
    ForcedLevel& operator=(const ForcedLevel&) = delete;
};

// ---- FrameFeed --------------------------------------------------------------------------------------------

bool BayerToRgb(const uint8_t* mosaic, uint8_t* rgb) {
    PxRect region{0, 0, frameWidth, frameHeight};
    return PxBayerToRgb_8u(mosaic, &region, {frameWidth, frameHeight}, frameWidth, rgb, frameWidth * 3, PxGridRGGB,
                           0) == PxStatusOk;
}

void BayerToRgbBenchmark(benchmark::State& state, const std::string& name, LevelCase level) {
    const ForcedLevel forced(level.level);
    const uint8_t* mosaic = Mosaic().data();
    std::vector<uint8_t> rgb(rgbBytes);
    if (!BayerToRgb(mosaic, rgb.data())) {
        state.SkipWithError("PxBayerToRgb_8u refused the frame");
        return;
    }
    NoteOutput(name, rgb.data(), rgb.size());
    TimeFrames(state, name, [&] { BayerToRgb(mosaic, rgb.data()); });
}

bool InitBinning(DeBayerLQ& stage, uint32_t scale) {
    const ImageFormat in{PixelFormat::BayerRGGB, 8, 8};
    const ImageFormat out{PixelFormat::RGBX, 8, 32};
    return stage.Init(frameWidth, frameHeight, &in, &out, scale, 0, nullptr);
}

void BinningBenchmark(benchmark::State& state, const std::string& name, uint32_t scale, LevelCase level) {
    const ForcedLevel forced(level.level);
    DeBayerLQ stage;
    if (!InitBinning(stage, scale)) {
        state.SkipWithError("DeBayerLQ refused the format");
        return;
    }
    const uint8_t* mosaic = Mosaic().data();
    std::vector<uint8_t> rgbx(stage.OutputSize());
    stage.Process(mosaic, rgbx.data(), nullptr);
    NoteOutput(name, rgbx.data(), rgbx.size());
    TimeFrames(state, name, [&] { stage.Process(mosaic, rgbx.data(), nullptr); });
}

// ---- Cache-cold frames next to memcpy ---------------------------------------------------------------------

// A stage on cache-cold frames next to memcpy moving as many bytes per frame as the stage reads and writes, each
// rotating through its own arenas. The two take turns frame by frame, so load from elsewhere on the machine falls
// on both alike; the order alternates, so neither always finds the memory system as the other left it. memcpy's
// MPix/s are the frames a stage exactly as fast as memcpy would turn. Each side's rate is filed under the
// benchmark's name with /avx2 or /memcpy appended, their ratio under the name itself.
template <class Stage>
void TimeColdPair(benchmark::State& state, const std::string& name, size_t bytesReadPerFrame, size_t outputBytes,
                  Stage&& stage) {
    ColdArenas& arenas = Arenas();
    const size_t stageSlots = ColdArenas::Slots(mosaicBytes, outputBytes);
    const size_t copyBytes = (bytesReadPerFrame + outputBytes) / 2;
    const size_t copySlots = ColdArenas::Slots(copyBytes, copyBytes);
    using Clock = std::chrono::steady_clock;
    Clock::duration stageTime{};
    Clock::duration copyTime{};
    uint64_t frame = 0;
    for (auto _ : state) {
        for (int turn = 0; turn < 2; ++turn) {
            const bool stageTurn = (turn == 0) == (frame % 2 == 0);
            const auto start = Clock::now();
            if (stageTurn) {
                const size_t slot = frame % stageSlots;
                stage(arenas.inputs.data() + slot * mosaicBytes, arenas.outputs.data() + slot * outputBytes);
            } else {
                const size_t slot = frame % copySlots;
                std::memcpy(arenas.copyDestinations.data() + slot * copyBytes,
                            arenas.copySources.data() + slot * copyBytes, copyBytes);
            }
            benchmark::ClobberMemory();
            (stageTurn ? stageTime : copyTime) += Clock::now() - start;
        }
        ++frame;
    }
    const double stageSeconds = std::chrono::duration<double>(stageTime).count();
    const double copySeconds = std::chrono::duration<double>(copyTime).count();
    if (stageSeconds <= 0 || copySeconds <= 0) return;
    const double frames = double(state.iterations());
    const double gigabytesPerFrame = double(bytesReadPerFrame + outputBytes) / 1e9;
    state.counters["stage MPix/s"] = frames * megapixelsPerFrame / stageSeconds;
    state.counters["memcpy MPix/s"] = frames * megapixelsPerFrame / copySeconds;
    state.counters["stage GB/s"] = frames * gigabytesPerFrame / stageSeconds;
    state.counters["memcpy GB/s"] = frames * gigabytesPerFrame / copySeconds;
    state.counters["ratio"] = copySeconds / stageSeconds;
    state.counters["slots"] = double(stageSlots);
    measurements[name + "/avx2"].push_back({state.iterations(), frames * megapixelsPerFrame / stageSeconds});
    measurements[name + "/memcpy"].push_back({state.iterations(), frames * megapixelsPerFrame / copySeconds});
    measurements[name].push_back({state.iterations(), copySeconds / stageSeconds});
}

void ColdBayerToRgbBenchmark(benchmark::State& state, const std::string& name) {
    const ForcedLevel forced(avx2Level.level);
    TimeColdPair(state, name, mosaicBytes, rgbBytes,
                 [](const uint8_t* mosaic, uint8_t* rgb) { BayerToRgb(mosaic, rgb); });
}

void ColdBinningBenchmark(benchmark::State& state, const std::string& name, uint32_t scale) {
    const ForcedLevel forced(avx2Level.level);
    DeBayerLQ stage;
    if (!InitBinning(stage, scale)) {
        state.SkipWithError("DeBayerLQ refused the format");
        return;
    }
    // At 16 each block's sums come from two rows of every four, so only half of the mosaic's rows are read.
    const size_t bytesRead = scale == 16 ? mosaicBytes / 2 : mosaicBytes;
    TimeColdPair(state, name, bytesRead, stage.OutputSize(),
                 [&](const uint8_t* mosaic, uint8_t* rgbx) { stage.Process(mosaic, rgbx, nullptr); });
}

// ---- Peers ------------------------------------------------------------------------------------------------

#ifdef FRAMEFEED_BENCH_OPENCV

// OpenCV names a Bayer pattern by the second and third sites of its second row, so the code for an RGGB mosaic
// should be the "BG" one. Chosen by experiment all the same: with only the red sites lit, the right code lights
// the red channel alone.
bool LightsRedOnly(int code) {
    cv::Mat mosaic(16, 16, CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < mosaic.rows; y += 2)
        for (int x = 0; x < mosaic.cols; x += 2) mosaic.at<uint8_t>(y, x) = 255;
    cv::Mat rgb;
    cv::cvtColor(mosaic, rgb, code);
    const cv::Scalar mean = cv::mean(rgb(cv::Rect(4, 4, 8, 8)));
    return mean[0] > 200 && mean[1] < 50 && mean[2] < 50;
}

struct OpenCvCodes {
    int bilinear = -1;
    int edgeAware = -1;
    const char* name = "none";
};

OpenCvCodes RggbCodes() {
    OpenCvCodes codes;
    if (LightsRedOnly(cv::COLOR_BayerBG2RGB) && LightsRedOnly(cv::COLOR_BayerBG2RGB_EA))
        codes = {cv::COLOR_BayerBG2RGB, cv::COLOR_BayerBG2RGB_EA, "COLOR_BayerBG2RGB"};
    else if (LightsRedOnly(cv::COLOR_BayerRG2RGB) && LightsRedOnly(cv::COLOR_BayerRG2RGB_EA))
        codes = {cv::COLOR_BayerRG2RGB, cv::COLOR_BayerRG2RGB_EA, "COLOR_BayerRG2RGB"};
    return codes;
}

OpenCvCodes openCvCodes;

cv::Mat MosaicMat() { return cv::Mat(frameHeight, frameWidth, CV_8UC1, const_cast<uint8_t*>(Mosaic().data())); }

void OpenCvBayerBenchmark(benchmark::State& state, const std::string& name, bool edgeAware) {
    const cv::Mat mosaic = MosaicMat();
    cv::Mat rgb(frameHeight, frameWidth, CV_8UC3);
    const int code = edgeAware ? openCvCodes.edgeAware : openCvCodes.bilinear;
    TimeFrames(state, name, [&] { cv::cvtColor(mosaic, rgb, code); });
}

// What binning stands in for: a full bilinear interpolation shrunk by area averaging.
void OpenCvBinningBenchmark(benchmark::State& state, const std::string& name, uint32_t scale) {
    const cv::Mat mosaic = MosaicMat();
    const cv::Size smallSize(frameWidth / int(scale), frameHeight / int(scale));
    cv::Mat rgb(frameHeight, frameWidth, CV_8UC3);
    cv::Mat small(smallSize, CV_8UC3);
    TimeFrames(state, name, [&] {
        cv::cvtColor(mosaic, rgb, openCvCodes.bilinear);
        cv::resize(rgb, small, smallSize, 0, 0, cv::INTER_AREA);
    });
}

// Mean absolute difference of the primitive's output from OpenCV's bilinear one, as a check that both sides
// interpolate the same mosaic in the same colour order; -1 when it cannot be told.
double MeanDifferenceFromOpenCv() {
    std::vector<uint8_t> ours(rgbBytes);
    if (openCvCodes.bilinear < 0 || !BayerToRgb(Mosaic().data(), ours.data())) return -1;
    cv::Mat theirs;
    cv::cvtColor(MosaicMat(), theirs, openCvCodes.bilinear);
    const cv::Mat oursMat(frameHeight, frameWidth, CV_8UC3, ours.data());
    cv::Mat difference;
    cv::absdiff(oursMat, theirs, difference);
    const cv::Scalar mean = cv::mean(difference);
    return (mean[0] + mean[1] + mean[2]) / 3;
}

#endif

// ---- Summary ----------------------------------------------------------------------------------------------

struct Comparison {
    std::string label;
    std::string oursName;
    std::string peerName;
    double target;                // the least ratio wanted; 0 for a row that only informs
    std::string pairedName = {};  // a benchmark that timed both sides in turn and filed their ratio, if any
};

std::vector<Comparison> comparisons;

void PrintSummary() {
    std::printf("\n%-42s %16s %12s %7s %7s %8s\n", "case", "FrameFeed MPix/s", "peer MPix/s", "ratio", "target",
                "met");
    for (const Comparison& c : comparisons) {
        const double ours = MedianOfReportedRuns(c.oursName);
        const double peer = MedianOfReportedRuns(c.peerName);
        if (ours == 0 && peer == 0) continue;  // filtered out
        char oursText[32] = "-", peerText[32] = "-", ratioText[32] = "-", targetText[32] = "-";
        const char* met = "-";
        if (ours > 0) std::snprintf(oursText, sizeof oursText, "%.1f", ours);
        if (peer > 0) std::snprintf(peerText, sizeof peerText, "%.1f", peer);
        if (c.target > 0) std::snprintf(targetText, sizeof targetText, ">=%.2f", c.target);
        // Taken in turns, the two sides' ratio in each run is steadier than the ratio of their separate medians.
        const double ratio = !c.pairedName.empty() ? MedianOfReportedRuns(c.pairedName) : peer > 0 ? ours / peer : 0;
        if (ours > 0 && ratio > 0) {
            std::snprintf(ratioText, sizeof ratioText, "%.2f", ratio);
            if (c.target > 0) met = ratio >= c.target ? "met" : "NOT MET";
        }
        std::printf("%-42s %16s %12s %7s %7s %8s\n", c.label.c_str(), oursText, peerText, ratioText, targetText, met);
    }

    // Every level's output against the scalar form's of the same case.
    std::vector<std::string> differing;
    int compared = 0;
    for (const auto& [name, fingerprint] : outputFingerprints) {
        const size_t levelStart = name.rfind('/') + 1;
        if (name.compare(levelStart, std::string::npos, levelCases[0].name) == 0) continue;
        const auto scalar = outputFingerprints.find(name.substr(0, levelStart) + levelCases[0].name);
        if (scalar == outputFingerprints.end()) continue;
        ++compared;
        if (scalar->second != fingerprint) differing.push_back(name);
    }
    std::printf("\nwide forms' output equal to the scalar form's: %s", compared == 0 ? "not compared"
                                                                       : differing.empty() ? "yes" : "NO:");
    for (const std::string& name : differing) std::printf(" %s", name.c_str());
    std::printf("\ncold rows: the peer is memcpy moving the bytes the stage reads and writes per frame; %zu MiB of\n"
                "buffers per rotation, last-level cache read as %llu MiB\n",
                ColdRotationBytes() >> 20, static_cast<unsigned long long>(LastLevelCacheBytes() >> 20));
#ifdef FRAMEFEED_BENCH_OPENCV
    std::printf("OpenCV %s, one thread; RGGB read with %s; bilinear differs from PxBayerToRgb_8u by %.2f on average\n",
                CV_VERSION, openCvCodes.name, MeanDifferenceFromOpenCv());
#else
    std::printf("OpenCV not built in: no peer figures\n");
#endif
}

// ---- Registration -----------------------------------------------------------------------------------------

// Registers fn(state, name, args...): each benchmark files its measurements under its own name.
template <class Function, class... Args>
void Register(const std::string& name, Function function, Args... args) {
    benchmark::RegisterBenchmark(name.c_str(), function, name, args...)->Unit(benchmark::kMillisecond)->UseRealTime();
}

void RegisterAll(int32_t naturalLevel, [[maybe_unused]] bool withOpenCv) {
    const std::string scalarName = std::string("BayerToRgb/") + levelCases[0].name;
    const std::string openCvName = "BayerToRgb/opencv";
    const std::string openCvEdgeAwareName = "BayerToRgb/opencv_ea";
    for (const LevelCase& level : levelCases) {
        if (level.level > naturalLevel) continue;
        const std::string name = std::string("BayerToRgb/") + level.name;
        Register(name, BayerToRgbBenchmark, level);
        if (name == scalarName) continue;
        const std::string label = std::string("BayerToRgb ") + level.name;
        comparisons.push_back({label + " / OpenCV bilinear", name, openCvName, 1.0});
        comparisons.push_back({label + " / scalar", name, scalarName, 4.0});
        comparisons.push_back({label + " / OpenCV edge-aware", name, openCvEdgeAwareName, 0});
    }
    comparisons.push_back({"BayerToRgb scalar / OpenCV bilinear", scalarName, openCvName, 0});
#ifdef FRAMEFEED_BENCH_OPENCV
    if (withOpenCv) {
        Register(openCvName, OpenCvBayerBenchmark, false);
        Register(openCvEdgeAwareName, OpenCvBayerBenchmark, true);
    }
#endif

    for (uint32_t scale : binningScales) {
        const std::string prefix = "DeBayerLQ/" + std::to_string(scale) + "/";
        const std::string peerName = prefix + "opencv_area";
        for (const LevelCase& level : levelCases) {
            if (level.level > naturalLevel || level.level == PxLevelAvx512) continue;  // no AVX-512 block kernels
            Register(prefix + level.name, BinningBenchmark, scale, level);
            comparisons.push_back({"DeBayerLQ /" + std::to_string(scale) + " " + level.name + " / OpenCV bilinear+area",
                                   prefix + level.name, peerName, 5.0});
        }
#ifdef FRAMEFEED_BENCH_OPENCV
        if (withOpenCv) Register(peerName, OpenCvBinningBenchmark, scale);
#endif
    }

    if (naturalLevel < avx2Level.level) return;  // the cold figures are of the AVX2 forms
    Register("Cold/BayerToRgb", ColdBayerToRgbBenchmark);
    comparisons.push_back(
        {"cold BayerToRgb avx2 / memcpy", "Cold/BayerToRgb/avx2", "Cold/BayerToRgb/memcpy", 0.8, "Cold/BayerToRgb"});
    for (uint32_t scale : binningScales) {
        const std::string name = "Cold/DeBayerLQ/" + std::to_string(scale);
        Register(name, ColdBinningBenchmark, scale);
        comparisons.push_back({"cold DeBayerLQ /" + std::to_string(scale) + " avx2 / memcpy", name + "/avx2",
                               name + "/memcpy", 0.8, name});
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    bool withOpenCv = false;
#ifdef FRAMEFEED_BENCH_OPENCV
    cv::setNumThreads(1);
    openCvCodes = RggbCodes();
    withOpenCv = openCvCodes.bilinear >= 0;
    if (!withOpenCv) std::fprintf(stderr, "no OpenCV Bayer code reads an RGGB mosaic as such; peers left out\n");
#endif
    // FrameFeed's cases and their peers run next to each other, so slow drift of the machine hits both alike.
    RegisterAll(PxChooseRow(PxFeatureMask()), withOpenCv);
    benchmark::RunSpecifiedBenchmarks();
    PrintSummary();
    benchmark::Shutdown();
    return 0;
}
