// Camera frames as sensors deliver them: the format names the tool accepts, the byte size of a frame, turning
// an image into the frame a sensor would deliver, and turning a stream's raw output back into an image.
#pragma once

#include "Image.h"

#include <cstdint>
#include <string>
#include <vector>

// The PixelFormat of a name such as "rggb" or "uyvy" (case does not matter); throws a usage error naming
// `option` and listing the valid names.
uint32_t ParseFormatName(const std::string& name, const std::string& option);
// The tool's name of a format ("rggb"), and the header's name ("BayerRGGB").
std::string FormatName(uint32_t format);
std::string FormatTitle(uint32_t format);
// Every name ParseFormatName takes, comma separated.
std::string FormatNames();

// What a frame holds: its PixelFormat, sample depth, stored bits per pixel and size.
struct FrameLayout {
    uint32_t format = 0;
    int32_t bitDepth = 8;
    uint32_t bitsPerPixel = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

// The stored bits per pixel of a format at a depth, as sensors pack it: 10 and 12 bits densely packed, deeper
// samples in 16-bit words, 10-bit packed YUV three samples to a 32-bit word.
uint32_t DefaultBitsPerPixel(uint32_t format, int32_t bitDepth);

// Checks the combination of format, depth and bits per pixel that the tool can make or size; throws a usage
// error that lists the valid depths and layouts of the format.
void CheckLayout(const FrameLayout& layout);

// Bytes in one frame of this layout.
uint64_t FrameBytes(const FrameLayout& layout);

// The frame a sensor of this layout delivers for the image (cut to layout.width by layout.height first): Bayer sites
// keep their own colour, grey comes from BT.601 luma, YUV from the full-range JPEG conversion with chroma averaged
// over the pixels that share it, and deeper samples repeat their high bits in the low ones.
std::vector<uint8_t> MakeFrame(const Image& image, const FrameLayout& layout);

// An 8-bit output image of the given layout as grey or RGB: Mono and Bayer as grey, RGB and RGBX as RGB, planar
// YUV converted back to RGB. Throws ToolError for a layout it cannot show.
Image DecodeFrame(const uint8_t* data, size_t size, const FrameLayout& layout);
