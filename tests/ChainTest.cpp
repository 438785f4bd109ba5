// Whole chains through the exported interface: every input family reaches the callback.
#include "TestSupport.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <memory>

namespace {

using StreamPtr = std::unique_ptr<Stream, FrameFeedStreamDeleter>;

class Chains : public ::testing::Test {
protected:
    void SetUp() override {
        LogCapture::Install();
        HostRecorder::Reset();
    }
    void TearDown() override { HostRecorder::ReturnAll(HostRecorder::Take()); }

    // One frame through a new stream; the delivery with its payload.
    Delivery Run(const StreamConfig& config, const ParameterChoice& choice, const std::vector<uint8_t>& frame) {
        StreamPtr stream(NewStream(&HostRecorder::Callback));
        const auto parameters = MakeParameters(choice);
        EXPECT_TRUE(stream->Init(9, &config, parameters.data(), 0)) << testing::PrintToString(LogCapture::TakeTexts());
        EXPECT_TRUE(stream->ProcessFrame(frame.data(), uint32_t(frame.size()), 1, 2));
        auto deliveries = HostRecorder::Take();
        HostRecorder::ReturnAll(deliveries);
        EXPECT_EQ(deliveries.size(), 1u);
        EXPECT_TRUE(LogCapture::Take().empty());
        return deliveries.empty() ? Delivery{} : deliveries[0];
    }
};

struct JpegHeader {
    int width = 0, height = 0, subsampling = -1;
};

JpegHeader ReadJpeg(const std::vector<uint8_t>& jpeg) {
    JpegHeader header;
    int colourspace = 0;
    tjhandle decoder = tjInitDecompress();
    EXPECT_EQ(tjDecompressHeader3(decoder, jpeg.data(), static_cast<unsigned long>(jpeg.size()), &header.width,
                                  &header.height, &header.subsampling, &colourspace),
              0);
    tjDestroy(decoder);
    return header;
}

// 8-bit samples packed as the sensor's 10-bit (four in 5 bytes) or 12-bit (two in 3) data, with
// low bits that the reduction must drop.
std::vector<uint8_t> Pack(const std::vector<uint8_t>& samples, int depth) {
    std::vector<uint8_t> packed;
    if (depth == 10) {
        for (size_t i = 0; i < samples.size(); i += 4) {
            uint64_t bits = 0;
            for (int k = 0; k < 4; ++k) bits |= uint64_t(samples[i + k] << 2 | (k + i) % 4) << (10 * k);
            for (int b = 0; b < 5; ++b) packed.push_back(uint8_t(bits >> (8 * b)));
        }
    } else if (depth == 12) {
        for (size_t i = 0; i < samples.size(); i += 2) {
            const uint32_t bits = uint32_t(samples[i] << 4 | 0xA) | uint32_t(samples[i + 1] << 4 | 0x5) << 12;
            for (int b = 0; b < 3; ++b) packed.push_back(uint8_t(bits >> (8 * b)));
        }
    } else {
        for (const uint8_t s : samples) {
            packed.push_back(uint8_t(s ^ 0x5A));
            packed.push_back(s);
        }
    }
    return packed;
}

TEST_F(Chains, DeepSensorDataGivesWhatItsTopEightBitsGive) {
    const uint32_t width = 64, height = 32;
    const auto samples = MakeFrame(width * height, 4);
    for (const int depth : {10, 12, 16}) {
        for (const uint32_t format : {uint32_t(PixelFormat::Mono), uint32_t(PixelFormat::BayerGBRG)}) {
            for (const uint32_t scale : {1u, 2u, 4u, 8u, 16u}) {
                SCOPED_TRACE(testing::Message() << "depth " << depth << " format " << format << " scale " << scale);
                const ParameterChoice raw{scale, CompressionCode::Raw};
                const Delivery deep = Run(MakeConfig(format, width, height, depth, uint32_t(depth)), raw, Pack(samples, depth));
                const Delivery shallow = Run(MakeConfig(format, width, height, 8, 8), raw, samples);
                EXPECT_EQ(deep.payload, shallow.payload);
                EXPECT_EQ(deep.header.frameWidth, width / scale);
                const uint32_t bytesPerPixel = format == PixelFormat::Mono ? 1 : scale == 1 ? 3 : 4;
                EXPECT_EQ(shallow.payload.size(), width / scale * (height / scale) * bytesPerPixel);
                const Delivery jpeg = Run(MakeConfig(format, width, height, depth, uint32_t(depth)), {scale},
                                          Pack(samples, depth));
                EXPECT_EQ(ReadJpeg(jpeg.payload).width, int(width / scale));
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
            const Delivery raw = Run(MakeConfig(c.format, width, height, 8, c.bitsPerPixel), {scale, CompressionCode::Raw}, frame);
            EXPECT_EQ(raw.payload.size(), width / scale * height / scale * c.bitsPerPixel / 8);
            if (c.format == PixelFormat::Mono) {  // the first output sample is the mean of its block
                const uint32_t rows = scale == 16 ? 8 : scale, step = scale == 16 ? 2 : 1;
                uint32_t sum = 0;
                for (uint32_t y = 0; y < rows; ++y)
                    for (uint32_t x = 0; x < scale; ++x) sum += frame[y * step * width + x];
                EXPECT_EQ(raw.payload[0], (sum + rows * scale / 2) / (rows * scale));
            }
            const Delivery jpeg = Run(MakeConfig(c.format, width, height, 8, c.bitsPerPixel), {scale}, frame);
            const JpegHeader header = ReadJpeg(jpeg.payload);
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
        const Delivery planar = Run(MakeConfig(format, width, height, 8, 16), {1, CompressionCode::Raw}, frame);
        ASSERT_EQ(planar.payload.size(), width * height * 2);
        const size_t y0 = format == PixelFormat::UYVY ? 1 : 0, u0 = format == PixelFormat::UYVY ? 0 : 1;
        EXPECT_EQ(planar.payload[0], frame[y0]);
        EXPECT_EQ(planar.payload[1], frame[y0 + 2]);
        EXPECT_EQ(planar.payload[width * height], frame[u0]);
        EXPECT_EQ(planar.payload[width * height * 3 / 2], frame[u0 + 2]);
        EXPECT_EQ(ReadJpeg(Run(MakeConfig(format, width, height, 8, 16), {1}, frame).payload).subsampling, TJSAMP_422);
        for (const uint32_t scale : {2u, 4u}) {
            const JpegHeader header = ReadJpeg(Run(MakeConfig(format, width, height, 8, 16), {scale}, frame).payload);
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
        const Delivery out = Run(MakeConfig(PixelFormat::UYVY, width, height, 10, 32), {scale, CompressionCode::Raw}, frame);
        ASSERT_EQ(out.payload.size(), width / scale * height / scale * 3);
        for (const uint8_t v : out.payload) ASSERT_EQ(v, 100);
    }
}

}  // namespace
