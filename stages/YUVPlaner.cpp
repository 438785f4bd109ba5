#include "stages/YUVPlaner.h"

#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"
#include "stream/Log.h"

namespace {

constexpr uint32_t packed8BitsPerPixel = 16;
constexpr uint32_t packed10BitsPerPixel = 32;
// The 10-bit layout: three samples to a 32-bit word, four words to six pixels, rows padded to blocks of 48 pixels
// (128 bytes), which unpack to 96 bytes.
constexpr uint32_t pixelsPerBlock = 48;
constexpr size_t packedBytesPerBlock = 128;
constexpr size_t unpackedBytesPerBlock = 96;

uint32_t BlocksPerRow(uint32_t width) { return (width + pixelsPerBlock - 1) / pixelsPerBlock; }

uint8_t ClampedByte(uint32_t value) { return static_cast<uint8_t>(value > 255 ? 255 : value); }

// Each output pixel adds Scale rows of Scale / 2 pixel pairs: every Y sample once and every chroma sample twice,
// so all three planes divide by Scale * Scale with the same rounding.
template <uint32_t Scale>
void BinPackedYUV(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands, uint32_t lumaOffset,
                  uint8_t* y, uint8_t* u, uint8_t* v) {
    constexpr uint32_t shift = Scale == 2 ? 2 : 4;
    constexpr uint32_t rounding = 1u << (shift - 1);
    const uint32_t chromaOffset = lumaOffset ^ 1;
    const uint32_t outWidth = width / Scale;
    for (uint32_t band = 0; band < bands; ++band) {
        const uint8_t* bandTop = packed + size_t(band) * Scale * packedStep;
        for (uint32_t x = 0; x < outWidth; ++x) {
            uint32_t ySum = 0, uSum = 0, vSum = 0;
            for (uint32_t row = 0; row < Scale; ++row) {
                const uint8_t* pair = bandTop + row * packedStep + size_t(x) * Scale * 2;
                for (uint32_t p = 0; p < Scale / 2; ++p, pair += 4) {
                    ySum += pair[lumaOffset] + pair[2 + lumaOffset];
                    uSum += 2 * pair[chromaOffset];
                    vSum += 2 * pair[2 + chromaOffset];
                }
            }
            y[x] = ClampedByte((ySum + rounding) >> shift);
            u[x] = ClampedByte((uSum + rounding) >> shift);
            v[x] = ClampedByte((vSum + rounding) >> shift);
        }
        y += outWidth;
        u += outWidth;
        v += outWidth;
    }
}

}  // namespace

void SplitPackedYUV(const uint8_t* packed, size_t pixels, uint32_t lumaOffset, uint8_t* y, uint8_t* u, uint8_t* v) {
    const uint32_t chromaOffset = lumaOffset ^ 1;
    for (size_t pair = 0; pair < pixels / 2; ++pair, packed += 4) {
        y[2 * pair] = packed[lumaOffset];
        y[2 * pair + 1] = packed[2 + lumaOffset];
        u[pair] = packed[chromaOffset];
        v[pair] = packed[2 + chromaOffset];
    }
}

void BinPackedYUV2(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands, uint32_t lumaOffset,
                   uint8_t* y, uint8_t* u, uint8_t* v) {
    BinPackedYUV<2>(packed, packedStep, width, bands, lumaOffset, y, u, v);
}

void BinPackedYUV4(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands, uint32_t lumaOffset,
                   uint8_t* y, uint8_t* u, uint8_t* v) {
    BinPackedYUV<4>(packed, packedStep, width, bands, lumaOffset, y, u, v);
}

void UnpackPackedYUV10(const uint8_t* words, uint32_t blocks, uint8_t* samples) {
    for (uint32_t w = 0; w < blocks * 32; ++w, words += 4) {
        const uint32_t word = uint32_t(words[0]) | uint32_t(words[1]) << 8 | uint32_t(words[2]) << 16 |
                              uint32_t(words[3]) << 24;
        for (uint32_t shift = 0; shift < 30; shift += 10)
            *samples++ = ClampedByte((((word >> shift) & 0x3FF) + 2) >> 2);
    }
}

YUVPlaner::~YUVPlaner() { platform::AlignedFree(unpackedBand); }

bool YUVPlaner::Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
                     uint32_t, const void*) {
    if (width % 16 != 0 || height % 2 != 0) {
        Log(LogFailure, "YUVPlaner: Invalid image alignment (%u * %u, Scale = %u)", width, height, scale);
        return false;
    }
    if (in->format != PixelFormat::UYVY && in->format != PixelFormat::YUYV) {
        Log(LogFailure, "YUVPlaner: Unsupported input format (%u)", in->format);
        return false;
    }
    if (scale != 1 && scale != 2 && scale != 4) {
        Log(LogFailure, "YUVPlaner: Unsupported scale factor(%u)", scale);
        return false;
    }
    if (out->format != (scale == 1 ? PixelFormat::YUV422P : PixelFormat::YUV444P)) {
        Log(LogFailure, "YUVPlaner: Unsupported output format (%u)", out->format);
        return false;
    }
    const bool avx2 = PxProcessorLevel() >= PxLevelAvx2;
    splitKernel = avx2 ? SplitPackedYUVAvx2 : SplitPackedYUV;
    if (scale == 2) binKernel = avx2 ? BinPackedYUV2Avx2 : BinPackedYUV2;
    if (scale == 4) binKernel = avx2 ? BinPackedYUV4Avx2 : BinPackedYUV4;
    unpackKernel = avx2 ? UnpackPackedYUV10Avx2 : UnpackPackedYUV10;

    if (in->bitsPerPixel == packed10BitsPerPixel && scale != 1) {
        unpackedStep = BlocksPerRow(width) * unpackedBytesPerBlock;
        platform::AlignedFree(unpackedBand);
        unpackedBand = static_cast<uint8_t*>(platform::AlignedAlloc(unpackedStep * scale, 32));
        if (unpackedBand == nullptr) {
            Log(LogFailure, "YUVPlaner: Unable to allocate %u bytes of work memory", uint32_t(unpackedStep * scale));
            return false;
        }
    }
    this->width = width;
    this->height = height;
    inFormat = *in;
    outFormat = *out;
    this->scale = scale;
    return true;
}

uint32_t YUVPlaner::OutputSize() { return ScaledOutputSize(); }

uint32_t YUVPlaner::Process(const void* in, void* out, const void*) {
    const uint8_t* packed = static_cast<const uint8_t*>(in);
    uint8_t* y = static_cast<uint8_t*>(out);
    // Plane offsets follow the shared size formula, height multiplied before its division, so that they agree
    // with OutputSize when the height is not a multiple of the scale.
    const uint32_t planeSize = width / scale * height / scale;
    if (inFormat.bitsPerPixel == packed8BitsPerPixel) {
        const uint32_t lumaOffset = inFormat.format == PixelFormat::UYVY ? 1 : 0;
        if (scale == 1)
            splitKernel(packed, size_t(width) * height, lumaOffset, y, y + planeSize, y + planeSize + planeSize / 2);
        else
            binKernel(packed, size_t(width) * 2, width, height / scale, lumaOffset, y, y + planeSize,
                      y + size_t(planeSize) * 2);
    } else if (inFormat.bitsPerPixel == packed10BitsPerPixel && scale != 1) {
        ProcessPacked10(packed, y, y + planeSize, y + size_t(planeSize) * 2);
    }
    return OutputSize();
}

// Unpacks one band at a time, so the scratch holds only `scale` rows. Whole blocks are unpacked, padding included,
// since every row has them. The unpacked rows are U Y V Y whatever the format code says.
void YUVPlaner::ProcessPacked10(const uint8_t* words, uint8_t* y, uint8_t* u, uint8_t* v) {
    const uint32_t blocks = BlocksPerRow(width);
    const size_t pitch = blocks * packedBytesPerBlock;
    const uint32_t outWidth = width / scale;
    constexpr uint32_t uyvyLumaOffset = 1;
    for (uint32_t band = 0; band < height / scale; ++band) {
        for (uint32_t row = 0; row < scale; ++row)
            unpackKernel(words + (size_t(band) * scale + row) * pitch, blocks, unpackedBand + row * unpackedStep);
        const size_t outRow = size_t(band) * outWidth;
        binKernel(unpackedBand, unpackedStep, width, 1, uyvyLumaOffset, y + outRow, u + outRow, v + outRow);
    }
}
