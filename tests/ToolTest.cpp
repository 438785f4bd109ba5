// The framefeed tool end to end: the built program is run on small files it is given, and its outputs, messages
// and exit status are checked as a user would see them.
#include "TestSupport.h"

#include "perf/PerfTable.h"
#include "perf/VersionStamp.h"

#include <gtest/gtest.h>
#include <png.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Picture {
    uint32_t width = 0, height = 0, channels = 0;
    std::vector<uint8_t> pixels;
    const uint8_t* At(uint32_t x, uint32_t y) const { return &pixels[(size_t(y) * width + x) * channels]; }
};

struct Outcome {
    int status = -1;
    std::string out, err;
};

// Four flat quadrants, so colours survive demosaicking, binning and chroma subsampling away from the seams.
const uint8_t quadrantColours[4][3] = {{200, 40, 40}, {40, 180, 60}, {50, 60, 200}, {220, 220, 220}};

Picture Quadrants(uint32_t width, uint32_t height) {
    Picture picture{width, height, 3, std::vector<uint8_t>(size_t(width) * height * 3)};
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            std::memcpy(&picture.pixels[(size_t(y) * width + x) * 3],
                        quadrantColours[(y >= height / 2) * 2 + (x >= width / 2)], 3);
    return picture;
}

// Fine luminance detail in rings that tighten outwards, with chroma that varies slowly across it.
Picture ZonePlate(uint32_t side) {
    Picture picture{side, side, 3, std::vector<uint8_t>(size_t(side) * side * 3)};
    const double centre = side / 2.0;
    for (uint32_t y = 0; y < side; ++y)
        for (uint32_t x = 0; x < side; ++x) {
            const double r2 = (x - centre) * (x - centre) + (y - centre) * (y - centre);
            const double luma = 128 + 70 * std::sin(0.0009 * r2 * 3.14 * 4);
            const double rgb[3] = {luma + 40 * std::sin(x * 0.15), luma, luma + 40 * std::cos(y * 0.13)};
            for (int c = 0; c < 3; ++c)
                picture.pixels[(size_t(y) * side + x) * 3 + c] =
                    uint8_t(std::lround(std::fmin(255, std::fmax(0, rgb[c]))));
        }
    return picture;
}

void WritePng(const fs::path& path, const Picture& picture) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = picture.width;
    png.height = picture.height;
    png.format = picture.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    ASSERT_TRUE(png_image_write_to_file(&png, path.c_str(), 0, picture.pixels.data(), 0, nullptr)) << png.message;
}

void WritePpm(const fs::path& path, const Picture& picture) {
    std::ofstream file(path, std::ios::binary);
    file << "P6\n# made by the test\n" << picture.width << " " << picture.height << "\n255\n";
    file.write(reinterpret_cast<const char*>(picture.pixels.data()), std::streamsize(picture.pixels.size()));
}

bool ReadPng(const fs::path& path, Picture& picture) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return false;
    picture.width = png.width;
    picture.height = png.height;
    picture.channels = (png.format & PNG_FORMAT_FLAG_COLOR) ? 3 : 1;
    png.format = picture.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    picture.pixels.resize(PNG_IMAGE_SIZE(png));
    return png_image_finish_read(&png, nullptr, picture.pixels.data(), 0, nullptr) != 0;
}

bool ReadJpeg(const fs::path& path, Picture& picture) {
    std::ifstream file(path, std::ios::binary);
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    tjhandle handle = tjInitDecompress();
    int width = 0, height = 0, subsampling = 0, colourspace = 0;
    bool ok = tjDecompressHeader3(handle, bytes.data(), bytes.size(), &width, &height, &subsampling, &colourspace) == 0;
    if (ok) {
        picture = Picture{uint32_t(width), uint32_t(height), 3, std::vector<uint8_t>(size_t(width) * height * 3)};
        const int status =
            tjDecompress2(handle, bytes.data(), bytes.size(), picture.pixels.data(), width, 0, height, TJPF_RGB, 0);
        ok = status == 0;
    }
    tjDestroy(handle);
    return ok;
}

std::string Slurp(const fs::path& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::set<std::string> Listing(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
    return names;
}

// A cache file of these rates for the tool's own host stamp, in a folder of common application data. Test
// processes run side by side under CTest: each writes its own copy and renames it into place, so a tool never
// reads a half-written cache (which would make it measure the machine).
void WriteCache(const fs::path& programData, const PerfTable& table) {
    const fs::path server = programData / "Kolvane/Config/Server";
    fs::create_directories(server);
    const uint32_t stamp = VersionStampOf((fs::path(FRAMEFEED_TOOL_PATH).parent_path() / "ArchiveHost.exe").string());
    const std::vector<uint8_t> bytes = BenchmarkCacheBytes(stamp, table);
    const fs::path copy = server / ("FrameFeedPerf.bin." + std::to_string(getpid()));
    std::ofstream(copy, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    fs::rename(copy, server / "FrameFeedPerf.bin");
}

class Tool : public testing::Test {
protected:
    // One folder of common application data for all tests, with a cache of made-up rates, so no command ever
    // measures the machine.
    static void SetUpTestSuite() {
        const fs::path programData = fs::path(testing::TempDir()) / "framefeed-tool-programdata";
        setenv("PROGRAMDATA", programData.c_str(), 1);
        WriteCache(programData, MadeUpRates());
    }

    void SetUp() override {
        folder = fs::path(testing::TempDir()) /
                 (std::string("framefeed-tool-") + testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(folder);
        fs::create_directories(folder);
    }

    // Runs the tool in the test's folder; `environment` goes before the command, as in a shell.
    Outcome Run(const std::string& arguments, const std::string& environment = "") {
        const std::string command = "cd '" + folder.string() + "' && " + environment + " '" FRAMEFEED_TOOL_PATH "' " +
                                    arguments + " >stdout.txt 2>stderr.txt";
        const int raw = std::system(command.c_str());
        Outcome outcome;
        outcome.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        outcome.out = Slurp(folder / "stdout.txt");
        outcome.err = Slurp(folder / "stderr.txt");
        fs::remove(folder / "stdout.txt");
        fs::remove(folder / "stderr.txt");
        return outcome;
    }

    fs::path folder;
};

uint8_t Luma(const uint8_t* rgb) { return uint8_t(std::lround(0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2])); }

TEST_F(Tool, PreviewTurnsAnImageIntoEachSensorsFrameAndBack) {
    struct Case {
        const char* arguments;
        const char* output;
        uint32_t width, height, channels;
        int tolerance;  // per channel, at the centre of each quadrant
    };
    const Case cases[] = {
        {"--as rggb --raw-output", "out.png", 64, 32, 3, 2},
        {"--as gbrg --depth 12 --scale 2 --raw-output", "out.png", 32, 16, 3, 2},
        {"--as bggr --depth 10 --demosaic ha --raw-output", "out.png", 64, 32, 3, 2},
        {"--as grbg --depth 16 --scale 4", "out.jpg", 16, 8, 3, 12},
        {"--as mono --depth 10 --raw-output", "out.png", 64, 32, 1, 1},
        {"--as uyvy --raw-output", "out.png", 64, 32, 3, 3},
        {"--as yuyv --depth 10 --scale 2 --raw-output", "out.png", 32, 16, 3, 3},
        {"--as yuv420p --scale 2 --raw-output", "out.png", 32, 16, 3, 3},
        {"--as yuv444p --quality 0.95", "out.jpg", 64, 32, 3, 8},
        {"--as rgbx", "out.jpg", 64, 32, 3, 12},
    };
    const Picture picture = Quadrants(64, 32);
    WritePng(folder / "tiny.png", picture);
    WritePpm(folder / "tiny.ppm", picture);
    int index = 0;
    for (const Case& c : cases) {
        // Every other case reads the PPM copy of the picture.
        const std::string input = index++ % 2 ? "tiny.ppm" : "tiny.png";
        SCOPED_TRACE(input + " " + c.arguments);
        const Outcome outcome = Run("preview " + input + " " + c.arguments + " --frames 2 -o " + c.output);
        ASSERT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_NE(outcome.out.find("chain: "), std::string::npos) << outcome.out;
        EXPECT_NE(outcome.out.find("time per frame: "), std::string::npos) << outcome.out;
        Picture result;
        ASSERT_TRUE(std::string(c.output) == "out.png" ? ReadPng(folder / c.output, result)
                                                       : ReadJpeg(folder / c.output, result));
        ASSERT_EQ(result.width, c.width);
        ASSERT_EQ(result.height, c.height);
        ASSERT_EQ(result.channels, c.channels);
        for (int quadrant = 0; quadrant < 4; ++quadrant) {
            const uint32_t x = c.width / 4 + (quadrant % 2) * c.width / 2,
                           y = c.height / 4 + (quadrant / 2) * c.height / 2;
            const uint8_t* expected = quadrantColours[quadrant];
            const uint8_t* actual = result.At(x, y);
            if (c.channels == 1) {
                EXPECT_NEAR(actual[0], Luma(expected), c.tolerance) << "quadrant " << quadrant;
                continue;
            }
            for (int channel = 0; channel < 3; ++channel)
                EXPECT_NEAR(actual[channel], expected[channel], c.tolerance)
                    << "quadrant " << quadrant << " channel " << channel;
        }
        fs::remove(folder / c.output);
    }
}

// A raw 10-bit Mono frame as a sensor packs it (four samples in 5 bytes, least significant bit first) comes out as
// the top 8 bits of each sample.
TEST_F(Tool, PreviewReadsARawFrameFile) {
    const uint32_t width = 32, height = 16;
    std::vector<uint16_t> samples(width * height);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = uint16_t((i * 37 + 5) % 1024);
    const Bytes bytes = PackSamples(samples, 10);
    std::ofstream(folder / "frame.raw", std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));

    const Outcome outcome = Run("preview frame.raw --raw 32x16 --format mono --depth 10 --raw-output -o frame.png");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("BitPacker"), std::string::npos) << outcome.out;
    Picture result;
    ASSERT_TRUE(ReadPng(folder / "frame.png", result));
    ASSERT_EQ(result.width, width);
    ASSERT_EQ(result.height, height);
    ASSERT_EQ(result.channels, 1u);
    for (size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(result.pixels[i], samples[i] >> 2) << "sample " << i;
}

TEST_F(Tool, BadArgumentsAndFilesFailWithTheReasonAndWriteNothing) {
    struct Case {
        const char* arguments;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"preview tiny.png --as bayer -o out.jpg", 2,
         "unknown format 'bayer' for --as; valid formats: mono, rggb, grbg, bggr, gbrg, rgb, rgbx, uyvy, yuyv"},
        {"preview frame.raw --raw 32x16 --format rgbz -o out.png --raw-output", 2,
         "unknown format 'rgbz' for --format"},
        {"preview frame.raw --raw 32x16 --format mono --depth 10 --raw-output -o out.png", 1,
         "frame.raw has 100 bytes, but a 32x16 mono frame at depth 10 with 10 bits per pixel has 640"},
        {"preview frame.raw --raw 32by16 --format mono", 2, "--raw '32by16': expected WIDTHxHEIGHT"},
        {"preview frame.raw --raw 32x16 --format mono --as rggb", 2, "--as turns an image into a sensor's frame"},
        {"preview missing.png -o out.jpg", 1, "cannot read missing.png"},
        {"preview frame.raw -o out.jpg", 1, "frame.raw is not a PNG, PPM or PGM image"},
        {"preview tiny.png --scale 3 -o out.jpg", 2, "unsupported --scale 3; valid scales: 1, 2, 4, 8, 16"},
        {"preview tiny.png --demosaic best -o out.jpg", 2, "unknown --demosaic 'best'; valid choices: lq"},
        {"preview tiny.png --as rgb --depth 12 -o out.jpg", 2, "unsupported --depth 12 for rgb"},
        {"preview tiny.png --raw-output -o out.jpg", 2, "raw output is written as .png"},
        // The stream's own refusal, as the plug-in logged it.
        {"preview tiny.png --as rgb --scale 2 -o out.jpg", 1, "[3] Scaler: Unsupported pixel format (6)"},
        {"compare tiny.png missing.png -o sheet.png", 1, "cannot read missing.png"},
        {"estimate --format yuv422 ", 2, "unknown format 'yuv422' for --format"},
        {"estimate --size 0x10", 2, "--size '0x10': expected WIDTHxHEIGHT"},
    };
    WritePng(folder / "tiny.png", Quadrants(64, 32));
    std::ofstream(folder / "frame.raw", std::ios::binary).write(std::string(100, '\x11').data(), 100);
    const std::set<std::string> before = Listing(folder);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome outcome = Run(c.arguments);
        EXPECT_EQ(outcome.status, c.status) << outcome.err;
        EXPECT_NE(outcome.err.find(c.message), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(Listing(folder), before);
    }
}

// The figures the estimate must print for a cache of known rates: the chain the stream would build, stage by stage.
TEST_F(Tool, EstimateAddsTheStagesOfTheStreamFromTheCache) {
    PerfTable rates = MadeUpRates();
    struct Case {
        const char* arguments;
        double seconds;
    };
    const double hd = 1920.0 * 1080, vga = 640.0 * 480, wide = 1280.0 * 720;
    const Case cases[] = {
        {"--format rggb --depth 12 --scale 2",
         hd / rates.packRate(12) + hd / rates.fastDemosaicRate(2) + hd / 4 / rates.jpegRate(PixelFormat::BayerRGGB)},
        {"--size 640x480 --format mono --scale 4 --raw-output", vga / rates.monoScaleRate(4)},
        {"--size 1280x720 --format uyvy", wide / rates.yuvRate(1) + wide / rates.jpegRate(PixelFormat::UYVY)},
        {"--format bggr --demosaic ha --scale 2 --fps 25",
         hd / rates.qualityDemosaicRate(8, 2) + hd / 4 / rates.jpegRate(PixelFormat::BayerBGGR)},
        {"--format gbrg --depth 12 --demosaic lpaicia --keep-high-bpp",
         hd / rates.fastDemosaicRate(1) + hd / rates.jpegRate(PixelFormat::BayerGBRG)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome outcome = Run(std::string("estimate ") + c.arguments);
        ASSERT_EQ(outcome.status, 0) << outcome.err;
        const size_t at = outcome.out.find("seconds per frame: ");
        ASSERT_NE(at, std::string::npos) << outcome.out;
        const double seconds = std::strtod(outcome.out.c_str() + at + 19, nullptr);
        EXPECT_NEAR(seconds, double(float(c.seconds)), double(float(c.seconds)) * 1e-6);
        const double fps = std::strstr(c.arguments, "--fps 25") ? 25 : 30;
        char cameras[64];
        std::snprintf(cameras, sizeof cameras, "cameras at %g fps per core: %lld", fps,
                      (long long)std::floor(1.0 / double(float(c.seconds)) / fps));
        EXPECT_NE(outcome.out.find(cameras), std::string::npos) << outcome.out;
    }

    const Outcome noCache = Run("estimate", "PROGRAMDATA='" + (folder / "empty").string() + "'");
    EXPECT_EQ(noCache.status, 1);
    EXPECT_NE(noCache.err.find("run 'framefeed bench' first"), std::string::npos) << noCache.err;
}

// bench on a valid cache loads it without measuring and shows each cell under its own row and column: every cell
// of this cache holds its own index, in MPix/s, plus one half.
TEST_F(Tool, BenchShowsTheCachedFiguresCellByCell) {
    PerfTable table{};
    for (size_t i = 0; i < PerfTable::cellCount; ++i) table.cells[i] = i * 1000000 + 500000;
    const fs::path programData = folder / "programdata";
    WriteCache(programData, table);

    const Outcome outcome = Run("bench", "PROGRAMDATA='" + programData.string() + "'");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find("Benchmarking system..."), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.out.find("cache file: " + (programData / "Kolvane/Config/Server/FrameFeedPerf.bin").string()),
              std::string::npos)
        << outcome.out;

    // The figures after a row's label, in the order printed.
    const auto row = [&](const std::string& label) {
        std::vector<std::string> cells;
        std::istringstream lines(outcome.out);
        for (std::string line; std::getline(lines, line);) {
            const size_t at = line.find(label);
            if (at == std::string::npos) continue;
            std::istringstream words(line.substr(at + label.size()));
            for (std::string word; words >> word;) cells.push_back(word);
            break;
        }
        return cells;
    };
    const auto figure = [&](size_t cell) {
        return std::to_string(cell) + ".5";
    };
    EXPECT_EQ(row("Mono binning"), (std::vector<std::string>{figure(16 + 1), figure(16 + 2), figure(16 + 4),
                                                             figure(16 + 8), figure(16 + 16)}));
    EXPECT_EQ(row("Packed YUV 4:2:2 planing")[2], figure(33 + 4));
    EXPECT_EQ(row("Fast demosaicking (DeBayerLQ)")[4], figure(186 + 16));
    EXPECT_EQ(row("Quality demosaicking, 10-bit")[1], figure(322 + 10 * 17 + 2));
    EXPECT_EQ(row("Quality demosaicking, 12-bit")[0], figure(322 + 12 * 17 + 1));
}

// The demo needs no arguments: it finds its sample and writes one file per stream into the folder it names.
TEST_F(Tool, DemoRunsTheSampleThroughTypicalStreams) {
    const Outcome outcome = Run("demo -o results");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    struct Expected {
        const char* file;
        uint32_t width, height, channels;
    };
    const Expected files[] = {{"bayer12-scale2.jpg", 248, 250, 3}, {"uyvy.jpg", 496, 500, 3},
                              {"mono10-raw.png", 496, 500, 1},     {"bayer-DeBayerLQ.jpg", 496, 500, 3},
                              {"bayer-HA.jpg", 496, 500, 3}};
    for (const Expected& expected : files) {
        SCOPED_TRACE(expected.file);
        EXPECT_NE(outcome.out.find(expected.file), std::string::npos) << outcome.out;
        Picture result;
        const fs::path path = folder / "results" / expected.file;
        ASSERT_TRUE(path.extension() == ".png" ? ReadPng(path, result) : ReadJpeg(path, result));
        EXPECT_EQ(result.width, expected.width);
        EXPECT_EQ(result.height, expected.height);
        EXPECT_EQ(result.channels, expected.channels);
    }
}

// On rings of fine luminance detail with slowly changing colour, the algorithms rank as their methods promise.
TEST_F(Tool, CompareRanksTheAlgorithmsByCpsnr) {
    WritePng(folder / "rings.png", ZonePlate(96));
    const Outcome outcome = Run("compare rings.png -o sheet.png --crop 32 --zoom 2");
    ASSERT_EQ(outcome.status, 0) << outcome.err;

    // Rows: name, the image's CPSNR, the mean, ms/MPix; or name and "not available".
    std::map<std::string, double> cpsnr;
    size_t available = 0;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string name, first;
        words >> name >> first;
        if (name != "DeBayerLQ" && name != "HA" && name != "LPAICIa" && name != "MLRI" && name != "ARI") continue;
        if (first == "not") {
            EXPECT_NE(line.find("not available"), std::string::npos) << line;
            continue;
        }
        cpsnr[name] = std::strtod(first.c_str(), nullptr);
        ++available;
    }
    ASSERT_TRUE(cpsnr.count("DeBayerLQ") && cpsnr.count("HA")) << outcome.out;
    EXPECT_GT(cpsnr["HA"], cpsnr["DeBayerLQ"] + 3) << outcome.out;
    if (cpsnr.count("LPAICIa")) EXPECT_GT(cpsnr["LPAICIa"], cpsnr["HA"] + 1) << outcome.out;

    // The sheet: the original and each algorithm that ran, 64-pixel cells with 4-pixel gaps.
    Picture sheet;
    ASSERT_TRUE(ReadPng(folder / "sheet.png", sheet));
    EXPECT_EQ(sheet.width, (1 + available) * (64 + 4) + 4);
    EXPECT_EQ(sheet.height, 64u + 8);
}

}  // namespace
