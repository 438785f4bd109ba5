// A minimal host: encodes one generated Mono frame to JPEG through the plug-in's public interface
// and writes it to a file.
//
//   framefeed_example [output.jpg [width height]]
#include <framefeed/framefeed.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

void PrintLog(uint32_t level, const char* format, ...) {
    std::fprintf(stderr, "framefeed [%u]: ", level);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
}

// The callback's OutputFrame is valid only during the call, so keep a copy; the buffer itself
// stays ours until we give it back.
OutputFrame delivered{};
bool frameDelivered = false;

void KeepFrame(OutputFrame* frame) {
    delivered = *frame;
    frameDelivered = true;
}

// A soft diagonal gradient with three shaded discs, so the JPEG has both smooth areas and edges.
std::vector<uint8_t> MakePattern(uint32_t width, uint32_t height) {
    struct Disc {
        double cx, cy, radius, level;
    };
    const Disc discs[] = {{0.30, 0.40, 0.22, 230}, {0.65, 0.55, 0.28, 40}, {0.80, 0.25, 0.12, 180}};
    const double size = std::min(width, height);
    std::vector<uint8_t> frame(size_t(width) * height);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            double level = 60 + 120.0 * (double(x) / width + double(y) / height) / 2;
            for (const Disc& disc : discs) {
                const double distance = std::hypot(x - disc.cx * width, y - disc.cy * height) / size;
                // One-pixel ramp at the rim instead of a hard step, plus a little shading inside.
                const double inside = std::clamp((disc.radius - distance) * size + 0.5, 0.0, 1.0);
                const double shaded = disc.level * (1 - 0.4 * distance / disc.radius);
                level = level * (1 - inside) + shaded * inside;
            }
            frame[size_t(y) * width + x] = static_cast<uint8_t>(std::clamp(level, 0.0, 255.0));
        }
    }
    return frame;
}

bool ParseDimension(const char* text, uint32_t& value) {
    char* end = nullptr;
    const unsigned long parsed = std::strtoul(text, &end, 10);
    if (end == text || *end != '\0' || parsed == 0 || parsed > 65535) return false;
    value = static_cast<uint32_t>(parsed);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : "framefeed-example.jpg";
    uint32_t width = 640;
    uint32_t height = 480;
    if (argc == 3 || argc > 4 || (argc == 4 && (!ParseDimension(argv[2], width) || !ParseDimension(argv[3], height)))) {
        std::fprintf(stderr, "usage: %s [output.jpg [width height]]  (width and height 1 to 65535)\n", argv[0]);
        return 2;
    }

    if (!CreateStreamer(PrintLog)) {
        std::fprintf(stderr, "CreateStreamer failed\n");
        return 1;
    }
    Stream* stream = NewStream(KeepFrame);

    StreamConfig config{};
    config.format = PixelFormat::Mono;
    config.bitDepth = 8;
    config.bitsPerPixel = 8;
    config.inputCompression = CompressionCode::Raw;
    config.width = width;
    config.height = height;
    StreamParameters parameters[4]{};  // only the first element is read
    parameters[0].scale = 1;
    parameters[0].compression = CompressionCode::Jpeg;
    parameters[0].quality = 0.85f;

    int status = 1;
    if (!stream->Init(1, &config, parameters, 0)) {
        std::fprintf(stderr, "the stream refused a %ux%u Mono frame\n", width, height);
    } else {
        const std::vector<uint8_t> frame = MakePattern(width, height);
        if (!stream->ProcessFrame(frame.data(), static_cast<uint32_t>(frame.size()), 0, 0) || !frameDelivered) {
            std::fprintf(stderr, "no frame was delivered\n");
        } else {
            const FrameHeader& header = *delivered.header;
            bool written = false;
            if (std::FILE* file = std::fopen(path, "wb")) {
                written = std::fwrite(delivered.data, 1, header.payloadSize, file) == header.payloadSize;
                written = std::fclose(file) == 0 && written;
            }
            if (written) {
                std::printf("wrote %s: %u bytes, %ux%u JPEG\n", path, header.payloadSize, header.frameWidth,
                            header.frameHeight);
                status = 0;
            } else {
                std::fprintf(stderr, "cannot write %s\n", path);
            }
            // Deleting the stream waits for every lent buffer, so this must come first.
            FrameFeedReturnBuffer(delivered);
        }
    }
    FrameFeedDeleteStream(stream);
    DestroyStreamer();
    return status;
}
