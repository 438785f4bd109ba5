// The tool's commands. Each returns the exit status and throws ToolError for a bad argument or a failure,
// before it has written anything.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct PreviewOptions {
    std::string input;
    std::string output;  // empty: the input's name with .jpg or .png, in the current folder
    std::string raw;     // WIDTHxHEIGHT of a raw frame file; empty for an image
    std::string format;  // of a raw frame
    std::string as;      // the sensor an image is turned into; empty: rggb
    int32_t depth = 8;
    uint32_t bpp = 0;  // 0: the sensor's usual layout for the depth
    uint32_t scale = 1;
    std::string demosaic = "lq";
    double quality = 0.75;
    bool rawOutput = false;
    bool keepHighBpp = false;
    uint32_t frames = 10;
};
int RunPreview(const PreviewOptions& options);

struct DemoOptions {
    std::string folder = "framefeed-demo";
};
int RunDemo(const DemoOptions& options);

struct BenchOptions {
    bool force = false;
};
int RunBench(const BenchOptions& options);

struct EstimateOptions {
    std::string size = "1920x1080";
    std::string format = "rggb";
    int32_t depth = 8;
    uint32_t scale = 1;
    std::string demosaic = "lq";
    bool rawOutput = false;
    bool keepHighBpp = false;
    double fps = 30;
};
int RunEstimate(const EstimateOptions& options);

struct CompareOptions {
    std::vector<std::string> images;
    std::string output = "framefeed-compare.png";
    std::string bayer = "rggb";
    uint32_t crop = 96;
    uint32_t zoom = 2;
};
int RunCompare(const CompareOptions& options);

// "1920x1080" into its two numbers; throws a usage error naming the option.
void ParseSize(const std::string& text, const std::string& option, uint32_t& width, uint32_t& height);
// Scale 1, 2, 4, 8 or 16; throws a usage error otherwise.
void CheckScale(uint32_t scale);
