// Packed 4:2:2 YUV (UYVY or YUYV; 8-bit, or 10-bit three samples to a word) to planar 8-bit YUV. At scale 1 the
// samples are only separated and the output is YUV422P; at 2 and 4 each output pixel bins a scale by scale block
// and keeps a chroma sample of its own, so the output is YUV444P at the reduced size.
#pragma once

#include "stream/ImageProcessing.h"

#include <cstddef>
#include <cstdint>

// The kernels. Each has a scalar twin, the definition the AVX2 form is tested against, and an AVX2 form with the
// same signature that leaves the tail of a row to the twin.
//
// lumaOffset is the byte of Y0 within the first 16-bit word of a pixel pair: 0 for YUYV, 1 for UYVY. The two
// orders differ only by the swap of each word's bytes, so one kernel serves both.

// Separates `pixels` packed pixels (an even count) into Y, U and V runs. A whole frame is one run, since neither
// side has row padding.
void SplitPackedYUV(const uint8_t* packed, size_t pixels, uint32_t lumaOffset, uint8_t* y, uint8_t* u, uint8_t* v);
void SplitPackedYUVAvx2(const uint8_t* packed, size_t pixels, uint32_t lumaOffset, uint8_t* y, uint8_t* u,
                        uint8_t* v);

// Bins `bands` bands of 2 (or 4) packed rows, `width` pixels each (a multiple of 16), into one row of width / 2
// (or 4) samples per plane and band; output rows follow each other without padding. Luma is the rounded mean of the
// block; each chroma sample counts as two pixels.
void BinPackedYUV2(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands, uint32_t lumaOffset,
                   uint8_t* y, uint8_t* u, uint8_t* v);
void BinPackedYUV4(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands, uint32_t lumaOffset,
                   uint8_t* y, uint8_t* u, uint8_t* v);
void BinPackedYUV2Avx2(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands,
                       uint32_t lumaOffset, uint8_t* y, uint8_t* u, uint8_t* v);
void BinPackedYUV4Avx2(const uint8_t* packed, size_t packedStep, uint32_t width, uint32_t bands,
                       uint32_t lumaOffset, uint8_t* y, uint8_t* u, uint8_t* v);

// Unpacks `blocks` blocks of 48 pixels of 10-bit samples (32 little-endian words, 128 bytes, the unit to which rows
// are padded) into 96 8-bit samples each, in U Y V Y order: (v + 2) >> 2, at most 255.
void UnpackPackedYUV10(const uint8_t* words, uint32_t blocks, uint8_t* samples);
void UnpackPackedYUV10Avx2(const uint8_t* words, uint32_t blocks, uint8_t* samples);

class YUVPlaner : public ImageProcessing {
public:
    YUVPlaner() = default;
    YUVPlaner(const YUVPlaner&) = delete;
    YUVPlaner& operator=(const YUVPlaner&) = delete;
    ~YUVPlaner() override;

    // Accepts UYVY or YUYV input with a width that is a multiple of 16, an even height, a scale of 1, 2 or 4 and
    // an output format of YUV422P at scale 1 or YUV444P at 2 and 4. The input's bitsPerPixel picks the layout:
    // 16 for 8-bit samples, 32 for 10-bit ones (scales 2 and 4 only). mode and param are not read.
    bool Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
              uint32_t mode, const void* param) override;
    uint32_t OutputSize() override;
    // Writes the planes Y, U, V; a layout without a kernel writes nothing. Rows below the last whole band are not
    // read. param is not read.
    uint32_t Process(const void* in, void* out, const void* param) override;

private:
    using SplitKernel = decltype(&SplitPackedYUV);
    using BinKernel = decltype(&BinPackedYUV2);
    using UnpackKernel = decltype(&UnpackPackedYUV10);

    void ProcessPacked10(const uint8_t* words, uint8_t* y, uint8_t* u, uint8_t* v);

    SplitKernel splitKernel = nullptr;
    BinKernel binKernel = nullptr;  // null at scale 1
    UnpackKernel unpackKernel = nullptr;
    // 10-bit input only: the current band's rows unpacked to 8-bit U Y V Y samples, 32-byte aligned, so that the
    // 8-bit bin kernels read them. The 8-bit kernels add a band's rows in registers and need no scratch.
    uint8_t* unpackedBand = nullptr;
    size_t unpackedStep = 0;
};
