// Reduces deep monochrome and Bayer frames to plain 8-bit samples by dropping the low bits, so that the stages
// behind it work on bytes. Input samples are 10 bits (four in 5 bytes), 12 bits (two in 3 bytes), both packed
// least significant bit first, or little-endian 16-bit words. The pixel count and PixelFormat stay.
#pragma once

#include "stream/ImageProcessing.h"

#include <cstddef>
#include <cstdint>

// Conversion kernels over `samples` samples, straight from `in` to `out` without scratch memory. The scalar
// forms are the definition; each AVX2 form has the same signature, takes 32 samples per step (two steps of 16
// for 12-bit input) and finishes any remainder with its scalar twin. `samples` is a multiple of 4 for 10-bit
// input and of 2 for 12-bit input. The 16-bit output is little-endian words.
using BitPackKernel = void (*)(const uint8_t* in, uint8_t* out, size_t samples);

void BitPack10To8(const uint8_t* in, uint8_t* out, size_t samples);
void BitPack10To16(const uint8_t* in, uint8_t* out, size_t samples);
void BitPack12To8(const uint8_t* in, uint8_t* out, size_t samples);
void BitPack16To8(const uint8_t* in, uint8_t* out, size_t samples);

void BitPack10To8Avx2(const uint8_t* in, uint8_t* out, size_t samples);
void BitPack10To16Avx2(const uint8_t* in, uint8_t* out, size_t samples);
void BitPack12To8Avx2(const uint8_t* in, uint8_t* out, size_t samples);
void BitPack16To8Avx2(const uint8_t* in, uint8_t* out, size_t samples);

class BitPacker : public ImageProcessing {
public:
    // Accepts Mono and Bayer input with a width that is a multiple of 16 and an even height, converting
    // 10 -> 8, 10 -> 16, 12 -> 8 or 16 -> 8 bits; 12 -> 16 is accepted and writes nothing. scale, mode and
    // param are not read.
    bool Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
              uint32_t mode, const void* param) override;
    // outFormat.bitsPerPixel * height * width / 8, in unsigned 32-bit arithmetic.
    uint32_t OutputSize() override;
    // Converts sampleCount samples, first to last; param is not read.
    uint32_t Process(const void* in, void* out, const void* param) override;

private:
    uint32_t packMode = 0;     // 1 to 5 as accepted by Init, 0 before
    uint32_t sampleCount = 0;  // width * height: one sample per pixel
    BitPackKernel kernel = nullptr;  // this processor's form of the mode's conversion; null for 12 -> 16
};
