// Packed YUV to planes: the worked examples, 10-bit rounding and row pitch, refusals in order, layouts without a
// kernel, and both forms against a plain reference on random frames.
#include "TestSupport.h"

#include "primitives/ProcessorLevel.h"
#include "stages/YUVPlaner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t untouched = 0xA5;

size_t Pitch10(uint32_t width) { return size_t((width + 47) / 48) * 128; }

std::unique_ptr<YUVPlaner> MakePlaner(uint32_t width, uint32_t height, uint32_t format, uint32_t bitsPerPixel,
                                      uint32_t scale) {
    const ImageFormat in{format, bitsPerPixel == 32 ? 10 : 8, bitsPerPixel};
    const ImageFormat out{scale == 1 ? PixelFormat::YUV422P : PixelFormat::YUV444P, 8, scale == 1 ? 16u : 24u};
    auto planer = std::make_unique<YUVPlaner>();
    return planer->Init(width, height, &in, &out, scale, 0, nullptr) ? std::move(planer) : nullptr;
}

Bytes Planes(YUVPlaner& planer, const Bytes& frame) {
    Bytes out(planer.OutputSize(), untouched);
    EXPECT_EQ(planer.Process(frame.data(), out.data(), nullptr), planer.OutputSize());
    return out;
}

// The rule written out plainly: every row read as U Y V Y samples, then each output sample the rounded mean of
// its block, a chroma sample counting once per pixel. Only the planes are written.
Bytes Reference(const Bytes& frame, uint32_t width, uint32_t height, uint32_t format, uint32_t bitsPerPixel,
                uint32_t s) {
    auto sample = [&](uint32_t row, uint32_t i) -> uint32_t {
        if (bitsPerPixel == 16) return frame[row * 2 * width + (format == PixelFormat::UYVY ? i : i ^ 1)];
        const uint8_t* word = &frame[row * Pitch10(width) + i / 3 * 4];
        const uint32_t bits = word[0] | word[1] << 8 | word[2] << 16 | uint32_t(word[3]) << 24;
        return std::min(((bits >> (10 * (i % 3)) & 1023) + 2) >> 2, 255u);
    };
    const uint32_t outWidth = width / s, planeSize = width / s * height / s;
    Bytes out(size_t(planeSize) * (s == 1 ? 2 : 3), untouched);
    for (uint32_t j = 0; j < height / s; ++j) {
        for (uint32_t i = 0; i < outWidth; ++i) {
            uint32_t sums[3] = {0, 0, 0};  // Y, U, V
            for (uint32_t r = j * s; r < j * s + s; ++r) {
                for (uint32_t x = i * s; x < i * s + s; ++x) {
                    sums[0] += sample(r, 2 * x + 1);
                    sums[1] += sample(r, x / 2 * 4);
                    sums[2] += sample(r, x / 2 * 4 + 2);
                }
            }
            const size_t chroma = s == 1 ? (j * outWidth + i) / 2 : j * outWidth + i;
            const size_t offsets[3] = {j * outWidth + i, planeSize + chroma, planeSize * (s == 1 ? 3 : 4) / 2 + chroma};
            for (uint32_t plane = 0; plane < 3; ++plane)
                out[offsets[plane]] = uint8_t(std::min((sums[plane] + s * s / 2) / (s * s), 255u));
        }
    }
    return out;
}

class YUVPlanerTest : public StageTest {};

TEST_F(YUVPlanerTest, WorkedBytesGiveTheirSamples) {
    const struct {
        uint32_t format, scale;
        Bytes evenRows, oddRows;  // one pixel pair, repeated along the row
        Bytes y, u, v;            // the samples each plane repeats
    } examples[] = {
        {PixelFormat::UYVY, 1, {10, 20, 30, 40}, {10, 20, 30, 40}, {20, 40}, {10}, {30}},
        {PixelFormat::YUYV, 1, {10, 20, 30, 40}, {10, 20, 30, 40}, {10, 30}, {20}, {40}},
        {PixelFormat::UYVY, 2, {10, 20, 30, 40}, {50, 60, 70, 80}, {50}, {30}, {50}},
        {PixelFormat::YUYV, 2, {10, 20, 30, 40}, {50, 60, 70, 80}, {40}, {40}, {60}},
        {PixelFormat::YUYV, 4, {255, 255, 255, 255}, {255, 255, 255, 255}, {255}, {255}, {255}},
        {PixelFormat::UYVY, 4, {1, 0, 0, 1}, {0, 1, 0, 0}, {1}, {1}, {0}},  // halves round up: 8/16 and 4/8
    };
    ForEachForm([&] {
        for (const auto& e : examples) {
            SCOPED_TRACE(testing::Message() << "format " << e.format << ", scale " << e.scale);
            const uint32_t width = 80, height = 4;  // one 64-pixel step and a tail
            Bytes frame, expected;
            for (uint32_t r = 0; r < height; ++r) {
                const Bytes& pair = r % 2 ? e.oddRows : e.evenRows;
                for (uint32_t p = 0; p < width / 2; ++p) frame.insert(frame.end(), pair.begin(), pair.end());
            }
            const size_t lumaSize = width / e.scale * height / e.scale;
            const size_t chromaSize = e.scale == 1 ? lumaSize / 2 : lumaSize;
            for (size_t i = 0; i < lumaSize + 2 * chromaSize; ++i) {
                const Bytes& plane = i < lumaSize ? e.y : i < lumaSize + chromaSize ? e.u : e.v;
                expected.push_back(plane[i % plane.size()]);
            }
            EXPECT_EQ(Planes(*MakePlaner(width, height, e.format, 16, e.scale), frame), expected);
        }
    });
}

TEST_F(YUVPlanerTest, TenBitSamplesRoundClampAndKeepTheirRowPitch) {
    // Rows of 1920 pixels lie 5120 bytes apart, rows of 16 pixels 128; bits 30 and 31 and the padding are set.
    // Every band holds one value for all its U, one for its Y and one for its V samples.
    const uint32_t values[][3] = {{1022, 1023, 1}, {1017, 2, 1018}, {800, 400, 41}, {6, 0, 5}};  // Y, U, V
    const uint8_t expected[][3] = {{255, 255, 0}, {254, 1, 255}, {200, 100, 10}, {2, 0, 1}};
    const uint32_t height = 8, scale = 2;
    ForEachForm([&] {
        for (auto [width, pitch] : {std::pair{1920u, 5120u}, std::pair{16u, 128u}}) {
            for (uint32_t format : {PixelFormat::UYVY, PixelFormat::YUYV}) {  // U Y V Y either way
                SCOPED_TRACE(testing::Message() << "width " << width << ", format " << format);
                Bytes frame(size_t(pitch) * height, 0xFF);
                for (uint32_t i = 0; i < 2 * width; ++i) {
                    for (uint32_t r = 0; r < height; ++r) {
                        uint8_t* word = &frame[r * pitch + i / 3 * 4];
                        const uint32_t bits = values[r / scale][i % 2 ? 0 : 1 + i % 4 / 2] << (10 * (i % 3));
                        const uint32_t field = 1023u << (10 * (i % 3));
                        for (uint32_t b = 0; b < 4; ++b)
                            word[b] = uint8_t((word[b] & ~(field >> 8 * b)) | bits >> 8 * b);
                    }
                }
                const Bytes out = Planes(*MakePlaner(width, height, format, 32, scale), frame);
                const size_t planeSize = out.size() / 3;
                for (size_t i = 0; i < out.size(); ++i)
                    ASSERT_EQ(out[i], expected[i % planeSize / (width / scale)][i / planeSize]) << i;
            }
        }
    });
}

TEST_F(YUVPlanerTest, InitRefusesInTheOrderOfItsChecks) {
    const struct {
        uint32_t width, height, format, outFormat, scale;
        const char* message;
    } refusals[] = {
        {24, 3, 13, 14, 3, "YUVPlaner: Invalid image alignment (24 * 3, Scale = 3)"},
        {16, 3, 11, 19, 2, "YUVPlaner: Invalid image alignment (16 * 3, Scale = 2)"},
        {16, 2, 13, 14, 3, "YUVPlaner: Unsupported input format (13)"},
        {16, 2, 18, 18, 1, "YUVPlaner: Unsupported input format (18)"},
        {16, 2, 11, 14, 3, "YUVPlaner: Unsupported scale factor(3)"},
        {16, 2, 12, 19, 8, "YUVPlaner: Unsupported scale factor(8)"},
        {16, 2, 11, 19, 1, "YUVPlaner: Unsupported output format (19)"},
        {16, 2, 12, 18, 2, "YUVPlaner: Unsupported output format (18)"},
        {16, 2, 11, 18, 4, "YUVPlaner: Unsupported output format (18)"},
    };
    for (const auto& r : refusals) {
        const ImageFormat in{r.format, 8, 16}, out{r.outFormat, 8, 24};
        YUVPlaner planer;
        EXPECT_FALSE(planer.Init(r.width, r.height, &in, &out, r.scale, 0, nullptr)) << r.message;
        EXPECT_EQ(LogCapture::Take(), (std::vector<LoggedMessage>{{3, r.message}}));
    }
    for (uint32_t bitsPerPixel : {16u, 32u, 24u})
        for (uint32_t scale : {1u, 2u, 4u})
            EXPECT_NE(MakePlaner(16, 2, PixelFormat::YUYV, bitsPerPixel, scale), nullptr) << bitsPerPixel << scale;
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(YUVPlanerTest, LayoutsWithoutAKernelWriteNothing) {
    const Bytes frame(128 * 6, 0x3C);
    for (auto [bitsPerPixel, scale] : {std::pair{32u, 1u}, std::pair{24u, 2u}, std::pair{8u, 4u}}) {
        auto planer = MakePlaner(16, 6, PixelFormat::UYVY, bitsPerPixel, scale);
        EXPECT_EQ(Planes(*planer, frame), Bytes(planer->OutputSize(), untouched)) << bitsPerPixel << ", " << scale;
    }
}

TEST_F(YUVPlanerTest, BothFormsEqualThePlainRuleOnRandomFrames) {
    std::mt19937 random(77);
    for (uint32_t trial = 0; trial < 300; ++trial) {
        const uint32_t width = trial % 25 == 0 ? 1936 : 16 * (1 + random() % 20), height = 2 * (1 + random() % 7);
        const uint32_t format = random() % 2 ? PixelFormat::UYVY : PixelFormat::YUYV;
        const uint32_t bitsPerPixel = random() % 3 ? 16 : 32;
        const uint32_t scale = bitsPerPixel == 32 ? 2 << random() % 2 : 1 << random() % 3;
        SCOPED_TRACE(testing::Message() << width << " x " << height << ", format " << format << ", "
                                        << bitsPerPixel << " bpp, scale " << scale);
        const Bytes frame = MakeFrame(bitsPerPixel == 32 ? Pitch10(width) * height : size_t(width) * height * 2, trial);
        const Bytes expected = Reference(frame, width, height, format, bitsPerPixel, scale);
        ForEachForm([&] {
            ASSERT_EQ(Planes(*MakePlaner(width, height, format, bitsPerPixel, scale), frame), expected);
        });
    }
}

}  // namespace
