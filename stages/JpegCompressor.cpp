#include "stages/JpegCompressor.h"

#include "stream/Log.h"

#include <turbojpeg.h>

#include <climits>
#include <cmath>

namespace {

// Quality 0..1 becomes the encoder's 0..100 by a single-precision product, truncated. Values the
// encoder refuses stay out of range rather than being clamped; NaN and overflow map to INT_MIN.
int EncoderQuality(float quality) {
    const float scaled = quality * 100.0f;
    if (!(scaled > float(INT_MIN) && scaled < float(INT_MAX))) return INT_MIN;
    return static_cast<int>(scaled);
}

}  // namespace

JpegCompressor::~JpegCompressor() {
    if (handle != nullptr) tjDestroy(handle);
}

bool JpegCompressor::Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out,
                          uint32_t scale, uint32_t, const void* param) {
    if (scale != 1) {
        Log(LogFailure, "Compressor: Unsupported scale factor (%u)", scale);
        return false;
    }
    switch (in->format) {
        case PixelFormat::Mono:
        case PixelFormat::RGB:
        case PixelFormat::RGBX:
            break;
        case PixelFormat::YUV420P:
        case PixelFormat::YUV422P:
        case PixelFormat::YUV444P:
            if (in->bitDepth != 8) {
                Log(LogFailure, "Compressor: Unsupported BPP (%u)", static_cast<uint32_t>(in->bitDepth));
                return false;
            }
            break;
        default:
            Log(LogFailure, "Compressor: Invalid input format");
            return false;
    }
    // The encoder's worst case must fit the 32-bit buffer sizes of the chain.
    const unsigned long worstCase = tjBufSize(static_cast<int>(width), static_cast<int>(height), TJSAMP_444);
    if (width == 0 || height == 0 || width > INT_MAX || height > INT_MAX || worstCase == (unsigned long)-1 ||
        worstCase > UINT32_MAX) {
        Log(LogFailure, "Compressor: Unsupported image size (%ux%u)", width, height);
        return false;
    }
    this->width = width;
    this->height = height;
    inFormat = *in;
    outFormat = *out;
    handle = tjInitCompress();
    if (handle == nullptr) {
        Log(LogFailure, "Compressor: Cannot init JPEG engine");
        return false;
    }
    bufferSize = OutputSize();
    defaultQuality = *static_cast<const float*>(param);
    return true;
}

uint32_t JpegCompressor::OutputSize() {
    return static_cast<uint32_t>(tjBufSize(static_cast<int>(width), static_cast<int>(height), TJSAMP_444));
}

uint32_t JpegCompressor::Process(const void* in, void* out, const void* param) {
    const int quality = EncoderQuality(param != nullptr ? *static_cast<const float*>(param) : defaultQuality);
    unsigned long jpegSize = bufferSize;
    unsigned char* jpegBuf = static_cast<unsigned char*>(out);
    const unsigned char* source = static_cast<const unsigned char*>(in);
    const int w = static_cast<int>(width);
    const int h = static_cast<int>(height);
    // Write into the chain's buffer as it is; the exact transform keeps frames comparable.
    constexpr int flags = TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT;

    int result = 0;
    switch (inFormat.format) {
        case PixelFormat::Mono:
            result = tjCompress2(handle, source, w, w, h, TJPF_GRAY, &jpegBuf, &jpegSize, TJSAMP_GRAY, quality, flags);
            break;
        case PixelFormat::RGB:
            result = tjCompress2(handle, source, w, w * 3, h, TJPF_RGB, &jpegBuf, &jpegSize, TJSAMP_420, quality, flags);
            break;
        case PixelFormat::RGBX:
            result = tjCompress2(handle, source, w, w * 4, h, TJPF_RGBX, &jpegBuf, &jpegSize, TJSAMP_420, quality, flags);
            break;
        case PixelFormat::YUV420P:
            result = tjCompressFromYUV(handle, source, w, 1, h, TJSAMP_420, &jpegBuf, &jpegSize, quality, flags);
            break;
        case PixelFormat::YUV422P:
            result = tjCompressFromYUV(handle, source, w, 1, h, TJSAMP_422, &jpegBuf, &jpegSize, quality, flags);
            break;
        case PixelFormat::YUV444P:
            result = tjCompressFromYUV(handle, source, w, 1, h, TJSAMP_444, &jpegBuf, &jpegSize, quality, flags);
            break;
    }
    if (result < 0) Log(LogFailure, "Compressor (JPEG): Compression failed (%s)", tjGetErrorStr());
    return static_cast<uint32_t>(jpegSize);
}
