// The binary contract with hosts: record layouts, and the plug-in as a host loads it.
#include "TestSupport.h"

#include <gtest/gtest.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <string>

namespace {

TEST(Layout, RecordsHaveTheHostsSizesAndOffsets) {
    EXPECT_EQ(sizeof(ImageFormat), 12u);
    EXPECT_EQ(sizeof(StreamConfig), 68u);
    EXPECT_EQ(sizeof(StreamParameters), 128u);
    EXPECT_EQ(sizeof(StreamParameters[4]), 512u);
    EXPECT_EQ(sizeof(FrameHeader), 48u);
    EXPECT_EQ(sizeof(OutputFrame), 32u);
    EXPECT_EQ(sizeof(FreeList), 16u);
    EXPECT_EQ(sizeof(FreeListNode), 32u);
    const struct {
        const char* name;
        size_t offset;
        size_t expected;
    } fields[] = {
        {"StreamConfig.inputCompression", offsetof(StreamConfig, inputCompression), 12},
        {"StreamConfig.width", offsetof(StreamConfig, width), 16},
        {"StreamConfig.height", offsetof(StreamConfig, height), 20},
        {"StreamParameters.demosaic", offsetof(StreamParameters, demosaic), 4},
        {"StreamParameters.compression", offsetof(StreamParameters, compression), 40},
        {"StreamParameters.quality", offsetof(StreamParameters, quality), 44},
        {"StreamParameters.keepHighBpp", offsetof(StreamParameters, keepHighBpp), 48},
        {"FrameHeader.streamId", offsetof(FrameHeader, streamId), 8},
        {"FrameHeader.tagA", offsetof(FrameHeader, tagA), 12},
        {"FrameHeader.payloadSize", offsetof(FrameHeader, payloadSize), 24},
        {"FrameHeader.tagB", offsetof(FrameHeader, tagB), 28},
        {"FrameHeader.frameWidth", offsetof(FrameHeader, frameWidth), 36},
        {"FrameHeader.frameHeight", offsetof(FrameHeader, frameHeight), 40},
        {"OutputFrame.freeList", offsetof(OutputFrame, freeList), 16},
        {"OutputFrame.lock", offsetof(OutputFrame, lock), 24},
        {"FreeListNode.header", offsetof(FreeListNode, header), 16},
        {"FreeListNode.buffer", offsetof(FreeListNode, buffer), 24},
        {"FreeList.count", offsetof(FreeList, count), 8},
    };
    for (const auto& field : fields) EXPECT_EQ(field.offset, field.expected) << field.name;
    EXPECT_EQ(PixelFormat::YUV444P, 19u);
    EXPECT_EQ(CompressionCode::Jpeg, 3u);
}

// A host as it really is: loads the library, finds the functions by name, streams a frame.
int pluginDeliveries = 0;
std::vector<uint8_t> pluginPayload;
void PluginCallback(OutputFrame* frame) {
    ++pluginDeliveries;
    const uint8_t* bytes = static_cast<const uint8_t*>(frame->data);
    pluginPayload.assign(bytes, bytes + frame->header->payloadSize);
    FrameFeedReturnBuffer(*frame);
}

#if defined(_WIN32)
using Library = HMODULE;
Library OpenLibrary(const char* path) { return LoadLibraryA(path); }
void* FindFunction(Library library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(library, name));
}
void CloseLibrary(Library library) { FreeLibrary(library); }
#else
using Library = void*;
Library OpenLibrary(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
void* FindFunction(Library library, const char* name) { return dlsym(library, name); }
void CloseLibrary(Library library) { dlclose(library); }
#endif

TEST(PluginLibrary, AHostLoadsItAndStreamsMonoToJpeg) {
    ProvideBenchmarkCache();
    Library library = OpenLibrary(FRAMEFEED_PLUGIN_PATH);
    ASSERT_NE(library, nullptr) << FRAMEFEED_PLUGIN_PATH;
    const auto createStreamer = reinterpret_cast<decltype(&CreateStreamer)>(FindFunction(library, "CreateStreamer"));
    const auto newStream = reinterpret_cast<decltype(&NewStream)>(FindFunction(library, "NewStream"));
    const auto destroyStreamer = reinterpret_cast<decltype(&DestroyStreamer)>(FindFunction(library, "DestroyStreamer"));
    ASSERT_TRUE(createStreamer && newStream && destroyStreamer);

    ASSERT_TRUE(createStreamer(&LogCapture::Sink));
    Stream* stream = newStream(&PluginCallback);
    const StreamConfig config = MakeConfig(PixelFormat::Mono, 64, 32, 8, 8);
    const auto frame = MakeFrame(64 * 32, 3);
    ASSERT_TRUE(stream->Init(1, &config, nullptr, StreamFlags::SingleBuffer));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(stream->ProcessFrame(frame.data(), 64 * 32, i, i));
    FrameFeedDeleteStream(stream);
    destroyStreamer();
    EXPECT_EQ(pluginDeliveries, 3);
    ASSERT_GE(pluginPayload.size(), 4u);
    EXPECT_EQ(pluginPayload[0], 0xFF);
    EXPECT_EQ(pluginPayload[1], 0xD8) << "a JPEG start of image";
    CloseLibrary(library);
}

}  // namespace
