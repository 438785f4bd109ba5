// The binary contract with hosts: record layouts, and a plug-in that exports the four functions only.
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <set>
#include <string>

namespace {

#define FIELD(record, field) {#record "." #field, offsetof(record, field)}

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

std::set<std::string> DefinedDynamicSymbols(const std::string& library) {
    std::set<std::string> names;
    FILE* pipe = popen(("nm -D --defined-only " + library).c_str(), "r");
    if (pipe == nullptr) return names;
    char line[512];
    while (std::fgets(line, sizeof(line), pipe) != nullptr) {
        char type = 0;
        char name[400] = {};
        if (std::sscanf(line, "%*s %c %399s", &type, name) == 2) names.insert(name);
    }
    pclose(pipe);
    return names;
}

TEST(PluginLibrary, ExportsExactlyTheFourFunctions) {
    const std::set<std::string> expected{"CreateStreamer", "DestroyStreamer", "GetStreamerPerformance", "NewStream"};
    EXPECT_EQ(DefinedDynamicSymbols(FRAMEFEED_PLUGIN_PATH), expected);
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

TEST(PluginLibrary, AHostLoadsItAndStreamsMonoToJpeg) {
    void* library = dlopen(FRAMEFEED_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto createStreamer = reinterpret_cast<decltype(&CreateStreamer)>(dlsym(library, "CreateStreamer"));
    const auto newStream = reinterpret_cast<decltype(&NewStream)>(dlsym(library, "NewStream"));
    const auto destroyStreamer = reinterpret_cast<decltype(&DestroyStreamer)>(dlsym(library, "DestroyStreamer"));
    ASSERT_TRUE(createStreamer && newStream && destroyStreamer);

    ASSERT_TRUE(createStreamer(&LogCapture::Sink));
    Stream* stream = newStream(&PluginCallback);
    const StreamConfig config = MakeConfig(PixelFormat::Mono, 64, 32, 8, 8);
    const auto frame = MakeFrame(64 * 32, 3);
    ASSERT_TRUE(stream->Init(1, &config, nullptr, StreamFlags::SingleBuffer));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(stream->ProcessFrame(frame.data(), 64 * 32, i, i));
    delete stream;
    destroyStreamer();
    EXPECT_EQ(pluginDeliveries, 3);
    ASSERT_GE(pluginPayload.size(), 4u);
    EXPECT_EQ(pluginPayload[0], 0xFF);
    EXPECT_EQ(pluginPayload[1], 0xD8) << "a JPEG start of image";
    dlclose(library);
}

}  // namespace
