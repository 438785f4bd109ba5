// Throughput of the plane toolkit of the residual algorithms on one thread, on 2048 x 2048 planes:
//   BoxSum          double planes, windows from 3 x 3 to 69 x 33, whose running sums should keep the cost per
//                   element independent of the window; and the row parity shortcut on planes that hold data on
//                   one row parity only, taken in turns with the same plane summed with parity 0;
//   MeanFilter3x3   a float plane, next to OpenCV's blur 3 x 3 with replicated borders;
//   ProductToDouble two float planes into a double plane, next to memcpy moving the bytes it reads and writes.
// A table of the ratios and their targets follows Google Benchmark's report. Without OpenCV its column stays empty.
//
//   framefeed_toolkit_bench --benchmark_min_time=0.5
#include "BenchFrames.h"
#include "BenchSupport.h"

#include "demosaic/BoxSum.h"
#include "demosaic/FilterKit.h"
#include "demosaic/SiteMasks.h"

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
#include <string>
#include <vector>

namespace {

using benchsupport::Comparison;
using benchsupport::FrameFunction;
using benchsupport::Register;

constexpr uint32_t planeWidth = 2048;
constexpr uint32_t planeHeight = 2048;
constexpr size_t planeElements = size_t(planeWidth) * planeHeight;
constexpr double megapixelsPerPlane = double(planeElements) / 1e6;

struct Window {
    uint32_t width, height;
    std::string Name() const { return std::to_string(width) + "x" + std::to_string(height); }
};
const Window windows[] = {{3, 3}, {9, 9}, {33, 33}, {69, 33}};

benchsupport::MeasurementLog measurements;
std::vector<Comparison> comparisons;

// ---- Data -------------------------------------------------------------------------------------------------

// A camera-like plane in raw 8-bit units, as the residual algorithms hold them.
const std::vector<float>& FloatPlane() {
    static const std::vector<float> plane = [] {
        std::vector<float> pixels(planeElements);
        for (uint32_t y = 0; y < planeHeight; ++y)
            for (uint32_t x = 0; x < planeWidth; ++x)
                pixels[size_t(y) * planeWidth + x] = benchframes::ShapedScene(int(x), int(y), 1, planeWidth, planeHeight);
        return pixels;
    }();
    return plane;
}

// The float plane widened, with the rows of one parity zeroed for a parity above 0 (odd rows) or below 0 (even
// rows): the promise the shortcut rests on.
std::vector<double> DoublePlane(int32_t parity) {
    std::vector<double> plane(FloatPlane().begin(), FloatPlane().end());
    if (parity != 0)
        for (uint32_t y = parity > 0 ? 1 : 0; y < planeHeight; y += 2)
            std::fill_n(plane.begin() + ptrdiff_t(y) * planeWidth, planeWidth, 0.0);
    return plane;
}

// ---- BoxSum -----------------------------------------------------------------------------------------------

// A plane holding data on the rows `dataParity` names, summed in place with `sumParity`; its input is restored
// untimed before every call.
class BoxSumCase {
public:
    BoxSumCase(int32_t dataParity, int32_t sumParity) : source(DoublePlane(dataParity)), parity(sumParity) {
        image.Resize(planeWidth, planeHeight);
    }

    void Restore() { std::memcpy(image.data, source.data(), planeElements * sizeof(double)); }
    void Run(Window window) { BoxSum(ring, image, window.width, window.height, parity); }
    const double* Result() const { return image.data; }

private:
    const std::vector<double> source;
    const int32_t parity;
    BoxRing ring;
    ImageBuffer64 image;
};

void BoxSumBenchmark(benchmark::State& state, const std::string& name, Window window) {
    BoxSumCase plain(0, 0);
    benchsupport::TimeTurns(
        state, measurements, name, {megapixelsPerPlane, 0}, {"ours", "ours"}, [&](uint64_t) { plain.Run(window); },
        {"peer", "peer"}, FrameFunction(), [&](uint64_t, bool) { plain.Restore(); });
}

// The shortcut against parity 0 on the same data, so the ratio shows what the promise saves.
void ParityBenchmark(benchmark::State& state, const std::string& name, Window window, int32_t parity) {
    BoxSumCase shortcut(parity, parity), plain(parity, 0);
    plain.Restore();
    plain.Run(window);
    shortcut.Restore();
    shortcut.Run(window);
    if (std::memcmp(plain.Result(), shortcut.Result(), planeElements * sizeof(double)) != 0) {
        state.SkipWithError("the row parity shortcut changed the sums");
        return;
    }
    benchsupport::TimeTurns(
        state, measurements, name, {megapixelsPerPlane, 0}, {"parity", "ours"},
        [&](uint64_t) { shortcut.Run(window); }, {"parity 0", "peer"}, [&](uint64_t) { plain.Run(window); },
        [&](uint64_t, bool oursTurn) { (oursTurn ? shortcut : plain).Restore(); });
}

// ---- MeanFilter3x3 ----------------------------------------------------------------------------------------

#ifdef FRAMEFEED_BENCH_OPENCV
void OpenCvBlur(const float* src, float* dst) {
    const cv::Mat in(int(planeHeight), int(planeWidth), CV_32F, const_cast<float*>(src));
    cv::Mat out(int(planeHeight), int(planeWidth), CV_32F, dst);
    cv::blur(in, out, cv::Size(3, 3), cv::Point(-1, -1), cv::BORDER_REPLICATE);
}
#endif

void MeanBenchmark(benchmark::State& state, const std::string& name) {
    ImageBuffer32 src, dst;
    src.Resize(planeWidth, planeHeight);
    std::copy(FloatPlane().begin(), FloatPlane().end(), src.data);
    FilterScratch scratch;
    MeanFilter3x3(scratch, dst, src);
    FrameFunction peer;
#ifdef FRAMEFEED_BENCH_OPENCV
    std::vector<float> peerDst(planeElements);
    OpenCvBlur(src.data, peerDst.data());
    double most = 0;
    for (size_t i = 0; i < planeElements; ++i) most = std::max(most, std::fabs(double(peerDst[i]) - dst.data[i]));
    if (most > 1e-3) {
        state.SkipWithError("MeanFilter3x3 and OpenCV's blur disagree");
        return;
    }
    peer = [&](uint64_t) { OpenCvBlur(src.data, peerDst.data()); };
#endif
    benchsupport::TimeTurns(state, measurements, name, {megapixelsPerPlane, 0}, {"ours", "ours"},
                            [&](uint64_t) { MeanFilter3x3(scratch, dst, src); }, {"OpenCV", "peer"}, peer);
}

// ---- ProductToDouble --------------------------------------------------------------------------------------

// memcpy copies half the bytes the product moves (8 read, 8 written per element), so both read and write the same
// total.
void ProductBenchmark(benchmark::State& state, const std::string& name) {
    const std::vector<float>& a = FloatPlane();
    std::vector<float> b(a.rbegin(), a.rend());
    std::vector<double> product(planeElements);
    const size_t copyBytes = planeElements * 8;
    std::vector<uint8_t> copySource(copyBytes, 1), copyDestination(copyBytes, 0);
    ProductToDouble(product.data(), a.data(), b.data(), uint32_t(planeElements));
    std::memcpy(copyDestination.data(), copySource.data(), copyBytes);
    benchsupport::TimeTurns(
        state, measurements, name, {megapixelsPerPlane, double(copyBytes) * 2 / 1e9}, {"ours", "ours"},
        [&](uint64_t) { ProductToDouble(product.data(), a.data(), b.data(), uint32_t(planeElements)); },
        {"memcpy", "peer"}, [&](uint64_t) { std::memcpy(copyDestination.data(), copySource.data(), copyBytes); });
}

// ---- Summary and registration -----------------------------------------------------------------------------

// The slowest window's rate against the fastest's.
void AddWindowSpread() {
    std::string slowest, fastest;
    double slowRate = 0, fastRate = 0;
    for (const Window& window : windows) {
        const std::string name = "BoxSum/" + window.Name() + "/ours";
        const double rate = measurements.Median(name);
        if (rate <= 0) continue;
        if (slowest.empty() || rate < slowRate) slowest = name, slowRate = rate;
        if (fastest.empty() || rate > fastRate) fastest = name, fastRate = rate;
    }
    if (slowest.empty()) return;
    // As a rate ratio, a time spread of at most 1.2 reads >= 1 / 1.2.
    comparisons.push_back({"BoxSum slowest / fastest window", slowest, fastest, 1 / 1.2});
}

void RegisterAll() {
    for (const Window& window : windows) {
        const std::string name = "BoxSum/" + window.Name();
        Register(name, BoxSumBenchmark, window);
        comparisons.push_back({"BoxSum " + window.Name() + " parity 0", name + "/ours", "", 0});
    }
    // A parity's time at most 60 % of parity 0's reads as a rate ratio of at least 1 / 0.6.
    const struct {
        Window window;
        int32_t parity;
    } parityCases[] = {{{3, 3}, 1}, {{9, 9}, 1}, {{9, 9}, -1}, {{33, 33}, 1}, {{69, 33}, -1}};
    for (const auto& c : parityCases) {
        const std::string parity = c.parity > 0 ? "even" : "odd";
        const std::string name = "BoxSumParity/" + c.window.Name() + "/" + parity;
        Register(name, ParityBenchmark, c.window, c.parity);
        comparisons.push_back(
            benchsupport::PairedRow("BoxSum " + c.window.Name() + " " + parity + " rows / parity 0", name, 1 / 0.6));
    }
    Register("MeanFilter3x3", MeanBenchmark);
    comparisons.push_back(benchsupport::PairedRow("MeanFilter3x3 / OpenCV blur 3x3", "MeanFilter3x3", 1.0));
    Register("ProductToDouble", ProductBenchmark);
    comparisons.push_back(benchsupport::PairedRow("ProductToDouble / memcpy", "ProductToDouble", 1 / 1.5, 16));
}

void PrintSummary() {
    AddWindowSpread();
    benchsupport::PrintComparisons(comparisons, measurements, 40, true);
    std::printf("\nrows taken in turns show the median of the runs' ratios; the parity rows set the shortcut against\n"
                "parity 0 on the same plane, the spread row the slowest window's rate against the fastest's; GB/s:\n"
                "bytes read + written; BoxSum works in place, its input is restored untimed before each call;");
#ifdef FRAMEFEED_BENCH_OPENCV
    std::printf(" OpenCV %s, one thread\n", CV_VERSION);
#else
    std::printf(" OpenCV not built in: no OpenCV figures\n");
#endif
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
#ifdef FRAMEFEED_BENCH_OPENCV
    cv::setNumThreads(1);
#endif
    RegisterAll();
    benchmark::RunSpecifiedBenchmarks();
    PrintSummary();
    benchmark::Shutdown();
    return 0;
}
