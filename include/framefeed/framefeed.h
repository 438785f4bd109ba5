// FrameFeed: live-preview plug-in of a multi-camera recording host.
// The one host-facing header: the four exported functions, the stream interface and the
// fixed-layout records that cross the boundary. All multi-byte fields are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// The pool lock is the platform's recursive lock: the host takes it through OutputFrame::lock.
#if defined(_WIN32)
#include <windows.h>
typedef CRITICAL_SECTION FrameFeedPoolLock;
#define FRAMEFEED_CALL __cdecl
#if defined(FRAMEFEED_BUILDING)
#define FRAMEFEED_API __declspec(dllexport)
#else
#define FRAMEFEED_API
#endif
#else
#include <pthread.h>
typedef pthread_mutex_t FrameFeedPoolLock;
#define FRAMEFEED_CALL
#define FRAMEFEED_API __attribute__((visibility("default")))
#endif

// Pixel layout codes. Values 0 and 22 and above are unassigned.
struct PixelFormat {
    enum : uint32_t {
        Mono = 1,
        BayerRGGB = 2,
        BayerGRBG = 3,
        BayerBGGR = 4,
        BayerGBRG = 5,
        RGB = 6,
        RGBX = 7,
        PackedYUVCode8 = 8,
        PackedYUVCode9 = 9,
        PackedYUVCode10 = 10,
        UYVY = 11,
        YUYV = 12,
        PackedYUVCode13 = 13,
        YUV420P = 14,
        YUV420PAlt = 15,
        YUV411P = 16,
        YUV411PAlt = 17,
        YUV422P = 18,
        YUV444P = 19,
        YUVCode20 = 20,
        YUVCode21 = 21,
    };
};

struct CompressionCode {
    enum : uint32_t {
        Raw = 1,
        Jpeg = 3,
    };
};

struct ImageFormat {
    uint32_t format;        // PixelFormat
    int32_t bitDepth;       // significant bits per sample (compared as a signed value)
    uint32_t bitsPerPixel;  // stored bits per pixel, all planes counted
};

// The input side of a stream.
struct StreamConfig {
    uint32_t format;
    int32_t bitDepth;
    uint32_t bitsPerPixel;
    uint32_t inputCompression;  // CompressionCode of the delivered frames
    uint32_t width;
    uint32_t height;
    uint8_t reserved24[44];     // kept with the stream, never read
};

// The processing side of a stream. Init and Reconfigure take an array of four; element 0 counts.
struct StreamParameters {
    uint32_t scale;        // 0 counts as 1, above 16 as 16
    uint32_t demosaic;     // 0 fast, 1 Hamilton-Adams, 2 LPA-ICI, 3 MLRI; anything else fast
    double reserved8;      // kept, never read
    double reserved16;     // kept, never read
    uint8_t reserved24[16];
    uint32_t compression;  // CompressionCode of the output: 1 or 3
    float quality;         // JPEG quality, 0 to 1
    uint8_t keepHighBpp;   // nonzero: do not reduce deep sensor data before demosaicking
    uint8_t reserved49[79];
};

#pragma pack(push, 1)
struct FrameHeader {
    uint64_t reserved0;   // always 0
    uint32_t streamId;
    uint64_t tagA;
    uint32_t tailBytes;   // always 20: header bytes from offset 28 to the end
    uint32_t payloadSize;
    uint64_t tagB;
    uint32_t frameWidth;
    uint32_t frameHeight;
    uint32_t reserved44;  // always 0
};
#pragma pack(pop)

struct FreeListNode {
    FreeListNode* next;  // in the sentinel: the first node
    FreeListNode* prev;  // in the sentinel: the last node
    FrameHeader* header;
    void* buffer;
};

// Doubly linked ring of returned output buffers.
struct FreeList {
    FreeListNode* sentinel;
    uint64_t count;  // nodes, sentinel not counted
};

// Valid only during the callback; copy it to give the buffer back later.
struct OutputFrame {
    FrameHeader* header;
    void* data;
    FreeList* freeList;       // null when nothing is to be given back
    FrameFeedPoolLock* lock;  // the stream's pool lock
};

typedef void(FRAMEFEED_CALL* LogSink)(uint32_t level, const char* format, ...);
typedef void(FRAMEFEED_CALL* OutputCallback)(OutputFrame* frame);

// Flags of Stream::Init.
struct StreamFlags {
    enum : uint32_t {
        SingleBuffer = 1u << 0,  // one output buffer instead of four
        WaitWhenBusy = 1u << 1,  // wait for a free output buffer instead of dropping the frame
    };
};

#if defined(_WIN32) && !defined(_MSC_VER)
// GNU C++ gives a virtual destructor two table slots, while a Windows host built with MSVC expects
// one: its scalar deleting destructor, which destroys the object, frees it when bit 0 of flags is
// set, and returns it. On that compiler the slot is declared in MSVC's form.
#define FRAMEFEED_MSVC_DELETING_DESTRUCTOR 1
#else
#define FRAMEFEED_MSVC_DELETING_DESTRUCTOR 0
#endif

// A stream from NewStream; the host destroys it with delete (or FrameFeedDeleteStream).
class Stream {
public:
#if FRAMEFEED_MSVC_DELETING_DESTRUCTOR
    virtual void* ScalarDeletingDestructor(unsigned int flags) = 0;
#else
    virtual ~Stream() = 0;
#endif
    virtual bool Init(uint32_t streamId, const StreamConfig* config, const StreamParameters* parameters,
                      uint32_t flags) = 0;
    virtual bool Reconfigure(const StreamParameters* parameters) = 0;
    virtual bool ProcessFrame(const void* data, uint32_t size, uint64_t tagA, uint64_t tagB) = 0;

#if FRAMEFEED_MSVC_DELETING_DESTRUCTOR
protected:
    ~Stream() = default;
#endif
};
#if !FRAMEFEED_MSVC_DELETING_DESTRUCTOR
inline Stream::~Stream() {}
#endif

// Destroys a stream through its first table slot, as a host's delete does.
inline void FrameFeedDeleteStream(Stream* stream) {
#if FRAMEFEED_MSVC_DELETING_DESTRUCTOR
    if (stream != nullptr) stream->ScalarDeletingDestructor(1);
#else
    delete stream;
#endif
}

// For std::unique_ptr<Stream, FrameFeedStreamDeleter>.
struct FrameFeedStreamDeleter {
    void operator()(Stream* stream) const { FrameFeedDeleteStream(stream); }
};

extern "C" {
FRAMEFEED_API bool FRAMEFEED_CALL CreateStreamer(LogSink logSink);
FRAMEFEED_API void FRAMEFEED_CALL DestroyStreamer();
FRAMEFEED_API float FRAMEFEED_CALL GetStreamerPerformance(const StreamConfig* config,
                                                          const StreamParameters* parameters);
FRAMEFEED_API Stream* FRAMEFEED_CALL NewStream(OutputCallback outputCallback);
}

// Host helper: gives a lent output buffer back to its stream. Call it at any time after the
// callback, from any thread, with a copy of the OutputFrame; frames with a null freeList need
// nothing. Returns false only when the node could not be allocated.
inline bool FrameFeedReturnBuffer(const OutputFrame& frame) {
    if (frame.freeList == nullptr) return true;
    FreeListNode* node = static_cast<FreeListNode*>(std::malloc(sizeof(FreeListNode)));
    if (node == nullptr) return false;
    node->header = frame.header;
    node->buffer = frame.data;
#if defined(_WIN32)
    EnterCriticalSection(frame.lock);
#else
    pthread_mutex_lock(frame.lock);
#endif
    FreeListNode* sentinel = frame.freeList->sentinel;
    node->next = sentinel;
    node->prev = sentinel->prev;
    sentinel->prev->next = node;
    sentinel->prev = node;
    ++frame.freeList->count;
#if defined(_WIN32)
    LeaveCriticalSection(frame.lock);
#else
    pthread_mutex_unlock(frame.lock);
#endif
    return true;
}

// The binary layout hosts depend on.
static_assert(sizeof(ImageFormat) == 12, "ImageFormat layout");
static_assert(offsetof(ImageFormat, format) == 0 && offsetof(ImageFormat, bitDepth) == 4 &&
                  offsetof(ImageFormat, bitsPerPixel) == 8,
              "ImageFormat layout");
static_assert(sizeof(StreamConfig) == 68, "StreamConfig layout");
static_assert(offsetof(StreamConfig, format) == 0 && offsetof(StreamConfig, bitDepth) == 4 &&
                  offsetof(StreamConfig, bitsPerPixel) == 8 && offsetof(StreamConfig, inputCompression) == 12 &&
                  offsetof(StreamConfig, width) == 16 && offsetof(StreamConfig, height) == 20 &&
                  offsetof(StreamConfig, reserved24) == 24,
              "StreamConfig layout");
static_assert(sizeof(StreamParameters) == 128, "StreamParameters layout");
static_assert(offsetof(StreamParameters, scale) == 0 && offsetof(StreamParameters, demosaic) == 4 &&
                  offsetof(StreamParameters, reserved8) == 8 && offsetof(StreamParameters, reserved16) == 16 &&
                  offsetof(StreamParameters, reserved24) == 24 && offsetof(StreamParameters, compression) == 40 &&
                  offsetof(StreamParameters, quality) == 44 && offsetof(StreamParameters, keepHighBpp) == 48 &&
                  offsetof(StreamParameters, reserved49) == 49,
              "StreamParameters layout");
static_assert(sizeof(FrameHeader) == 48, "FrameHeader layout");
static_assert(offsetof(FrameHeader, reserved0) == 0 && offsetof(FrameHeader, streamId) == 8 &&
                  offsetof(FrameHeader, tagA) == 12 && offsetof(FrameHeader, tailBytes) == 20 &&
                  offsetof(FrameHeader, payloadSize) == 24 && offsetof(FrameHeader, tagB) == 28 &&
                  offsetof(FrameHeader, frameWidth) == 36 && offsetof(FrameHeader, frameHeight) == 40 &&
                  offsetof(FrameHeader, reserved44) == 44,
              "FrameHeader layout");
static_assert(sizeof(FreeListNode) == 32, "FreeListNode layout");
static_assert(offsetof(FreeListNode, next) == 0 && offsetof(FreeListNode, prev) == 8 &&
                  offsetof(FreeListNode, header) == 16 && offsetof(FreeListNode, buffer) == 24,
              "FreeListNode layout");
static_assert(sizeof(FreeList) == 16, "FreeList layout");
static_assert(offsetof(FreeList, sentinel) == 0 && offsetof(FreeList, count) == 8, "FreeList layout");
static_assert(sizeof(OutputFrame) == 32, "OutputFrame layout");
static_assert(offsetof(OutputFrame, header) == 0 && offsetof(OutputFrame, data) == 8 &&
                  offsetof(OutputFrame, freeList) == 16 && offsetof(OutputFrame, lock) == 24,
              "OutputFrame layout");
