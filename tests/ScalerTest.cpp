// Binning: block means and their rounding, the rows that are not read, the ends of rows and planes, refusals in
// order, and both kernel forms against a plain per-sample mean.
#include "TestSupport.h"

#include "primitives/ProcessorLevel.h"
#include "stages/Scaler.h"
#include "stream/StageCreators.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>

namespace {

using Bytes = std::vector<uint8_t>;
using Stage = std::unique_ptr<ImageProcessing>;

constexpr size_t guardBytes = 64;

uint32_t BitsPerPixel(uint32_t format) {
    return format == 18 ? 16 : format == 19 ? 24 : format >= 14 && format <= 17 ? 12 : 8;
}

Stage MakeScaler(uint32_t width, uint32_t height, uint32_t format, uint32_t scale) {
    const ImageFormat image{format, 8, BitsPerPixel(format)};
    return Stage(CreateStage<Scaler>(width, height, &image, &image, scale, 1, nullptr));
}

// One frame into an OutputSize buffer with guard bytes behind it; every byte starts out as 0xA5.
Bytes Bin(ImageProcessing& stage, const Bytes& in) {
    Bytes out(stage.OutputSize() + guardBytes, 0xA5);
    EXPECT_EQ(stage.Process(in.data(), out.data(), nullptr), stage.OutputSize());
    return out;
}

// The plain rule: each whole block's mean (at 16 of its even rows), halves up, at the planes' offsets; samples
// that would land past OutputSize are dropped.
Bytes Reference(const Bytes& in, uint32_t width, uint32_t height, uint32_t format, uint32_t f, uint32_t outputSize) {
    Bytes out(outputSize + guardBytes, 0xA5);
    const uint32_t wd = format == 19 ? 1 : format == 16 || format == 17 ? 4 : 2, hd = format <= 15 ? 2 : 1;
    const uint32_t luma = width * height, chroma = luma / wd / hd;
    struct Plane {
        uint32_t inOffset, width, height, outOffset;
    };
    std::vector<Plane> planes{{0, width, height, 0}};
    if (format != PixelFormat::Mono) {
        planes.push_back({luma, width / wd, height / hd, luma / f / f});
        planes.push_back({luma + chroma, width / wd, height / hd, (luma + chroma) / f / f});
    }
    const uint32_t rowStep = f == 16 ? 2 : 1, samples = f * f / rowStep;
    for (const Plane& p : planes) {
        for (uint32_t j = 0; j < p.height / f; ++j) {
            for (uint32_t i = 0; i < p.width / f; ++i) {
                uint32_t sum = 0;
                for (uint32_t y = j * f; y < j * f + f; y += rowStep)
                    for (uint32_t x = i * f; x < i * f + f; ++x) sum += in[p.inOffset + size_t(y) * p.width + x];
                const size_t index = p.outOffset + size_t(j) * (p.width / f) + i;
                if (index < outputSize) out[index] = uint8_t((sum + samples / 2) / samples);
            }
        }
    }
    return out;
}

TEST(ScalerTest, MeansRoundHalvesUpAndFlatPlanesStayFlat) {
    // Every block holds `count` samples of `value` in its read rows, the rest 0, and gives `mean`.
    const struct {
        uint32_t factor, count;
        uint8_t value, mean;
    } examples[] = {{2, 1, 1, 0},     {2, 2, 1, 1},     {4, 7, 1, 0},     {4, 8, 1, 1},      {8, 31, 1, 0},
                    {8, 32, 1, 1},    {16, 63, 1, 0},   {16, 64, 1, 1},   {2, 4, 255, 255},  {4, 16, 255, 255},
                    {8, 64, 255, 255}, {16, 128, 255, 255}, {16, 0, 0, 0}};
    const uint32_t width = 304;  // two wide steps, one 32-column slice and a tail for the twin at every factor
    ForEachForm([&] {
        for (const auto& example : examples) {
            const uint32_t f = example.factor, rowStep = f == 16 ? 2 : 1;
            Bytes plane(size_t(width) * f, 0);
            for (uint32_t n = 0; n < example.count; ++n)
                for (uint32_t block = 0; block < width / f; ++block)
                    plane[size_t(n / f * rowStep) * width + block * f + n % f] = example.value;
            const Bytes out = Bin(*MakeScaler(width, f, PixelFormat::Mono, f), plane);
            EXPECT_EQ(Bytes(out.begin(), out.begin() + width / f), Bytes(width / f, example.mean))
                << "factor " << f << ", " << example.count << " of " << int(example.value);
        }
    });
}

TEST(ScalerTest, Factor16ReadsOnlyTheEvenRowsOfABand) {
    ForEachForm([&] {
        Bytes plane = MakeFrame(176 * 64, 5);
        Stage stage = MakeScaler(176, 64, PixelFormat::Mono, 16);
        const Bytes original = Bin(*stage, plane);
        for (size_t i = 0; i < plane.size(); ++i) plane[i] ^= i / 176 % 2 == 1 ? 0xFF : 0;
        EXPECT_EQ(Bin(*stage, plane), original);
        plane[14 * 176 + 175] ^= 0xFF;
        EXPECT_NE(Bin(*stage, plane), original);
    });
}

// The guard bytes behind OutputSize and the gaps between planes must keep their 0xA5.
TEST(ScalerTest, BothFormsEqualThePlainMeanOverManySizesAndFormats) {
    struct Case {
        uint32_t width, height, format, factor;
    };
    std::vector<Case> cases = {
        {1040, 16, 1, 8},   // 130 samples per row, the last two from the twin
        {1936, 8, 14, 2},   // chroma planes 968 wide
        {1936, 8, 1, 4},    // 484 samples per row, the last four from the twin
        {1936, 16, 16, 4},  // chroma planes 484 wide
        {32, 46, 14, 16},   // the last sample of V would fall one byte past OutputSize
        {16, 10, 19, 8},
        {64, 1002, 1, 8},   // 125 rows; the last two input rows are not read
    };
    std::mt19937 random(2024);
    const uint32_t formats[] = {1, 14, 15, 16, 17, 18, 19};
    for (int i = 0; i < 80; ++i)
        cases.push_back({16 * (1 + uint32_t(random() % 48)), 2 * (1 + uint32_t(random() % 40)), formats[random() % 7],
                         2u << (random() % 4)});
    ForEachForm([&] {
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message() << c.width << " x " << c.height << ", format " << c.format << ", factor "
                                            << c.factor);
            Stage stage = MakeScaler(c.width, c.height, c.format, c.factor);
            ASSERT_NE(stage, nullptr);
            const Bytes in = MakeFrame(size_t(c.width) * c.height * BitsPerPixel(c.format) / 8, c.width + c.height);
            ASSERT_EQ(Bin(*stage, in), Reference(in, c.width, c.height, c.format, c.factor, stage->OutputSize()));
        }
    });
}

TEST(ScalerTest, InitRefusesInTheOrderOfItsChecksAndOtherFormatsWriteNothing) {
    const struct {
        uint32_t width, height, format;
        int32_t bitDepth;
        uint32_t scale, mode;
        const char* message;
    } refusals[] = {
        {40, 32, 6, 10, 3, 0, "Scaler: Invalid image alignment (40 * 32, Scale = 3)"},
        {32, 32, 6, 10, 3, 0, "Scaler: Unsupported pixel format (6)"},
        {32, 32, 13, 8, 2, 1, "Scaler: Unsupported pixel format (13)"},
        {32, 32, 20, 8, 2, 1, "Scaler: Unsupported pixel format (20)"},
        {32, 32, 1, 10, 3, 0, "Scaler: Unsupported scale factor (3)"},
        {32, 32, 14, 8, 1, 1, "Scaler: Unsupported scale factor (1)"},
        {32, 32, 1, 10, 2, 0, "Scaler: Unsupported bit depth (10)"},
        {32, 32, 1, 8, 2, 0, "Scaler: Unsupported scale mode"},
    };
    LogCapture::Install();
    for (const auto& r : refusals) {
        const ImageFormat image{r.format, r.bitDepth, 8};
        EXPECT_EQ(CreateStage<Scaler>(r.width, r.height, &image, &image, r.scale, r.mode, nullptr), nullptr);
        EXPECT_EQ(LogCapture::Take(), (std::vector<LoggedMessage>{{3, r.message}})) << r.message;
    }
    for (uint32_t format : {0u, uint32_t(PixelFormat::BayerRGGB), 22u}) {
        Stage stage = MakeScaler(64, 32, format, 2);
        ASSERT_NE(stage, nullptr) << format;
        EXPECT_EQ(Bin(*stage, MakeFrame(64 * 32, 1)), Bytes(32 * 16 + guardBytes, 0xA5)) << format;
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

}  // namespace
