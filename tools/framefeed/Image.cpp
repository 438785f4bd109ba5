#include "Image.h"

#include "ToolError.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::string SystemReason() { return std::strerror(errno); }

File OpenForReading(const std::string& path) {
    File file(std::fopen(path.c_str(), "rb"));
    if (!file) throw ToolError("cannot read " + path + ": " + SystemReason());
    return file;
}

// Next header token of a PPM/PGM, skipping white space and comments.
bool ReadPnmNumber(std::FILE* file, uint32_t& value) {
    int c = std::fgetc(file);
    while (c != EOF && (std::isspace(c) || c == '#')) {
        if (c == '#')
            while (c != EOF && c != '\n') c = std::fgetc(file);
        c = std::fgetc(file);
    }
    if (c == EOF || !std::isdigit(c)) return false;
    uint64_t number = 0;
    while (c != EOF && std::isdigit(c)) {
        number = number * 10 + uint32_t(c - '0');
        if (number > 0xFFFFFFFFu) return false;
        c = std::fgetc(file);
    }
    value = uint32_t(number);
    return c != EOF && std::isspace(c);  // exactly one white-space byte ends the header's last number
}

Image ReadPnm(const std::string& path) {
    File file = OpenForReading(path);
    char magic[2] = {};
    uint32_t width = 0, height = 0, maxValue = 0;
    if (std::fread(magic, 1, 2, file.get()) != 2 || magic[0] != 'P' || (magic[1] != '5' && magic[1] != '6') ||
        !ReadPnmNumber(file.get(), width) || !ReadPnmNumber(file.get(), height) ||
        !ReadPnmNumber(file.get(), maxValue) || width == 0 || height == 0 || maxValue == 0 || maxValue > 65535)
        throw ToolError(path + " is not a binary PPM (P6) or PGM (P5) image");
    if (uint64_t(width) * height > (uint64_t(1) << 28)) throw ToolError(path + " is too large");
    Image image;
    image.width = width;
    image.height = height;
    image.channels = magic[1] == '6' ? 3 : 1;
    const size_t samples = size_t(width) * height * image.channels;
    const size_t sampleBytes = maxValue > 255 ? 2 : 1;
    std::vector<uint8_t> raw(samples * sampleBytes);
    if (std::fread(raw.data(), 1, raw.size(), file.get()) != raw.size())
        throw ToolError(path + " ends before its " + std::to_string(width) + "x" + std::to_string(height) +
                        " pixels do");
    image.pixels.resize(samples);
    for (size_t i = 0; i < samples; ++i) {
        // Samples are scaled to 0..255 from the file's own maximum; 16-bit samples are big-endian.
        const uint32_t value = sampleBytes == 2 ? uint32_t(raw[2 * i]) << 8 | raw[2 * i + 1] : raw[i];
        image.pixels[i] = uint8_t((std::min(value, maxValue) * 255u + maxValue / 2) / maxValue);
    }
    return image;
}

Image ReadPngFile(const std::string& path) {
    std::vector<uint8_t> bytes = ReadFile(path);
    png_image png;
    std::memset(&png, 0, sizeof(png));
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&png, bytes.data(), bytes.size()))
        throw ToolError("cannot read " + path + " as PNG: " + png.message);
    Image image;
    image.width = png.width;
    image.height = png.height;
    image.channels = (png.format & PNG_FORMAT_FLAG_COLOR) ? 3 : 1;
    png.format = image.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    image.pixels.resize(PNG_IMAGE_SIZE(png));
    if (!png_image_finish_read(&png, nullptr, image.pixels.data(), 0, nullptr)) {
        const std::string reason = png.message;
        png_image_free(&png);
        throw ToolError("cannot read " + path + " as PNG: " + reason);
    }
    return image;
}

}  // namespace

std::vector<uint8_t> ReadFile(const std::string& path) {
    File file = OpenForReading(path);
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    size_t count = 0;
    while ((count = std::fread(chunk, 1, sizeof(chunk), file.get())) > 0)
        bytes.insert(bytes.end(), chunk, chunk + count);
    if (std::ferror(file.get())) throw ToolError("cannot read " + path + ": " + SystemReason());
    return bytes;
}

bool LooksLikeImage(const std::string& path) {
    File file = OpenForReading(path);
    uint8_t head[8] = {};
    const size_t count = std::fread(head, 1, sizeof(head), file.get());
    if (count == 8 && png_sig_cmp(head, 0, 8) == 0) return true;
    return count >= 3 && head[0] == 'P' && (head[1] == '5' || head[1] == '6') && std::isspace(head[2]);
}

Image ReadImage(const std::string& path) {
    File file = OpenForReading(path);
    uint8_t head[8] = {};
    const size_t count = std::fread(head, 1, sizeof(head), file.get());
    file.reset();
    if (count == 8 && png_sig_cmp(head, 0, 8) == 0) return ReadPngFile(path);
    if (count >= 2 && head[0] == 'P') return ReadPnm(path);
    throw ToolError(path + " is not a PNG, PPM or PGM image");
}

Image ToRgb(const Image& image) {
    if (image.channels == 3) return image;
    Image rgb;
    rgb.width = image.width;
    rgb.height = image.height;
    rgb.channels = 3;
    rgb.pixels.resize(image.pixels.size() * 3);
    for (size_t i = 0; i < image.pixels.size(); ++i)
        rgb.pixels[3 * i] = rgb.pixels[3 * i + 1] = rgb.pixels[3 * i + 2] = image.pixels[i];
    return rgb;
}

Image Crop(const Image& image, uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    Image part;
    part.width = width;
    part.height = height;
    part.channels = image.channels;
    part.pixels.resize(size_t(width) * height * image.channels);
    for (uint32_t row = 0; row < height; ++row) {
        const uint8_t* from = image.Pixel(x, y + row);
        std::memcpy(&part.pixels[size_t(row) * width * image.channels], from, size_t(width) * image.channels);
    }
    return part;
}

void WritePng(const std::string& path, const Image& image) {
    png_image png;
    std::memset(&png, 0, sizeof(png));
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = image.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    png_alloc_size_t size = 0;
    // Encode into memory first, so that a failure leaves no file behind.
    if (!png_image_write_to_memory(&png, nullptr, &size, 0, image.pixels.data(), 0, nullptr))
        throw ToolError("cannot encode " + path + ": " + png.message);
    std::vector<uint8_t> bytes(size);
    if (!png_image_write_to_memory(&png, bytes.data(), &size, 0, image.pixels.data(), 0, nullptr))
        throw ToolError("cannot encode " + path + ": " + png.message);
    WriteFile(path, bytes.data(), size);
}

void WriteFile(const std::string& path, const void* data, size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) throw ToolError("cannot write " + path + ": " + SystemReason());
    bool written = std::fwrite(data, 1, size, file) == size;
    const std::string reason = SystemReason();
    written = std::fclose(file) == 0 && written;
    if (!written) {
        std::remove(path.c_str());
        throw ToolError("cannot write " + path + ": " + reason);
    }
}
