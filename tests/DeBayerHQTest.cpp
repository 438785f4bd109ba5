// The high-quality frame: its refusals, the Bayer phase, the interleave of the result planes and the deep
// input it unpacks, seen through an algorithm whose planes the test fills itself.
#include "TestSupport.h"
#include "demosaic/DeBayerHQ.h"
#include "demosaic/DeBayerLQ.h"
#include "demosaic/NewDeBayer.h"
#include "stream/StageCreators.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

// Planes of one byte or one word per sample, filled by the test; Interpolate records what it was given.
class FakeAlgorithm : public DeBayerHQ {
public:
    bool AllocateWorkspace(const void*) override {
        const size_t bytes = size_t(2 * width) * height;
        for (auto& plane : planes) plane.assign(bytes, 0);
        return true;
    }
    bool SetParameter(uint32_t, const void*) override { return true; }
    bool Interpolate(const void* src, int32_t srcStride) override {
        seenStride = srcStride;
        seen.assign(static_cast<const uint8_t*>(src), static_cast<const uint8_t*>(src) + size_t(srcStride) * height);
        return interpolates;
    }
    void GetPlaneGeometry(uint32_t* planeWidth, uint32_t* planeRowBytes, uint32_t* planeHeight) override {
        *planeWidth = width;
        *planeRowBytes = rowBytes;
        *planeHeight = height;
    }
    bool GetResultPlanes(void* result[3]) override {
        for (int i = 0; i < 3; ++i) result[i] = planes[i].data();
        return givesPlanes;
    }
    int32_t Phase() const { return BayerPhase; }

    Bytes planes[3];
    uint32_t rowBytes = 0;
    bool interpolates = true, givesPlanes = true;
    Bytes seen;
    int32_t seenStride = 0;
};

std::unique_ptr<FakeAlgorithm> MakeFake(uint32_t width, uint32_t height, ImageFormat in, ImageFormat out,
                                        uint32_t scale = 1, uint32_t mode = 2) {
    std::unique_ptr<FakeAlgorithm> stage(new FakeAlgorithm);
    if (!stage->Init(width, height, &in, &out, scale, mode, nullptr)) return nullptr;
    return stage;
}

class DeBayerHQTest : public StageTest {};

TEST_F(DeBayerHQTest, RefusesInTheOrderOfItsChecks) {
    const ImageFormat bayer8{PixelFormat::BayerRGGB, 8, 8}, rgbx{PixelFormat::RGBX, 8, 32};
    struct Refusal {
        uint32_t width, height;
        ImageFormat in, out;
        uint32_t scale, mode;
        const char* message;
    };
    const Refusal refusals[] = {
        // Alignment comes first, even with every other field wrong too.
        {1928, 1080, {PixelFormat::BayerRGGB, 13, 16}, {PixelFormat::RGB, 8, 24}, 2, 2,
         "DeBayer (HQ): Invalid image alignment (1928 * 1080, Scale = 2)"},
        {64, 33, bayer8, rgbx, 1, 1, "DeBayer (HQ): Invalid image alignment (64 * 33, Scale = 1)"},
        {64, 32, {PixelFormat::BayerRGGB, 13, 16}, {PixelFormat::RGB, 8, 24}, 2, 2, "DeBayer (HQ): Invalid image precision"},
        {64, 32, {PixelFormat::BayerRGGB, 0, 8}, rgbx, 1, 1, "DeBayer (HQ): Invalid image precision"},
        {64, 32, {PixelFormat::BayerRGGB, -1, 8}, rgbx, 1, 1, "DeBayer (HQ): Invalid image precision"},
        {64, 32, bayer8, {PixelFormat::RGB, 8, 24}, 2, 2, "DeBayer (HQ): Unsupported output pixel format"},
        {64, 32, {PixelFormat::BayerRGGB, 10, 16}, rgbx, 2, 2, "DeBayer (HQ): Scale supported only on HA"},
        // The combination message prints the output's depth, not the input's.
        {64, 32, {PixelFormat::BayerRGGB, 10, 16}, rgbx, 2, 1,
         "DeBayer (HQ): Unsupported scale / output bit depth combination (2, 8)"},
        {64, 32, {PixelFormat::BayerRGGB, 8, 16}, rgbx, 1, 1,
         "DeBayer (HQ): Unsupported input sample layout (16 bits per pixel at depth 8)"},
        {64, 32, {PixelFormat::BayerRGGB, 12, 10}, rgbx, 1, 1,
         "DeBayer (HQ): Unsupported input sample layout (10 bits per pixel at depth 12)"},
    };
    for (const Refusal& r : refusals) {
        EXPECT_EQ(MakeFake(r.width, r.height, r.in, r.out, r.scale, r.mode), nullptr) << r.message;
        EXPECT_EQ(LogCapture::Take(), (std::vector<LoggedMessage>{{3, r.message}}));
    }
    // Depth 12 passes; Mono passes every check and is still refused, without a word.
    EXPECT_NE(MakeFake(64, 32, {PixelFormat::BayerRGGB, 12, 16}, rgbx), nullptr);
    EXPECT_EQ(MakeFake(64, 32, {PixelFormat::Mono, 8, 8}, rgbx), nullptr);
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(DeBayerHQTest, PhaseFollowsTheBayerOrder) {
    const std::pair<uint32_t, int32_t> phases[] = {{PixelFormat::BayerRGGB, 1},
                                                   {PixelFormat::BayerGRBG, 3},
                                                   {PixelFormat::BayerBGGR, 0},
                                                   {PixelFormat::BayerGBRG, 2}};
    for (const auto& [format, phase] : phases) {
        const auto stage = MakeFake(32, 2, {format, 8, 8}, {PixelFormat::RGBX, 8, 32});
        ASSERT_NE(stage, nullptr);
        EXPECT_EQ(stage->Phase(), phase) << format;
    }
}

TEST_F(DeBayerHQTest, EightBitPlanesInterleaveWithOpaquePadding) {
    // Rows of 144 pixels go sixteen at a time, of 36 sixteen and then four at a time, of 9 also pixel by pixel. A
    // frame of 8 MiB of output takes the path that bypasses the caches.
    struct Case {
        uint32_t width, height, scale;
    };
    for (const Case c : {Case{144, 8, 1}, Case{144, 8, 4}, Case{144, 32, 16}, Case{2048, 1024, 1}}) {
        const uint32_t width = c.width, height = c.height, scale = c.scale;
        auto stage = MakeFake(width, height, {PixelFormat::BayerRGGB, 8, 8}, {PixelFormat::RGBX, 8, 32}, scale, 1);
        ASSERT_NE(stage, nullptr);
        stage->rowBytes = width + 16;  // rows of the planes are planeRowBytes / scale apart
        const uint32_t planeStep = stage->rowBytes / scale;
        for (int p = 0; p < 3; ++p)
            for (size_t i = 0; i < stage->planes[p].size(); ++i) stage->planes[p][i] = uint8_t(i * 7 + p * 50);
        const Bytes out = RunStage(*stage, Bytes(width * height));
        for (uint32_t y = 0; y < height / scale; ++y)
            for (uint32_t x = 0; x < width / scale; ++x) {
                const size_t o = (size_t(y) * width / scale + x) * 4, at = size_t(y) * planeStep + x;
                ASSERT_EQ(out[o + 0], stage->planes[0][at]) << x << "," << y;
                ASSERT_EQ(out[o + 1], stage->planes[1][at]);
                ASSERT_EQ(out[o + 2], stage->planes[2][at]);
                ASSERT_EQ(out[o + 3], 0xFF);
            }
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(DeBayerHQTest, DeepPlanesInterleaveAsWordsOrTenBitTriples) {
    const uint32_t width = 32, height = 4, count = width * height;
    std::vector<uint16_t> planes[3], interleaved;
    for (uint32_t p = 0; p < 3; ++p)
        for (uint32_t i = 0; i < count; ++i) planes[p].push_back(uint16_t(0x1234 * (p + 1) + 977 * i));
    Bytes tenBit;
    for (uint32_t i = 0; i < count; ++i) {
        interleaved.insert(interleaved.end(), {planes[0][i], planes[1][i], planes[2][i], 0});
        const uint32_t triple = (planes[0][i] & 0x3FF) | (planes[1][i] & 0x3FF) << 10 | (planes[2][i] & 0x3FF) << 20;
        for (int b = 0; b < 4; ++b) tenBit.push_back(uint8_t(triple >> (8 * b)));
    }
    for (const ImageFormat out : {ImageFormat{PixelFormat::RGBX, 10, 32}, ImageFormat{PixelFormat::RGBX, 12, 64}}) {
        auto stage = MakeFake(width, height, {PixelFormat::BayerGRBG, 12, 16}, out);
        ASSERT_NE(stage, nullptr);
        stage->rowBytes = 2 * width;
        for (int p = 0; p < 3; ++p) stage->planes[p] = PackSamples(planes[p], 16);
        EXPECT_EQ(RunStage(*stage, Bytes(2 * count)), out.bitDepth == 10 ? tenBit : PackSamples(interleaved, 16));
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(DeBayerHQTest, FailedFramesLeaveTheOutputUnwritten) {
    const uint32_t width = 32, height = 2;
    for (int failure = 0; failure < 4; ++failure) {
        ImageFormat out{PixelFormat::RGBX, 8, 32};
        if (failure == 2) out = {PixelFormat::RGBX, 9, 32};   // a depth without an interleave
        if (failure == 3) out = {PixelFormat::RGBX, 12, 64};  // a deep layout, which has no reduced form
        auto stage = MakeFake(width, height, {PixelFormat::BayerRGGB, 8, 8}, out, failure == 3 ? 2 : 1, 1);
        ASSERT_NE(stage, nullptr);
        stage->interpolates = failure != 0;
        stage->givesPlanes = failure != 1;
        EXPECT_EQ(RunStage(*stage, Bytes(width * height)), Bytes(stage->OutputSize(), 0xA5));
        EXPECT_EQ(LogCapture::Take(), (std::vector<LoggedMessage>{{3, "Debayer failed"}})) << failure;
    }
}

// Samples of 10 and 12 bits reach the algorithm as little-endian words, whether the camera packed them densely
// or sent words.
TEST_F(DeBayerHQTest, PackedDeepInputIsUnpackedIntoWords) {
    const uint32_t width = 32, height = 4, count = width * height;
    for (const int depth : {10, 12}) {
        std::vector<uint16_t> samples(count);
        for (uint32_t i = 0; i < count; ++i) samples[i] = uint16_t((i * 2654435761u >> 7) & ((1u << depth) - 1));
        const Bytes packed = PackSamples(samples, depth), words = PackSamples(samples, 16);
        const ImageFormat out{PixelFormat::RGBX, 8, 32};
        auto fromPacked = MakeFake(width, height, {PixelFormat::BayerBGGR, depth, uint32_t(depth)}, out);
        auto fromWords = MakeFake(width, height, {PixelFormat::BayerBGGR, depth, 16}, out);
        ASSERT_NE(fromPacked, nullptr);
        ASSERT_NE(fromWords, nullptr);
        RunStage(*fromPacked, packed);
        RunStage(*fromWords, words);
        EXPECT_EQ(fromPacked->seenStride, int32_t(2 * width));
        EXPECT_EQ(fromWords->seenStride, int32_t(2 * width));
        EXPECT_EQ(fromPacked->seen, words) << depth;
        EXPECT_EQ(fromWords->seen, words);
    }
}

// The high-quality frame pads with 0xFF where the fast stage's block reduction pads with 0.
TEST_F(DeBayerHQTest, PaddingDiffersFromTheFastStage) {
    const uint32_t width = 32, height = 4;
    const ImageFormat in{PixelFormat::BayerRGGB, 8, 8}, out{PixelFormat::RGBX, 8, 32};
    const Bytes mosaic = MakeFrame(width * height, 3);
    for (const uint32_t selector : {0u, 1u}) {
        std::unique_ptr<ImageProcessing> stage(NewDeBayer(width, height, &in, &out, 2, selector, nullptr));
        ASSERT_NE(stage, nullptr);
        const Bytes result = RunStage(*stage, mosaic);
        for (size_t i = 3; i < result.size(); i += 4) ASSERT_EQ(result[i], selector == 0 ? 0x00 : 0xFF) << selector;
    }
}

}  // namespace
