#include "stream/FrameFeed.h"

#include "stream/FormatFamilies.h"

#include "demosaic/NewDeBayer.h"
#include "stream/Log.h"
#include "stream/StageCreators.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr size_t chainAlignment = 32;
constexpr uint32_t poolBuffersMulti = 4;


// Every size of the host contract is a 32-bit count of bytes: width x height x bits per pixel must fit, and
// must cover the planes of a planar image.
bool FitsContract(const StageSlot& slot) {
    // Pixels first: below 2^32 of them, times a 32-bit bit count, the product cannot wrap 64 bits.
    const uint64_t pixels = uint64_t(slot.width) * slot.height;
    if (pixels > 0xFFFFFFFFull || pixels * slot.format.bitsPerPixel > 0xFFFFFFFFull) {
        Log(LogFailure, "FrameFeed: Frame too large for 32-bit sizes (%u * %u at %u bits per pixel)", slot.width,
            slot.height, slot.format.bitsPerPixel);
        return false;
    }
    // Chroma planes of odd sizes round up, so such an image can need more bytes than its bits per pixel say,
    // and the stage behind it would read past its buffer.
    if (IsPlanarYuv(slot.format.format) && slot.format.bitDepth <= 8 &&
        PlanarYuvBytes(slot.format.format, slot.width, slot.height) > pixels * slot.format.bitsPerPixel / 8) {
        Log(LogFailure, "FrameFeed: Frame of %u * %u at %u bits per pixel is smaller than its planes", slot.width,
            slot.height, slot.format.bitsPerPixel);
        return false;
    }
    return true;
}

void AppendNode(FreeList& list, FreeListNode* node) {
    FreeListNode* sentinel = list.sentinel;
    node->next = sentinel;
    node->prev = sentinel->prev;
    sentinel->prev->next = node;
    sentinel->prev = node;
    ++list.count;
}

void Unlink(FreeList& list, FreeListNode* node) {
    node->prev->next = node->next;
    node->next->prev = node->prev;
    --list.count;
}

}  // namespace

FrameFeed::FrameFeed(OutputCallback outputCallback) : outputCallback(outputCallback) {
    freeList.sentinel = static_cast<FreeListNode*>(std::malloc(sizeof(FreeListNode)));
    if (freeList.sentinel == nullptr) throw std::bad_alloc();
    *freeList.sentinel = FreeListNode{freeList.sentinel, freeList.sentinel, nullptr, nullptr};
}

FrameFeed::~FrameFeed() {
    {
        platform::LockGuard guard(frameLock);
        TearDownChain();
    }
    std::free(freeList.sentinel);
}

bool FrameFeed::Init(uint32_t streamId, const StreamConfig* config, const StreamParameters* parameters,
                     uint32_t flags) {
    if (config == nullptr) {
        Log(LogFailure, "FrameFeed: No stream configuration given");
        return false;
    }
    if (slotCount > 0) TearDownChain();  // a second Init replaces the chain instead of leaking it

    this->streamId = streamId;
    this->config = *config;
    if (parameters != nullptr) {
        std::memcpy(this->parameters, parameters, sizeof(this->parameters));
    } else {
        std::memset(this->parameters, 0, sizeof(this->parameters));
        this->parameters[0].scale = 1;
        this->parameters[0].demosaic = 0;
        this->parameters[0].compression = CompressionCode::Jpeg;
        this->parameters[0].quality = 0.75f;
    }
    header.reserved0 = 0;
    header.streamId = streamId;
    header.tailBytes = 20;
    dropWhenBusy = (flags & StreamFlags::WaitWhenBusy) == 0;
    multiBuffer = (flags & StreamFlags::SingleBuffer) == 0;
    return BuildChain();
}

StageSlot& FrameFeed::OpenSlot() {
    const StageSlot& previous = slots[slotCount - 1];
    StageSlot& slot = slots[slotCount];
    slot = StageSlot{};
    slot.width = previous.width;
    slot.height = previous.height;
    slot.format = previous.format;
    return slot;
}

bool FrameFeed::CloseSlot(ImageProcessing* stage, const char* refusal) {
    if (stage == nullptr) {
        Log(LogFailure, refusal);
        return false;
    }
    StageSlot& slot = slots[slotCount];
    slot.size = stage->OutputSize();
    slot.buffer = static_cast<uint8_t*>(platform::AlignedAlloc(slot.size, chainAlignment));
    if (slot.buffer == nullptr) {
        delete stage;
        Log(LogFailure, "FrameFeed: Unable to allocate a stage buffer of %u bytes", slot.size);
        return false;
    }
    slot.stage = stage;
    ++slotCount;
    return true;
}

bool FrameFeed::BuildChain() {
    for (StageSlot& slot : slots) slot = StageSlot{};
    slotCount = 0;

    StreamParameters& wanted = parameters[0];
    const uint32_t s = wanted.scale == 0 ? 1 : (wanted.scale > 16 ? 16 : wanted.scale);
    wanted.scale = s;
    header.frameWidth = config.width / s;
    header.frameHeight = config.height / s;

    if (wanted.compression != CompressionCode::Raw && wanted.compression != CompressionCode::Jpeg) {
        Log(LogFailure, "FrameFeed: Unsupported compression requested (%u)", wanted.compression);
        return false;
    }

    StageSlot& input = slots[0];
    input.width = config.width;
    input.height = config.height;
    input.format = ImageFormat{config.format, config.bitDepth, config.bitsPerPixel};
    slotCount = 1;

    // JPEG frames are handed on as they came, and only as JPEG.
    if (config.inputCompression == CompressionCode::Jpeg) return wanted.compression == CompressionCode::Jpeg;
    if (config.inputCompression != CompressionCode::Raw) {
        Log(LogFailure, "FrameFeed: Unsupported input compression (%u)", config.inputCompression);
        return false;
    }

    const uint32_t format = config.format;
    if (format == PixelFormat::YUVCode20 || format == PixelFormat::YUVCode21) {
        Log(LogFailure, "FrameFeed: Unsupported input YUV format (%u)", format);
        return false;
    }
    // A frame that declares fewer bits than its first stage reads would be read past its end.
    const auto tooFewBits = [&] {
        if (config.bitDepth > 8 || config.bitsPerPixel >= BitsPerPixelRead(format)) return false;
        Log(LogFailure, "FrameFeed: Too few bits per pixel (%u) for format %u at depth %d", config.bitsPerPixel,
            format, config.bitDepth);
        return true;
    };

    if (IsPackedYuv(format)) {
        if (format != PixelFormat::UYVY && format != PixelFormat::YUYV) {
            Log(LogFailure, "FrameFeed: Unsupported input YUV format (%u)", format);
            return false;
        }
        if (config.bitDepth > 8 && s == 1) {
            Log(LogFailure, "FrameFeed: Unsupported scale %u for YUV format %u", 1u, format);
            return false;
        }
        if (tooFewBits() || !FitsContract(input)) return false;
        // 10-bit rows are padded to whole blocks of 48 pixels in 128 bytes; below 32 pixels such a row is longer
        // than the 32 bits per pixel the frame declares.
        if (config.bitsPerPixel == 32 && uint64_t(config.width + 47) / 48 * 128 > uint64_t(config.width) * 4) {
            Log(LogFailure, "FrameFeed: Rows of %u pixels are too short for padded 10-bit YUV", config.width);
            return false;
        }
        StageSlot& planar = OpenSlot();
        planar.format.bitDepth = 8;
        planar.format.format = s == 1 ? PixelFormat::YUV422P : PixelFormat::YUV444P;
        planar.format.bitsPerPixel = s == 1 ? 16 : 24;
        planar.width /= s;
        planar.height /= s;
        const StageSlot& previous = slots[slotCount - 1];
        if (!FitsContract(planar) ||
            !CloseSlot(NewYUVPlaner(previous.width, previous.height, &previous.format, &planar.format, s, 0, nullptr),
                       "FrameFeed: Unable to create NewYUVPlaner using given parameters"))
            return false;
    } else {
        if (tooFewBits() || !FitsContract(input)) return false;

        const bool bayer = IsBayer(format);
        if (MustReduceDeepData(format, wanted.demosaic, s) && wanted.keepHighBpp != 0) {
            Log(LogFailure, "FrameFeed: Can't keep high BPP");
            return false;
        }

        if (config.bitDepth > 8 && wanted.keepHighBpp == 0) {
            StageSlot& reduced = OpenSlot();
            if (format == PixelFormat::Mono || bayer || IsPlanarYuv(format)) {
                reduced.format.bitDepth = 8;
                reduced.format.bitsPerPixel = 8;
            } else if (format == PixelFormat::RGB) {
                reduced.format.bitDepth = 8;
                reduced.format.bitsPerPixel = 24;
            } else if (format == PixelFormat::RGBX) {
                reduced.format.bitDepth = 8;
                reduced.format.bitsPerPixel = 32;
            }
            const StageSlot& previous = slots[slotCount - 1];
            if (!FitsContract(reduced) ||
                !CloseSlot(NewBitPacker(previous.width, previous.height, &previous.format, &reduced.format, 1, 0, nullptr),
                           "FrameFeed: Unable to create BitPacker using given parameters"))
                return false;
        }

        if (bayer) {
            StageSlot& colour = OpenSlot();
            colour.width /= s;
            colour.height /= s;
            colour.format.bitDepth = 8;
            uint32_t selector = 0;
            switch (wanted.demosaic) {
                case 1: selector = 1; break;
                case 2: selector = 2; break;
                case 3: selector = 4; break;
                default: selector = 0; break;
            }
            const bool rgbx = selector != 0 || s > 1;
            colour.format.format = rgbx ? PixelFormat::RGBX : PixelFormat::RGB;
            colour.format.bitsPerPixel = rgbx ? 32 : 24;
            const StageSlot& previous = slots[slotCount - 1];
            if (!FitsContract(colour) ||
                !CloseSlot(NewDeBayer(previous.width, previous.height, &previous.format, &colour.format, s, selector, nullptr),
                           "FrameFeed: Unable to create DeBayer using given parameters"))
                return false;
        } else if (s > 1) {
            StageSlot& scaled = OpenSlot();
            scaled.width /= s;
            scaled.height /= s;
            const StageSlot& previous = slots[slotCount - 1];
            if (!FitsContract(scaled) ||
                !CloseSlot(NewScaler(previous.width, previous.height, &previous.format, &scaled.format, s, 1, nullptr),
                           "FrameFeed: Unable to create Scaler using given parameters"))
                return false;
        }
    }

    if (wanted.compression == CompressionCode::Jpeg) {
        StageSlot& jpeg = OpenSlot();
        if (!FitsContract(jpeg)) return false;
        // The encoder reads planar YUV in whole chroma samples and would read past an image that ends inside one.
        const uint32_t across = ChromaAcross(jpeg.format.format), down = ChromaDown(jpeg.format.format);
        if (IsPlanarYuv(jpeg.format.format) && (jpeg.width % across != 0 || jpeg.height % down != 0)) {
            Log(LogFailure, "FrameFeed: Planar YUV of %u * %u does not end on a whole chroma sample", jpeg.width,
                jpeg.height);
            return false;
        }
        jpeg.param = new float(wanted.quality);
        const StageSlot& previous = slots[slotCount - 1];
        ImageProcessing* compressor =
            NewCompressor(previous.width, previous.height, &previous.format, &jpeg.format, 1, 3, jpeg.param);
        if (compressor == nullptr) {
            // The slot stays open, so nothing would free its cell later.
            delete jpeg.param;
            jpeg.param = nullptr;
        }
        if (!CloseSlot(compressor, "FrameFeed: Unable to create Compressor using given parameters")) return false;
    }

    if (slotCount <= 1) return true;
    if (!CreatePool()) return false;
    slots[slotCount - 1].pooled = 1;
    return true;
}

bool FrameFeed::CreatePool() {
    StageSlot& last = slots[slotCount - 1];
    const uint32_t count = multiBuffer ? poolBuffersMulti : 1;
    FrameHeader* headers[poolBuffersMulti] = {};
    void* buffers[poolBuffersMulti] = {};
    FreeListNode* nodes[poolBuffersMulti] = {};
    bool complete = true;
    // Everything is allocated before anything is handed over, so a failure leaves the chain as it was.
    for (uint32_t i = 0; i < count && complete; ++i) {
        headers[i] = static_cast<FrameHeader*>(std::malloc(sizeof(FrameHeader)));
        buffers[i] = i == 0 ? last.buffer : platform::AlignedAlloc(last.size, chainAlignment);
        nodes[i] = static_cast<FreeListNode*>(std::malloc(sizeof(FreeListNode)));
        complete = headers[i] != nullptr && buffers[i] != nullptr && nodes[i] != nullptr;
    }
    if (complete) {
        try {
            poolItems.reserve(count);
        } catch (const std::bad_alloc&) {
            complete = false;
        }
    }
    if (!complete) {
        for (uint32_t i = 0; i < count; ++i) {
            std::free(headers[i]);
            if (i > 0) platform::AlignedFree(buffers[i]);
            std::free(nodes[i]);
        }
        Log(LogFailure, "FrameFeed: Unable to allocate %u output buffers of %u bytes", count, last.size);
        return false;
    }

    last.buffer = nullptr;
    platform::LockGuard guard(poolLock);
    for (uint32_t i = 0; i < count; ++i) {
        poolItems.emplace_back(headers[i], buffers[i]);
        nodes[i]->header = headers[i];
        nodes[i]->buffer = buffers[i];
        AppendNode(freeList, nodes[i]);
    }
    return true;
}

void FrameFeed::TearDownChain() {
    // Lent buffers must come home first; the host may be returning them from any thread.
    for (;;) {
        {
            platform::LockGuard guard(poolLock);
            if (freeList.count >= poolItems.size()) break;
        }
        platform::SleepMilliseconds(10);
    }

    for (uint32_t i = 1; i < slotCount; ++i) {
        StageSlot& slot = slots[i];
        delete slot.stage;
        slot.stage = nullptr;
        delete slot.param;
        slot.param = nullptr;
        if (slot.pooled) {
            for (const auto& item : poolItems) {
                std::free(item.first);
                platform::AlignedFree(item.second);
            }
            slot.pooled = 0;
        } else {
            platform::AlignedFree(slot.buffer);
        }
        slot.buffer = nullptr;
    }
    poolItems.clear();

    {
        platform::LockGuard guard(poolLock);
        FreeListNode* sentinel = freeList.sentinel;
        for (FreeListNode* node = sentinel->next; node != sentinel;) {
            FreeListNode* next = node->next;
            std::free(node);
            node = next;
        }
        sentinel->next = sentinel;
        sentinel->prev = sentinel;
        freeList.count = 0;
    }
    slotCount = 0;
}

bool FrameFeed::TakePooledBuffer(FrameHeader*& current, uint8_t*& out) {
    // Without a free buffer this either drops the frame or keeps asking, with frameLock held.
    for (;;) {
        {
            platform::LockGuard guard(poolLock);
            if (freeList.count > 0) {
                FreeListNode* node = freeList.sentinel->next;
                std::memcpy(node->header, &header, sizeof(FrameHeader));
                current = node->header;
                out = static_cast<uint8_t*>(node->buffer);
                // Without a callback nobody could give the buffer back, so it stays in the list.
                if (outputCallback != nullptr) {
                    Unlink(freeList, node);
                    std::free(node);
                }
                return true;
            }
        }
        if (dropWhenBusy) return false;
    }
}

bool FrameFeed::ProcessFrame(const void* data, uint32_t size, uint64_t tagA, uint64_t tagB) {
    platform::LockGuard guard(frameLock);

    StageSlot& input = slots[0];
    input.buffer = static_cast<uint8_t*>(const_cast<void*>(data));
    input.size = size;
    // Raw frame size as the host's own 32-bit arithmetic computes it.
    const int32_t product = static_cast<int32_t>(input.format.bitsPerPixel * input.height * input.width);
    uint32_t frameSize = static_cast<uint32_t>(product / 8);
    // A JPEG frame handed on as it came: only the host knows its size.
    if (slotCount == 1 && config.inputCompression == CompressionCode::Jpeg) frameSize = size;

    uint8_t* out = input.buffer;
    FrameHeader* current = &header;
    for (uint32_t i = 1; i < slotCount; ++i) {
        StageSlot& slot = slots[i];
        if (slot.pooled) {
            if (!TakePooledBuffer(current, out)) return false;
        } else {
            out = slot.buffer;
        }
        frameSize = slot.stage->Process(slots[i - 1].buffer, out, slot.param);
    }

    current->tagA = tagA;
    current->payloadSize = frameSize;
    current->tagB = tagB;
    OutputFrame frame{current, out, (slotCount > 0 && slots[slotCount - 1].pooled) ? &freeList : nullptr,
                      poolLock.Native()};
    if (outputCallback != nullptr) outputCallback(&frame);
    return true;
}

bool FrameFeed::Reconfigure(const StreamParameters* parameters) {
    platform::LockGuard guard(frameLock);
    if (slotCount == 0) return true;
    if (parameters == nullptr) {
        Log(LogFailure, "FrameFeed: No stream parameters given");
        return false;
    }

    const StreamParameters& next = parameters[0];
    StreamParameters& stored = this->parameters[0];
    if (next.scale == stored.scale && next.compression == stored.compression && next.demosaic == stored.demosaic) {
        // Live change: the chain and its buffers stay; the next frame encodes at the new quality.
        stored.quality = next.quality;
        std::memcpy(&stored.reserved8, &next.reserved8, offsetof(StreamParameters, compression) -
                                                             offsetof(StreamParameters, reserved8));
        for (uint32_t i = 1; i < slotCount; ++i)
            if (slots[i].param != nullptr) *slots[i].param = next.quality;
        return true;
    }

    TearDownChain();
    std::memcpy(this->parameters, parameters, sizeof(this->parameters));
    return BuildChain();
}
