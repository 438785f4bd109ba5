// Throughput of a JPEG stream next to TurboJPEG called directly on the same 1080p frame.
//
// For 8-bit Mono, RGB, RGBX and planar YUV input the stream's chain is the compressor alone, so
// whatever separates the two figures is the stream's own overhead: locking, the buffer pool, the
// callback and the buffer's return. Each format runs its stream and its direct peer back to back,
// then both taking turns frame by frame; a table of the ratios follows Google Benchmark's report.
//
//   framefeed_jpeg_bench --benchmark_min_time=1 --benchmark_repetitions=5 --benchmark_report_aggregates_only
#include "BenchFrames.h"
#include "BenchSupport.h"

#include <framefeed/framefeed.h>

#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int frameWidth = 1920;
constexpr int frameHeight = 1080;
constexpr double megapixelsPerFrame = double(frameWidth) * frameHeight / 1e6;
constexpr float streamQuality = 0.75f;
constexpr int directQuality = 75;  // the encoder quality the stream derives from 0.75
constexpr int directFlags = TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT;

struct FormatCase {
    const char* name;
    uint32_t format;
    uint32_t bitsPerPixel;
    int packedLayout;  // TurboJPEG pixel format of packed input; -1 for planar YUV
    int subsampling;
};

// The subsampling of each packed format is the one the stream's compressor chooses for it.
const FormatCase formatCases[] = {
    {"Mono", PixelFormat::Mono, 8, TJPF_GRAY, TJSAMP_GRAY},
    {"RGB", PixelFormat::RGB, 24, TJPF_RGB, TJSAMP_420},
    {"RGBX", PixelFormat::RGBX, 32, TJPF_RGBX, TJSAMP_420},
    {"YUV420P", PixelFormat::YUV420P, 12, -1, TJSAMP_420},
    {"YUV422P", PixelFormat::YUV422P, 16, -1, TJSAMP_422},
    {"YUV444P", PixelFormat::YUV444P, 24, -1, TJSAMP_444},
};

// ---- Frame content ----------------------------------------------------------------------------

// Slow gradients and a soft bright blob with light noise: camera-like, neither too easy nor too hard to encode.
uint8_t Scene(int x, int y, int channel) { return benchframes::GradientScene(x, y, channel, frameWidth, frameHeight); }

std::vector<uint8_t> MakeFrame(const FormatCase& c) {
    std::vector<uint8_t> frame;
    if (c.packedLayout >= 0) {
        const int channels = tjPixelSize[c.packedLayout];
        frame.resize(size_t(frameWidth) * frameHeight * channels);
        uint8_t* p = frame.data();
        for (int y = 0; y < frameHeight; ++y)
            for (int x = 0; x < frameWidth; ++x)
                for (int ch = 0; ch < channels; ++ch) *p++ = ch < 3 ? Scene(x, y, ch) : 255;
        return frame;
    }
    // Planar YUV, planes back to back with no row padding, as the stream expects them.
    frame.resize(tjBufSizeYUV2(frameWidth, 1, frameHeight, c.subsampling));
    uint8_t* p = frame.data();
    for (int plane = 0; plane < 3; ++plane) {
        const int planeWidth = tjPlaneWidth(plane, frameWidth, c.subsampling);
        const int planeHeight = tjPlaneHeight(plane, frameHeight, c.subsampling);
        for (int y = 0; y < planeHeight; ++y) {
            for (int x = 0; x < planeWidth; ++x) {
                const uint8_t level = Scene(x * frameWidth / planeWidth, y * frameHeight / planeHeight, plane);
                // Chroma of natural scenes stays near neutral.
                *p++ = plane == 0 ? level : uint8_t(128 + (level - 128) / 3);
            }
        }
    }
    return frame;
}

const std::vector<uint8_t>& FrameFor(const FormatCase& c) {
    static std::map<uint32_t, std::vector<uint8_t>> frames;
    auto found = frames.find(c.format);
    if (found == frames.end()) found = frames.emplace(c.format, MakeFrame(c)).first;
    return found->second;
}

// ---- The direct peer ----------------------------------------------------------------------------

class DirectEncoder {
public:
    DirectEncoder() : handle(tjInitCompress()), output(tjBufSize(frameWidth, frameHeight, TJSAMP_444)) {}
    ~DirectEncoder() {
        if (handle != nullptr) tjDestroy(handle);
    }
    DirectEncoder(const DirectEncoder&) = delete;
    DirectEncoder& operator=(const DirectEncoder&) = delete;

    bool Ready() const { return handle != nullptr; }

    // The JPEG size, or 0 when the encoder fails.
    unsigned long Encode(const FormatCase& c, const uint8_t* frame) {
        unsigned char* jpeg = output.data();
        unsigned long size = output.size();
        const int result =
            c.packedLayout >= 0
                ? tjCompress2(handle, frame, frameWidth, frameWidth * tjPixelSize[c.packedLayout], frameHeight,
                              c.packedLayout, &jpeg, &size, c.subsampling, directQuality, directFlags)
                : tjCompressFromYUV(handle, frame, frameWidth, 1, frameHeight, c.subsampling, &jpeg, &size,
                                    directQuality, directFlags);
        return result == 0 ? size : 0;
    }

    const uint8_t* Output() const { return output.data(); }

private:
    tjhandle handle;
    std::vector<uint8_t> output;
};

// ---- The stream's side ----------------------------------------------------------------------------

void SilentLog(uint32_t, const char*, ...) {}

uint64_t deliveredFrames = 0;
std::vector<uint8_t>* capturedJpeg = nullptr;  // set while one frame's bytes are wanted

// What a host that consumes frames at once does: look, then give the buffer straight back.
void ReturnAtOnce(OutputFrame* frame) {
    ++deliveredFrames;
    if (capturedJpeg != nullptr) {
        const uint8_t* jpeg = static_cast<const uint8_t*>(frame->data);
        capturedJpeg->assign(jpeg, jpeg + frame->header->payloadSize);
    }
    FrameFeedReturnBuffer(*frame);
}

// ---- Measurements for the summary -------------------------------------------------------------

// MPix/s, or for a paired benchmark the stream's speed relative to TurboJPEG's.
benchsupport::MeasurementLog measurements;
// Per format: did the stream deliver exactly the bytes TurboJPEG makes directly?
std::map<std::string, bool> sameJpeg;

std::string BenchmarkName(const FormatCase& c, const char* kind) { return std::string("JPEG/") + c.name + "/" + kind; }

void ReportThroughput(benchmark::State& state, const std::string& name, double seconds) {
    benchsupport::ReportThroughput(state, measurements, name, megapixelsPerFrame, seconds);
}

// ---- The benchmarks -------------------------------------------------------------------------------

// A stream set up as the host would for a full-size JPEG preview of the given raw format.
std::unique_ptr<Stream, FrameFeedStreamDeleter> OpenStream(const FormatCase& c) {
    std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(ReturnAtOnce));
    StreamConfig config{};
    config.format = c.format;
    config.bitDepth = 8;
    config.bitsPerPixel = c.bitsPerPixel;
    config.inputCompression = CompressionCode::Raw;
    config.width = frameWidth;
    config.height = frameHeight;
    StreamParameters parameters[4]{};
    parameters[0].scale = 1;
    parameters[0].compression = CompressionCode::Jpeg;
    parameters[0].quality = streamQuality;
    if (!stream->Init(1, &config, parameters, 0)) return nullptr;
    return stream;
}

void StreamBenchmark(benchmark::State& state, const FormatCase& c) {
    const std::vector<uint8_t>& frame = FrameFor(c);
    const uint32_t frameSize = static_cast<uint32_t>(frame.size());
    std::unique_ptr<Stream, FrameFeedStreamDeleter> stream = OpenStream(c);
    if (stream == nullptr) {
        state.SkipWithError("Init refused the stream");
        return;
    }

    // One frame outside the timing, to compare its bytes with the direct encoder's.
    std::vector<uint8_t> jpeg;
    capturedJpeg = &jpeg;
    const bool processed = stream->ProcessFrame(frame.data(), frameSize, 0, 0);
    capturedJpeg = nullptr;
    {
        DirectEncoder reference;
        const unsigned long referenceSize = reference.Encode(c, frame.data());
        sameJpeg[c.name] = processed && referenceSize == jpeg.size() &&
                           std::equal(jpeg.begin(), jpeg.end(), reference.Output());
    }

    const uint64_t deliveredBefore = deliveredFrames;
    uint64_t tag = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        ++tag;
        if (!stream->ProcessFrame(frame.data(), frameSize, tag, tag)) {
            state.SkipWithError("ProcessFrame dropped a frame");
            return;
        }
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (deliveredFrames - deliveredBefore != uint64_t(state.iterations())) {
        state.SkipWithError("a frame was not delivered");
        return;
    }
    state.counters["JPEG bytes"] = double(jpeg.size());
    ReportThroughput(state, BenchmarkName(c, "stream"), elapsed.count());
}

void DirectBenchmark(benchmark::State& state, const FormatCase& c) {
    const std::vector<uint8_t>& frame = FrameFor(c);
    DirectEncoder encoder;
    if (!encoder.Ready()) {
        state.SkipWithError("tjInitCompress failed");
        return;
    }
    unsigned long jpegSize = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        jpegSize = encoder.Encode(c, frame.data());
        if (jpegSize == 0) {
            state.SkipWithError(tjGetErrorStr());
            return;
        }
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    state.counters["JPEG bytes"] = double(jpegSize);
    ReportThroughput(state, BenchmarkName(c, "turbojpeg"), elapsed.count());
}

// Stream and direct encoder take turns frame by frame, so load from elsewhere on the machine falls on
// both alike. Separate runs can differ by ten percent on a busy machine; this ratio resolves one.
void PairedBenchmark(benchmark::State& state, const FormatCase& c) {
    const std::vector<uint8_t>& frame = FrameFor(c);
    const uint32_t frameSize = static_cast<uint32_t>(frame.size());
    std::unique_ptr<Stream, FrameFeedStreamDeleter> stream = OpenStream(c);
    DirectEncoder encoder;
    if (stream == nullptr || !encoder.Ready()) {
        state.SkipWithError("cannot set up stream and encoder");
        return;
    }
    using Clock = std::chrono::steady_clock;
    Clock::duration streamTime{};
    Clock::duration directTime{};
    bool streamFirst = true;  // alternated, so neither side always finds the caches as the other left them
    for (auto _ : state) {
        for (int turn = 0; turn < 2; ++turn) {
            const auto start = Clock::now();
            const bool ok = (turn == 0) == streamFirst ? stream->ProcessFrame(frame.data(), frameSize, 0, 0)
                                                       : encoder.Encode(c, frame.data()) != 0;
            ((turn == 0) == streamFirst ? streamTime : directTime) += Clock::now() - start;
            if (!ok) {
                state.SkipWithError("a frame failed");
                return;
            }
        }
        streamFirst = !streamFirst;
    }
    const double streamSeconds = std::chrono::duration<double>(streamTime).count();
    const double directSeconds = std::chrono::duration<double>(directTime).count();
    if (streamSeconds <= 0 || directSeconds <= 0) return;
    const double frames = double(state.iterations());
    state.counters["stream MPix/s"] = frames * megapixelsPerFrame / streamSeconds;
    state.counters["TurboJPEG MPix/s"] = frames * megapixelsPerFrame / directSeconds;
    state.counters["ratio"] = directSeconds / streamSeconds;
    measurements.File(BenchmarkName(c, "paired"), state.iterations(), directSeconds / streamSeconds);
}

void PrintSummary() {
    std::printf("\n%-10s %14s %17s %7s %13s %10s\n", "format", "stream MPix/s", "TurboJPEG MPix/s", "ratio",
                "paired ratio", "same JPEG");
    for (const FormatCase& c : formatCases) {
        const double stream = measurements.Median(BenchmarkName(c, "stream"));
        const double direct = measurements.Median(BenchmarkName(c, "turbojpeg"));
        const double paired = measurements.Median(BenchmarkName(c, "paired"));
        if (stream == 0 && direct == 0 && paired == 0) continue;  // filtered out
        const auto same = sameJpeg.find(c.name);
        std::printf("%-10s %14.1f %17.1f %7.3f %13.3f %10s\n", c.name, stream, direct,
                    direct > 0 ? stream / direct : 0.0, paired,
                    same == sameJpeg.end() ? "-" : (same->second ? "yes" : "NO"));
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!CreateStreamer(SilentLog)) {
        std::fprintf(stderr, "CreateStreamer failed\n");
        return 1;
    }
    // Stream and peer of one format run next to each other, so slow drift of the machine hits both alike.
    for (const FormatCase& c : formatCases) {
        benchmark::RegisterBenchmark(BenchmarkName(c, "stream").c_str(), StreamBenchmark, c)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark(BenchmarkName(c, "turbojpeg").c_str(), DirectBenchmark, c)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark(BenchmarkName(c, "paired").c_str(), PairedBenchmark, c)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    PrintSummary();
    benchmark::Shutdown();
    DestroyStreamer();
    return 0;
}
