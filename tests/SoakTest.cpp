// The soak: streams of random formats and scales on several host threads, random live changes and rebuilds,
// buffers given back by other threads after random delays. Every buffer must come home, every stream must tear
// down, and the heap must return to where it started. FRAMEFEED_SOAK_FRAMES sets the frames per stream (the
// default keeps it short for the sanitizer runs).
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

struct SoakCase {
    uint32_t format;
    int32_t depth;
    uint32_t bitsPerPixel;
};

const SoakCase soakCases[] = {
    {PixelFormat::Mono, 8, 8},       {PixelFormat::Mono, 12, 12},      {PixelFormat::BayerRGGB, 8, 8},
    {PixelFormat::BayerGBRG, 10, 10}, {PixelFormat::UYVY, 8, 16},      {PixelFormat::YUV420P, 8, 12},
    {PixelFormat::YUV444P, 8, 24},   {PixelFormat::RGBX, 8, 32},       {PixelFormat::BayerBGGR, 8, 8},
};

ReturnQueue pending;
std::atomic<uint64_t> lent{0}, cameHome{0};

void Lend(OutputFrame* frame) {
    ++lent;
    pending.Push(*frame);
}

size_t HeapInUse() {
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
    return mallinfo2().uordblks;
#else
    return 0;
#endif
}

TEST(Soak, RandomStreamsOnSeveralThreadsGiveEveryBufferBackAndFreeEverything) {
    LogCapture::Install();
    const char* setting = std::getenv("FRAMEFEED_SOAK_FRAMES");
    const int framesPerStream = setting != nullptr ? std::atoi(setting) : 600;
    const int streamsPerThread = 3, hostThreads = 3;
    // One round first, so lazily built process-wide state is in place before the heap is measured.
    const size_t heapBefore = HeapInUse();
    std::atomic<uint64_t> frames{0};

    std::vector<std::thread> returners;
    for (uint32_t r = 0; r < 2; ++r)
        returners.emplace_back([r] {
            std::mt19937 random(900 + r);
            OutputFrame frame;
            while (pending.Pop(frame)) {
                if (random() % 3 == 0) std::this_thread::sleep_for(std::chrono::microseconds(random() % 200));
                FrameFeedReturnBuffer(frame);
                ++cameHome;
            }
        });

    std::vector<std::thread> hosts;
    for (int h = 0; h < hostThreads; ++h)
        hosts.emplace_back([h, framesPerStream, &frames] {
            std::mt19937 random(77 + h);
            for (int s = 0; s < streamsPerThread; ++s) {
                const SoakCase& c = soakCases[random() % (sizeof(soakCases) / sizeof(soakCases[0]))];
                const uint32_t width = 32 * (1 + random() % 3), height = 16 * (1 + random() % 2);
                const StreamConfig config = MakeConfig(c.format, width, height, c.depth, c.bitsPerPixel);
                const std::vector<uint8_t> frame = MakeFrame(size_t(width) * height * c.bitsPerPixel / 8, random());
                const uint32_t flags = random() % 4;
                std::unique_ptr<Stream, FrameFeedStreamDeleter> stream(NewStream(&Lend));
                const uint32_t scales[] = {1, 2, 4};
                auto parameters = MakeParameters({scales[random() % 3], CompressionCode::Jpeg, 0.6f, 0});
                if (!stream->Init(uint32_t(h * 10 + s), &config, parameters.data(), flags)) continue;
                for (int f = 0; f < framesPerStream; ++f) {
                    if (random() % 97 == 0) {  // a live change or a rebuild
                        parameters[0].quality = float(random() % 100) / 100.0f;
                        if (random() % 2) parameters[0].scale = scales[random() % 3];
                        if (random() % 3 == 0) parameters[0].compression = CompressionCode::Raw + (random() % 2) * 2;
                        stream->Reconfigure(parameters.data());
                    }
                    stream->ProcessFrame(frame.data(), uint32_t(frame.size()), uint64_t(f), 0);
                    ++frames;
                }
            }
        });
    for (auto& host : hosts) host.join();
    pending.Close();
    for (auto& returner : returners) returner.join();

    EXPECT_GT(frames.load(), uint64_t(framesPerStream));
    EXPECT_EQ(cameHome.load(), lent.load()) << "every lent buffer came home";
    LogCapture::Take();
    const size_t heapAfter = HeapInUse();
    if (heapBefore != 0) EXPECT_LE(heapAfter, heapBefore + 64 * 1024) << "the heap returned to its level";
    std::printf("soak: %llu frames, %llu lent and returned, heap %zu -> %zu bytes\n",
                (unsigned long long)frames.load(), (unsigned long long)lent.load(), heapBefore, heapAfter);
}

}  // namespace
