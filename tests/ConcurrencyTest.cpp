// Many streams on many threads while host threads give buffers back at random moments.
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

namespace {

constexpr int streamCount = 4;
constexpr int framesPerStream = 1500;

ReturnQueue returns;
std::atomic<uint64_t> delivered[streamCount];
std::atomic<uint64_t> returned{0};
std::atomic<uint64_t> badHeaders{0};

void Deliver(OutputFrame* frame) {
    const FrameHeader& header = *frame->header;
    if (header.streamId >= streamCount || header.tailBytes != 20 || header.tagB != header.tagA * 3 ||
        header.payloadSize == 0 || frame->freeList == nullptr)
        ++badHeaders;
    else
        ++delivered[header.streamId];
    returns.Push(*frame);
}

void ReturnBuffers(uint32_t seed) {
    std::mt19937 random(seed);
    OutputFrame frame;
    while (returns.Pop(frame)) {
        if (random() % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        FrameFeedReturnBuffer(frame);
        ++returned;
    }
}

TEST(Concurrency, StreamsOnSeveralThreadsGetEveryBufferBack) {
    LogCapture::Install();
    for (auto& count : delivered) count = 0;

    std::vector<std::thread> returners;
    for (uint32_t i = 0; i < 3; ++i) returners.emplace_back(ReturnBuffers, 100 + i);

    std::atomic<uint64_t> dropped{0};
    std::vector<std::thread> hosts;
    for (uint32_t id = 0; id < streamCount; ++id) {
        hosts.emplace_back([id, &dropped] {
            const uint32_t format = id % 2 ? PixelFormat::YUV420P : PixelFormat::Mono;
            const StreamConfig config = MakeConfig(format, 32, 16, 8, format == PixelFormat::Mono ? 8 : 12);
            const auto frame = MakeFrame(32 * 16 * 3 / 2, id);
            // Even streams drop when busy, odd ones wait; stream 3 has a single buffer.
            const uint32_t flags = (id % 2 ? StreamFlags::WaitWhenBusy : 0u) | (id == 3 ? StreamFlags::SingleBuffer : 0u);
            std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(&Deliver));
            auto parameters = MakeParameters(ParameterChoice{});
            ASSERT_TRUE(stream->Init(id, &config, parameters.data(), flags));
            for (uint64_t tag = 0; tag < framesPerStream; ++tag) {
                if (tag % 100 == 50) {  // a live change of quality now and then
                    parameters[0].quality = 0.5f + float(tag % 7) / 20.0f;
                    EXPECT_TRUE(stream->Reconfigure(parameters.data()));
                }
                if (tag == framesPerStream / 2 && id == 2) {  // one rebuild in the middle, with buffers out
                    parameters[0].compression = CompressionCode::Raw;
                    EXPECT_TRUE(stream->Reconfigure(parameters.data()));
                    parameters[0].compression = CompressionCode::Jpeg;
                    EXPECT_TRUE(stream->Reconfigure(parameters.data()));
                }
                if (!stream->ProcessFrame(frame.data(), uint32_t(frame.size()), tag, tag * 3)) ++dropped;
            }
            // Destruction waits for the lent buffers that the returners still hold.
        });
    }
    for (auto& host : hosts) host.join();
    returns.Close();
    for (auto& returner : returners) returner.join();

    uint64_t total = 0;
    for (auto& count : delivered) total += count;
    EXPECT_EQ(badHeaders.load(), 0u);
    EXPECT_EQ(total + dropped, uint64_t(streamCount) * framesPerStream);
    EXPECT_EQ(returned.load(), total) << "every lent buffer came home";
    EXPECT_EQ(delivered[1].load(), uint64_t(framesPerStream)) << "a waiting stream drops nothing";
    EXPECT_EQ(delivered[3].load(), uint64_t(framesPerStream));
    EXPECT_TRUE(LogCapture::Take().empty());
}

}  // namespace
