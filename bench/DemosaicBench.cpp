// Throughput of demosaicking on one thread: the Bayer-to-RGB primitive at each processor level and the fast
// stage's binning paths, next to OpenCV doing the same jobs on the same 2048 x 2048 RGGB mosaic, and, with
// frames rotated through more memory than the last-level cache holds, next to memcpy moving the same bytes.
// Hamilton-Adams at every scale runs in turns with OpenCV's VNG, edge-aware and bilinear conversions, with its own
// scalar twin and with itself at scale 1.
// A table of the ratios and their targets follows Google Benchmark's report. Without OpenCV the peers' columns
// stay empty.
//
//   framefeed_demosaic_bench --benchmark_min_time=0.5 --benchmark_repetitions=3 --benchmark_report_aggregates_only
#include "BenchFrames.h"
#include "BenchSupport.h"

#include "demosaic/DeBayerLQ.h"
#include "demosaic/NewDeBayer.h"
#include "primitives/ProcessorLevel.h"
#include "primitives/Px.h"

#include <benchmark/benchmark.h>

#ifdef FRAMEFEED_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <chrono>
#include <cstdlib>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

using benchsupport::ForcedLevel;
using benchsupport::LevelCase;
using benchsupport::Register;

constexpr int frameWidth = 2048;
constexpr int frameHeight = 2048;
constexpr double megapixelsPerFrame = double(frameWidth) * frameHeight / 1e6;
constexpr size_t mosaicBytes = size_t(frameWidth) * frameHeight;
constexpr size_t rgbBytes = mosaicBytes * 3;
constexpr uint32_t binningScales[] = {2, 4, 8, 16};
constexpr uint32_t haScales[] = {1, 2, 4, 8, 16};

const LevelCase levelCases[] = {{"scalar", PxLevelSse2}, {"avx2", PxLevelAvx2}, {"avx512", PxLevelAvx512}};
const LevelCase scalarLevel = levelCases[0];
const LevelCase avx2Level = levelCases[1];

// ---- Frames -----------------------------------------------------------------------------------------------

const std::vector<uint8_t>& Mosaic() {
    static const std::vector<uint8_t> mosaic =
        benchframes::RggbMosaic(frameWidth, frameHeight, benchframes::ShapedScene);
    return mosaic;
}

benchsupport::OutputFingerprints outputFingerprints;

// ---- Measurements for the summary -------------------------------------------------------------------------

// MPix/s, or for a cold pair the stage's speed relative to memcpy's.
benchsupport::MeasurementLog measurements;

// Times `frame()` once per iteration and files the rate in input megapixels per second under `name`.
template <class Frame>
void TimeFrames(benchmark::State& state, const std::string& name, Frame&& frame) {
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        frame();
        benchmark::ClobberMemory();
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    benchsupport::ReportThroughput(state, measurements, name, megapixelsPerFrame, elapsed.count());
}

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
    outputFingerprints.Note(name, rgb.data(), rgb.size());
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
    outputFingerprints.Note(name, rgbx.data(), rgbx.size());
    TimeFrames(state, name, [&] { stage.Process(mosaic, rgbx.data(), nullptr); });
}

// ---- Hamilton-Adams ---------------------------------------------------------------------------------------

// An HA stage (or, by selector, another high-quality algorithm) from the factory, as a stream makes it, with its output buffer. The stage picks its kernels in Init
// and the primitives it calls pick theirs per call, so the level is forced for both: two runs at different levels
// can then take turns.
class HaRun {
public:
    HaRun(uint32_t scale, LevelCase level, uint32_t selector = 1) : level(level) {
        PxForceProcessorLevel(level.level);
        const ImageFormat in{PixelFormat::BayerRGGB, 8, 8};
        const ImageFormat out{PixelFormat::RGBX, 8, 32};
        stage.reset(NewDeBayer(frameWidth, frameHeight, &in, &out, scale, selector, nullptr));
        if (stage) output.resize(stage->OutputSize());
    }
    ~HaRun() { PxForceProcessorLevel(PxLevelUnset); }
    HaRun(const HaRun&) = delete;
    HaRun& operator=(const HaRun&) = delete;

    bool Ready() const { return stage != nullptr; }

    void Frame() {
        PxForceProcessorLevel(level.level);
        stage->Process(Mosaic().data(), output.data(), nullptr);
    }

    const std::vector<uint8_t>& Output() const { return output; }

private:
    LevelCase level;
    std::unique_ptr<ImageProcessing> stage;
    std::vector<uint8_t> output;
};

// ---- Cache-cold frames next to memcpy ---------------------------------------------------------------------

// A stage on cache-cold frames next to memcpy moving as many bytes per frame as the stage reads and writes, each
// rotating through its own arenas and taking turns frame by frame. memcpy's MPix/s are the frames a stage exactly
// as fast as memcpy would turn. Each side's rate is filed under the benchmark's name with /avx2 or /memcpy
// appended, their ratio under the name itself.
benchsupport::OutputArenas& Arenas() {
    static benchsupport::OutputArenas arenas(rgbBytes);
    return arenas;
}

template <class Stage>
void TimeColdPair(benchmark::State& state, const std::string& name, size_t bytesReadPerFrame, size_t outputBytes,
                  Stage&& stage) {
    benchsupport::OutputArenas& arenas = Arenas();
    const size_t stageSlots = benchsupport::RotationSlots(mosaicBytes, outputBytes);
    const size_t copyBytes = (bytesReadPerFrame + outputBytes) / 2;
    const size_t copySlots = benchsupport::RotationSlots(copyBytes, copyBytes);
    // A rotation's worth of mosaics, enough for every case's slots, so the copies are made once.
    const uint8_t* inputs = benchsupport::ColdInputs(Mosaic(), benchsupport::ColdRotationBytes() / mosaicBytes + 1);
    benchsupport::TimeTurns(
        state, measurements, name, {megapixelsPerFrame, double(bytesReadPerFrame + outputBytes) / 1e9},
        {"stage", "avx2"},
        [&](uint64_t frame) {
            const size_t slot = frame % stageSlots;
            stage(inputs + slot * mosaicBytes, arenas.outputs.data() + slot * outputBytes);
        },
        {"memcpy", "memcpy"}, [&](uint64_t frame) { arenas.Copy(copyBytes, frame % copySlots); });
    state.counters["slots"] = double(stageSlots);
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
bool LightsRedOnly(int code, int redChannel = 0) {
    cv::Mat mosaic(16, 16, CV_8UC1, cv::Scalar(0));
    for (int y = 0; y < mosaic.rows; y += 2)
        for (int x = 0; x < mosaic.cols; x += 2) mosaic.at<uint8_t>(y, x) = 255;
    cv::Mat colour;
    cv::cvtColor(mosaic, colour, code);
    const cv::Scalar mean = cv::mean(colour(cv::Rect(4, 4, 8, 8)));
    for (int channel = 0; channel < 3; ++channel)
        if (channel == redChannel ? mean[channel] <= 200 : mean[channel] >= 50) return false;
    return true;
}

// The peers of PxBayerToRgb_8u write RGB; those of HA write BGR, the order OpenCV's VNG conversion is usually
// asked for. The pattern's name is the same in both.
struct OpenCvCodes {
    int bilinear = -1;
    int edgeAware = -1;
    const char* name = "none";
    int bilinearBgr = -1;
    int edgeAwareBgr = -1;
    int vngBgr = -1;
};

OpenCvCodes RggbCodes() {
    OpenCvCodes codes;
    if (LightsRedOnly(cv::COLOR_BayerBG2RGB) && LightsRedOnly(cv::COLOR_BayerBG2RGB_EA))
        codes = {cv::COLOR_BayerBG2RGB, cv::COLOR_BayerBG2RGB_EA, "COLOR_BayerBG2RGB",
                 cv::COLOR_BayerBG2BGR, cv::COLOR_BayerBG2BGR_EA, cv::COLOR_BayerBG2BGR_VNG};
    else if (LightsRedOnly(cv::COLOR_BayerRG2RGB) && LightsRedOnly(cv::COLOR_BayerRG2RGB_EA))
        codes = {cv::COLOR_BayerRG2RGB, cv::COLOR_BayerRG2RGB_EA, "COLOR_BayerRG2RGB",
                 cv::COLOR_BayerRG2BGR, cv::COLOR_BayerRG2BGR_EA, cv::COLOR_BayerRG2BGR_VNG};
    for (int* bgr : {&codes.bilinearBgr, &codes.edgeAwareBgr, &codes.vngBgr})
        if (*bgr >= 0 && !LightsRedOnly(*bgr, 2)) *bgr = -1;
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

// ---- Hamilton-Adams next to its peers ----------------------------------------------------------------------

// What an HA case runs in turns with.
enum class HaPeer { OpenCvVng, OpenCvEdgeAware, OpenCvBilinear, ScalarTwin, Scale1 };

// HA at `scale` and `level` in turns with its peer, filed with /ours and /peer appended.
void HaBenchmark(benchmark::State& state, const std::string& name, uint32_t scale, LevelCase level, HaPeer peerKind,
                 uint32_t selector) {
    HaRun ours(scale, level, selector);
    if (!ours.Ready()) {
        state.SkipWithError("NewDeBayer yielded no HA stage");
        return;
    }
    ours.Frame();
    const std::string algorithm = selector == 1 ? "HA" : "selector" + std::to_string(selector);
    outputFingerprints.Note(algorithm + "/" + std::to_string(scale) + "/" + level.name, ours.Output().data(),
                            ours.Output().size());
    std::unique_ptr<HaRun> twin;
    benchsupport::FrameFunction peer;  // none without OpenCV: HA runs alone
#ifdef FRAMEFEED_BENCH_OPENCV
    const cv::Mat peerMosaic = MosaicMat();
    cv::Mat peerBgr(frameHeight, frameWidth, CV_8UC3);
#endif
    if (peerKind == HaPeer::ScalarTwin || peerKind == HaPeer::Scale1) {
        twin = std::make_unique<HaRun>(peerKind == HaPeer::Scale1 ? 1 : scale,
                                       peerKind == HaPeer::Scale1 ? level : scalarLevel, selector);
        if (!twin->Ready()) {
            state.SkipWithError("NewDeBayer yielded no HA stage for the peer");
            return;
        }
        peer = [&](uint64_t) { twin->Frame(); };
    } else {
#ifdef FRAMEFEED_BENCH_OPENCV
        const int code = peerKind == HaPeer::OpenCvVng         ? openCvCodes.vngBgr
                         : peerKind == HaPeer::OpenCvEdgeAware ? openCvCodes.edgeAwareBgr
                                                               : openCvCodes.bilinearBgr;
        if (code < 0) {
            state.SkipWithError("no OpenCV code reads an RGGB mosaic as such");
            return;
        }
        peer = [&, code](uint64_t) { cv::cvtColor(peerMosaic, peerBgr, code); };
#endif
    }
    if (peerKind == HaPeer::ScalarTwin) {
        twin->Frame();
        outputFingerprints.Note(algorithm + "/" + std::to_string(scale) + "/" + scalarLevel.name, twin->Output().data(),
                                twin->Output().size());
    }
    benchsupport::TimeTurns(
        state, measurements, name, {megapixelsPerFrame, 0}, {"ours", "ours"}, [&](uint64_t) { ours.Frame(); },
        {"peer", "peer"}, peer);
}

#ifdef FRAMEFEED_BENCH_OPENCV
// Mean absolute difference of HA's output from OpenCV's VNG one, as a check that both read the mosaic in the same
// colour order; -1 when it cannot be told.
double MeanDifferenceOfHaFromVng() {
    HaRun ha(1, {"natural", PxChooseRow(PxFeatureMask())});
    if (openCvCodes.vngBgr < 0 || !ha.Ready()) return -1;
    ha.Frame();
    cv::Mat bgr;
    cv::cvtColor(MosaicMat(), bgr, openCvCodes.vngBgr);
    const uint8_t* rgbx = ha.Output().data();
    uint64_t sum = 0;
    for (size_t pixel = 0; pixel < mosaicBytes; ++pixel)
        for (int channel = 0; channel < 3; ++channel)
            sum += uint64_t(std::abs(int(rgbx[pixel * 4 + channel]) - int(bgr.data[pixel * 3 + 2 - channel])));
    return double(sum) / double(rgbBytes);
}
#endif

// ---- Summary ----------------------------------------------------------------------------------------------

using benchsupport::Comparison;

std::vector<Comparison> comparisons;

void PrintSummary() {
    benchsupport::PrintComparisons(comparisons, measurements, 42, false);

    // Every level's output against the scalar form's of the same case.
    std::printf("\n");
    outputFingerprints.AgainstLevel(levelCases[0].name).Print("wide forms' output equal to the scalar form's");
    std::printf("\ncold rows: the peer is memcpy moving the bytes the stage reads and writes per frame; %zu MiB of\n"
                "buffers per rotation, last-level cache read as %llu MiB\n",
                benchsupport::ColdRotationBytes() >> 20,
                static_cast<unsigned long long>(benchsupport::LastLevelCacheBytes() >> 20));
#ifdef FRAMEFEED_BENCH_OPENCV
    std::printf("OpenCV %s, one thread; RGGB read with %s; bilinear differs from PxBayerToRgb_8u by %.2f on average\n",
                CV_VERSION, openCvCodes.name, MeanDifferenceFromOpenCv());
    std::printf("HA's peers write BGR; VNG differs from HA by %.2f on average\n", MeanDifferenceOfHaFromVng());
#else
    std::printf("OpenCV not built in: no peer figures\n");
#endif
}

// ---- Registration -----------------------------------------------------------------------------------------

// HA at scale 1 next to OpenCV; each scale's AVX2 form next to its scalar twin; each scale above 1 next to scale 1
// at the same level, where a ratio of at least 1 means reducing costs no more than demosaicking alone. HA has no
// AVX-512 forms.
void RegisterHA(int32_t naturalLevel, [[maybe_unused]] bool withOpenCv) {
    std::vector<LevelCase> levels{scalarLevel};
    if (naturalLevel >= avx2Level.level) levels.insert(levels.begin(), avx2Level);
    const auto add = [](const std::string& label, const std::string& name, uint32_t scale, LevelCase level,
                        HaPeer peer, double target) {
        Register(name, HaBenchmark, scale, level, peer, 1u);
        comparisons.push_back(benchsupport::PairedRow(label, name, target));
    };
#ifdef FRAMEFEED_BENCH_OPENCV
    struct PeerCase {
        HaPeer peer;
        const char* name;
        const char* label;
        double target;
    };
    const PeerCase peers[] = {{HaPeer::OpenCvVng, "opencv_vng", "OpenCV VNG", 3.0},
                              {HaPeer::OpenCvEdgeAware, "opencv_ea", "OpenCV edge-aware", 0},
                              {HaPeer::OpenCvBilinear, "opencv_bilinear", "OpenCV bilinear", 0}};
    for (const LevelCase& level : levels) {
        if (!withOpenCv) break;
        for (const PeerCase& peer : peers)
            add(std::string("HA /1 ") + level.name + " / " + peer.label,
                std::string("HA/1/") + level.name + "/" + peer.name, 1, level, peer.peer,
                benchsupport::TargetAt(level, peer.target));
    }
#endif
    for (uint32_t scale : haScales) {
        if (naturalLevel < avx2Level.level) break;
        const std::string s = std::to_string(scale);
        add("HA /" + s + " avx2 / scalar", "HA/" + s + "/avx2/scalar", scale, avx2Level, HaPeer::ScalarTwin, 4.0);
    }
    for (uint32_t scale : haScales) {
        if (scale == 1) continue;
        const std::string s = std::to_string(scale);
        for (const LevelCase& level : levels)
            add("HA /" + s + " " + level.name + " / HA /1", "HA/" + s + "/" + level.name + "/scale1", scale, level,
                HaPeer::Scale1, benchsupport::TargetAt(level, 1.0));
    }
}

// The residual and LPA-ICI algorithms at scale 1 at the processor's own level, next to OpenCV's VNG and
// edge-aware conversions. LPA-ICI's target is half of VNG's rate; MLRI's and ARI's are absolute (10 and 2 MPix/s)
// and read from their own rows.
void RegisterResidualAlgorithms(int32_t naturalLevel, [[maybe_unused]] bool withOpenCv) {
#ifdef FRAMEFEED_BENCH_OPENCV
    if (!withOpenCv) return;
    const LevelCase natural = naturalLevel >= avx2Level.level ? avx2Level : scalarLevel;
    struct Algorithm {
        uint32_t selector;
        const char* name;
        double vngTarget;
    };
    const Algorithm algorithms[] = {{2, "LPAICIa", 0.5}, {4, "MLRI", 0}, {3, "ARI", 0}};
    for (const Algorithm& a : algorithms)
        for (const HaPeer peer : {HaPeer::OpenCvVng, HaPeer::OpenCvEdgeAware}) {
            const bool vng = peer == HaPeer::OpenCvVng;
            const std::string name = std::string(a.name) + "/1/" + natural.name + (vng ? "/opencv_vng" : "/opencv_ea");
            Register(name, HaBenchmark, 1u, natural, peer, a.selector);
            comparisons.push_back(benchsupport::PairedRow(
                std::string(a.name) + " /1 " + natural.name + (vng ? " / OpenCV VNG" : " / OpenCV edge-aware"), name,
                vng ? a.vngTarget : 0));
        }
#endif
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

    RegisterHA(naturalLevel, withOpenCv);
    RegisterResidualAlgorithms(naturalLevel, withOpenCv);

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
