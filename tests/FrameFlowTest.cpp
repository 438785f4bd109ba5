// How frames walk a stream, and how output buffers circulate between stream and host.
#include "TestSupport.h"

#include "stream/FrameFeed.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <set>
#include <thread>

namespace {

using namespace std::chrono_literals;

class FrameFlow : public StreamTest {
protected:
    std::unique_ptr<FrameFeed> MakeStream(const StreamConfig& config, const ParameterChoice& choice, uint32_t flags,
                                          OutputCallback callback = &HostRecorder::Callback) {
        auto stream = std::make_unique<FrameFeed>(callback);
        const auto parameters = MakeParameters(choice);
        EXPECT_TRUE(stream->Init(11, &config, parameters.data(), flags));
        return stream;
    }

    const StreamConfig mono = MakeConfig(PixelFormat::Mono, 64, 48, 8, 8);
    const std::vector<uint8_t> frame = MakeFrame(64 * 48, 1);
};

void ReturnLater(const Delivery& delivery, std::chrono::milliseconds delay, std::atomic<bool>& returned) {
    std::this_thread::sleep_for(delay);
    returned = true;
    FrameFeedReturnBuffer(delivery.frame);
}

TEST_F(FrameFlow, AStreamWithoutStagesHandsTheHostsFrameOnWithTheMasterHeader) {
    auto stream = MakeStream(mono, ParameterChoice{1, CompressionCode::Raw}, 0);
    ASSERT_EQ(stream->SlotCount(), 1u);
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 12345, 0x1122334455667788ull, 0x99AABBCCDDEEFF00ull));
    const auto deliveries = HostRecorder::Take();
    ASSERT_EQ(deliveries.size(), 1u);
    const Delivery& d = deliveries[0];
    EXPECT_EQ(d.frame.data, frame.data());
    EXPECT_EQ(d.frame.freeList, nullptr);
    EXPECT_EQ(d.frame.header, &stream->MasterHeader());
    EXPECT_EQ(uint64_t(d.header.reserved0), 0u);
    EXPECT_EQ(d.header.streamId, 11u);
    EXPECT_EQ(uint64_t(d.header.tagA), 0x1122334455667788ull);
    EXPECT_EQ(d.header.tailBytes, 20u);
    EXPECT_EQ(d.header.payloadSize, 64u * 48u) << "raw size from the configuration, not the host's size";
    EXPECT_EQ(uint64_t(d.header.tagB), 0x99AABBCCDDEEFF00ull);
    EXPECT_EQ(d.header.frameWidth, 64u);
    EXPECT_EQ(d.header.frameHeight, 48u);
    EXPECT_EQ(d.header.reserved44, 0u);
    EXPECT_EQ(d.payload, frame);
}

TEST_F(FrameFlow, JpegPassThroughKeepsTheHostsBytesAndReportsTheScaledSize) {
    const StreamConfig jpegInput = MakeConfig(PixelFormat::Mono, 64, 48, 8, 8, CompressionCode::Jpeg);
    auto stream = MakeStream(jpegInput, ParameterChoice{2}, 0);
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 777, 1, 2));
    const auto deliveries = HostRecorder::Take();
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].frame.data, frame.data());
    EXPECT_EQ(deliveries[0].header.payloadSize, 777u) << "a JPEG frame's size is the host's";
    EXPECT_EQ(deliveries[0].header.frameWidth, 32u);
    EXPECT_EQ(deliveries[0].header.frameHeight, 24u);
}

TEST_F(FrameFlow, AStreamWithoutAChainDeliversAnEmptyPayload) {
    ParameterChoice badCompression{1, 2};
    auto stream = std::make_unique<FrameFeed>(&HostRecorder::Callback);
    const auto parameters = MakeParameters(badCompression);
    ASSERT_FALSE(stream->Init(1, &mono, parameters.data(), 0));
    ASSERT_EQ(stream->SlotCount(), 0u);
    EXPECT_TRUE(stream->Reconfigure(parameters.data())) << "nothing to reconfigure";
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 100, 5, 6));
    const auto deliveries = HostRecorder::Take();
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].frame.data, frame.data());
    EXPECT_EQ(deliveries[0].header.payloadSize, 0u);
    EXPECT_EQ(deliveries[0].frame.freeList, nullptr);
}

// With every buffer of the pool lent (one with SingleBuffer, else four, each distinct), the next frame is dropped
// without a callback or a message, or in wait mode waits until another thread gives one back, and takes that one.
TEST_F(FrameFlow, AFrameWithEveryBufferLentIsDroppedOrWaitsForOne) {
    for (const uint32_t pool : {1u, 4u})
        for (const bool wait : {false, true}) {
            SCOPED_TRACE(testing::Message() << pool << (wait ? " buffers, wait" : " buffers, drop"));
            const uint32_t flags = (pool == 1 ? uint32_t(StreamFlags::SingleBuffer) : 0u) |
                                   (wait ? uint32_t(StreamFlags::WaitWhenBusy) : 0u);
            auto stream = MakeStream(mono, ParameterChoice{}, flags);
            for (uint64_t tag = 0; tag < pool; ++tag) ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, tag, 0));
            const auto lent = HostRecorder::Take();
            ASSERT_EQ(lent.size(), pool);
            std::set<void*> buffers;
            for (const Delivery& d : lent) buffers.insert(d.frame.data);
            EXPECT_EQ(buffers.size(), pool) << "distinct buffers";
            const Delivery& comesHome = lent[pool / 2];
            std::atomic<bool> returned{false};
            std::thread host;
            if (wait) {
                host = std::thread(ReturnLater, comesHome, 40ms, std::ref(returned));
            } else {
                EXPECT_FALSE(stream->ProcessFrame(frame.data(), 0, pool, 0));
                EXPECT_TRUE(HostRecorder::Take().empty()) << "no callback for the dropped frame";
                EXPECT_TRUE(LogCapture::Take().empty()) << "a drop is silent";
                FrameFeedReturnBuffer(comesHome.frame);
            }
            EXPECT_TRUE(stream->ProcessFrame(frame.data(), 0, pool + 1, 0));
            if (wait) {
                EXPECT_TRUE(returned) << "the frame waited for the buffer";
                host.join();
            }
            const auto next = HostRecorder::Take();
            ASSERT_EQ(next.size(), 1u);
            EXPECT_EQ(next[0].frame.data, comesHome.frame.data) << "the one buffer that came home";
            EXPECT_EQ(next[0].frame.header, comesHome.frame.header);
            EXPECT_EQ(uint64_t(next[0].header.tagA), pool + 1);
            for (const Delivery& d : lent)
                if (d.frame.data != comesHome.frame.data) FrameFeedReturnBuffer(d.frame);
            HostRecorder::ReturnAll(next);
        }
}

TEST_F(FrameFlow, BuffersCirculateInTheOrderTheyComeHome) {
    auto stream = MakeStream(mono, ParameterChoice{}, 0);
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, i, 0));
    const auto lent = HostRecorder::Take();
    HostRecorder::ReturnAll({lent[3], lent[1], lent[0], lent[2]});
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, i, 0));
    const auto again = HostRecorder::Take();
    ASSERT_EQ(again.size(), 4u);
    EXPECT_EQ(again[0].frame.data, lent[3].frame.data);
    EXPECT_EQ(again[1].frame.data, lent[1].frame.data);
    EXPECT_EQ(again[2].frame.data, lent[0].frame.data);
    EXPECT_EQ(again[3].frame.data, lent[2].frame.data);
    HostRecorder::ReturnAll(again);
}

TEST_F(FrameFlow, LiveReconfigureKeepsBuffersAndDoesNotWaitForLentOnes) {
    auto stream = MakeStream(mono, ParameterChoice{}, 0);
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 0, 0));
    const auto lent = HostRecorder::Take();  // kept by the host throughout

    ParameterChoice sharper{};
    sharper.quality = 0.95f;
    auto parameters = MakeParameters(sharper);
    parameters[0].keepHighBpp = 1;  // ignored on the live path
    parameters[0].reserved8 = 2.5;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(stream->Reconfigure(parameters.data()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(stream->Parameters().quality, 0.95f);
    EXPECT_EQ(stream->Parameters().reserved8, 2.5);
    EXPECT_EQ(stream->Parameters().keepHighBpp, 0);
    EXPECT_EQ(*stream->Slot(1).param, 0.95f) << "the compressor's cell follows";
    EXPECT_EQ(stream->PoolSize(), 4u);

    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 1, 0));
    const auto after = HostRecorder::Take();
    ASSERT_EQ(after.size(), 1u);
    EXPECT_NE(after[0].frame.data, lent[0].frame.data) << "the lent buffer was not touched";
    EXPECT_GT(after[0].header.payloadSize, lent[0].header.payloadSize) << "higher quality, larger JPEG";
    HostRecorder::ReturnAll(lent);
    HostRecorder::ReturnAll(after);
}

TEST_F(FrameFlow, ARebuildWaitsForLentBuffersAndChangesTheFrameSize) {
    auto stream = MakeStream(mono, ParameterChoice{}, 0);
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 0, 0));
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 1, 0));
    const auto lent = HostRecorder::Take();

    std::atomic<bool> returned{false};
    std::thread host([&] {
        std::this_thread::sleep_for(60ms);
        returned = true;
        HostRecorder::ReturnAll(lent);
    });
    const auto parameters = MakeParameters(ParameterChoice{2});
    stream->Reconfigure(parameters.data());
    EXPECT_TRUE(returned) << "the rebuild waited for both lent buffers";
    host.join();
    EXPECT_EQ(stream->Parameters().scale, 2u);

    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 2, 0));
    const auto after = HostRecorder::Take();
    ASSERT_EQ(after.size(), 1u);
    EXPECT_EQ(after[0].header.frameWidth, 32u);
    EXPECT_EQ(after[0].header.frameHeight, 24u);
    HostRecorder::ReturnAll(after);
}

TEST_F(FrameFlow, ARebuildToRawOutputDropsThePool) {
    auto stream = MakeStream(mono, ParameterChoice{}, 0);
    const auto parameters = MakeParameters(ParameterChoice{1, CompressionCode::Raw});
    ASSERT_TRUE(stream->Reconfigure(parameters.data()));
    EXPECT_EQ(stream->SlotCount(), 1u);
    EXPECT_EQ(stream->PoolSize(), 0u);
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 0, 0));
    const auto deliveries = HostRecorder::Take();
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].frame.data, frame.data());
}

TEST_F(FrameFlow, AFailedRebuildDeliversFromItsLastBuiltSlotWithoutAPool) {
    auto stream = MakeStream(mono, ParameterChoice{}, 0);
    const auto parameters = MakeParameters(ParameterChoice{3});  // nothing bins by 3
    EXPECT_FALSE(stream->Reconfigure(parameters.data()));
    EXPECT_EQ(LogCapture::TakeTexts().back(), "FrameFeed: Unable to create Scaler using given parameters");
    ASSERT_EQ(stream->SlotCount(), 1u);
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 0, 0));
    const auto deliveries = HostRecorder::Take();
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].frame.data, frame.data());
    EXPECT_EQ(deliveries[0].frame.freeList, nullptr);
    EXPECT_EQ(deliveries[0].header.frameWidth, 21u);

    // The same parameters again take the live path; different ones rebuild.
    EXPECT_TRUE(stream->Reconfigure(parameters.data()));
    const auto working = MakeParameters(ParameterChoice{});
    EXPECT_TRUE(stream->Reconfigure(working.data()));
    EXPECT_EQ(stream->SlotCount(), 2u);
    EXPECT_EQ(stream->PoolSize(), 4u);
}

TEST_F(FrameFlow, OutOfRangeScaleRebuildsEvenWhenItClampsToTheSameValue) {
    // keepHighBpp shows which path ran: the live path ignores it, a rebuild stores it.
    const StreamConfig jpegInput = MakeConfig(PixelFormat::Mono, 64, 48, 8, 8, CompressionCode::Jpeg);
    auto stream = MakeStream(jpegInput, ParameterChoice{16}, 0);
    auto same = MakeParameters(ParameterChoice{16});
    same[0].keepHighBpp = 1;
    EXPECT_TRUE(stream->Reconfigure(same.data()));
    EXPECT_EQ(stream->Parameters().keepHighBpp, 0) << "live";
    auto outOfRange = MakeParameters(ParameterChoice{300});
    outOfRange[0].keepHighBpp = 1;
    EXPECT_TRUE(stream->Reconfigure(outOfRange.data()));
    EXPECT_EQ(stream->Parameters().keepHighBpp, 1) << "rebuilt";
    EXPECT_EQ(stream->Parameters().scale, 16u);
}

TEST_F(FrameFlow, WithoutACallbackEveryFrameReusesTheFirstBuffer) {
    auto stream = MakeStream(mono, ParameterChoice{}, StreamFlags::SingleBuffer, nullptr);
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(stream->ProcessFrame(frame.data(), 0, i, 0));
}

TEST_F(FrameFlow, DestroyingAStreamWithoutAChainReturnsAtOnce) {
    const auto start = std::chrono::steady_clock::now();
    Stream* stream = NewStream(&HostRecorder::Callback);
    FrameFeedDeleteStream(stream);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
}

TEST_F(FrameFlow, DestroyingAStreamWaitsForItsLentBuffers) {
    Stream* stream = NewStream(&HostRecorder::Callback);
    const auto parameters = MakeParameters(ParameterChoice{});
    ASSERT_TRUE(stream->Init(1, &mono, parameters.data(), 0));
    ASSERT_TRUE(stream->ProcessFrame(frame.data(), 0, 0, 0));
    const auto lent = HostRecorder::Take();
    std::atomic<bool> returned{false};
    std::thread host(ReturnLater, lent[0], 40ms, std::ref(returned));
    FrameFeedDeleteStream(stream);
    EXPECT_TRUE(returned);
    host.join();
}

}  // namespace
