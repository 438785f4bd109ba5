// Throughput of the array and filter primitives on one thread, at the AVX2 and the scalar processor level:
//   element-wise  add, multiply, divide and the float <-> double conversions on 4,194,304-element arrays, next to
//                 memcpy moving as many bytes as the primitive reads and writes;
//   general filter a 5 x 5 kernel over a 2048 x 2048 float plane with replicated borders, next to OpenCV's
//                 filter2D doing the same correlation;
//   box filter    masks from 3 x 3 to 65 x 65 on the same plane, whose running sums should make the cost per pixel
//                 nearly independent of the mask.
// Each case with a peer takes turns with it frame by frame, so that the noise of a shared machine falls on both. A
// table of the ratios and their targets follows Google Benchmark's report. Without OpenCV its columns stay empty.
//
//   framefeed_primitive_bench --benchmark_min_time=0.2
#include "BenchFrames.h"
#include "BenchSupport.h"

#include "primitives/ProcessorLevel.h"
#include "primitives/PxArray.h"
#include "primitives/PxFilter.h"

#include <benchmark/benchmark.h>

#ifdef FRAMEFEED_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using benchsupport::Comparison;
using benchsupport::ForcedLevel;
using benchsupport::FrameFunction;
using benchsupport::LevelCase;
using benchsupport::Register;

constexpr int32_t arrayLength = 4194304;
constexpr double megaElements = arrayLength / 1e6;

constexpr int planeWidth = 2048;
constexpr int planeHeight = 2048;
constexpr size_t planePixels = size_t(planeWidth) * planeHeight;
constexpr double megapixelsPerPlane = double(planePixels) / 1e6;
constexpr int32_t planeStep = planeWidth * int32_t(sizeof(float));

constexpr int kernelSide = 5;
constexpr int32_t boxSides[] = {3, 9, 33, 65};

// The scalar twins come first: every other level's output is checked against theirs.
const LevelCase levelCases[] = {{"scalar", PxLevelSse2}, {"avx2", PxLevelAvx2}};

benchsupport::MeasurementLog measurements;
benchsupport::OutputFingerprints outputFingerprints;

// ---- Data -------------------------------------------------------------------------------------------------

// Operands of the element-wise cases. Divisors stay away from zero and the out-of-place forms never feed their
// results back, so no run drifts into denormals or infinities that would time a slower path.
struct Arrays {
    std::vector<float> a32, b32, out32;
    std::vector<double> a64, b64, out64;
    std::vector<uint8_t> copySource, copyDestination;  // memcpy's side, sized for the widest case

    Arrays()
        : a32(arrayLength), b32(arrayLength), out32(arrayLength), a64(arrayLength), b64(arrayLength),
          out64(arrayLength), copySource(size_t(arrayLength) * 24, 1), copyDestination(size_t(arrayLength) * 24, 0) {
        for (int32_t i = 0; i < arrayLength; ++i) {
            a32[i] = 0.5f + float(i % 1021) / 97.0f;
            b32[i] = float(i % 3001) / 13.0f - 100.0f;
            a64[i] = a32[i];
            b64[i] = double(b32[i]) * 1.000001;
        }
    }
};

Arrays& TheArrays() {
    static Arrays arrays;
    return arrays;
}

// The scene's green channel scaled to [0, 1]: smooth gradients with edges, as a camera plane has.
const std::vector<float>& Plane() {
    static const std::vector<float> plane = [] {
        std::vector<float> pixels(planePixels);
        for (int y = 0; y < planeHeight; ++y)
            for (int x = 0; x < planeWidth; ++x)
                pixels[size_t(y) * planeWidth + x] =
                    benchframes::ShapedScene(x, y, 1, planeWidth, planeHeight) / 255.0f;
        return pixels;
    }();
    return plane;
}

// Not symmetric, so a filter that convolved instead of correlating, or placed the anchor wrongly, would disagree
// with OpenCV in the agreement line.
const std::vector<float>& Kernel() {
    static const std::vector<float> taps = [] {
        std::vector<float> k(kernelSide * kernelSide);
        float sum = 0;
        for (int j = 0; j < kernelSide; ++j)
            for (int i = 0; i < kernelSide; ++i) sum += k[j * kernelSide + i] = float(1 + i + 2 * j + (i * j) % 3);
        for (float& tap : k) tap /= sum;
        return k;
    }();
    return taps;
}

// ---- Element-wise primitives ------------------------------------------------------------------------------

struct ElementCase {
    const char* name;
    const char* label;
    size_t bytesRead;     // per element
    size_t bytesWritten;  // per element
    std::function<void(Arrays&)> run;
    std::function<const uint8_t*(const Arrays&)> output;
};

const uint8_t* Out32(const Arrays& a) { return reinterpret_cast<const uint8_t*>(a.out32.data()); }
const uint8_t* Out64(const Arrays& a) { return reinterpret_cast<const uint8_t*>(a.out64.data()); }

const std::vector<ElementCase>& ElementCases() {
    static const std::vector<ElementCase> cases = {
        {"Add_32f", "PxAdd_32f", 8, 4,
         [](Arrays& a) { PxAdd_32f(a.a32.data(), a.b32.data(), a.out32.data(), arrayLength); }, Out32},
        {"Mul_32f", "PxMul_32f", 8, 4,
         [](Arrays& a) { PxMul_32f(a.a32.data(), a.b32.data(), a.out32.data(), arrayLength); }, Out32},
        {"Div_64f", "PxDiv_64f", 16, 8,
         [](Arrays& a) { PxDiv_64f(a.a64.data(), a.b64.data(), a.out64.data(), arrayLength); }, Out64},
        {"Convert_32f64f", "PxConvert_32f64f", 4, 8,
         [](Arrays& a) { PxConvert_32f64f(a.b32.data(), a.out64.data(), arrayLength); }, Out64},
        {"Convert_64f32f", "PxConvert_64f32f", 8, 4,
         [](Arrays& a) { PxConvert_64f32f(a.b64.data(), a.out32.data(), arrayLength); }, Out32},
    };
    return cases;
}

// The primitive next to memcpy copying half the bytes the primitive moves from one buffer to another, so both read
// and write the same total. memcpy's MPix/s are the elements a primitive exactly as fast as memcpy would turn.
void ElementBenchmark(benchmark::State& state, const std::string& name, size_t caseIndex, LevelCase level) {
    const ForcedLevel forced(level.level);
    const ElementCase& c = ElementCases()[caseIndex];
    Arrays& arrays = TheArrays();
    const size_t outputBytes = size_t(arrayLength) * c.bytesWritten;
    const size_t copyBytes = size_t(arrayLength) * (c.bytesRead + c.bytesWritten) / 2;
    c.run(arrays);  // also brings the buffers in and settles the level's form
    outputFingerprints.Note(std::string(c.name) + "/" + level.name, c.output(arrays), outputBytes);
    std::memcpy(arrays.copyDestination.data(), arrays.copySource.data(), copyBytes);
    benchsupport::TimeTurns(
        state, measurements, name, {megaElements, double(copyBytes) * 2 / 1e9}, {"ours", "ours"},
        [&](uint64_t) { c.run(arrays); }, {"memcpy", "peer"},
        [&](uint64_t) { std::memcpy(arrays.copyDestination.data(), arrays.copySource.data(), copyBytes); });
}

// ---- General filter ---------------------------------------------------------------------------------------

// A 5 x 5 filter set up once; Run filters the whole plane with replicated borders.
class GeneralFilter {
public:
    GeneralFilter() {
        const PxSize kernel{kernelSide, kernelSide};
        int32_t specSize = 0, bufferSize = 0;
        ok = PxFilterBorderGetSize(kernel, roi, PxType32f, PxType32f, 1, &specSize, &bufferSize) == PxStatusOk;
        if (!ok) return;
        spec.resize(size_t(specSize));
        buffer.resize(size_t(bufferSize));
        ok = PxFilterBorderInit_32f(Kernel().data(), kernel, PxType32f, 1, 0,
                                    reinterpret_cast<PxFilterBorderSpec*>(spec.data())) == PxStatusOk;
    }

    bool Ok() const { return ok; }

    PxStatus Run(const float* src, float* dst) {
        return PxFilterBorder_32f(src, planeStep, dst, planeStep, roi, PxBorderReplicate, nullptr,
                                  reinterpret_cast<const PxFilterBorderSpec*>(spec.data()), buffer.data());
    }

private:
    const PxSize roi{planeWidth, planeHeight};
    std::vector<uint8_t> spec;
    std::vector<uint8_t> buffer;
    bool ok = false;
};

#ifdef FRAMEFEED_BENCH_OPENCV

void OpenCvFilter(const float* src, float* dst) {
    const cv::Mat in(planeHeight, planeWidth, CV_32F, const_cast<float*>(src));
    cv::Mat out(planeHeight, planeWidth, CV_32F, dst);
    const cv::Mat kernel(kernelSide, kernelSide, CV_32F, const_cast<float*>(Kernel().data()));
    cv::filter2D(in, out, CV_32F, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
}

#endif

void FilterBenchmark(benchmark::State& state, const std::string& name, LevelCase level) {
    const ForcedLevel forced(level.level);
    GeneralFilter filter;
    if (!filter.Ok()) {
        state.SkipWithError("PxFilterBorderInit_32f refused the kernel");
        return;
    }
    const float* src = Plane().data();
    std::vector<float> dst(planePixels);
    if (filter.Run(src, dst.data()) != PxStatusOk) {
        state.SkipWithError("PxFilterBorder_32f refused the plane");
        return;
    }
    FrameFunction peer;
#ifdef FRAMEFEED_BENCH_OPENCV
    std::vector<float> peerDst(planePixels);
    peer = [&](uint64_t) { OpenCvFilter(src, peerDst.data()); };
#endif
    benchsupport::TimeTurns(
        state, measurements, name, {megapixelsPerPlane, 0}, {"ours", "ours"},
        [&](uint64_t) { filter.Run(src, dst.data()); }, {"OpenCV", "peer"}, peer);
}

// ---- Box filter -------------------------------------------------------------------------------------------

void BoxBenchmark(benchmark::State& state, const std::string& name, int32_t side, LevelCase level) {
    const ForcedLevel forced(level.level);
    const PxSize roi{planeWidth, planeHeight};
    const PxSize mask{side, side};
    int32_t bufferSize = 0;
    if (PxFilterBoxBorderGetBufferSize(roi, mask, PxType32f, 1, &bufferSize) != PxStatusOk) {
        state.SkipWithError("PxFilterBoxBorderGetBufferSize refused the mask");
        return;
    }
    std::vector<uint8_t> buffer(static_cast<size_t>(bufferSize));
    std::vector<float> dst(planePixels);
    const float* src = Plane().data();
    const auto run = [&] {
        return PxFilterBoxBorder_32f(src, planeStep, dst.data(), planeStep, roi, mask, PxBorderReplicate, nullptr,
                                     buffer.data());
    };
    if (run() != PxStatusOk) {
        state.SkipWithError("PxFilterBoxBorder_32f refused the plane");
        return;
    }
    benchsupport::TimeTurns(state, measurements, name, {megapixelsPerPlane, 0}, {"ours", "ours"},
                            [&](uint64_t) { run(); }, {"peer", "peer"}, FrameFunction());
}

// ---- Agreement --------------------------------------------------------------------------------------------

double MaxDifference(const std::vector<float>& a, const std::vector<float>& b) {
    double most = 0;
    for (size_t i = 0; i < a.size(); ++i) most = std::max(most, std::fabs(double(a[i]) - double(b[i])));
    return most;
}

// The general filter's output at each level against the scalar form's and OpenCV's. The wide form fuses multiply
// and add, so it may differ in the last bits; a misplaced tap or border would differ by a visible fraction of the
// [0, 1] range. Also checks one replicated corner pixel against the definition directly.
void PrintFilterAgreement(int32_t naturalLevel) {
    std::vector<float> scalar(planePixels), wide(planePixels);
    {
        const ForcedLevel forced(PxLevelSse2);
        GeneralFilter filter;
        if (!filter.Ok() || filter.Run(Plane().data(), scalar.data()) != PxStatusOk) return;
    }
    std::printf("general filter, max |difference|:");
    if (naturalLevel >= PxLevelAvx2) {
        const ForcedLevel forced(PxLevelAvx2);
        GeneralFilter filter;
        if (filter.Ok() && filter.Run(Plane().data(), wide.data()) == PxStatusOk)
            std::printf(" avx2 vs scalar %.2g;", MaxDifference(wide, scalar));
    }
#ifdef FRAMEFEED_BENCH_OPENCV
    std::vector<float> peer(planePixels);
    OpenCvFilter(Plane().data(), peer.data());
    std::printf(" OpenCV vs scalar %.2g;", MaxDifference(peer, scalar));
#endif
    // The corner reads rows and columns -2 and -1 as row and column 0.
    double corner = 0;
    const std::vector<float>& k = Kernel();
    for (int j = 0; j < kernelSide; ++j)
        for (int i = 0; i < kernelSide; ++i)
            corner += double(k[j * kernelSide + i]) *
                      Plane()[size_t(std::max(0, j - 2)) * planeWidth + size_t(std::max(0, i - 2))];
    std::printf(" scalar corner vs direct sum %.2g\n", std::fabs(corner - scalar[0]));
}

// ---- Summary ----------------------------------------------------------------------------------------------

std::vector<Comparison> comparisons;

// Box filter timings per mask, and a row comparing the slowest mask with the fastest.
void AddBoxSpread(const std::string& levelName) {
    std::string slowest, fastest;
    double slowRate = 0, fastRate = 0;
    for (int32_t side : boxSides) {
        const std::string name = "Box/" + std::to_string(side) + "/" + levelName + "/ours";
        const double rate = measurements.Median(name);
        if (rate <= 0) continue;
        if (slowest.empty() || rate < slowRate) slowest = name, slowRate = rate;
        if (fastest.empty() || rate > fastRate) fastest = name, fastRate = rate;
    }
    if (slowest.empty()) return;
    std::printf("box filter %s spread over masks, slowest / fastest time: %.3f (target <= 1.20)\n",
                levelName.c_str(), fastRate / slowRate);
    // As a rate ratio the target reads >= 1 / 1.2.
    comparisons.push_back({"Box " + levelName + " slowest / fastest mask", slowest, fastest, 1 / 1.2});
}

void PrintSummary(int32_t naturalLevel) {
    std::printf("\n");
    AddBoxSpread(naturalLevel >= PxLevelAvx2 ? "avx2" : "scalar");
    benchsupport::PrintComparisons(comparisons, measurements, 44, true);
    std::printf("\n");
    outputFingerprints.AgainstLevel(levelCases[0].name).Print("element-wise wide forms' output equal to scalar's");
    std::printf("\n");
    PrintFilterAgreement(naturalLevel);
    std::printf("each row's sides taken in turns, ratio the median of the runs' ratios; element-wise MPix/s count\n"
                "millions of elements, their peer is memcpy moving the bytes the primitive reads and writes (GB/s:\n"
                "bytes read + written); the box spread row sets the slowest mask's rate against the fastest's;");
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

void RegisterElementWise(const std::vector<LevelCase>& levels) {
    const std::vector<ElementCase>& cases = ElementCases();
    for (size_t i = 0; i < cases.size(); ++i) {
        for (const LevelCase& level : levels) {
            const std::string name = std::string("Element/") + cases[i].name + "/" + level.name;
            Register(name, ElementBenchmark, i, level);
            AddPairedRow(std::string(cases[i].label) + " " + level.name + " / memcpy", name,
                         TargetAt(level, 1 / 1.3), double(cases[i].bytesRead + cases[i].bytesWritten));
        }
    }
}

void RegisterFilters(const std::vector<LevelCase>& levels) {
    for (const LevelCase& level : levels) {
        const std::string name = std::string("Filter/5x5/") + level.name;
        Register(name, FilterBenchmark, level);
        AddPairedRow(std::string("PxFilterBorder 5x5 ") + level.name + " / filter2D", name, TargetAt(level, 2.0));
    }
    const LevelCase& widest = levels.front();
    for (int32_t side : boxSides) {
        const std::string size = std::to_string(side) + "x" + std::to_string(side);
        const std::string name = "Box/" + std::to_string(side) + "/" + widest.name;
        Register(name, BoxBenchmark, side, widest);
        comparisons.push_back({"PxFilterBoxBorder " + size + " " + widest.name, name + "/ours", "", 0});
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
#ifdef FRAMEFEED_BENCH_OPENCV
    cv::setNumThreads(1);
#endif
    const int32_t naturalLevel = PxChooseRow(PxFeatureMask());
    const std::vector<LevelCase> levels = LevelsFor(naturalLevel);
    RegisterElementWise(levels);
    RegisterFilters(levels);
    benchmark::RunSpecifiedBenchmarks();
    PrintSummary(naturalLevel);
    benchmark::Shutdown();
    return 0;
}
