// Families of PixelFormat codes, and the rule that decides whether a stream's deep data must be reduced to
// 8 bits before the rest of its chain; shared by the assembly and the cost estimate.
#pragma once

#include <framefeed/framefeed.h>

#include <cstdint>

inline bool IsBayer(uint32_t format) { return format >= PixelFormat::BayerRGGB && format <= PixelFormat::BayerGBRG; }
inline bool IsRgb(uint32_t format) { return format == PixelFormat::RGB || format == PixelFormat::RGBX; }
inline bool IsPackedYuv(uint32_t format) {
    return format >= PixelFormat::PackedYUVCode8 && format <= PixelFormat::PackedYUVCode13;
}
inline bool IsPlanarYuv(uint32_t format) { return format >= PixelFormat::YUV420P && format <= PixelFormat::YUV444P; }

// Formats whose stages read only 8-bit samples: Mono, RGB, planar YUV, and Bayer for the fast stage or for
// Hamilton-Adams at a reducing scale.
inline bool MustReduceDeepData(uint32_t format, uint32_t demosaic, uint32_t scale) {
    const bool bayer = IsBayer(format);
    return format == PixelFormat::Mono || IsRgb(format) || IsPlanarYuv(format) || (bayer && demosaic == 0) ||
           (bayer && demosaic == 1 && scale > 1);
}

// Bits per pixel the first stage reads from an 8-bit frame of this format; deeper frames are checked by the
// stage that reads them (the bit-depth reduction or the high-quality demosaicking).
inline uint32_t BitsPerPixelRead(uint32_t format) {
    switch (format) {
        case PixelFormat::RGB: return 24;
        case PixelFormat::RGBX: return 32;
        case PixelFormat::UYVY:
        case PixelFormat::YUYV: return 16;
        case PixelFormat::YUV420P:
        case PixelFormat::YUV420PAlt:
        case PixelFormat::YUV411P:
        case PixelFormat::YUV411PAlt: return 12;
        case PixelFormat::YUV422P: return 16;
        case PixelFormat::YUV444P: return 24;
        default: return 8;  // Mono, Bayer, and anything a stage would read as Mono
    }
}

// Luma samples per chroma sample of a planar YUV format, across a row and down a column.
inline uint32_t ChromaAcross(uint32_t format) {
    if (format == PixelFormat::YUV411P || format == PixelFormat::YUV411PAlt) return 4;
    return format == PixelFormat::YUV444P ? 1 : 2;
}
inline uint32_t ChromaDown(uint32_t format) {
    return format == PixelFormat::YUV420P || format == PixelFormat::YUV420PAlt ? 2 : 1;
}

// Bytes of an 8-bit planar YUV frame: the luma plane, then two chroma planes whose sizes round up.
inline uint64_t PlanarYuvBytes(uint32_t format, uint32_t width, uint32_t height) {
    const uint32_t across = ChromaAcross(format), down = ChromaDown(format);
    const uint64_t chroma = (uint64_t(width) + across - 1) / across * ((uint64_t(height) + down - 1) / down);
    return uint64_t(width) * height + 2 * chroma;
}
