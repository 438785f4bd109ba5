// preview and demo: frames through real streams, written as JPEG or PNG.
#include "Commands.h"
#include "Frames.h"
#include "Host.h"
#include "Image.h"
#include "ToolError.h"

#include <framefeed/framefeed.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#if defined(_WIN32)
#include <windows.h>
#endif

namespace fs = std::filesystem;

namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

fs::path ExecutableFolder() {
#if defined(_WIN32)
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return {};
    return fs::path(path).parent_path();
#else
    std::error_code error;
    const fs::path path = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path() : path.parent_path();
#endif
}

// The sample image: installed beside the tool's share folder, next to it, or in the source tree it was built from.
fs::path FindSample() {
    std::vector<fs::path> candidates;
    const fs::path folder = ExecutableFolder();
    if (!folder.empty()) {
        candidates.push_back(folder / ".." / "share" / "framefeed" / "sample.png");
        candidates.push_back(folder / "sample.png");
    }
#if defined(FRAMEFEED_SAMPLE_IMAGE)
    candidates.push_back(fs::u8path(FRAMEFEED_SAMPLE_IMAGE));
#endif
    std::string tried;
    for (const fs::path& candidate : candidates) {
        std::error_code error;
        if (fs::is_regular_file(candidate, error)) return candidate.lexically_normal();
        tried += "\n  " + candidate.u8string();
    }
    throw ToolError("the sample image is missing; looked for:" + tried);
}

// Image sides the stages take: a width that is a multiple of 16 and a height that is a multiple of twice the
// scale, so every plane of the scaled output has whole rows.
void FitImage(const Image& image, uint32_t scale, FrameLayout& layout) {
    layout.width = image.width / 16 * 16;
    layout.height = image.height / (2 * scale) * (2 * scale);
    if (layout.width == 0 || layout.height == 0)
        throw ToolError("the image is " + std::to_string(image.width) + "x" + std::to_string(image.height) +
                        "; at scale " + std::to_string(scale) + " it must be at least 16x" + std::to_string(2 * scale));
}

std::string Milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", seconds * 1000);
    return text;
}

// The stream's output as the file it is written to: the JPEG as delivered, raw output as a PNG.
void WriteOutput(const StreamOutcome& outcome, const std::string& path) {
    if (outcome.jpeg) {
        WriteFile(path, outcome.payload.data(), outcome.payload.size());
    } else {
        WritePng(path, DecodeFrame(outcome.payload.data(), outcome.payload.size(), outcome.output));
    }
}

std::string Refusal(const StreamOutcome& outcome) {
    std::string text = "the stream refused this request";
    for (const std::string& line : outcome.log) text += "\n  " + line;
    return text;
}

}  // namespace

void ParseSize(const std::string& text, const std::string& option, uint32_t& width, uint32_t& height) {
    unsigned long w = 0, h = 0;
    char tail = 0;
    const std::string lower = Lower(text);
    if (std::sscanf(lower.c_str(), "%lux%lu%c", &w, &h, &tail) != 2 || w == 0 || h == 0 || w > 65535 || h > 65535)
        throw UsageError(option + " '" + text + "': expected WIDTHxHEIGHT such as 1920x1080, each 1 to 65535");
    width = uint32_t(w);
    height = uint32_t(h);
}

void CheckScale(uint32_t scale) {
    if (scale != 1 && scale != 2 && scale != 4 && scale != 8 && scale != 16)
        throw UsageError("unsupported --scale " + std::to_string(scale) + "; valid scales: 1, 2, 4, 8, 16");
}

int RunPreview(const PreviewOptions& options) {
    CheckScale(options.scale);
    if (!(options.quality >= 0 && options.quality <= 1))
        throw UsageError("--quality " + std::to_string(options.quality) + " is outside 0 to 1");
    if (options.frames == 0) throw UsageError("--frames must be at least 1");
    StreamRequest request;
    request.scale = options.scale;
    request.demosaic = ParseDemosaic(options.demosaic);
    request.jpeg = !options.rawOutput;
    request.quality = float(options.quality);
    request.keepHighBpp = options.keepHighBpp;
    request.frames = options.frames;

    std::string output = options.output;
    const std::string extension = request.jpeg ? ".jpg" : ".png";
    if (output.empty()) {
        output = fs::u8path(options.input).stem().u8string() + "-preview" + extension;
    } else {
        const std::string given = Lower(fs::u8path(output).extension().u8string());
        const bool fits = request.jpeg ? given == ".jpg" || given == ".jpeg" : given == ".png";
        if (!fits)
            throw UsageError("-o " + output + ": " +
                             (request.jpeg ? "a JPEG stream writes .jpg (add --raw-output for a PNG)"
                                           : "raw output is written as .png"));
    }

    FrameLayout& layout = request.input;
    layout.bitDepth = options.depth;
    std::vector<uint8_t> frame;
    if (!options.raw.empty()) {
        if (options.format.empty()) throw UsageError("--raw needs --format NAME; valid formats: " + FormatNames());
        if (!options.as.empty())
            throw UsageError(
                "--as turns an image into a sensor's frame; the layout of a raw frame is given by --format");
        ParseSize(options.raw, "--raw", layout.width, layout.height);
        layout.format = ParseFormatName(options.format, "--format");
        layout.bitsPerPixel = options.bpp ? options.bpp : DefaultBitsPerPixel(layout.format, layout.bitDepth);
        CheckLayout(layout);
        frame = ReadFile(options.input);
        if (frame.size() != FrameBytes(layout))
            throw ToolError(options.input + " has " + std::to_string(frame.size()) + " bytes, but a " + options.raw +
                            " " + FormatName(layout.format) + " frame at depth " + std::to_string(layout.bitDepth) +
                            " with " + std::to_string(layout.bitsPerPixel) + " bits per pixel has " +
                            std::to_string(FrameBytes(layout)));
    } else {
        if (!options.format.empty())
            throw UsageError("--format describes a raw frame (with --raw WIDTHxHEIGHT); for an image use --as");
        if (options.bpp != 0 && options.depth <= 8) throw UsageError("--bpp needs --depth above 8");
        layout.format = ParseFormatName(options.as.empty() ? "rggb" : options.as, "--as");
        layout.bitsPerPixel = options.bpp ? options.bpp : DefaultBitsPerPixel(layout.format, layout.bitDepth);
        CheckLayout(layout);
        if (!LooksLikeImage(options.input))
            throw ToolError(options.input +
                            " is not a PNG, PPM or PGM image; for a raw frame give --raw WIDTHxHEIGHT "
                            "--format NAME");
        const Image image = ReadImage(options.input);
        FitImage(image, options.scale, layout);
        if (layout.width != image.width || layout.height != image.height)
            std::printf("image %ux%u, cut to %ux%u for the stages\n", image.width, image.height, layout.width,
                        layout.height);
        frame = MakeFrame(image, layout);
    }

    KeepLogLines();
    const StreamOutcome outcome = RunStream(request, frame);
    if (!outcome.built) throw ToolError(Refusal(outcome));
    WriteOutput(outcome, output);

    for (const std::string& line : outcome.log) std::printf("log: %s\n", line.c_str());
    std::printf("chain: %s\n", outcome.chain.c_str());
    std::printf("time per frame: %s (%u frame%s)\n", Milliseconds(outcome.secondsPerFrame).c_str(), options.frames,
                options.frames == 1 ? "" : "s, the first left out");
    std::printf("wrote %s: %ux%u %s, %zu bytes\n", output.c_str(), outcome.output.width, outcome.output.height,
                outcome.jpeg ? "JPEG" : "PNG of the raw output", outcome.payload.size());
    return 0;
}

int RunDemo(const DemoOptions& options) {
    struct Run {
        const char* file;
        uint32_t format;
        int32_t depth;
        uint32_t scale;
        uint32_t demosaic;
        bool jpeg;
    };
    const Run runs[] = {
        {"bayer12-scale2.jpg", PixelFormat::BayerRGGB, 12, 2, 0, true},
        {"uyvy.jpg", PixelFormat::UYVY, 8, 1, 0, true},
        {"uyvy10-scale2.jpg", PixelFormat::UYVY, 10, 2, 0, true},
        {"yuv420p-scale2.jpg", PixelFormat::YUV420P, 8, 2, 0, true},
        {"mono10-raw.png", PixelFormat::Mono, 10, 1, 0, false},
        {"bayer-DeBayerLQ.jpg", PixelFormat::BayerRGGB, 8, 1, 0, true},
        {"bayer-HA.jpg", PixelFormat::BayerRGGB, 8, 1, 1, true},
        {"bayer-LPAICIa.jpg", PixelFormat::BayerRGGB, 8, 1, 2, true},
        {"bayer-MLRI.jpg", PixelFormat::BayerRGGB, 8, 1, 3, true},
    };
    const fs::path sample = FindSample();
    const Image image = ReadImage(sample.u8string());
    const fs::path folder = fs::u8path(options.folder);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw ToolError("cannot create the folder " + options.folder + ": " + error.message());

    std::printf("sample %s (%ux%u) into %s/\n", sample.u8string().c_str(), image.width, image.height,
                options.folder.c_str());
    KeepLogLines();
    int status = 0;
    for (const Run& run : runs) {
        StreamRequest request;
        request.input.format = run.format;
        request.input.bitDepth = run.depth;
        request.input.bitsPerPixel = DefaultBitsPerPixel(run.format, run.depth);
        FitImage(image, run.scale, request.input);
        request.scale = run.scale;
        request.demosaic = run.demosaic;
        request.jpeg = run.jpeg;
        request.quality = 0.85f;
        request.frames = 3;
        const StreamOutcome outcome = RunStream(request, MakeFrame(image, request.input));
        if (!outcome.built) {
            // A demosaicking choice that has not landed yet is refused by the stream: the demo says so and goes on.
            const bool pending = run.demosaic != 0;
            if (!pending) status = 1;
            std::printf("%-20s %s\n", run.file,
                        pending ? (std::string(DemosaicName(run.demosaic)) + ": not available in this build").c_str()
                                : Refusal(outcome).c_str());
            continue;
        }
        const std::string path = (folder / run.file).u8string();
        WriteOutput(outcome, path);
        std::printf("%-20s %9s/frame  %s\n", run.file, Milliseconds(outcome.secondsPerFrame).c_str(),
                    outcome.chain.c_str());
    }
    std::printf("open %s/ to see the results\n", options.folder.c_str());
    return status;
}
