// Which chains a stream builds from the host's records, and how it refuses the rest.
#include "TestSupport.h"

#include "stream/FrameFeed.h"
#include "stream/ImageProcessing.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <memory>

namespace {

class Assembly : public ::testing::Test {
protected:
    void SetUp() override { LogCapture::Install(); }

    bool Init(const StreamConfig& config, const ParameterChoice& choice, uint32_t flags = 0) {
        const auto parameters = MakeParameters(choice);
        return stream->Init(7, &config, parameters.data(), flags);
    }

    std::unique_ptr<FrameFeed> stream = std::make_unique<FrameFeed>(nullptr);
};

struct Refusal {
    const char* name;
    StreamConfig config;
    ParameterChoice choice;
    std::vector<std::string> messages;  // exact, in order
    uint32_t slotCount;
};

ParameterChoice Raw() { return ParameterChoice{1, CompressionCode::Raw}; }
ParameterChoice Jpeg() { return ParameterChoice{}; }
ParameterChoice With(ParameterChoice choice, uint32_t scale, uint32_t demosaic = 0, uint8_t keepHighBpp = 0) {
    choice.scale = scale;
    choice.demosaic = demosaic;
    choice.keepHighBpp = keepHighBpp;
    return choice;
}

TEST_F(Assembly, RefusalsCarryTheirExactMessagesAndLeaveTheSlotsBuiltSoFar) {
    const std::string compressorRefused = "FrameFeed: Unable to create Compressor using given parameters";
    const std::string scaler = "FrameFeed: Unable to create Scaler using given parameters";
    const std::string bitPacker = "FrameFeed: Unable to create BitPacker using given parameters";
    const std::string deBayer = "FrameFeed: Unable to create DeBayer using given parameters";
    const std::string planer = "FrameFeed: Unable to create NewYUVPlaner using given parameters";
    ParameterChoice compression2 = Raw();
    compression2.compression = 2;
    const Refusal refusals[] = {
        {"output compression 2, before slot 0", MakeConfig(PixelFormat::Mono, 64, 32, 8, 8), compression2,
         {"FrameFeed: Unsupported compression requested (2)"}, 0},
        {"input compression 2", MakeConfig(PixelFormat::Mono, 64, 32, 8, 8, 2), Jpeg(),
         {"FrameFeed: Unsupported input compression (2)"}, 1},
        {"JPEG input asked for raw output, silently", MakeConfig(PixelFormat::Mono, 64, 32, 8, 8, 3), Raw(), {}, 1},
        {"YUV code 20", MakeConfig(20, 64, 32, 8, 16), Jpeg(), {"FrameFeed: Unsupported input YUV format (20)"}, 1},
        {"YUV code 21", MakeConfig(21, 64, 32, 8, 16), Raw(), {"FrameFeed: Unsupported input YUV format (21)"}, 1},
        {"packed YUV code 8", MakeConfig(8, 64, 32, 8, 16), Jpeg(), {"FrameFeed: Unsupported input YUV format (8)"}, 1},
        {"packed YUV code 13", MakeConfig(13, 64, 32, 8, 16), Raw(),
         {"FrameFeed: Unsupported input YUV format (13)"}, 1},
        {"10-bit UYVY at scale 1", MakeConfig(PixelFormat::UYVY, 96, 32, 10, 32), Jpeg(),
         {"FrameFeed: Unsupported scale 1 for YUV format 11"}, 1},
        {"keepHighBpp on 8-bit Mono", MakeConfig(PixelFormat::Mono, 64, 32, 8, 8), With(Raw(), 1, 0, 1),
         {"FrameFeed: Can't keep high BPP"}, 1},
        {"keepHighBpp on planar YUV", MakeConfig(PixelFormat::YUV420P, 64, 32, 8, 12), With(Jpeg(), 1, 0, 1),
         {"FrameFeed: Can't keep high BPP"}, 1},
        {"keepHighBpp, Bayer, demosaic 0", MakeConfig(PixelFormat::BayerGRBG, 64, 32, 12, 16),
         With(Jpeg(), 1, 0, 1), {"FrameFeed: Can't keep high BPP"}, 1},
        {"keepHighBpp, Bayer, demosaic 1 at scale 2", MakeConfig(PixelFormat::BayerRGGB, 64, 32, 12, 16),
         With(Jpeg(), 2, 1, 1), {"FrameFeed: Can't keep high BPP"}, 1},
        {"compressor refuses YUV420PAlt", MakeConfig(PixelFormat::YUV420PAlt, 64, 32, 8, 12), Jpeg(),
         {"Compressor: Invalid input format", compressorRefused}, 1},
        {"compressor refuses 4:1:1", MakeConfig(PixelFormat::YUV411P, 64, 32, 8, 12), Jpeg(),
         {"Compressor: Invalid input format", compressorRefused}, 1},
        {"negative depth is shallow, and the compressor prints it unsigned",
         MakeConfig(PixelFormat::YUV422P, 64, 32, -1, 16), Jpeg(),
         {"Compressor: Unsupported BPP (4294967295)", compressorRefused}, 1},
        {"unassigned format as JPEG", MakeConfig(22, 64, 32, 8, 8), Jpeg(),
         {"Compressor: Invalid input format", compressorRefused}, 1},
        {"unassigned deep format stops at the bit packer", MakeConfig(0x7FFF, 64, 32, 12, 12), Raw(),
         {"FrameFeed: Unable to create BitPacker using given parameters"}, 1},
        // A stage that refuses logs first, and the assembly names it.
        {"RGB cannot be binned", MakeConfig(PixelFormat::RGB, 64, 32, 8, 24), With(Jpeg(), 2),
         {"Scaler: Unsupported pixel format (6)", scaler}, 1},
        {"no stage bins by 3", MakeConfig(PixelFormat::Mono, 64, 32, 8, 8), With(Raw(), 3),
         {"Scaler: Unsupported scale factor (3)", scaler}, 1},
        {"binning needs a width of 16s", MakeConfig(PixelFormat::YUV420P, 40, 32, 8, 12), With(Raw(), 2),
         {"Scaler: Invalid image alignment (40 * 32, Scale = 2)", scaler}, 1},
        {"deep RGB cannot be reduced", MakeConfig(PixelFormat::RGB, 64, 32, 12, 36), Jpeg(),
         {"Bitpacker: Unsupported pixel format (12.36 -> 8.24)", bitPacker}, 1},
        {"14-bit data has no reduction", MakeConfig(PixelFormat::Mono, 64, 32, 14, 14), Raw(),
         {"Bitpacker: Unsupported pixel format (14.14 -> 8.8)", bitPacker}, 1},
        {"demosaic 7 is the fast one, which keeps no deep data", MakeConfig(PixelFormat::BayerBGGR, 64, 32, 12, 16),
         With(Jpeg(), 1, 7, 1), {"DeBayerLQ: Unsupported input bit depth (12)", deBayer}, 1},
        {"the fast demosaicking does not bin by 3", MakeConfig(PixelFormat::BayerRGGB, 64, 32, 8, 8),
         With(Raw(), 3), {"DeBayerLQ: Unsupported scale factor (3)", deBayer}, 1},
        {"16-bit samples are beyond what HA reads itself", MakeConfig(PixelFormat::BayerBGGR, 64, 32, 16, 16),
         With(Raw(), 1, 1, 1), {"DeBayer (HQ): Invalid image precision", deBayer}, 1},
        {"packed YUV is not binned by 8", MakeConfig(PixelFormat::YUYV, 64, 32, 8, 16), With(Raw(), 8),
         {"YUVPlaner: Unsupported scale factor(8)", planer}, 1},
        {"deep data with a width not of 16s stops at the reduction", MakeConfig(PixelFormat::BayerGRBG, 40, 32, 16, 16),
         Raw(), {"Bitpacker: Unsupported resolution due to alignment requirements", bitPacker}, 1},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        stream = std::make_unique<FrameFeed>(nullptr);
        EXPECT_FALSE(Init(refusal.config, refusal.choice));
        const auto messages = LogCapture::Take();
        std::vector<std::string> texts;
        for (const LoggedMessage& message : messages) {
            EXPECT_EQ(message.level, 3u);
            texts.push_back(message.text);
        }
        EXPECT_EQ(texts, refusal.messages);
        EXPECT_EQ(stream->SlotCount(), refusal.slotCount);
        EXPECT_EQ(stream->PoolSize(), 0u);
    }
}

TEST_F(Assembly, JpegOutputChainsEndInACompressorWithAPool) {
    struct Case {
        uint32_t format;
        uint32_t bitsPerPixel;
    };
    const Case cases[] = {{PixelFormat::Mono, 8},     {PixelFormat::RGB, 24},     {PixelFormat::RGBX, 32},
                          {PixelFormat::YUV420P, 12}, {PixelFormat::YUV422P, 16}, {PixelFormat::YUV444P, 24}};
    for (const Case& c : cases) {
        for (const uint32_t flags : {0u, uint32_t(StreamFlags::SingleBuffer)}) {
            SCOPED_TRACE(testing::Message() << "format " << c.format << " flags " << flags);
            stream = std::make_unique<FrameFeed>(nullptr);
            ASSERT_TRUE(Init(MakeConfig(c.format, 96, 50, 8, c.bitsPerPixel), Jpeg(), flags));
            EXPECT_TRUE(LogCapture::Take().empty());
            ASSERT_EQ(stream->SlotCount(), 2u);
            const StageSlot& jpeg = stream->Slot(1);
            EXPECT_NE(jpeg.stage, nullptr);
            EXPECT_TRUE(jpeg.pooled);
            EXPECT_EQ(jpeg.buffer, nullptr) << "the pool took the chain's last block";
            EXPECT_EQ(jpeg.size, tjBufSize(96, 50, TJSAMP_444));
            EXPECT_EQ(jpeg.format.format, c.format);
            EXPECT_EQ(jpeg.format.bitsPerPixel, c.bitsPerPixel);
            ASSERT_NE(jpeg.param, nullptr);
            EXPECT_EQ(*jpeg.param, 0.75f);
            EXPECT_EQ(stream->PoolSize(), flags ? 1u : 4u);
        }
    }
}

TEST_F(Assembly, StreamsWithoutStagesHaveNoPool) {
    struct Case {
        const char* name;
        StreamConfig config;
        ParameterChoice choice;
    };
    const Case cases[] = {
        {"8-bit Mono, raw", MakeConfig(PixelFormat::Mono, 64, 32, 8, 8), Raw()},
        {"JPEG in, JPEG out", MakeConfig(PixelFormat::BayerRGGB, 64, 32, 12, 16, 3), With(Jpeg(), 4)},
        {"unassigned format at depth 8", MakeConfig(0, 64, 32, 8, 8), Raw()},
        {"unassigned format 22", MakeConfig(22, 64, 32, 8, 8), Raw()},
        {"unassigned format with a negative depth", MakeConfig(0xFFFFFFFF, 64, 32, -12, 8), Raw()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        stream = std::make_unique<FrameFeed>(nullptr);
        EXPECT_TRUE(Init(c.config, c.choice));
        EXPECT_TRUE(LogCapture::Take().empty());
        EXPECT_EQ(stream->SlotCount(), 1u);
        EXPECT_EQ(stream->PoolSize(), 0u);
    }
}

TEST_F(Assembly, ScaleIsClampedAndWrittenBack) {
    const StreamConfig jpegInput = MakeConfig(PixelFormat::Mono, 1000, 1001, 8, 8, CompressionCode::Jpeg);
    const struct {
        uint32_t requested, stored;
    } cases[] = {{0, 1}, {1, 1}, {5, 5}, {16, 16}, {17, 16}, {300, 16}, {0xFFFFFFFF, 16}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.requested);
        stream = std::make_unique<FrameFeed>(nullptr);
        ASSERT_TRUE(Init(jpegInput, With(Jpeg(), c.requested)));
        EXPECT_EQ(stream->Parameters().scale, c.stored);
        EXPECT_EQ(stream->MasterHeader().frameWidth, 1000 / c.stored);
        EXPECT_EQ(stream->MasterHeader().frameHeight, 1001 / c.stored);
    }
}

TEST_F(Assembly, InitWithoutParametersTakesTheDefaults) {
    const StreamConfig config = MakeConfig(PixelFormat::Mono, 64, 32, 8, 8);
    ASSERT_TRUE(stream->Init(3, &config, nullptr, 0));
    const StreamParameters& stored = stream->Parameters();
    EXPECT_EQ(stored.scale, 1u);
    EXPECT_EQ(stored.demosaic, 0u);
    EXPECT_EQ(stored.compression, CompressionCode::Jpeg);
    EXPECT_EQ(stored.quality, 0.75f);
    EXPECT_EQ(stored.keepHighBpp, 0);
    EXPECT_EQ(stream->SlotCount(), 2u) << "JPEG by default";
    EXPECT_EQ(stream->MasterHeader().streamId, 3u);
    EXPECT_EQ(stream->MasterHeader().tailBytes, 20u);
}

TEST_F(Assembly, InitWithoutConfigIsRefused) {
    EXPECT_FALSE(stream->Init(1, nullptr, nullptr, 0));
    EXPECT_EQ(LogCapture::Take().size(), 1u);
    EXPECT_EQ(stream->SlotCount(), 0u);
}

// The shared output size multiplies the height before its division.
class ScaledStage : public ImageProcessing {
public:
    ScaledStage(uint32_t w, uint32_t h, uint32_t s, uint32_t bitsPerPixel) {
        width = w;
        height = h;
        scale = s;
        outFormat.bitsPerPixel = bitsPerPixel;
    }
    bool Init(uint32_t, uint32_t, const ImageFormat*, const ImageFormat*, uint32_t, uint32_t, const void*) override {
        return true;
    }
    uint32_t OutputSize() override { return ScaledOutputSize(); }
    uint32_t Process(const void*, void*, const void*) override { return 0; }
};

TEST(SharedOutputSize, MultipliesTheHeightBeforeDividingIt) {
    EXPECT_EQ(ScaledStage(1000, 1001, 8, 8).OutputSize(), 15640u);
    EXPECT_EQ(ScaledStage(1000, 1000, 8, 8).OutputSize(), 15625u);
    EXPECT_EQ(ScaledStage(1920, 1080, 2, 32).OutputSize(), 960u * 540u * 4u);
    EXPECT_EQ(ScaledStage(640, 480, 1, 12).OutputSize(), 640u * 480u * 3u / 2u);
}

}  // namespace
