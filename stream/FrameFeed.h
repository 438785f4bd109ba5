// The stream: builds a chain of stages from the host's records and runs frames through it
// into a pool of output buffers that are lent to the host.
#pragma once

#include "platform/HostDestructibleStream.h"
#include "platform/Platform.h"
#include "stream/ImageProcessing.h"

#include <framefeed/framefeed.h>

#include <cstdint>
#include <utility>
#include <vector>

// One image of the chain and the stage that produces it. Slot 0 is the host's frame.
struct StageSlot {
    ImageProcessing* stage;  // owned; null in slot 0
    uint8_t* buffer;         // slot 0: the host's frame; else owned, or null once the pool took it
    uint32_t size;
    uint8_t pooled;          // the stage writes into a buffer taken from the free list
    uint32_t width;
    uint32_t height;
    ImageFormat format;
    float* param;            // the compressor's quality cell, owned; null elsewhere
};

class FrameFeed final : public platform::HostDestructibleStream<FrameFeed> {
public:
    explicit FrameFeed(OutputCallback outputCallback);
    ~FrameFeed();
    FrameFeed(const FrameFeed&) = delete;
    FrameFeed& operator=(const FrameFeed&) = delete;

    bool Init(uint32_t streamId, const StreamConfig* config, const StreamParameters* parameters,
              uint32_t flags) override;
    bool Reconfigure(const StreamParameters* parameters) override;
    bool ProcessFrame(const void* data, uint32_t size, uint64_t tagA, uint64_t tagB) override;

    // Read-only views for tests and tools.
    uint32_t SlotCount() const { return slotCount; }
    const StageSlot& Slot(uint32_t index) const { return slots[index]; }
    const StreamParameters& Parameters() const { return parameters[0]; }
    const FrameHeader& MasterHeader() const { return header; }
    size_t PoolSize() const { return poolItems.size(); }

private:
    static constexpr uint32_t maxSlots = 8;

    bool BuildChain();
    void TearDownChain();
    StageSlot& OpenSlot();
    bool CloseSlot(ImageProcessing* stage, const char* refusal);
    bool CreatePool();
    // Takes the first free output buffer into current/out; false when the frame is dropped.
    bool TakePooledBuffer(FrameHeader*& current, uint8_t*& out);

    uint32_t streamId = 0;
    StreamConfig config{};
    StreamParameters parameters[4]{};
    StageSlot slots[maxSlots]{};
    uint8_t multiBuffer = 0;
    uint8_t dropWhenBusy = 0;
    uint32_t slotCount = 0;
    OutputCallback outputCallback = nullptr;
    std::vector<std::pair<FrameHeader*, void*>> poolItems;
    FreeList freeList{};
    platform::RecursiveLock poolLock;
    FrameHeader header{};
    platform::RecursiveLock frameLock;
};
