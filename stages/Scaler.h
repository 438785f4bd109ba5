// Binning of 8-bit Mono and planar YUV images by 2, 4, 8 or 16 in both directions: each output sample is the
// rounded mean of one block of input samples. At 16 only the even rows of a block are read.
#pragma once

#include "stream/ImageProcessing.h"

#include <cstddef>
#include <cstdint>

// A binning kernel reads `bands` bands of f rows, `columns` samples of each row, and writes columns / f samples
// per band; columns left over at the right are not read. rowSums has room for f rows of columns / f sums.
using BinKernel = void (*)(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                           uint8_t* out, size_t outStep);

// Scalar twins, one per factor: the definition of binning, which the wide forms are tested against and which
// finishes their rows.
void BinBands2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
               size_t outStep);
void BinBands4(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
               size_t outStep);
void BinBands8(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
               size_t outStep);
void BinBands16(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
                size_t outStep);

// AVX2 forms with the same results: 32 input columns at a step, the rest of each row by the twin.
void BinBands2Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                   uint8_t* out, size_t outStep);
void BinBands4Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                   uint8_t* out, size_t outStep);
void BinBands8Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                   uint8_t* out, size_t outStep);
void BinBands16Avx2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums,
                    uint8_t* out, size_t outStep);

class Scaler : public ImageProcessing {
public:
    Scaler() = default;
    Scaler(const Scaler&) = delete;
    Scaler& operator=(const Scaler&) = delete;
    ~Scaler() override;

    // Accepts a width that is a multiple of 16, an even height, any format but RGB and the packed and unsupported
    // YUV codes, a scale of 2, 4, 8 or 16, 8-bit samples and mode 1. param is not read.
    bool Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
              uint32_t mode, const void* param) override;
    uint32_t OutputSize() override;
    // Bins Mono as one plane and planar YUV as three; any other accepted format leaves out untouched. param is
    // not read.
    uint32_t Process(const void* in, void* out, const void* param) override;

private:
    // Bins one plane of planeWidth by planeHeight samples to outOffset of out; samples that would land at or
    // beyond outputSize are not written.
    void BinPlane(const uint8_t* plane, uint32_t planeWidth, uint32_t planeHeight, uint8_t* out, uint32_t outOffset,
                  uint32_t outputSize) const;

    uint32_t scaleMode = 0;
    // One band of horizontal sums: scale rows of width / scale sums, 32-byte aligned.
    uint16_t* rowSums = nullptr;
    BinKernel binKernel = nullptr;
};
