// Whole chains through the exported interface: every input family reaches the callback, and each demosaicking
// choice delivers what its stage makes.
#include "TestSupport.h"

#include "demosaic/NewDeBayer.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <memory>
#include <random>

namespace {

class Chains : public StreamTest {};

// 8-bit samples as the sensor's 10-, 12- or 16-bit data, with low bits that the reduction must drop.
Bytes Pack(const Bytes& samples, int depth) {
    std::vector<uint16_t> deep(samples.size());
    for (size_t i = 0; i < samples.size(); ++i)
        deep[i] = uint16_t(depth == 10 ? samples[i] << 2 | i % 4
                           : depth == 12 ? samples[i] << 4 | (i % 2 ? 0x5 : 0xA)
                                         : samples[i] << 8 | (samples[i] ^ 0x5A));
    return PackSamples(deep, depth);
}

TEST_F(Chains, DeepSensorDataGivesWhatItsTopEightBitsGive) {
    const uint32_t width = 64, height = 32;
    const auto samples = MakeFrame(width * height, 4);
    for (const int depth : {10, 12, 16}) {
        for (const uint32_t format : {uint32_t(PixelFormat::Mono), uint32_t(PixelFormat::BayerGBRG)}) {
            for (const uint32_t scale : {1u, 2u, 4u, 8u, 16u}) {
                SCOPED_TRACE(testing::Message() << "depth " << depth << " format " << format << " scale " << scale);
                const ParameterChoice raw{scale, CompressionCode::Raw};
                const StreamConfig deepConfig = MakeConfig(format, width, height, depth, uint32_t(depth));
                const Delivery deep = RunOneFrame(deepConfig, raw, Pack(samples, depth));
                const Delivery shallow = RunOneFrame(MakeConfig(format, width, height, 8, 8), raw, samples);
                EXPECT_EQ(deep.payload, shallow.payload);
                EXPECT_EQ(deep.header.frameWidth, width / scale);
                const uint32_t bytesPerPixel = format == PixelFormat::Mono ? 1 : scale == 1 ? 3 : 4;
                EXPECT_EQ(shallow.payload.size(), width / scale * (height / scale) * bytesPerPixel);
                EXPECT_EQ(ReadJpegHeader(RunOneFrame(deepConfig, {scale}, Pack(samples, depth)).payload).width,
                          int(width / scale));
            }
        }
    }
}

TEST_F(Chains, MonoAndPlanarYuvAreBinnedAndEncodedWithTheirOwnSubsampling) {
    const struct {
        uint32_t format, bitsPerPixel;
        int subsampling;
    } cases[] = {{PixelFormat::Mono, 8, TJSAMP_GRAY},
                 {PixelFormat::YUV420P, 12, TJSAMP_420},
                 {PixelFormat::YUV422P, 16, TJSAMP_422},
                 {PixelFormat::YUV444P, 24, TJSAMP_444}};
    for (const auto& c : cases) {
        for (const uint32_t scale : {2u, 4u, 8u, 16u}) {
            SCOPED_TRACE(testing::Message() << "format " << c.format << " scale " << scale);
            const uint32_t width = 256, height = 128;
            const auto frame = MakeFrame(width * height * c.bitsPerPixel / 8, c.format);
            const StreamConfig config = MakeConfig(c.format, width, height, 8, c.bitsPerPixel);
            const Delivery raw = RunOneFrame(config, {scale, CompressionCode::Raw}, frame);
            EXPECT_EQ(raw.payload.size(), width / scale * height / scale * c.bitsPerPixel / 8);
            if (c.format == PixelFormat::Mono) {  // the first output sample is the mean of its block
                const uint32_t rows = scale == 16 ? 8 : scale, step = scale == 16 ? 2 : 1;
                uint32_t sum = 0;
                for (uint32_t y = 0; y < rows; ++y)
                    for (uint32_t x = 0; x < scale; ++x) sum += frame[y * step * width + x];
                EXPECT_EQ(raw.payload[0], (sum + rows * scale / 2) / (rows * scale));
            }
            const JpegInfo header = ReadJpegHeader(RunOneFrame(config, {scale}, frame).payload);
            EXPECT_EQ(header.width, int(width / scale));
            EXPECT_EQ(header.height, int(height / scale));
            EXPECT_EQ(header.subsampling, c.subsampling);
        }
    }
}

TEST_F(Chains, PackedYuvBecomesPlanar) {
    const uint32_t width = 96, height = 32;
    for (const uint32_t format : {uint32_t(PixelFormat::UYVY), uint32_t(PixelFormat::YUYV)}) {
        SCOPED_TRACE(format);
        const auto frame = MakeFrame(width * height * 2, format);
        const StreamConfig config = MakeConfig(format, width, height, 8, 16);
        const Delivery planar = RunOneFrame(config, {1, CompressionCode::Raw}, frame);
        ASSERT_EQ(planar.payload.size(), width * height * 2);
        const size_t y0 = format == PixelFormat::UYVY ? 1 : 0, u0 = format == PixelFormat::UYVY ? 0 : 1;
        EXPECT_EQ(planar.payload[0], frame[y0]);
        EXPECT_EQ(planar.payload[1], frame[y0 + 2]);
        EXPECT_EQ(planar.payload[width * height], frame[u0]);
        EXPECT_EQ(planar.payload[width * height * 3 / 2], frame[u0 + 2]);
        EXPECT_EQ(ReadJpegHeader(RunOneFrame(config, {1}, frame).payload).subsampling, TJSAMP_422);
        for (const uint32_t scale : {2u, 4u}) {
            const JpegInfo header = ReadJpegHeader(RunOneFrame(config, {scale}, frame).payload);
            EXPECT_EQ(header.width, int(width / scale));
            EXPECT_EQ(header.subsampling, TJSAMP_444);
        }
    }
}

TEST_F(Chains, TenBitPackedYuvIsReadAtHalfAndQuarterSize) {
    const uint32_t width = 96, height = 16;
    const size_t pitch = (width + 47) / 48 * 128;
    std::vector<uint8_t> frame(pitch * height);
    // Every sample 400: 8-bit 100 after (v + 2) >> 2.
    for (size_t word = 0; word < frame.size() / 4; ++word) {
        const uint32_t bits = 400u | 400u << 10 | 400u << 20;
        for (int b = 0; b < 4; ++b) frame[word * 4 + b] = uint8_t(bits >> (8 * b));
    }
    for (const uint32_t scale : {2u, 4u}) {
        const Delivery out =
            RunOneFrame(MakeConfig(PixelFormat::UYVY, width, height, 10, 32), {scale, CompressionCode::Raw}, frame);
        ASSERT_EQ(out.payload.size(), width / scale * height / scale * 3);
        for (const uint8_t v : out.payload) ASSERT_EQ(v, 100);
    }
}

// Each demosaicking choice at every scale it takes delivers, raw, exactly what its stage fed directly makes (the
// stages' own tests pin their pictures) and, as JPEG, an image of the scaled size. With keepHighBpp the stage
// reads the sensor's samples itself: densely packed 10- and 12-bit data gives what the words give.
TEST_F(Chains, BayerFramesReachTheHostAsTheirDemosaickingStageMakesThem) {
    const uint32_t width = 64, height = 32, format = PixelFormat::BayerGRBG;
    const struct {
        uint32_t demosaic, selector;
        std::vector<uint32_t> scales;
    } choices[] = {{0, 0, {1, 2, 4, 8, 16}}, {1, 1, {1, 2, 4, 8, 16}}, {3, 4, {1}}};
    std::mt19937 random(12);
    for (const auto& choice : choices) {
        for (const int depth : {8, 10, 12}) {
            if (depth > 8 && choice.demosaic == 0) continue;  // the fast stage keeps no deep data
            std::vector<uint16_t> samples(width * height);
            for (auto& sample : samples) sample = uint16_t(random() & ((1u << depth) - 1));
            const Bytes words = PackSamples(samples, depth > 8 ? 16 : 8);
            for (const uint32_t scale : choice.scales) {
                if (depth > 8 && scale > 1) continue;
                SCOPED_TRACE(testing::Message() << "demosaic " << choice.demosaic << " depth " << depth << " scale "
                                                << scale);
                const ImageFormat in{format, depth, depth > 8 ? 16u : 8u};
                const bool rgbx = choice.selector != 0 || scale > 1;
                const ImageFormat out{rgbx ? PixelFormat::RGBX : PixelFormat::RGB, 8, rgbx ? 32u : 24u};
                std::unique_ptr<ImageProcessing> stage(
                    NewDeBayer(width, height, &in, &out, scale, choice.selector, nullptr));
                ASSERT_NE(stage, nullptr);
                const StreamConfig config = MakeConfig(format, width, height, depth, in.bitsPerPixel);
                const ParameterChoice raw{scale, CompressionCode::Raw, 0.75f, choice.demosaic, uint8_t(depth > 8)};
                const Delivery delivered = RunOneFrame(config, raw, words);
                EXPECT_EQ(delivered.header.frameWidth, width / scale);
                EXPECT_EQ(delivered.payload, RunStage(*stage, words));
                if (depth > 8)
                    EXPECT_EQ(RunOneFrame(MakeConfig(format, width, height, depth, uint32_t(depth)), raw,
                                          PackSamples(samples, depth)).payload, delivered.payload);
                ParameterChoice jpeg = raw;
                jpeg.compression = CompressionCode::Jpeg;
                const JpegInfo header = ReadJpegHeader(RunOneFrame(config, jpeg, words).payload);
                EXPECT_EQ(header.width, int(width / scale));
                EXPECT_EQ(header.height, int(height / scale));
            }
        }
    }
}

}  // namespace
