// JPEG output: what the encoder is asked for, checked by decoding and by encoding directly.
#include "TestSupport.h"

#include "stages/JpegCompressor.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <memory>

namespace {

struct Format {
    uint32_t format;
    uint32_t bitsPerPixel;
    int expectedSubsampling;
};

const Format formats[] = {
    {PixelFormat::Mono, 8, TJSAMP_GRAY},      {PixelFormat::RGB, 24, TJSAMP_420},
    {PixelFormat::RGBX, 32, TJSAMP_420},      {PixelFormat::YUV420P, 12, TJSAMP_420},
    {PixelFormat::YUV422P, 16, TJSAMP_422},   {PixelFormat::YUV444P, 24, TJSAMP_444},
};

// The same frame encoded by TurboJPEG directly, as the stream is meant to ask for it.
std::vector<uint8_t> EncodeDirectly(const Format& f, const std::vector<uint8_t>& frame, int width, int height,
                                    int quality) {
    tjhandle handle = tjInitCompress();
    unsigned long size = tjBufSize(width, height, TJSAMP_444);
    std::vector<uint8_t> out(size);
    unsigned char* buffer = out.data();
    const int flags = TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT;
    int result = -1;
    if (f.format == PixelFormat::Mono || f.format == PixelFormat::RGB || f.format == PixelFormat::RGBX) {
        const int pixelFormat = f.format == PixelFormat::Mono ? TJPF_GRAY : f.format == PixelFormat::RGB ? TJPF_RGB : TJPF_RGBX;
        result = tjCompress2(handle, frame.data(), width, width * int(f.bitsPerPixel / 8), height, pixelFormat, &buffer,
                             &size, f.expectedSubsampling, quality, flags);
    } else {
        result = tjCompressFromYUV(handle, frame.data(), width, 1, height, f.expectedSubsampling, &buffer, &size,
                                   quality, flags);
    }
    tjDestroy(handle);
    EXPECT_EQ(result, 0) << tjGetErrorStr();
    out.resize(size);
    return out;
}

class JpegOutput : public StreamTest {
protected:
    Delivery Encode(const Format& f, uint32_t width, uint32_t height, float quality, const Bytes& frame,
                    bool quiet = true) {
        return RunOneFrame(MakeConfig(f.format, width, height, 8, f.bitsPerPixel), {1, CompressionCode::Jpeg, quality},
                           frame, quiet);
    }
};

TEST_F(JpegOutput, EveryFormatIsEncodedAtItsSizeAndSubsamplingAsTheEncoderDoesIt) {
    const uint32_t width = 80, height = 46;
    for (const Format& f : formats) {
        SCOPED_TRACE(testing::Message() << "format " << f.format);
        const auto frame = MakeFrame(size_t(width) * height * f.bitsPerPixel / 8, f.format);
        // Byte for byte what the encoder makes when asked for this format's subsampling at the frame's size.
        const Delivery delivery = Encode(f, width, height, 0.75f, frame);
        EXPECT_EQ(delivery.payload, EncodeDirectly(f, frame, width, height, 75)) << "quality 75, accurate DCT";
    }
}

TEST_F(JpegOutput, QualityIsScaledBy100AndTruncated) {
    const Format mono = formats[0];
    const auto frame = MakeFrame(64 * 32, 9);
    const struct {
        float quality;
        int encoderQuality;
    } cases[] = {{0.75f, 75}, {0.999f, 99}, {1.0f, 100}, {0.0f, 0}, {0.0199f, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.quality);
        const Delivery delivery = Encode(mono, 64, 32, c.quality, frame);
        EXPECT_EQ(delivery.payload, EncodeDirectly(mono, frame, 64, 32, c.encoderQuality));
    }
    EXPECT_NE(EncodeDirectly(mono, frame, 64, 32, 99), EncodeDirectly(mono, frame, 64, 32, 100));
}

TEST_F(JpegOutput, AQualityTheEncoderRefusesLogsAndStillDeliversTheFrame) {
    const Format rgb = formats[1];
    const auto frame = MakeFrame(64 * 32 * 3, 2);
    for (const float quality : {1.5f, -0.5f}) {
        const Delivery delivery = Encode(rgb, 64, 32, quality, frame, false);
        EXPECT_EQ(delivery.header.payloadSize, tjBufSize(64, 32, TJSAMP_444)) << "the size the encoder left";
        const auto messages = LogCapture::Take();
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].level, 3u);
        EXPECT_EQ(messages[0].text, std::string("Compressor (JPEG): Compression failed (") + tjGetErrorStr() + ")");
    }
}

TEST(JpegCompressorStage, APerFrameQualityWinsForThatFrameOnly) {
    LogCapture::Install();
    const Format mono = formats[0];
    const auto frame = MakeFrame(48 * 16, 5);
    const ImageFormat format{PixelFormat::Mono, 8, 8};
    const float initial = 0.75f;
    JpegCompressor stage;
    ASSERT_TRUE(stage.Init(48, 16, &format, &format, 1, 3, &initial));
    std::vector<uint8_t> out(stage.OutputSize());
    const auto encode = [&](const float* quality) {
        const uint32_t size = stage.Process(frame.data(), out.data(), quality);
        return std::vector<uint8_t>(out.begin(), out.begin() + size);
    };
    const float override = 0.3f;
    EXPECT_EQ(encode(&override), EncodeDirectly(mono, frame, 48, 16, 30));
    EXPECT_EQ(encode(nullptr), EncodeDirectly(mono, frame, 48, 16, 75));
}

TEST(JpegCompressorStage, RefusalsInOrder) {
    LogCapture::Install();
    const float quality = 0.75f;
    const struct {
        ImageFormat in;
        uint32_t scale;
        const char* message;
    } cases[] = {
        {{PixelFormat::YUV420PAlt, 8, 12}, 2, "Compressor: Unsupported scale factor (2)"},
        {{PixelFormat::BayerRGGB, 8, 8}, 1, "Compressor: Invalid input format"},
        {{PixelFormat::UYVY, 8, 16}, 1, "Compressor: Invalid input format"},
        {{PixelFormat::YUV420P, 10, 15}, 1, "Compressor: Unsupported BPP (10)"},
        {{PixelFormat::YUV444P, 16, 48}, 1, "Compressor: Unsupported BPP (16)"},
    };
    for (const auto& c : cases) {
        JpegCompressor stage;
        EXPECT_FALSE(stage.Init(64, 32, &c.in, &c.in, c.scale, 3, &quality));
        EXPECT_EQ(LogCapture::TakeTexts(), std::vector<std::string>{c.message});
    }
    // Packed formats take any depth; odd sizes are the encoder's business.
    for (const ImageFormat in : {ImageFormat{PixelFormat::Mono, 12, 8}, ImageFormat{PixelFormat::RGBX, -3, 32}}) {
        JpegCompressor stage;
        EXPECT_TRUE(stage.Init(33, 7, &in, &in, 1, 3, &quality));
        EXPECT_EQ(stage.OutputSize(), tjBufSize(33, 7, TJSAMP_444));
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

}  // namespace
