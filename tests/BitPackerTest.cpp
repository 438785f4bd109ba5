// Bit-depth reduction: the packed layouts in every place of a frame and nothing past it, the refusals in
// order, the 12 -> 16 mode that writes nothing, and the AVX2 forms against their scalar twins.
#include "TestSupport.h"

#include "primitives/ProcessorLevel.h"
#include "stages/BitPacker.h"

#include <gtest/gtest.h>

#include <random>

namespace {

// `pattern` in the groups that a seeded choice picks and zero bytes in the others, so that order shows.
Bytes Scattered(const Bytes& pattern, size_t groups, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes;
    for (size_t i = 0; i < groups; ++i) {
        const bool picked = random() & 1;
        for (uint8_t byte : pattern) bytes.push_back(picked ? byte : 0);
    }
    return bytes;
}

// One frame into an OutputSize buffer followed by guard bytes, all 0xA5 at first; the guard must stay.
Bytes Convert(uint32_t width, uint32_t height, ImageFormat in, ImageFormat out, const Bytes& frame) {
    BitPacker stage;
    EXPECT_TRUE(stage.Init(width, height, &in, &out, 1, 0, nullptr));
    const uint32_t size = stage.OutputSize();
    Bytes converted(size + 64, 0xA5);
    EXPECT_EQ(stage.Process(frame.data(), converted.data(), nullptr), size);
    EXPECT_EQ(Bytes(converted.begin() + size, converted.end()), Bytes(64, 0xA5)) << "written past the frame";
    converted.resize(size);
    return converted;
}

class BitPackerTest : public StageTest {};

TEST_F(BitPackerTest, PackedGroupsGiveTheirSamplesInEveryPlaceOfAFrame) {
    struct Example {
        ImageFormat in, out;
        Bytes group, samples;
    };
    const ImageFormat mono8{PixelFormat::Mono, 8, 8}, mono16{PixelFormat::Mono, 16, 16};
    const Example examples[] = {
        {{PixelFormat::Mono, 10, 10}, mono8, {0xFF, 0x03, 0, 0, 0}, {255, 0, 0, 0}},
        {{PixelFormat::Mono, 10, 10}, mono8, {0, 0, 0, 0xC0, 0xFF}, {0, 0, 0, 255}},
        // samples 0x155, 0x2AA, 0x0F0, 0x30F
        {{PixelFormat::BayerGBRG, 10, 10}, mono8, {0x55, 0xA9, 0x0A, 0xCF, 0xC3}, {0x55, 0xAA, 0x3C, 0xC3}},
        {{PixelFormat::BayerRGGB, 10, 10}, mono16, {0x55, 0xA9, 0x0A, 0xCF, 0xC3},
         {0x55, 0x01, 0xAA, 0x02, 0xF0, 0x00, 0x0F, 0x03}},
        {{PixelFormat::Mono, 12, 12}, mono8, {0xFF, 0x0F, 0x00}, {255, 0}},
        {{PixelFormat::Mono, 12, 12}, mono8, {0x00, 0xF0, 0xFF}, {0, 255}},
        // samples 0xABC, 0x123
        {{PixelFormat::BayerBGGR, 12, 12}, mono8, {0xBC, 0x3A, 0x12}, {0xAB, 0x12}},
        {{PixelFormat::BayerGRBG, 16, 16}, mono8, {0x34, 0x12, 0x00, 0xFF}, {0x12, 0xFF}},
    };
    // 16 x 6 is three 32-sample steps: every lane position of the wide forms, and an odd count of steps.
    const uint32_t width = 16, height = 6;
    for (int32_t level : {int32_t(PxLevelSse2), int32_t(PxLevelAvx2)}) {
        PxForceProcessorLevel(-1);
        if (level > PxProcessorLevel()) continue;
        PxForceProcessorLevel(level);  // before Init, which chooses the form
        for (const Example& example : examples) {
            SCOPED_TRACE(testing::Message() << "level " << level << ", " << example.in.bitDepth << " -> "
                                            << example.out.bitDepth << ", group of " << example.group.size());
            const size_t groups = size_t(width) * height * example.in.bitsPerPixel / 8 / example.group.size();
            EXPECT_EQ(Convert(width, height, example.in, example.out, Scattered(example.group, groups, 5)),
                      Scattered(example.samples, groups, 5));
        }
    }
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(BitPackerTest, TwelveToSixteenBitsIsAcceptedAndWritesNothing) {
    const Bytes frame = RandomBytes(48, 4);
    EXPECT_EQ(Convert(16, 2, {PixelFormat::BayerRGGB, 12, 12}, {PixelFormat::BayerRGGB, 16, 16}, frame),
              Bytes(64, 0xA5));
    EXPECT_TRUE(LogCapture::Take().empty());
}

TEST_F(BitPackerTest, RefusesInOrderWithItsMessages) {
    struct Refusal {
        uint32_t width, height;
        ImageFormat in, out;
        std::vector<std::string> messages;
    };
    const ImageFormat mono8{PixelFormat::Mono, 8, 8};
    const std::string alignment = "Bitpacker: Unsupported resolution due to alignment requirements";
    const std::string formats = "Bitpacker: Unsupported pixel format ";
    const Refusal refusals[] = {
        {1000, 1000, {PixelFormat::Mono, 12, 12}, mono8, {alignment}},
        {1008, 1001, {PixelFormat::Mono, 12, 12}, mono8, {alignment}},
        // Alignment comes first; an unassigned format is left to the assembly to report.
        {1000, 1000, {0, 12, 12}, mono8, {alignment}},
        {16, 2, {22, 16, 16}, mono8, {}},
        {16, 2, {PixelFormat::Mono, 14, 14}, mono8, {formats + "(14.14 -> 8.8)"}},
        {16, 2, {PixelFormat::BayerRGGB, 10, 16}, mono8, {formats + "(10.16 -> 8.8)"}},
        {16, 2, {PixelFormat::RGB, 16, 48}, {PixelFormat::RGB, 8, 24}, {formats + "(16.48 -> 8.24)"}},
        // An output size that would wrap in 32 bits.
        {65536, 8192, {PixelFormat::Mono, 16, 16}, mono8, {"Bitpacker: Unsupported resolution (65536x8192)"}},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(testing::Message() << refusal.width << " x " << refusal.height << ", format "
                                        << refusal.in.format);
        BitPacker stage;
        EXPECT_FALSE(stage.Init(refusal.width, refusal.height, &refusal.in, &refusal.out, 1, 0, nullptr));
        std::vector<std::string> texts;
        for (const LoggedMessage& message : LogCapture::Take()) {
            EXPECT_EQ(message.level, 3u);
            texts.push_back(message.text);
        }
        EXPECT_EQ(texts, refusal.messages);
    }
}

TEST_F(BitPackerTest, WideFormsEqualTheScalarTwinsOverManySizes) {
    if (PxProcessorLevel() < PxLevelAvx2) GTEST_SKIP() << "this processor has no AVX2";
    const struct {
        BitPackKernel twin, wide;
        uint32_t inBits, outBits, samplesPerGroup;
    } kernels[] = {
        {BitPack10To8, BitPack10To8Avx2, 10, 8, 4},
        {BitPack10To16, BitPack10To16Avx2, 10, 16, 4},
        {BitPack12To8, BitPack12To8Avx2, 12, 8, 2},
        {BitPack16To8, BitPack16To8Avx2, 16, 8, 1},
    };
    for (const auto& kernel : kernels) {
        // Every remainder after the wide steps, then larger sizes; exact buffers, so overruns show under ASan.
        for (size_t samples = 0; samples <= 5000; samples += samples < 160 ? kernel.samplesPerGroup : 1004) {
            SCOPED_TRACE(testing::Message() << kernel.inBits << " -> " << kernel.outBits << ", " << samples);
            const Bytes in = RandomBytes(samples * kernel.inBits / 8, uint32_t(samples));
            Bytes twinOut(samples * kernel.outBits / 8, 0xA5), wideOut(twinOut.size(), 0x5A);
            kernel.twin(in.data(), twinOut.data(), samples);
            kernel.wide(in.data(), wideOut.data(), samples);
            ASSERT_EQ(wideOut, twinOut);
        }
    }
}

}  // namespace
