// The assembly's guards for the host contract: frames that declare fewer bits per pixel than their first stage
// reads, and sizes beyond the contract's 32-bit byte counts, are refused before anything is built; and every
// configuration Init accepts reads and writes its frames strictly inside their bytes.
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#ifndef _WIN32
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace {

using StreamPtr = std::unique_ptr<Stream, FrameFeedStreamDeleter>;

class ContractGuards : public StreamTest {
protected:
    void SetUp() override {
        StreamTest::SetUp();
        HostRecorder::Reset(false);  // no payloads: the frames are many
    }

    // Init's result and its log.
    std::pair<bool, std::vector<std::string>> TryInit(const StreamConfig& config, const ParameterChoice& choice) {
        StreamPtr stream(NewStream(&HostRecorder::Callback));
        const auto parameters = MakeParameters(choice);
        const bool accepted = stream->Init(1, &config, parameters.data(), 0);
        return {accepted, LogCapture::TakeTexts()};
    }
};

TEST_F(ContractGuards, FramesDeclaringTooFewBitsAreRefused) {
    struct Case {
        uint32_t format, bitsPerPixel;
        ParameterChoice choice;
    };
    const Case cases[] = {
        {PixelFormat::Mono, 4, {1, CompressionCode::Raw}},
        {PixelFormat::Mono, 4, {2, CompressionCode::Jpeg}},
        {PixelFormat::BayerRGGB, 4, {1, CompressionCode::Raw, 0.75f, 1}},
        {PixelFormat::RGBX, 24, {1, CompressionCode::Jpeg}},
        {PixelFormat::RGB, 16, {1, CompressionCode::Jpeg}},
        {PixelFormat::YUV422P, 12, {2, CompressionCode::Raw}},
        {PixelFormat::YUV444P, 16, {1, CompressionCode::Jpeg}},
        {PixelFormat::UYVY, 8, {2, CompressionCode::Raw}},
    };
    for (const Case& c : cases) {
        const auto [accepted, log] = TryInit(MakeConfig(c.format, 64, 32, 8, c.bitsPerPixel), c.choice);
        EXPECT_FALSE(accepted) << c.format;
        EXPECT_EQ(log, (std::vector<std::string>{"FrameFeed: Too few bits per pixel (" + std::to_string(c.bitsPerPixel) +
                                                 ") for format " + std::to_string(c.format) + " at depth 8"}));
    }
    // Odd planar sizes round their chroma planes up beyond the declared bits.
    const auto odd = TryInit(MakeConfig(PixelFormat::YUV422P, 17, 11, 8, 16), {1, CompressionCode::Jpeg});
    EXPECT_FALSE(odd.first);
    EXPECT_EQ(odd.second, (std::vector<std::string>{"FrameFeed: Frame of 17 * 11 at 16 bits per pixel is smaller than its planes"}));
    EXPECT_TRUE(TryInit(MakeConfig(PixelFormat::YUV422P, 17, 11, 8, 24), {1, CompressionCode::Raw}).first);
    // Also inside the chain: two rows of 4:2:0 binned by 2 leave one row, whose chroma row rounds up.
    const auto binned = TryInit(MakeConfig(PixelFormat::YUV420P, 128, 2, 8, 12), {2, CompressionCode::Jpeg});
    EXPECT_FALSE(binned.first);
    EXPECT_EQ(binned.second.front(), "FrameFeed: Frame of 64 * 1 at 12 bits per pixel is smaller than its planes");
    // The encoder takes planar YUV only in whole chroma samples, however many bytes the frame declares.
    for (const auto& [format, width, height] : {std::make_tuple(PixelFormat::YUV422P, 17u, 12u),
                                                std::make_tuple(PixelFormat::YUV420P, 16u, 11u)}) {
        const auto partial = TryInit(MakeConfig(format, width, height, 8, 32), {1, CompressionCode::Jpeg});
        EXPECT_FALSE(partial.first);
        EXPECT_EQ(partial.second, (std::vector<std::string>{"FrameFeed: Planar YUV of " + std::to_string(width) + " * " +
                                                            std::to_string(height) + " does not end on a whole chroma sample"}));
    }
    const auto partialBinned = TryInit(MakeConfig(PixelFormat::YUV420P, 128, 2, 8, 16), {2, CompressionCode::Jpeg});
    EXPECT_FALSE(partialBinned.first);
    EXPECT_EQ(partialBinned.second.back(), "FrameFeed: Planar YUV of 64 * 1 does not end on a whole chroma sample");
    // Padded 10-bit YUV rows: a 16-pixel row takes a whole 128-byte block, more than 16 x 32 bits.
    const auto padded = TryInit(MakeConfig(PixelFormat::UYVY, 16, 32, 10, 32), {2, CompressionCode::Raw});
    EXPECT_FALSE(padded.first);
    EXPECT_EQ(padded.second, (std::vector<std::string>{"FrameFeed: Rows of 16 pixels are too short for padded 10-bit YUV"}));
    EXPECT_TRUE(TryInit(MakeConfig(PixelFormat::UYVY, 32, 32, 10, 32), {2, CompressionCode::Raw}).first);
    // More bits than needed keep working: the first stage reads less.
    EXPECT_TRUE(TryInit(MakeConfig(PixelFormat::Mono, 64, 32, 8, 16), {2, CompressionCode::Jpeg}).first);
    EXPECT_TRUE(TryInit(MakeConfig(PixelFormat::RGB, 64, 32, 8, 32), {1, CompressionCode::Jpeg}).first);
    // Deep packings the first stage cannot read are refused by that stage.
    const auto deep = TryInit(MakeConfig(PixelFormat::Mono, 64, 32, 12, 10), {1, CompressionCode::Raw});
    EXPECT_FALSE(deep.first);
    EXPECT_EQ(deep.second.back(), "FrameFeed: Unable to create BitPacker using given parameters");
}

TEST_F(ContractGuards, SizesBeyondThirtyTwoBitsAreRefusedBeforeAnyAllocation) {
    const auto input = TryInit(MakeConfig(PixelFormat::Mono, 65536, 65536, 8, 8), {1, CompressionCode::Jpeg});
    EXPECT_FALSE(input.first);
    EXPECT_EQ(input.second,
              (std::vector<std::string>{"FrameFeed: Frame too large for 32-bit sizes (65536 * 65536 at 8 bits per pixel)"}));
    // A product that would wrap even 64 bits.
    const auto wrapping = TryInit(MakeConfig(PixelFormat::BayerRGGB, 0x80000000u, 28, 10, 0xFFFFFFFFu),
                                  {16, CompressionCode::Raw, 0.75f, 1, 1});
    EXPECT_FALSE(wrapping.first);
    EXPECT_EQ(wrapping.second.size(), 1u);
    // The input fits, the RGB image the fast demosaicking would make of it does not.
    const auto colour = TryInit(MakeConfig(PixelFormat::BayerRGGB, 16384, 16384, 8, 8), {1, CompressionCode::Raw});
    EXPECT_FALSE(colour.first);
    EXPECT_EQ(colour.second,
              (std::vector<std::string>{"FrameFeed: Frame too large for 32-bit sizes (16384 * 16384 at 24 bits per pixel)"}));
}

#ifndef _WIN32
// A frame placed so that its last byte is the last before a page that cannot be touched.
class GuardedFrame {
public:
    explicit GuardedFrame(size_t bytes) {
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        mappedBytes = (bytes + page - 1) / page * page + page;
        base = static_cast<uint8_t*>(mmap(nullptr, mappedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base + mappedBytes - page, page, PROT_NONE);
        frame = base + mappedBytes - page - bytes;
        for (size_t i = 0; i < bytes; ++i) frame[i] = uint8_t(i * 131 + 7);
    }
    ~GuardedFrame() { munmap(base, mappedBytes); }
    const uint8_t* Data() const { return frame; }

private:
    uint8_t* base = nullptr;
    uint8_t* frame = nullptr;
    size_t mappedBytes = 0;
};

// Every configuration Init accepts, at the narrowest widths and odd sizes, runs a frame of exactly the bytes its configuration implies
// against a guard page: a read past the end would crash the test.
TEST_F(ContractGuards, AcceptedConfigurationsStayInsideTheirFrames) {
    const uint32_t formats[] = {0, 1, 2, 5, 6, 7, 11, 12, 14, 15, 16, 17, 18, 19, 22, 300};
    int accepted = 0;
    for (const auto& [width, height] : {std::make_pair(16u, 16u), std::make_pair(32u, 16u), std::make_pair(17u, 11u),
                                        std::make_pair(33u, 16u), std::make_pair(128u, 2u)})
      for (const uint32_t format : formats)
        for (const int32_t depth : {8, 10, 12, 16})
            for (const uint32_t bpp : {4u, 8u, 10u, 12u, 16u, 24u, 32u})
                for (const uint32_t scale : {1u, 2u})
                    for (const uint32_t demosaic : {0u, 1u, 2u})
                        for (const uint32_t compression : {CompressionCode::Raw, CompressionCode::Jpeg})
                            for (const uint8_t keep : {uint8_t(0), uint8_t(1)}) {
                                if (demosaic != 0 && !(format >= 2 && format <= 5)) continue;
                                const StreamConfig config = MakeConfig(format, width, height, depth, bpp);
                                const auto parameters = MakeParameters({scale, compression, 0.75f, demosaic, keep});
                                StreamPtr stream(NewStream(&HostRecorder::Callback));
                                if (!stream->Init(1, &config, parameters.data(), 0)) continue;
                                ++accepted;
                                const size_t bytes = size_t(width) * height * bpp / 8;
                                const GuardedFrame frame(bytes);
                                SCOPED_TRACE(testing::Message() << "format " << format << " depth " << depth << " bpp "
                                                                << bpp << " scale " << scale << " demosaic "
                                                                << demosaic << " compression " << compression
                                                                << " keep " << int(keep));
                                EXPECT_TRUE(stream->ProcessFrame(frame.Data(), uint32_t(bytes), 1, 2));
                                HostRecorder::ReturnAll(HostRecorder::Take());
                            }
    LogCapture::Take();
    EXPECT_GT(accepted, 100);
    std::printf("%d configurations accepted\n", accepted);
}
#endif

}  // namespace
