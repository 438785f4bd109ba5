// The abstract stage: created, Init once, OutputSize once, then Process per frame.
#pragma once

#include <framefeed/framefeed.h>

#include <cstdint>

class ImageProcessing {
public:
    virtual ~ImageProcessing() {}

    // Checks what the stage supports (one level 3 message and false on refusal), copies the
    // formats and allocates everything needed for Process.
    virtual bool Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                      uint32_t scale, uint32_t mode, const void* param) = 0;
    // Bytes of output buffer one frame needs.
    virtual uint32_t OutputSize() = 0;
    // Turns one frame; returns the bytes written. Never fails: a failing stage logs.
    virtual uint32_t Process(const void* in, void* out, const void* param) = 0;

protected:
    // Size of a scaled image in unsigned 32-bit arithmetic: the height is multiplied before its
    // division, which the buffer sizes of existing hosts were made with.
    uint32_t ScaledOutputSize() const { return width / scale * height / scale * outFormat.bitsPerPixel >> 3; }

    uint32_t width = 0;
    uint32_t height = 0;
    ImageFormat inFormat{};
    ImageFormat outFormat{};
    uint32_t scale = 0;
};
