// Images as the tool reads and writes them: 8-bit grey or RGB, rows without padding.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Image {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0;  // 1 grey, 3 RGB
    std::vector<uint8_t> pixels;

    const uint8_t* Pixel(uint32_t x, uint32_t y) const { return &pixels[(size_t(y) * width + x) * channels]; }
};

// True when the file begins like a PNG or a binary PPM/PGM.
bool LooksLikeImage(const std::string& path);

// Reads a PNG (any colour type; 16-bit samples keep their high byte, alpha is dropped) or a binary PPM (P6) or
// PGM (P5). Grey files stay grey. Throws ToolError with the reason when the file cannot be used.
Image ReadImage(const std::string& path);

// The same image with three channels.
Image ToRgb(const Image& image);

// The part of the image whose top-left corner is (x, y), of the given size.
Image Crop(const Image& image, uint32_t x, uint32_t y, uint32_t width, uint32_t height);

// Writes an 8-bit grey or RGB PNG; throws ToolError (and removes a partial file) when it cannot.
void WritePng(const std::string& path, const Image& image);

// Writes bytes to a file whole; throws ToolError (and removes a partial file) when it cannot.
void WriteFile(const std::string& path, const void* data, size_t size);

// The bytes of a file; throws ToolError with the system's reason when it cannot be read.
std::vector<uint8_t> ReadFile(const std::string& path);
