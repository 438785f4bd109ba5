// Synthetic camera-like frames for the benchmarks. Flat content makes an encoder's or a demosaicker's work too
// easy, random content too hard, and neither has the smooth areas and soft edges a real lens produces. Every
// value is a pure function of position, so frames are the same in every run and for both sides of a comparison.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace benchframes {

// Light per-pixel noise in [-8, 7] from a position hash.
inline int Noise(int x, int y, int channel) {
    uint32_t h = uint32_t(x) * 0x9E3779B1u ^ uint32_t(y) * 0x85EBCA77u ^ uint32_t(channel) * 0xC2B2AE3Du;
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    return int(h & 15) - 8;
}

// Slow gradients and a soft bright blob, before noise; u and v run from 0 to 1 across the frame.
inline double GradientLevel(double u, double v, int channel) {
    const double blob = std::exp(-((u - 0.6) * (u - 0.6) + (v - 0.4) * (v - 0.4)) * 12.0);
    switch (channel) {
        case 0: return 40 + 120 * u + 60 * v + 80 * blob;
        case 1: return 30 + 90 * (1 - v) + 50 * u + 100 * blob;
        default: return 60 + 140 * v * (1 - u) + 40 * blob;
    }
}

inline uint8_t WithNoise(double level, int x, int y, int channel) {
    return uint8_t(std::clamp(int(level) + Noise(x, y, channel), 0, 255));
}

// Gradients and blob only: channel 0 red, 1 green, 2 blue of pixel (x, y) in a width x height frame.
inline uint8_t GradientScene(int x, int y, int channel, int width, int height) {
    return WithNoise(GradientLevel(double(x) / width, double(y) / height, channel), x, y, channel);
}

// How much of a pixel a shape covers when the pixel's centre lies `insidePixels` inside its edge (negative:
// outside). The ramp spans a few pixels, as a lens draws a sharp edge.
inline double SoftCoverage(double insidePixels) {
    constexpr double edgePixels = 3.0;
    return std::clamp(insidePixels / edgePixels + 0.5, 0.0, 1.0);
}

// The gradient scene with soft-edged objects laid over it: coloured discs, a dark diagonal bar and a patch of
// fine slanted stripes, the edges and texture that steer a demosaicker's interpolation.
inline uint8_t ShapedScene(int x, int y, int channel, int width, int height) {
    struct Disc {
        double centreU, centreV, radiusU;  // as fractions of the frame width and height
        double rgb[3];
    };
    static constexpr Disc discs[] = {
        {0.25, 0.30, 0.12, {200, 60, 50}},
        {0.70, 0.70, 0.15, {50, 150, 210}},
        {0.80, 0.20, 0.06, {230, 220, 90}},
        {0.45, 0.55, 0.05, {20, 25, 30}},
    };
    const double u = double(x) / width;
    const double v = double(y) / height;
    double level = GradientLevel(u, v, channel);
    for (const Disc& disc : discs) {
        const double dx = (u - disc.centreU) * width;
        const double dy = (v - disc.centreV) * height;
        const double cover = SoftCoverage(disc.radiusU * width - std::sqrt(dx * dx + dy * dy));
        level += (disc.rgb[channel] - level) * cover;
    }
    // A bar 3 % of the width across, from the top left towards the right edge.
    const double normalX = -0.5, normalY = 0.866;  // unit normal of the bar's direction
    const double across = (x - 0.1 * width) * normalX + (y - 0.05 * height) * normalY;
    level += (35.0 + 5 * channel - level) * SoftCoverage(0.015 * width - std::abs(across));
    // Stripes of a 9-pixel period in the lower left quarter, fading in at the patch's border.
    const double patch = SoftCoverage(std::min({(u - 0.05) * width, (0.35 - u) * width, (v - 0.65) * height,
                                                (0.95 - v) * height}));
    const double radiansPerPixel = 2 * 3.14159265358979 / 9.0;
    if (patch > 0) level += patch * 50 * std::sin((x + 0.4 * y) * radiansPerPixel);
    return WithNoise(level, x, y, channel);
}

// An RGGB mosaic of a scene: every site keeps the one channel its colour filter passes.
template <class Scene>
std::vector<uint8_t> RggbMosaic(int width, int height, Scene scene) {
    std::vector<uint8_t> mosaic(size_t(width) * height);
    uint8_t* site = mosaic.data();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) *site++ = scene(x, y, (y & 1) + (x & 1), width, height);
    return mosaic;
}

}  // namespace benchframes
