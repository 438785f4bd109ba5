// Throughput of the packing, binning and planar-YUV stages on one thread, each at the AVX2 and the scalar
// processor level, next to peers doing the same jobs on the same 2048 x 2048 frames in the same run:
//   BitPacker  memcpy moving as many bytes as the stage reads and writes, with the buffers warm in the cache and
//              rotated through more memory than the last-level cache holds, and a plain 16 -> 8 shift loop;
//   Scaler     libyuv's box filter and OpenCV's area resize;
//   YUVPlaner  libyuv's UYVY split, followed when binning by its box filter on every plane.
// Every FrameFeed case takes turns with its peer frame by frame, so that the noise of a shared machine falls on
// both. A table of the ratios and their targets follows Google Benchmark's report. Without libyuv or OpenCV their
// peers' columns stay empty.
//
//   framefeed_stage_bench --benchmark_min_time=0.3 --benchmark_repetitions=3 --benchmark_report_aggregates_only
#include "BenchFrames.h"
#include "BenchSupport.h"

#include "primitives/ProcessorLevel.h"
#include "stages/BitPacker.h"
#include "stages/Scaler.h"
#include "stages/YUVPlaner.h"

#include <framefeed/framefeed.h>

#include <benchmark/benchmark.h>

#ifdef FRAMEFEED_BENCH_LIBYUV
#include <libyuv.h>
#endif

#ifdef FRAMEFEED_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

using benchsupport::Comparison;
using benchsupport::ForcedLevel;
using benchsupport::FrameFunction;
using benchsupport::LevelCase;
using benchsupport::Register;

constexpr int frameWidth = 2048;
constexpr int frameHeight = 2048;
constexpr size_t framePixels = size_t(frameWidth) * frameHeight;
constexpr double megapixelsPerFrame = double(framePixels) / 1e6;

// The scalar twins come first: every other level's output is checked against theirs.
const LevelCase levelCases[] = {{"scalar", PxLevelSse2}, {"avx2", PxLevelAvx2}};

// The deep sample layouts BitPacker reduces to bytes, with the least share of memcpy's GB/s each should reach.
struct Depth {
    const char* name;   // in benchmark names
    const char* label;  // in the summary
    int32_t bits;
    double target;
};

const Depth depths[] = {{"16to8", "16->8", 16, 0.8}, {"12to8", "12->8", 12, 0.6}, {"10to8", "10->8", 10, 0.6}};

// Bytes BitPacker reads and writes per pixel: the packed sample and its byte.
double BytesMovedPerPixel(int32_t bits) { return bits / 8.0 + 1; }

constexpr uint32_t scalerFactors[] = {2, 4, 8, 16};
constexpr uint32_t planerFactors[] = {1, 2, 4};

// 10-bit packed 4:2:2: three samples to a little-endian 32-bit word, rows padded to blocks of 48 pixels in 128
// bytes.
constexpr size_t packed10Pitch = (frameWidth + 47) / 48 * 128;

enum class Cache { Warm, Cold };

const char* CacheName(Cache cache) { return cache == Cache::Warm ? "warm" : "cold"; }

// ---- Frames -----------------------------------------------------------------------------------------------

// The scene's green channel stands in for what a monochrome sensor sees.
const std::vector<uint8_t>& MonoFrame() {
    static const std::vector<uint8_t> frame = [] {
        std::vector<uint8_t> pixels(framePixels);
        uint8_t* pixel = pixels.data();
        for (int y = 0; y < frameHeight; ++y)
            for (int x = 0; x < frameWidth; ++x)
                *pixel++ = benchframes::ShapedScene(x, y, 1, frameWidth, frameHeight);
        return pixels;
    }();
    return frame;
}

// The Mono frame widened to `bits` and packed as a camera delivers it: 16-bit little-endian words, two 12-bit
// samples in 3 bytes or four 10-bit ones in 5, least significant bit first. The low bits repeat the high ones, as
// a full-scale widening does; dropping them gives the Mono frame back, which the summary checks.
std::vector<uint8_t> PackDeepFrame(int32_t bits) {
    const std::vector<uint8_t>& mono = MonoFrame();
    const size_t groupSamples = bits == 16 ? 1 : bits == 12 ? 2 : 4;
    const size_t groupBytes = groupSamples * size_t(bits) / 8;
    std::vector<uint8_t> packed(framePixels / groupSamples * groupBytes);
    uint8_t* out = packed.data();
    for (size_t i = 0; i < framePixels; i += groupSamples, out += groupBytes) {
        uint64_t group = 0;
        for (size_t k = 0; k < groupSamples; ++k) {
            const uint64_t sample = uint64_t(mono[i + k]) << (bits - 8) | mono[i + k] >> (16 - bits);
            group |= sample << (k * bits);
        }
        for (size_t b = 0; b < groupBytes; ++b) out[b] = uint8_t(group >> (8 * b));
    }
    return packed;
}

const std::vector<uint8_t>& DeepFrame(int32_t bits) {
    static std::map<int32_t, std::vector<uint8_t>> frames;
    std::vector<uint8_t>& frame = frames[bits];
    if (frame.empty()) frame = PackDeepFrame(bits);
    return frame;
}

uint8_t RoundedByte(double value) { return uint8_t(std::clamp(std::lround(value), 0L, 255L)); }

// The scene in BT.601 studio-range UYVY: each pixel pair shares the mean of its two pixels' chroma.
const std::vector<uint8_t>& UyvyFrame() {
    static const std::vector<uint8_t> frame = [] {
        struct Yuv {
            double y, u, v;
        };
        auto sceneYuv = [](int x, int y) {
            const double r = benchframes::ShapedScene(x, y, 0, frameWidth, frameHeight);
            const double g = benchframes::ShapedScene(x, y, 1, frameWidth, frameHeight);
            const double b = benchframes::ShapedScene(x, y, 2, frameWidth, frameHeight);
            return Yuv{16 + (65.481 * r + 128.553 * g + 24.966 * b) / 255,
                       128 + (-37.797 * r - 74.203 * g + 112.0 * b) / 255,
                       128 + (112.0 * r - 93.786 * g - 18.214 * b) / 255};
        };
        std::vector<uint8_t> packed(framePixels * 2);
        uint8_t* out = packed.data();
        for (int y = 0; y < frameHeight; ++y) {
            for (int x = 0; x < frameWidth; x += 2) {
                const Yuv left = sceneYuv(x, y);
                const Yuv right = sceneYuv(x + 1, y);
                *out++ = RoundedByte((left.u + right.u) / 2);
                *out++ = RoundedByte(left.y);
                *out++ = RoundedByte((left.v + right.v) / 2);
                *out++ = RoundedByte(right.y);
            }
        }
        return packed;
    }();
    return frame;
}

// The UYVY frame's samples as 10-bit values v << 2, three to a word, each row padded with zeros to whole blocks.
// Unpacking rounds such a sample back to v, so the 10-bit path's output must equal the 8-bit path's.
const std::vector<uint8_t>& Uyvy10Frame() {
    static const std::vector<uint8_t> frame = [] {
        constexpr size_t rowSamples = size_t(frameWidth) * 2;
        std::vector<uint8_t> packed(packed10Pitch * frameHeight, 0);
        for (int y = 0; y < frameHeight; ++y) {
            const uint8_t* samples = UyvyFrame().data() + y * rowSamples;
            uint8_t* word = packed.data() + y * packed10Pitch;
            for (size_t s = 0; s < rowSamples; s += 3, word += 4) {
                uint32_t value = 0;
                for (size_t k = 0; k < 3 && s + k < rowSamples; ++k) value |= uint32_t(samples[s + k]) << (10 * k + 2);
                for (int b = 0; b < 4; ++b) word[b] = uint8_t(value >> (8 * b));
            }
        }
        return packed;
    }();
    return frame;
}

benchsupport::OutputFingerprints outputFingerprints;

// ---- Memory larger than the cache -------------------------------------------------------------------------

benchsupport::OutputArenas& Arenas() {
    static benchsupport::OutputArenas arenas(framePixels * 4);
    return arenas;
}

// ---- Measurements for the summary -------------------------------------------------------------------------

// MPix/s, or for a pair FrameFeed's speed relative to the peer's.
benchsupport::MeasurementLog measurements;

// FrameFeed's side next to a peer doing the same job, in turns; the rates are filed with /ours and /peer appended.
// Without a peer FrameFeed's side runs alone.
void TimeTurns(benchmark::State& state, const std::string& name, double gigabytesPerFrame, const FrameFunction& ours,
               const FrameFunction& peer) {
    benchsupport::TimeTurns(state, measurements, name, {megapixelsPerFrame, gigabytesPerFrame}, {"ours", "ours"}, ours,
                            {"peer", "peer"}, peer);
}

// A conversion next to memcpy moving as many bytes per frame as the conversion reads and writes (half of them
// copied from one buffer to another). Warm, each side works on one set of buffers, which together fit the
// last-level cache; cold, each rotates through its own arenas. memcpy's MPix/s are the frames a conversion exactly
// as fast as memcpy would turn.
template <class Convert>
void TimeAgainstMemcpy(benchmark::State& state, const std::string& name, Cache cache,
                       const std::vector<uint8_t>& frame, size_t outputBytes, Convert convert) {
    benchsupport::OutputArenas& arenas = Arenas();
    const size_t inputBytes = frame.size();
    const size_t copyBytes = (inputBytes + outputBytes) / 2;
    const bool cold = cache == Cache::Cold;
    const size_t stageSlots = cold ? benchsupport::RotationSlots(inputBytes, outputBytes) : 1;
    const size_t copySlots = cold ? benchsupport::RotationSlots(copyBytes, copyBytes) : 1;
    const uint8_t* inputs = cold ? benchsupport::ColdInputs(frame, stageSlots) : frame.data();
    const FrameFunction ours = [&](uint64_t index) {
        const size_t slot = index % stageSlots;
        convert(inputs + slot * inputBytes, arenas.outputs.data() + slot * outputBytes);
    };
    const FrameFunction memcpyPeer = [&](uint64_t index) { arenas.Copy(copyBytes, index % copySlots); };
    if (!cold) {  // bring both sides' buffers into the cache
        ours(0);
        memcpyPeer(0);
    }
    TimeTurns(state, name, double(inputBytes + outputBytes) / 1e9, ours, memcpyPeer);
    state.counters["slots"] = double(stageSlots);
}

// ---- Stages -----------------------------------------------------------------------------------------------

bool InitBitPacker(BitPacker& stage, int32_t bits) {
    const ImageFormat in{PixelFormat::Mono, bits, uint32_t(bits)};
    const ImageFormat out{PixelFormat::Mono, 8, 8};
    return stage.Init(frameWidth, frameHeight, &in, &out, 1, 0, nullptr);
}

bool InitScaler(Scaler& stage, uint32_t factor) {
    const ImageFormat mono{PixelFormat::Mono, 8, 8};
    return stage.Init(frameWidth, frameHeight, &mono, &mono, factor, 1, nullptr);
}

bool InitPlaner(YUVPlaner& stage, uint32_t factor, bool tenBit) {
    const ImageFormat in{PixelFormat::UYVY, tenBit ? 10 : 8, tenBit ? 32u : 16u};
    const ImageFormat out = factor == 1 ? ImageFormat{PixelFormat::YUV422P, 8, 16}
                                        : ImageFormat{PixelFormat::YUV444P, 8, 24};
    return stage.Init(frameWidth, frameHeight, &in, &out, factor, 0, nullptr);
}

// ---- Peers ------------------------------------------------------------------------------------------------

// 16 -> 8 bits as anyone would first write it, left to the compiler at this program's own flags.
void PlainShift16To8(const uint16_t* in, uint8_t* out, size_t samples) {
    for (size_t i = 0; i < samples; ++i) out[i] = uint8_t(in[i] >> 8);
}

enum class ScalerPeer { LibyuvBox, OpenCvArea };

#ifdef FRAMEFEED_BENCH_LIBYUV

void LibyuvBox(const uint8_t* mono, uint32_t factor, uint8_t* small) {
    const int width = frameWidth / int(factor), height = frameHeight / int(factor);
    libyuv::ScalePlane(mono, frameWidth, frameWidth, frameHeight, small, width, width, height, libyuv::kFilterBox);
}

// libyuv's way to YUVPlaner's planes: UYVYToI422, then when binning its box filter on Y, and on U and V from
// 4:2:2 up to 4:4:4 at the reduced size. Writes Y, U and V back to back as YUVPlaner does.
class LibyuvPlaner {
public:
    explicit LibyuvPlaner(uint32_t factor) : factor(factor) {
        if (factor != 1) full.resize(framePixels * 2);
    }

    void operator()(const uint8_t* uyvy, uint8_t* out) {
        constexpr int chromaWidth = frameWidth / 2;
        if (factor == 1) {
            uint8_t* u = out + framePixels;
            libyuv::UYVYToI422(uyvy, frameWidth * 2, out, frameWidth, u, chromaWidth, u + framePixels / 2,
                               chromaWidth, frameWidth, frameHeight);
            return;
        }
        uint8_t* y = full.data();
        uint8_t* u = y + framePixels;
        uint8_t* v = u + framePixels / 2;
        libyuv::UYVYToI422(uyvy, frameWidth * 2, y, frameWidth, u, chromaWidth, v, chromaWidth, frameWidth,
                           frameHeight);
        const int width = frameWidth / int(factor), height = frameHeight / int(factor);
        const size_t plane = size_t(width) * height;
        libyuv::ScalePlane(y, frameWidth, frameWidth, frameHeight, out, width, width, height, libyuv::kFilterBox);
        libyuv::ScalePlane(u, chromaWidth, chromaWidth, frameHeight, out + plane, width, width, height,
                           libyuv::kFilterBox);
        libyuv::ScalePlane(v, chromaWidth, chromaWidth, frameHeight, out + 2 * plane, width, width, height,
                           libyuv::kFilterBox);
    }

    size_t OutputBytes() const { return factor == 1 ? framePixels * 2 : framePixels / factor / factor * 3; }

private:
    uint32_t factor;
    std::vector<uint8_t> full;  // the full-size 4:2:2 planes
};

#endif

#ifdef FRAMEFEED_BENCH_OPENCV

void OpenCvArea(uint32_t factor, uint8_t* small) {
    const cv::Mat mono(frameHeight, frameWidth, CV_8UC1, const_cast<uint8_t*>(MonoFrame().data()));
    const cv::Size size(frameWidth / int(factor), frameHeight / int(factor));
    cv::Mat out(size, CV_8UC1, small);
    cv::resize(mono, out, size, 0, 0, cv::INTER_AREA);
}

#endif

// ---- Benchmarks -------------------------------------------------------------------------------------------

void BitPackerBenchmark(benchmark::State& state, const std::string& name, Depth depth, Cache cache,
                        LevelCase level) {
    const ForcedLevel forced(level.level);
    BitPacker stage;
    if (!InitBitPacker(stage, depth.bits)) {
        state.SkipWithError("BitPacker refused the format");
        return;
    }
    const std::vector<uint8_t>& frame = DeepFrame(depth.bits);
    std::vector<uint8_t> bytes(stage.OutputSize());
    stage.Process(frame.data(), bytes.data(), nullptr);
    outputFingerprints.Note(std::string("BitPacker/") + depth.name + "/" + level.name, bytes.data(), bytes.size());
    TimeAgainstMemcpy(state, name, cache, frame, stage.OutputSize(),
                      [&](const uint8_t* in, uint8_t* out) { stage.Process(in, out, nullptr); });
}

void PlainLoopBenchmark(benchmark::State& state, const std::string& name, Cache cache) {
    const std::vector<uint8_t>& frame = DeepFrame(16);
    const auto shift = [](const uint8_t* in, uint8_t* out) {
        PlainShift16To8(reinterpret_cast<const uint16_t*>(in), out, framePixels);
    };
    std::vector<uint8_t> bytes(framePixels);
    shift(frame.data(), bytes.data());
    outputFingerprints.Note("BitPacker/16to8/plain", bytes.data(), bytes.size());
    TimeAgainstMemcpy(state, name, cache, frame, framePixels, shift);
}

void ScalerBenchmark(benchmark::State& state, const std::string& name, uint32_t factor, LevelCase level,
                     [[maybe_unused]] ScalerPeer peerKind) {
    const ForcedLevel forced(level.level);
    Scaler stage;
    if (!InitScaler(stage, factor)) {
        state.SkipWithError("Scaler refused the format");
        return;
    }
    const uint8_t* mono = MonoFrame().data();
    std::vector<uint8_t> small(stage.OutputSize());
    std::vector<uint8_t> peerSmall(stage.OutputSize());
    stage.Process(mono, small.data(), nullptr);
    outputFingerprints.Note("Scaler/" + std::to_string(factor) + "/" + level.name, small.data(), small.size());
    FrameFunction peer;
#ifdef FRAMEFEED_BENCH_LIBYUV
    if (peerKind == ScalerPeer::LibyuvBox) peer = [&](uint64_t) { LibyuvBox(mono, factor, peerSmall.data()); };
#endif
#ifdef FRAMEFEED_BENCH_OPENCV
    if (peerKind == ScalerPeer::OpenCvArea) peer = [&](uint64_t) { OpenCvArea(factor, peerSmall.data()); };
#endif
    TimeTurns(state, name, 0, [&](uint64_t) { stage.Process(mono, small.data(), nullptr); }, peer);
}

void PlanerBenchmark(benchmark::State& state, const std::string& name, uint32_t factor, LevelCase level) {
    const ForcedLevel forced(level.level);
    YUVPlaner stage;
    if (!InitPlaner(stage, factor, false)) {
        state.SkipWithError("YUVPlaner refused the format");
        return;
    }
    const uint8_t* packed = UyvyFrame().data();
    std::vector<uint8_t> planes(stage.OutputSize());
    stage.Process(packed, planes.data(), nullptr);
    outputFingerprints.Note("YUVPlaner/uyvy8/" + std::to_string(factor) + "/" + level.name, planes.data(),
                            planes.size());
    FrameFunction peer;
#ifdef FRAMEFEED_BENCH_LIBYUV
    LibyuvPlaner planer(factor);
    std::vector<uint8_t> peerPlanes(planer.OutputBytes());
    peer = [&](uint64_t) { planer(packed, peerPlanes.data()); };
#endif
    TimeTurns(state, name, 0, [&](uint64_t) { stage.Process(packed, planes.data(), nullptr); }, peer);
}

// The 10-bit path with the 8-bit one as its peer: the same frame, the same binning, twice the bytes read and an
// unpacking pass.
void Planer10Benchmark(benchmark::State& state, const std::string& name, uint32_t factor, LevelCase level) {
    const ForcedLevel forced(level.level);
    YUVPlaner tenBit;
    YUVPlaner eightBit;
    if (!InitPlaner(tenBit, factor, true) || !InitPlaner(eightBit, factor, false)) {
        state.SkipWithError("YUVPlaner refused the format");
        return;
    }
    const uint8_t* packed10 = Uyvy10Frame().data();
    const uint8_t* packed8 = UyvyFrame().data();
    std::vector<uint8_t> planes10(tenBit.OutputSize());
    std::vector<uint8_t> planes8(eightBit.OutputSize());
    tenBit.Process(packed10, planes10.data(), nullptr);
    outputFingerprints.Note("YUVPlaner/uyvy10/" + std::to_string(factor) + "/" + level.name, planes10.data(),
                            planes10.size());
    TimeTurns(
        state, name, 0, [&](uint64_t) { tenBit.Process(packed10, planes10.data(), nullptr); },
        [&](uint64_t) { eightBit.Process(packed8, planes8.data(), nullptr); });
}

// ---- Agreement with the peers -----------------------------------------------------------------------------

[[maybe_unused]] double MeanDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    if (a.size() != b.size() || a.empty()) return -1;
    uint64_t sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += uint64_t(std::abs(int(a[i]) - int(b[i])));
    return double(sum) / double(a.size());
}

// Mean absolute difference of each peer's output from the stage's at the natural level, as a check that both
// sides do the same job on the same frame: libyuv's box and the stage round alike except at 16, where the stage
// reads half of the rows; the libyuv chain rounds twice when binning.
void PrintPeerAgreement() {
    std::printf("mean |peer - FrameFeed| per sample:");
#if !defined(FRAMEFEED_BENCH_LIBYUV) && !defined(FRAMEFEED_BENCH_OPENCV)
    std::printf(" no peers built in");
#else
    for (uint32_t factor : scalerFactors) {
        Scaler stage;
        if (!InitScaler(stage, factor)) continue;
        std::vector<uint8_t> ours(stage.OutputSize()), theirs(stage.OutputSize());
        stage.Process(MonoFrame().data(), ours.data(), nullptr);
        std::printf(" Scaler/%u", factor);
#ifdef FRAMEFEED_BENCH_LIBYUV
        LibyuvBox(MonoFrame().data(), factor, theirs.data());
        std::printf(" libyuv %.3f", MeanDifference(ours, theirs));
#endif
#ifdef FRAMEFEED_BENCH_OPENCV
        OpenCvArea(factor, theirs.data());
        std::printf(" opencv %.3f", MeanDifference(ours, theirs));
#endif
        std::printf(";");
    }
#endif
#ifdef FRAMEFEED_BENCH_LIBYUV
    for (uint32_t factor : planerFactors) {
        YUVPlaner stage;
        LibyuvPlaner planer(factor);
        if (!InitPlaner(stage, factor, false)) continue;
        std::vector<uint8_t> ours(stage.OutputSize()), theirs(planer.OutputBytes());
        stage.Process(UyvyFrame().data(), ours.data(), nullptr);
        planer(UyvyFrame().data(), theirs.data());
        std::printf(" YUVPlaner/%u libyuv %.3f;", factor, MeanDifference(ours, theirs));
    }
#endif
    std::printf("\n");
}

// Checks of the bench's own frames through the scalar forms: BitPacker gives the Mono frame back from every depth,
// and the 10-bit UYVY path bins to what the 8-bit one does.
void PrintFrameChecks() {
    benchsupport::Check check;
    for (const Depth& depth : depths) {
        const std::string name = std::string("BitPacker/") + depth.name + "/scalar";
        const uint64_t* found = outputFingerprints.Find(name);
        if (found == nullptr) continue;
        ++check.compared;
        if (*found != benchsupport::Fingerprint(MonoFrame().data(), framePixels)) check.failed.push_back(name);
    }
    for (uint32_t factor : planerFactors) {
        const std::string suffix = "/" + std::to_string(factor) + "/scalar";
        const uint64_t* tenBit = outputFingerprints.Find("YUVPlaner/uyvy10" + suffix);
        const uint64_t* eightBit = outputFingerprints.Find("YUVPlaner/uyvy8" + suffix);
        if (tenBit == nullptr || eightBit == nullptr) continue;
        ++check.compared;
        if (*tenBit != *eightBit) check.failed.push_back("YUVPlaner/uyvy10" + suffix);
    }
    check.Print("deep and 10-bit frames give the 8-bit results back");
    std::printf("\n");
}

// ---- Summary ----------------------------------------------------------------------------------------------

std::vector<Comparison> comparisons;

void PrintSummary() {
    benchsupport::PrintComparisons(comparisons, measurements, 46, true);

    // Every level's output against the scalar form's of the same case.
    std::printf("\n");
    outputFingerprints.AgainstLevel(levelCases[0].name)
        .Print("wide forms' and the plain loop's output equal to the scalar form's");
    std::printf("\n");
    PrintFrameChecks();
    PrintPeerAgreement();
    std::printf("each row's sides taken in turns frame by frame, ratio the median of the runs' ratios; BitPacker's\n"
                "peer is memcpy moving the bytes the stage reads and writes per frame; cold: %zu MiB of buffers per\n"
                "rotation, last-level cache read as %llu MiB\n",
                benchsupport::ColdRotationBytes() >> 20,
                static_cast<unsigned long long>(benchsupport::LastLevelCacheBytes() >> 20));
#ifdef FRAMEFEED_BENCH_LIBYUV
    std::printf("libyuv peers built in;");
#else
    std::printf("libyuv not built in: no libyuv figures;");
#endif
#ifdef FRAMEFEED_BENCH_OPENCV
    std::printf(" OpenCV %s, one thread\n", CV_VERSION);
#else
    std::printf(" OpenCV not built in: no OpenCV figures\n");
#endif
}

// ---- Registration -----------------------------------------------------------------------------------------

std::vector<LevelCase> LevelsFor(int32_t naturalLevel) {
    return benchsupport::LevelsWidestFirst(levelCases, naturalLevel);
}

using benchsupport::TargetAt;

void AddPairedRow(const std::string& label, const std::string& name, double target, double bytesPerPixel = 0) {
    comparisons.push_back(benchsupport::PairedRow(label, name, target, bytesPerPixel));
}

void RegisterBitPacker(const std::vector<LevelCase>& levels) {
    for (Cache cache : {Cache::Warm, Cache::Cold}) {
        for (const Depth& depth : depths) {
            const std::string prefix = std::string("BitPacker/") + depth.name + "/" + CacheName(cache) + "/";
            const std::string labelPrefix = std::string("BitPacker ") + depth.label + " " + CacheName(cache) + " ";
            const double bytes = BytesMovedPerPixel(depth.bits);
            for (const LevelCase& level : levels) {
                Register(prefix + level.name, BitPackerBenchmark, depth, cache, level);
                AddPairedRow(labelPrefix + level.name + " / memcpy", prefix + level.name,
                             TargetAt(level, depth.target), bytes);
            }
            if (depth.bits != 16) continue;
            const std::string plainName = prefix + "plain";
            Register(plainName, PlainLoopBenchmark, cache);
            AddPairedRow(std::string("plain 16->8 loop ") + CacheName(cache) + " / memcpy", plainName, 0, bytes);
            // Each side from its own run next to memcpy: a comparison only.
            for (const LevelCase& level : levels)
                comparisons.push_back({labelPrefix + level.name + " / plain loop", prefix + level.name + "/ours",
                                       plainName + "/ours", 0, "", bytes});
        }
    }
}

// Without a peer built in, a row's benchmark times FrameFeed alone and the peer's columns stay empty.
void RegisterScaler(const std::vector<LevelCase>& levels) {
    struct PeerCase {
        ScalerPeer peer;
        const char* name;
        const char* label;
    };
    const PeerCase peers[] = {{ScalerPeer::LibyuvBox, "libyuv_box", "libyuv box"},
                              {ScalerPeer::OpenCvArea, "opencv_area", "OpenCV area"}};
    for (uint32_t factor : scalerFactors) {
        const std::string prefix = "Scaler/" + std::to_string(factor) + "/";
        for (const LevelCase& level : levels) {
            for (const PeerCase& peer : peers) {
                const double target = peer.peer == ScalerPeer::LibyuvBox ? (factor <= 4 ? 1.0 : factor == 8 ? 2.0 : 0)
                                                                         : (factor == 16 ? 10.0 : 0);
                const std::string name = prefix + level.name + "/" + peer.name;
                Register(name, ScalerBenchmark, factor, level, peer.peer);
                AddPairedRow("Scaler /" + std::to_string(factor) + " " + level.name + " / " + peer.label, name,
                             TargetAt(level, target));
            }
        }
    }
}

void RegisterPlaner(const std::vector<LevelCase>& levels) {
    for (uint32_t factor : planerFactors) {
        const std::string scale = std::to_string(factor);
        const double target = factor == 1 ? 1.0 : factor == 2 ? 2.0 : 3.0;
        for (const LevelCase& level : levels) {
            const std::string name = "YUVPlaner/uyvy8/" + scale + "/" + level.name + "/libyuv";
            Register(name, PlanerBenchmark, factor, level);
            const std::string peerLabel = factor == 1 ? "libyuv UYVYToI422" : "libyuv UYVYToI422+box";
            AddPairedRow("YUVPlaner /" + scale + " " + level.name + " / " + peerLabel, name, TargetAt(level, target));
        }
    }
    for (uint32_t factor : {2u, 4u}) {
        const std::string scale = std::to_string(factor);
        for (const LevelCase& level : levels) {
            const std::string name = "YUVPlaner/uyvy10/" + scale + "/" + level.name + "/uyvy8";
            Register(name, Planer10Benchmark, factor, level);
            AddPairedRow("YUVPlaner 10-bit /" + scale + " " + level.name + " / 8-bit", name,
                         factor == 2 ? TargetAt(level, 0.5) : 0);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
#ifdef FRAMEFEED_BENCH_OPENCV
    cv::setNumThreads(1);
#endif
    const std::vector<LevelCase> levels = LevelsFor(PxChooseRow(PxFeatureMask()));
    RegisterBitPacker(levels);
    RegisterScaler(levels);
    RegisterPlaner(levels);
    benchmark::RunSpecifiedBenchmarks();
    PrintSummary();
    benchmark::Shutdown();
    return 0;
}
