#include "stages/BitPacker.h"

#include "primitives/ProcessorLevel.h"
#include "stream/Log.h"

namespace {

// The accepted pairs of input and output depth, each with its conversion in both forms.
struct Conversion {
    uint32_t packMode;
    int32_t inBitDepth;
    uint32_t inBitsPerPixel;
    int32_t outBitDepth;
    uint32_t outBitsPerPixel;
    BitPackKernel scalar;
    BitPackKernel avx2;
};

const Conversion conversions[] = {
    {1, 10, 10, 8, 8, BitPack10To8, BitPack10To8Avx2},
    {2, 10, 10, 16, 16, BitPack10To16, BitPack10To16Avx2},
    {3, 12, 12, 8, 8, BitPack12To8, BitPack12To8Avx2},
    // 12 bits to 16-bit words has no conversion behind it: the stage accepts it and leaves the output as it is.
    {4, 12, 12, 16, 16, nullptr, nullptr},
    {5, 16, 16, 8, 8, BitPack16To8, BitPack16To8Avx2},
};

const Conversion* FindConversion(const ImageFormat& in, const ImageFormat& out) {
    for (const Conversion& conversion : conversions) {
        if (in.bitDepth == conversion.inBitDepth && in.bitsPerPixel == conversion.inBitsPerPixel &&
            out.bitDepth == conversion.outBitDepth && out.bitsPerPixel == conversion.outBitsPerPixel)
            return &conversion;
    }
    return nullptr;
}

// Four 10-bit samples as one 40-bit little-endian number: sample i is bits 10 * i to 10 * i + 9.
inline uint64_t Group10(const uint8_t* bytes) {
    return uint64_t(bytes[0]) | uint64_t(bytes[1]) << 8 | uint64_t(bytes[2]) << 16 | uint64_t(bytes[3]) << 24 |
           uint64_t(bytes[4]) << 32;
}

// Two 12-bit samples as one 24-bit little-endian number: bits 0 to 11 and 12 to 23.
inline uint32_t Group12(const uint8_t* bytes) {
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16;
}

}  // namespace

void BitPack10To8(const uint8_t* in, uint8_t* out, size_t samples) {
    for (size_t i = 0; i < samples; i += 4, in += 5) {
        const uint64_t group = Group10(in);
        for (uint32_t k = 0; k < 4; ++k) out[i + k] = static_cast<uint8_t>(group >> (10 * k + 2));
    }
}

void BitPack10To16(const uint8_t* in, uint8_t* out, size_t samples) {
    for (size_t i = 0; i < samples; i += 4, in += 5) {
        const uint64_t group = Group10(in);
        for (uint32_t k = 0; k < 4; ++k) {
            const uint32_t sample = static_cast<uint32_t>(group >> (10 * k)) & 0x3FF;
            out[2 * (i + k)] = static_cast<uint8_t>(sample);
            out[2 * (i + k) + 1] = static_cast<uint8_t>(sample >> 8);
        }
    }
}

void BitPack12To8(const uint8_t* in, uint8_t* out, size_t samples) {
    for (size_t i = 0; i < samples; i += 2, in += 3) {
        const uint32_t group = Group12(in);
        out[i] = static_cast<uint8_t>(group >> 4);
        out[i + 1] = static_cast<uint8_t>(group >> 16);
    }
}

void BitPack16To8(const uint8_t* in, uint8_t* out, size_t samples) {
    for (size_t i = 0; i < samples; ++i) out[i] = in[2 * i + 1];
}

bool BitPacker::Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t,
                     uint32_t, const void*) {
    if (width % 16 != 0 || height % 2 != 0) {
        Log(LogFailure, "Bitpacker: Unsupported resolution due to alignment requirements");
        return false;
    }
    this->width = width;
    this->height = height;
    inFormat = *in;
    outFormat = *out;
    // Unassigned codes are refused without a message of the stage's own: the assembly names the failure.
    if (inFormat.format < PixelFormat::Mono || inFormat.format > PixelFormat::YUVCode21) return false;
    // Only one-sample-per-pixel formats, so that sampleCount is the pixel count.
    const Conversion* conversion =
        inFormat.format <= PixelFormat::BayerGBRG ? FindConversion(inFormat, outFormat) : nullptr;
    if (conversion == nullptr) {
        Log(LogFailure, "Bitpacker: Unsupported pixel format (%u.%u -> %u.%u)", static_cast<uint32_t>(in->bitDepth),
            in->bitsPerPixel, static_cast<uint32_t>(out->bitDepth), out->bitsPerPixel);
        return false;
    }
    // OutputSize multiplies in 32 bits; were the product to wrap, Process would overrun the buffer it sized.
    if (uint64_t(outFormat.bitsPerPixel) * height * width > UINT32_MAX) {
        Log(LogFailure, "Bitpacker: Unsupported resolution (%ux%u)", width, height);
        return false;
    }
    packMode = conversion->packMode;
    sampleCount = width * height;
    kernel = PxProcessorLevel() >= PxLevelAvx2 ? conversion->avx2 : conversion->scalar;
    return true;
}

uint32_t BitPacker::OutputSize() { return outFormat.bitsPerPixel * height * width >> 3; }

uint32_t BitPacker::Process(const void* in, void* out, const void*) {
    if (kernel != nullptr) kernel(static_cast<const uint8_t*>(in), static_cast<uint8_t*>(out), sampleCount);
    return OutputSize();
}
