#include "Frames.h"

#include "ToolError.h"

#include <framefeed/framefeed.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

namespace {

struct NamedFormat {
    const char* name;
    uint32_t format;
    const char* title;
};

const NamedFormat namedFormats[] = {
    {"mono", PixelFormat::Mono, "Mono"},           {"rggb", PixelFormat::BayerRGGB, "BayerRGGB"},
    {"grbg", PixelFormat::BayerGRBG, "BayerGRBG"}, {"bggr", PixelFormat::BayerBGGR, "BayerBGGR"},
    {"gbrg", PixelFormat::BayerGBRG, "BayerGBRG"}, {"rgb", PixelFormat::RGB, "RGB"},
    {"rgbx", PixelFormat::RGBX, "RGBX"},           {"uyvy", PixelFormat::UYVY, "UYVY"},
    {"yuyv", PixelFormat::YUYV, "YUYV"},           {"yuv420p", PixelFormat::YUV420P, "YUV420P"},
    {"yuv411p", PixelFormat::YUV411P, "YUV411P"},  {"yuv422p", PixelFormat::YUV422P, "YUV422P"},
    {"yuv444p", PixelFormat::YUV444P, "YUV444P"},
};

bool IsMonoOrBayer(uint32_t format) { return format >= PixelFormat::Mono && format <= PixelFormat::BayerGBRG; }
bool IsPackedYuv(uint32_t format) { return format == PixelFormat::UYVY || format == PixelFormat::YUYV; }

std::string Lower(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Chroma plane divisors of the planar YUV formats, horizontal and vertical.
bool ChromaDivisors(uint32_t format, uint32_t& wd, uint32_t& hd) {
    switch (format) {
        case PixelFormat::YUV420P:
        case PixelFormat::YUV420PAlt:
            wd = 2;
            hd = 2;
            return true;
        case PixelFormat::YUV411P:
        case PixelFormat::YUV411PAlt:
            wd = 4;
            hd = 1;
            return true;
        case PixelFormat::YUV422P:
            wd = 2;
            hd = 1;
            return true;
        case PixelFormat::YUV444P:
            wd = 1;
            hd = 1;
            return true;
        default: return false;
    }
}

uint8_t ToByte(double value) { return uint8_t(std::clamp(std::lround(value), 0l, 255l)); }

// Full-range BT.601, the conversion of JPEG files.
struct Yuv {
    double y, u, v;
};
Yuv ToYuv(const uint8_t* rgb) {
    const double r = rgb[0], g = rgb[1], b = rgb[2];
    return {0.299 * r + 0.587 * g + 0.114 * b, 128 - 0.168736 * r - 0.331264 * g + 0.5 * b,
            128 + 0.5 * r - 0.418688 * g - 0.081312 * b};
}

// The channel of a Bayer site: 0 red, 1 green, 2 blue.
int BayerChannel(uint32_t format, uint32_t x, uint32_t y) {
    const uint32_t redX = format == PixelFormat::BayerGRBG || format == PixelFormat::BayerBGGR;
    const uint32_t redY = format == PixelFormat::BayerBGGR || format == PixelFormat::BayerGBRG;
    const bool redColumn = (x & 1) == redX;
    const bool redRow = (y & 1) == redY;
    return redColumn && redRow ? 0 : !redColumn && !redRow ? 2 : 1;
}

// An 8-bit sample widened to `depth` bits with its high bits repeated below, so white stays full scale.
uint32_t Widen(uint8_t sample, int32_t depth) {
    if (depth <= 8) return sample;
    const uint32_t shifted = uint32_t(sample) << (depth - 8);
    return shifted | (uint32_t(sample) >> (16 - depth));
}

// One sample per pixel, stored as the layout says: bytes, 10 bits four to 5 bytes, 12 bits two to 3 bytes
// (both least significant bit first), or little-endian words.
std::vector<uint8_t> PackSamples(const std::vector<uint8_t>& samples, const FrameLayout& layout) {
    std::vector<uint8_t> frame(size_t(FrameBytes(layout)), 0);
    const size_t count = samples.size();
    switch (layout.bitsPerPixel) {
        case 8: std::copy(samples.begin(), samples.end(), frame.begin()); break;
        case 10:
            for (size_t i = 0; i + 4 <= count; i += 4) {
                uint64_t bits = 0;
                for (size_t k = 0; k < 4; ++k) bits |= uint64_t(Widen(samples[i + k], layout.bitDepth)) << (10 * k);
                for (size_t k = 0; k < 5; ++k) frame[i / 4 * 5 + k] = uint8_t(bits >> (8 * k));
            }
            break;
        case 12:
            for (size_t i = 0; i + 2 <= count; i += 2) {
                const uint32_t bits = Widen(samples[i], layout.bitDepth) | Widen(samples[i + 1], layout.bitDepth) << 12;
                for (size_t k = 0; k < 3; ++k) frame[i / 2 * 3 + k] = uint8_t(bits >> (8 * k));
            }
            break;
        default:
            for (size_t i = 0; i < count; ++i) {
                const uint32_t value = Widen(samples[i], layout.bitDepth);
                frame[2 * i] = uint8_t(value);
                frame[2 * i + 1] = uint8_t(value >> 8);
            }
    }
    return frame;
}

std::vector<uint8_t> MakePackedYuv(const Image& rgb, const FrameLayout& layout) {
    std::vector<uint8_t> frame(size_t(FrameBytes(layout)), 0);
    const size_t pitch = layout.bitsPerPixel == 32 ? size_t(layout.width + 47) / 48 * 128 : size_t(layout.width) * 2;
    for (uint32_t y = 0; y < layout.height; ++y) {
        uint8_t* row = &frame[y * pitch];
        for (uint32_t x = 0; x < layout.width; x += 2) {
            const Yuv left = ToYuv(rgb.Pixel(x, y)), right = ToYuv(rgb.Pixel(x + 1, y));
            // U Y0 V Y1, the order of UYVY and of every 10-bit frame.
            const uint8_t quad[4] = {ToByte((left.u + right.u) / 2), ToByte(left.y), ToByte((left.v + right.v) / 2),
                                     ToByte(right.y)};
            if (layout.bitsPerPixel == 16) {
                uint8_t* pair = row + 2 * x;
                if (layout.format == PixelFormat::UYVY) {
                    std::memcpy(pair, quad, 4);
                } else {
                    pair[0] = quad[1], pair[1] = quad[0], pair[2] = quad[3], pair[3] = quad[2];
                }
                continue;
            }
            // Three 10-bit samples to a little-endian word, at bits 0, 10 and 20.
            for (size_t k = 0; k < 4; ++k) {
                const size_t sample = size_t(x) * 2 + k;
                uint8_t* word = row + sample / 3 * 4;
                const uint32_t bits = Widen(quad[k], 10) << (10 * (sample % 3));
                for (size_t b = 0; b < 4; ++b) word[b] |= uint8_t(bits >> (8 * b));
            }
        }
    }
    return frame;
}

std::vector<uint8_t> MakePlanarYuv(const Image& rgb, const FrameLayout& layout) {
    uint32_t wd = 1, hd = 1;
    ChromaDivisors(layout.format, wd, hd);
    const uint32_t w = layout.width, h = layout.height, cw = w / wd, ch = h / hd;
    std::vector<uint8_t> frame(size_t(FrameBytes(layout)), 0);
    uint8_t* planeY = frame.data();
    uint8_t* planeU = planeY + size_t(w) * h;
    uint8_t* planeV = planeU + size_t(cw) * ch;
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) planeY[size_t(y) * w + x] = ToByte(ToYuv(rgb.Pixel(x, y)).y);
    for (uint32_t cy = 0; cy < ch; ++cy)
        for (uint32_t cx = 0; cx < cw; ++cx) {
            double u = 0, v = 0;
            for (uint32_t dy = 0; dy < hd; ++dy)
                for (uint32_t dx = 0; dx < wd; ++dx) {
                    const Yuv yuv = ToYuv(rgb.Pixel(cx * wd + dx, cy * hd + dy));
                    u += yuv.u;
                    v += yuv.v;
                }
            planeU[size_t(cy) * cw + cx] = ToByte(u / (wd * hd));
            planeV[size_t(cy) * cw + cx] = ToByte(v / (wd * hd));
        }
    return frame;
}

}  // namespace

uint32_t ParseFormatName(const std::string& name, const std::string& option) {
    const std::string wanted = Lower(name);
    for (const NamedFormat& named : namedFormats)
        if (wanted == named.name || wanted == Lower(named.title)) return named.format;
    throw UsageError("unknown format '" + name + "' for " + option + "; valid formats: " + FormatNames());
}

std::string FormatName(uint32_t format) {
    for (const NamedFormat& named : namedFormats)
        if (named.format == format) return named.name;
    return "format " + std::to_string(format);
}

std::string FormatTitle(uint32_t format) {
    for (const NamedFormat& named : namedFormats)
        if (named.format == format) return named.title;
    return "format " + std::to_string(format);
}

std::string FormatNames() {
    std::string names;
    for (const NamedFormat& named : namedFormats) names += std::string(names.empty() ? "" : ", ") + named.name;
    return names;
}

uint32_t DefaultBitsPerPixel(uint32_t format, int32_t bitDepth) {
    if (IsMonoOrBayer(format)) return bitDepth <= 8 ? 8 : bitDepth == 10 ? 10 : bitDepth == 12 ? 12 : 16;
    if (IsPackedYuv(format)) return bitDepth <= 8 ? 16 : 32;
    switch (format) {
        case PixelFormat::RGB:
        case PixelFormat::YUV444P: return 24;
        case PixelFormat::RGBX: return 32;
        case PixelFormat::YUV422P: return 16;
        default: return 12;  // 4:2:0 and 4:1:1
    }
}

void CheckLayout(const FrameLayout& layout) {
    const std::string what = FormatName(layout.format) + " at depth " + std::to_string(layout.bitDepth);
    if (IsMonoOrBayer(layout.format)) {
        const int32_t d = layout.bitDepth;
        if (d != 8 && d != 10 && d != 12 && d != 14 && d != 16)
            throw UsageError("unsupported --depth " + std::to_string(d) + " for " + FormatName(layout.format) +
                             "; valid depths: 8, 10, 12, 14, 16");
        const uint32_t b = layout.bitsPerPixel;
        const bool valid = b == DefaultBitsPerPixel(layout.format, d) || (b == 16 && d > 8);
        if (!valid)
            throw UsageError("unsupported --bpp " + std::to_string(b) + " for " + what +
                             "; valid: " + std::to_string(DefaultBitsPerPixel(layout.format, d)) +
                             (d == 10 || d == 12 ? " or 16" : ""));
        return;
    }
    if (IsPackedYuv(layout.format)) {
        if (layout.bitDepth != 8 && layout.bitDepth != 10)
            throw UsageError("unsupported --depth " + std::to_string(layout.bitDepth) + " for " +
                             FormatName(layout.format) + "; valid depths: 8, 10");
    } else if (layout.bitDepth != 8) {
        throw UsageError("unsupported --depth " + std::to_string(layout.bitDepth) + " for " +
                         FormatName(layout.format) +
                         "; it has 8-bit samples only (deeper data: mono, Bayer, uyvy and yuyv)");
    }
    if (layout.bitsPerPixel != DefaultBitsPerPixel(layout.format, layout.bitDepth))
        throw UsageError("unsupported --bpp " + std::to_string(layout.bitsPerPixel) + " for " + what +
                         "; valid: " + std::to_string(DefaultBitsPerPixel(layout.format, layout.bitDepth)));
}

uint64_t FrameBytes(const FrameLayout& layout) {
    const uint64_t pixels = uint64_t(layout.width) * layout.height;
    if (IsPackedYuv(layout.format) && layout.bitsPerPixel == 32)
        return uint64_t(layout.width + 47) / 48 * 128 * layout.height;
    return pixels * layout.bitsPerPixel / 8;
}

std::vector<uint8_t> MakeFrame(const Image& image, const FrameLayout& layout) {
    const Image part = Crop(image, 0, 0, layout.width, layout.height);
    if (IsMonoOrBayer(layout.format)) {
        const Image rgb = ToRgb(part);
        std::vector<uint8_t> samples(size_t(layout.width) * layout.height);
        for (uint32_t y = 0; y < layout.height; ++y)
            for (uint32_t x = 0; x < layout.width; ++x) {
                const uint8_t* pixel = rgb.Pixel(x, y);
                samples[size_t(y) * layout.width + x] =
                    layout.format == PixelFormat::Mono
                        ? (part.channels == 1 ? *part.Pixel(x, y) : ToByte(ToYuv(pixel).y))
                        : pixel[BayerChannel(layout.format, x, y)];
            }
        return PackSamples(samples, layout);
    }
    const Image rgb = ToRgb(part);
    if (layout.format == PixelFormat::RGB) return rgb.pixels;
    if (layout.format == PixelFormat::RGBX) {
        std::vector<uint8_t> frame(size_t(layout.width) * layout.height * 4, 255);
        for (size_t i = 0; i < size_t(layout.width) * layout.height; ++i)
            std::memcpy(&frame[4 * i], &rgb.pixels[3 * i], 3);
        return frame;
    }
    if (IsPackedYuv(layout.format)) return MakePackedYuv(rgb, layout);
    return MakePlanarYuv(rgb, layout);
}

Image DecodeFrame(const uint8_t* data, size_t size, const FrameLayout& layout) {
    const std::string what = std::to_string(layout.width) + "x" + std::to_string(layout.height) + " " +
                             FormatTitle(layout.format) + " output";
    uint32_t wd = 0, hd = 0;
    const bool planar = ChromaDivisors(layout.format, wd, hd);
    const bool eightBit = layout.bitDepth <= 8 && (IsMonoOrBayer(layout.format) ? layout.bitsPerPixel == 8 : true);
    if (!eightBit || !(IsMonoOrBayer(layout.format) || planar || layout.format == PixelFormat::RGB ||
                       layout.format == PixelFormat::RGBX))
        throw ToolError("cannot show " + what + " (" + std::to_string(layout.bitDepth) + "-bit, " +
                        std::to_string(layout.bitsPerPixel) + " bits per pixel) as PNG");
    if (size < FrameBytes(layout))
        throw ToolError("the stream delivered " + std::to_string(size) + " bytes; " + what + " needs " +
                        std::to_string(FrameBytes(layout)));
    Image image;
    image.width = layout.width;
    image.height = layout.height;
    const size_t pixels = size_t(layout.width) * layout.height;
    if (IsMonoOrBayer(layout.format)) {
        image.channels = 1;
        image.pixels.assign(data, data + pixels);
        return image;
    }
    image.channels = 3;
    image.pixels.resize(pixels * 3);
    if (layout.format == PixelFormat::RGB) {
        image.pixels.assign(data, data + pixels * 3);
    } else if (layout.format == PixelFormat::RGBX) {
        for (size_t i = 0; i < pixels; ++i) std::memcpy(&image.pixels[3 * i], data + 4 * i, 3);
    } else {
        const uint32_t cw = layout.width / wd, ch = layout.height / hd;
        const uint8_t* planeU = data + pixels;
        const uint8_t* planeV = planeU + size_t(cw) * ch;
        for (uint32_t y = 0; y < layout.height; ++y)
            for (uint32_t x = 0; x < layout.width; ++x) {
                const size_t chroma = size_t(std::min(y / hd, ch - 1)) * cw + std::min(x / wd, cw - 1);
                const double luma = data[size_t(y) * layout.width + x];
                const double u = planeU[chroma] - 128.0, v = planeV[chroma] - 128.0;
                uint8_t* out = &image.pixels[(size_t(y) * layout.width + x) * 3];
                out[0] = ToByte(luma + 1.402 * v);
                out[1] = ToByte(luma - 0.344136 * u - 0.714136 * v);
                out[2] = ToByte(luma + 1.772 * u);
            }
    }
    return image;
}
