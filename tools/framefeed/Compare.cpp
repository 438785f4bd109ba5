// compare: every demosaicking algorithm on mosaicked images, by CPSNR and time, with a contact sheet.
#include "Commands.h"
#include "Frames.h"
#include "Host.h"
#include "Image.h"
#include "Progress.h"
#include "ToolError.h"
#include "demosaic/NewDeBayer.h"

#include <framefeed/framefeed.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace fs = std::filesystem;

namespace {

constexpr uint32_t borderPixels = 10;  // left out of CPSNR on every side
constexpr uint32_t minimumSide = 32;
constexpr uint32_t sheetGap = 4;
constexpr uint8_t sheetBackground = 40;

struct Algorithm {
    const char* name;
    uint32_t selector;  // of NewDeBayer
    ImageFormat out;
};

// In the order of the table: the fast stage, then the high-quality ones.
const Algorithm algorithms[] = {
    {"DeBayerLQ", 0, {PixelFormat::RGB, 8, 24}}, {"HA", 1, {PixelFormat::RGBX, 8, 32}},
    {"LPAICIa", 2, {PixelFormat::RGBX, 8, 32}},  {"MLRI", 4, {PixelFormat::RGBX, 8, 32}},
    {"ARI", 3, {PixelFormat::RGBX, 8, 32}},
};
constexpr size_t algorithmCount = sizeof(algorithms) / sizeof(algorithms[0]);

struct Source {
    std::string name;
    Image rgb;  // cut to a width that is a multiple of 16 and an even height
};

struct Result {
    bool done = false;
    double cpsnr = 0;
    double seconds = 0;
    Image crop;
};

std::unique_ptr<ImageProcessing> MakeStage(const Algorithm& algorithm, uint32_t bayer, uint32_t width,
                                           uint32_t height) {
    const ImageFormat in{bayer, 8, 8};
    return std::unique_ptr<ImageProcessing>(
        NewDeBayer(width, height, &in, &algorithm.out, 1, algorithm.selector, nullptr));
}

// PSNR over R, G and B together, peak 255, without the border.
double Cpsnr(const Image& original, const std::vector<uint8_t>& output, uint32_t bytesPerPixel) {
    uint64_t squaredErrors = 0;
    for (uint32_t y = borderPixels; y < original.height - borderPixels; ++y)
        for (uint32_t x = borderPixels; x < original.width - borderPixels; ++x) {
            const uint8_t* expected = original.Pixel(x, y);
            const uint8_t* actual = &output[(size_t(y) * original.width + x) * bytesPerPixel];
            for (int c = 0; c < 3; ++c) {
                const int difference = int(expected[c]) - int(actual[c]);
                squaredErrors += uint64_t(difference * difference);
            }
        }
    const double samples = 3.0 * (original.width - 2 * borderPixels) * (original.height - 2 * borderPixels);
    const double mse = double(squaredErrors) / samples;
    return mse == 0 ? INFINITY : 10 * std::log10(255.0 * 255.0 / mse);
}

Image ToImage(const std::vector<uint8_t>& output, uint32_t width, uint32_t height, uint32_t bytesPerPixel) {
    FrameLayout layout{bytesPerPixel == 3 ? uint32_t(PixelFormat::RGB) : uint32_t(PixelFormat::RGBX), 8,
                       bytesPerPixel * 8, width, height};
    return DecodeFrame(output.data(), output.size(), layout);
}

void Paste(Image& sheet, const Image& part, uint32_t left, uint32_t top, uint32_t zoom) {
    for (uint32_t y = 0; y < part.height * zoom; ++y)
        for (uint32_t x = 0; x < part.width * zoom; ++x) {
            const uint8_t* from = part.Pixel(x / zoom, y / zoom);
            std::copy(from, from + 3, &sheet.pixels[((size_t(top) + y) * sheet.width + left + x) * 3]);
        }
}

std::string Cell(double value) {
    char text[32];
    std::snprintf(text, sizeof text, std::isinf(value) ? "inf" : "%.2f", value);
    return text;
}

}  // namespace

int RunCompare(const CompareOptions& options) {
    const uint32_t bayer = ParseFormatName(options.bayer, "--bayer");
    if (bayer < PixelFormat::BayerRGGB || bayer > PixelFormat::BayerGBRG)
        throw UsageError("--bayer " + options.bayer + " is not a Bayer order; valid: rggb, grbg, bggr, gbrg");
    if (options.crop < 8) throw UsageError("--crop must be at least 8 pixels");
    if (options.zoom < 1 || options.zoom > 8) throw UsageError("--zoom must be 1 to 8");
    {
        const std::string given = fs::u8path(options.output).extension().u8string();
        if (given != ".png" && given != ".PNG")
            throw UsageError("-o " + options.output + ": the contact sheet is a .png");
    }

    // Every image is read before any work, so a bad one stops the command with nothing written.
    std::vector<Source> sources;
    for (const std::string& path : options.images) {
        const Image image = ToRgb(ReadImage(path));
        const uint32_t width = image.width / 16 * 16, height = image.height / 2 * 2;
        if (width < minimumSide || height < minimumSide)
            throw ToolError(path + " is " + std::to_string(image.width) + "x" + std::to_string(image.height) +
                            "; compare needs at least " + std::to_string(minimumSide) + "x" +
                            std::to_string(minimumSide));
        sources.push_back({fs::u8path(path).stem().u8string(), Crop(image, 0, 0, width, height)});
    }

    KeepLogLines();
    bool available[algorithmCount];
    size_t availableCount = 0;
    for (size_t a = 0; a < algorithmCount; ++a) {
        available[a] = MakeStage(algorithms[a], bayer, 64, 64) != nullptr;
        availableCount += available[a];
    }
    TakeLogLines();

    uint32_t crop = options.crop;
    for (const Source& source : sources) crop = std::min({crop, source.rgb.width, source.rgb.height});
    std::vector<std::vector<Result>> results(sources.size(), std::vector<Result>(algorithmCount));
    std::vector<std::string> refusals;
    {
        Progress progress(sources.size() * availableCount);
        std::vector<uint8_t> mosaic, output;
        for (size_t i = 0; i < sources.size(); ++i) {
            const Image& rgb = sources[i].rgb;
            const FrameLayout layout{bayer, 8, 8, rgb.width, rgb.height};
            mosaic = MakeFrame(rgb, layout);
            for (size_t a = 0; a < algorithmCount; ++a) {
                if (!available[a]) continue;
                progress.Step(sources[i].name + ": " + algorithms[a].name);
                std::unique_ptr<ImageProcessing> stage = MakeStage(algorithms[a], bayer, rgb.width, rgb.height);
                if (!stage) {
                    for (const std::string& line : TakeLogLines())
                        refusals.push_back(sources[i].name + ", " + algorithms[a].name + ": " + line);
                    continue;
                }
                output.assign(stage->OutputSize(), 0);
                const auto start = std::chrono::steady_clock::now();
                stage->Process(mosaic.data(), output.data(), nullptr);
                Result& result = results[i][a];
                result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                const uint32_t bytesPerPixel = algorithms[a].out.bitsPerPixel / 8;
                result.cpsnr = Cpsnr(rgb, output, bytesPerPixel);
                result.crop = Crop(ToImage(output, rgb.width, rgb.height, bytesPerPixel), (rgb.width - crop) / 2,
                                   (rgb.height - crop) / 2, crop, crop);
                result.done = true;
            }
        }
    }

    // The sheet: one row per image, the original first, then each algorithm that ran.
    const uint32_t cell = crop * options.zoom;
    Image sheet;
    sheet.channels = 3;
    sheet.width = uint32_t(1 + availableCount) * (cell + sheetGap) + sheetGap;
    sheet.height = uint32_t(sources.size()) * (cell + sheetGap) + sheetGap;
    sheet.pixels.assign(size_t(sheet.width) * sheet.height * 3, sheetBackground);
    for (size_t i = 0; i < sources.size(); ++i) {
        const Image& rgb = sources[i].rgb;
        const uint32_t top = sheetGap + uint32_t(i) * (cell + sheetGap);
        Paste(sheet, Crop(rgb, (rgb.width - crop) / 2, (rgb.height - crop) / 2, crop, crop), sheetGap, top,
              options.zoom);
        uint32_t column = 1;
        for (size_t a = 0; a < algorithmCount; ++a) {
            if (!available[a]) continue;
            if (results[i][a].done)
                Paste(sheet, results[i][a].crop, sheetGap + column * (cell + sheetGap), top, options.zoom);
            ++column;
        }
    }
    WritePng(options.output, sheet);

    size_t nameWidth = 9;
    for (const Source& source : sources) nameWidth = std::max(nameWidth, std::min<size_t>(source.name.size(), 16));
    std::printf("CPSNR in dB of a %s mosaic, %u-pixel border left out; time of one frame per megapixel\n\n",
                FormatTitle(bayer).c_str(), borderPixels);
    std::printf("%-10s", "Algorithm");
    for (const Source& source : sources) std::printf(" %*s", int(nameWidth), source.name.substr(0, 16).c_str());
    std::printf(" %9s %9s\n", "mean", "ms/MPix");
    std::string columns = "original";
    for (size_t a = 0; a < algorithmCount; ++a) {
        std::printf("%-10s", algorithms[a].name);
        if (!available[a]) {
            std::printf(" not available\n");
            continue;
        }
        columns += std::string(", ") + algorithms[a].name;
        double sum = 0, milliseconds = 0;
        size_t count = 0;
        for (size_t i = 0; i < sources.size(); ++i) {
            const Result& result = results[i][a];
            std::printf(" %*s", int(nameWidth), result.done ? Cell(result.cpsnr).c_str() : "refused");
            if (!result.done) continue;
            sum += result.cpsnr;
            milliseconds += result.seconds * 1000 / (double(sources[i].rgb.width) * sources[i].rgb.height / 1e6);
            ++count;
        }
        if (count == 0) {
            std::printf(" %9s %9s\n", "-", "-");
        } else {
            std::printf(" %9s %9.2f\n", Cell(sum / double(count)).c_str(), milliseconds / double(count));
        }
    }
    for (const std::string& refusal : refusals) std::printf("refused: %s\n", refusal.c_str());
    std::printf("\ncontact sheet: %s (columns: %s; one row per image; centre crops of %ux%u, zoom %u)\n",
                options.output.c_str(), columns.c_str(), crop, crop, options.zoom);
    return 0;
}
