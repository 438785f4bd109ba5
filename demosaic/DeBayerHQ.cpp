#include "demosaic/DeBayerHQ.h"

#include "platform/Platform.h"
#include "stages/BitPacker.h"
#include "stream/Log.h"

#include <emmintrin.h>

#include <cstring>

namespace {

constexpr uint32_t haMode = 1;

int32_t PhaseOf(uint32_t format) {
    switch (format) {
        case PixelFormat::BayerRGGB: return 1;
        case PixelFormat::BayerGRBG: return 3;
        case PixelFormat::BayerBGGR: return 0;
        case PixelFormat::BayerGBRG: return 2;
        default: return -1;
    }
}

// Sample layouts this stage reads: bytes up to 8 bits, little-endian words above, or the densely packed 10-
// and 12-bit layouts, which are unpacked into words first.
bool ReadableLayout(const ImageFormat& in) {
    if (in.bitDepth <= 8) return in.bitsPerPixel == 8;
    return in.bitsPerPixel == 16 || (in.bitDepth == 10 && in.bitsPerPixel == 10) ||
           (in.bitDepth == 12 && in.bitsPerPixel == 12);
}

// Output of at least this many bytes bypasses the caches: it would only evict the planes' rows still to be read.
constexpr size_t streamedOutputBytes = 8u << 20;

// Four pixels of three planes into RGBX with padding 0xFF. Streamed, the 16-byte groups go past the caches and
// out must be 16-byte aligned.
template <bool streamed>
void Interleave8(const uint8_t* r, const uint8_t* g, const uint8_t* b, uint8_t* out, uint32_t pixels) {
    const auto put = [](__m128i* to, __m128i value) {
        if (streamed)
            _mm_stream_si128(to, value);
        else
            _mm_storeu_si128(to, value);
    };
    const __m128i padding = _mm_set1_epi8(char(0xFF));
    uint32_t x = 0;
    for (; x + 16 <= pixels; x += 16) {
        const __m128i rs = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + x));
        const __m128i gs = _mm_loadu_si128(reinterpret_cast<const __m128i*>(g + x));
        const __m128i bs = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + x));
        const __m128i rgLow = _mm_unpacklo_epi8(rs, gs), rgHigh = _mm_unpackhi_epi8(rs, gs);
        const __m128i bxLow = _mm_unpacklo_epi8(bs, padding), bxHigh = _mm_unpackhi_epi8(bs, padding);
        __m128i* o = reinterpret_cast<__m128i*>(out + 4 * x);
        put(o + 0, _mm_unpacklo_epi16(rgLow, bxLow));
        put(o + 1, _mm_unpackhi_epi16(rgLow, bxLow));
        put(o + 2, _mm_unpacklo_epi16(rgHigh, bxHigh));
        put(o + 3, _mm_unpackhi_epi16(rgHigh, bxHigh));
    }
    for (; x + 4 <= pixels; x += 4) {
        int32_t rw, gw, bw;
        std::memcpy(&rw, r + x, 4);
        std::memcpy(&gw, g + x, 4);
        std::memcpy(&bw, b + x, 4);
        const __m128i rg = _mm_unpacklo_epi8(_mm_cvtsi32_si128(rw), _mm_cvtsi32_si128(gw));
        const __m128i bx = _mm_unpacklo_epi8(_mm_cvtsi32_si128(bw), padding);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * x), _mm_unpacklo_epi16(rg, bx));
    }
    for (; x < pixels; ++x) {
        out[4 * x + 0] = r[x];
        out[4 * x + 1] = g[x];
        out[4 * x + 2] = b[x];
        out[4 * x + 3] = 0xFF;
    }
}

uint16_t WordAt(const uint8_t* plane, uint32_t x) {
    uint16_t word;
    std::memcpy(&word, plane + 2 * x, 2);
    return word;
}

void StoreLittleEndian(uint8_t* out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out[i] = uint8_t(value >> (8 * i));
}

// Splits densely packed 12-bit pairs (three bytes, least significant bit first) into little-endian words.
void Unpack12To16(const uint8_t* in, uint8_t* out, size_t samples) {
    for (size_t i = 0; i + 1 < samples; i += 2, in += 3, out += 4) {
        const uint32_t pair = uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16;
        StoreLittleEndian(out, pair & 0xFFF, 2);
        StoreLittleEndian(out + 2, pair >> 12, 2);
    }
}

}  // namespace

DeBayerHQ::~DeBayerHQ() { platform::AlignedFree(unpackedInput); }

bool DeBayerHQ::Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
                     uint32_t mode, const void* param) {
    if (width % 16 != 0 || height % 2 != 0) {
        Log(LogFailure, "DeBayer (HQ): Invalid image alignment (%u * %u, Scale = %u)", width, height, scale);
        return false;
    }
    // Depths below 1 mean nothing and would make the algorithms' sample limits shift by a negative count.
    if (int32_t(in->bitDepth) > 12 || int32_t(in->bitDepth) < 1) {
        Log(LogFailure, "DeBayer (HQ): Invalid image precision");
        return false;
    }
    if (out->format != PixelFormat::RGBX) {
        Log(LogFailure, "DeBayer (HQ): Unsupported output pixel format");
        return false;
    }
    if (scale > 1 && mode != haMode) {
        Log(LogFailure, "DeBayer (HQ): Scale supported only on HA");
        return false;
    }
    if (scale > 1 && in->bitDepth > 8) {
        Log(LogFailure, "DeBayer (HQ): Unsupported scale / output bit depth combination (%u, %u)", scale,
            uint32_t(out->bitDepth));
        return false;
    }
    if (!ReadableLayout(*in)) {
        Log(LogFailure, "DeBayer (HQ): Unsupported input sample layout (%u bits per pixel at depth %u)",
            uint32_t(in->bitsPerPixel), uint32_t(in->bitDepth));
        return false;
    }
    this->width = width;
    this->height = height;
    inFormat = *in;
    outFormat = *out;
    this->scale = scale;
    BayerPhase = PhaseOf(in->format);
    if (BayerPhase < 0) return false;
    if (in->bitDepth > 8 && in->bitsPerPixel != 16) {
        unpackedInput = static_cast<uint8_t*>(platform::AlignedAlloc(size_t(width) * height * 2, 64));
        if (unpackedInput == nullptr) return false;
    }
    return AllocateWorkspace(param);
}

uint32_t DeBayerHQ::OutputSize() { return ScaledOutputSize(); }

uint32_t DeBayerHQ::Process(const void* in, void* out, const void*) {
    const void* source = in;
    int32_t srcStride = int32_t(inFormat.bitsPerPixel * width >> 3);
    if (unpackedInput != nullptr) {
        const size_t samples = size_t(width) * height;
        if (inFormat.bitsPerPixel == 10)
            BitPack10To16(static_cast<const uint8_t*>(in), unpackedInput, samples);
        else
            Unpack12To16(static_cast<const uint8_t*>(in), unpackedInput, samples);
        source = unpackedInput;
        srcStride = int32_t(2 * width);
    }
    void* planes[3] = {nullptr, nullptr, nullptr};
    if (!Interpolate(source, srcStride) || !GetResultPlanes(planes)) {
        Log(LogFailure, "Debayer failed");
        return OutputSize();
    }
    uint32_t planeWidth = 0, planeRowBytes = 0, planeHeight = 0;
    GetPlaneGeometry(&planeWidth, &planeRowBytes, &planeHeight);
    const uint32_t planeStep = planeRowBytes / scale;
    const uint32_t outStep = (outFormat.bitsPerPixel * width >> 3) / scale;
    const uint8_t* r = static_cast<const uint8_t*>(planes[0]);
    const uint8_t* g = static_cast<const uint8_t*>(planes[1]);
    const uint8_t* b = static_cast<const uint8_t*>(planes[2]);
    uint8_t* o = static_cast<uint8_t*>(out);
    if (outFormat.bitDepth == 8) {
        const uint32_t rows = height / scale;
        const bool streamed = size_t(outStep) * rows >= streamedOutputBytes && outStep % 16 == 0 &&
                              reinterpret_cast<uintptr_t>(o) % 16 == 0;
        const auto interleave = streamed ? Interleave8<true> : Interleave8<false>;
        for (uint32_t y = 0; y < rows; ++y)
            interleave(r + size_t(y) * planeStep, g + size_t(y) * planeStep, b + size_t(y) * planeStep,
                       o + size_t(y) * outStep, width / scale);
        if (streamed) _mm_sfence();
    } else if (scale > 1) {
        // The deep layouts are defined for whole frames only: a reduced frame's buffer could not hold them.
        Log(LogFailure, "Debayer failed");
    } else if (outFormat.bitDepth == 10 && outFormat.bitsPerPixel == 32) {
        for (uint32_t y = 0; y < height; ++y) {
            const size_t p = size_t(y) * planeStep;
            uint8_t* row = o + size_t(y) * outStep;
            for (uint32_t x = 0; x < 4 * (width >> 2); ++x) {
                const uint32_t word = (WordAt(r + p, x) & 0x3FFu) | (WordAt(g + p, x) & 0x3FFu) << 10 |
                                      (WordAt(b + p, x) & 0x3FFu) << 20;
                StoreLittleEndian(row + 4 * x, word, 4);
            }
        }
    } else if ((outFormat.bitDepth == 10 || outFormat.bitDepth == 12) && outFormat.bitsPerPixel == 64) {
        for (uint32_t y = 0; y < height; ++y) {
            const size_t p = size_t(y) * planeStep;
            uint8_t* row = o + size_t(y) * outStep;
            for (uint32_t x = 0; x < 2 * (width >> 1); ++x) {
                StoreLittleEndian(row + 8 * x, WordAt(r + p, x), 2);
                StoreLittleEndian(row + 8 * x + 2, WordAt(g + p, x), 2);
                StoreLittleEndian(row + 8 * x + 4, WordAt(b + p, x), 2);
                StoreLittleEndian(row + 8 * x + 6, 0, 2);
            }
        }
    } else {
        Log(LogFailure, "Debayer failed");
    }
    return OutputSize();
}
