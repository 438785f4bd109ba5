#include "stages/Scaler.h"

#include "platform/Platform.h"
#include "primitives/ProcessorLevel.h"
#include "stream/Log.h"

namespace {

// Which rows of a band are read (rowsRead of them, rowStep apart), and the rounding term and shift that turn
// their sum into the block mean. At 16 only the 8 even rows are read, so a block holds 128 samples and every
// sum stays within 16 bits.
template <uint32_t Factor>
struct BinRule;
template <>
struct BinRule<2> {
    static constexpr uint32_t rowsRead = 2, rowStep = 1, rounding = 2, shift = 2;
};
template <>
struct BinRule<4> {
    static constexpr uint32_t rowsRead = 4, rowStep = 1, rounding = 8, shift = 4;
};
template <>
struct BinRule<8> {
    static constexpr uint32_t rowsRead = 8, rowStep = 1, rounding = 32, shift = 6;
};
template <>
struct BinRule<16> {
    static constexpr uint32_t rowsRead = 8, rowStep = 2, rounding = 64, shift = 7;
};

template <uint32_t Factor>
void BinBands(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
              size_t outStep) {
    using Rule = BinRule<Factor>;
    const uint32_t outColumns = columns / Factor;
    for (uint32_t band = 0; band < bands; ++band) {
        const uint8_t* bandTop = in + size_t(band) * Factor * inStep;
        // Horizontal pass: one sum per group of Factor neighbouring samples, for each row that is read.
        for (uint32_t r = 0; r < Rule::rowsRead; ++r) {
            const uint8_t* row = bandTop + size_t(r) * Rule::rowStep * inStep;
            uint16_t* sums = rowSums + size_t(r) * outColumns;
            for (uint32_t column = 0; column < outColumns; ++column) {
                uint32_t sum = 0;
                for (uint32_t k = 0; k < Factor; ++k) sum += row[column * Factor + k];
                sums[column] = static_cast<uint16_t>(sum);
            }
        }
        // Vertical pass: the rows' sums column by column, rounded half up to the mean.
        uint8_t* outRow = out + size_t(band) * outStep;
        for (uint32_t column = 0; column < outColumns; ++column) {
            uint32_t sum = Rule::rounding;
            for (uint32_t r = 0; r < Rule::rowsRead; ++r) sum += rowSums[size_t(r) * outColumns + column];
            outRow[column] = static_cast<uint8_t>(sum >> Rule::shift);
        }
    }
}

BinKernel BinKernelFor(uint32_t scale, bool avx2) {
    switch (scale) {
        case 2: return avx2 ? BinBands2Avx2 : BinBands2;
        case 4: return avx2 ? BinBands4Avx2 : BinBands4;
        case 8: return avx2 ? BinBands8Avx2 : BinBands8;
        default: return avx2 ? BinBands16Avx2 : BinBands16;
    }
}

bool IsPlanarYUV(uint32_t format) { return format >= PixelFormat::YUV420P && format <= PixelFormat::YUV444P; }

// How many times narrower and shorter each chroma plane of a planar YUV format is than its Y plane.
struct ChromaDivisors {
    uint32_t width;
    uint32_t height;
};

ChromaDivisors ChromaDivisorsOf(uint32_t format) {
    switch (format) {
        case PixelFormat::YUV420P:
        case PixelFormat::YUV420PAlt: return {2, 2};
        case PixelFormat::YUV411P:
        case PixelFormat::YUV411PAlt: return {4, 1};
        case PixelFormat::YUV422P: return {2, 1};
        default: return {1, 1};
    }
}

}  // namespace

void BinBands2(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
               size_t outStep) {
    BinBands<2>(in, inStep, columns, bands, rowSums, out, outStep);
}

void BinBands4(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
               size_t outStep) {
    BinBands<4>(in, inStep, columns, bands, rowSums, out, outStep);
}

void BinBands8(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
               size_t outStep) {
    BinBands<8>(in, inStep, columns, bands, rowSums, out, outStep);
}

void BinBands16(const uint8_t* in, size_t inStep, uint32_t columns, uint32_t bands, uint16_t* rowSums, uint8_t* out,
                size_t outStep) {
    BinBands<16>(in, inStep, columns, bands, rowSums, out, outStep);
}

Scaler::~Scaler() { platform::AlignedFree(rowSums); }

bool Scaler::Init(uint32_t width, uint32_t height, const ImageFormat* in, const ImageFormat* out, uint32_t scale,
                  uint32_t mode, const void*) {
    if (width % 16 != 0 || height % 2 != 0) {
        Log(LogFailure, "Scaler: Invalid image alignment (%u * %u, Scale = %u)", width, height, scale);
        return false;
    }
    const uint32_t format = in->format;
    if ((format >= PixelFormat::RGB && format <= PixelFormat::PackedYUVCode13) || format == PixelFormat::YUVCode20 ||
        format == PixelFormat::YUVCode21) {
        Log(LogFailure, "Scaler: Unsupported pixel format (%u)", format);
        return false;
    }
    if (scale != 2 && scale != 4 && scale != 8 && scale != 16) {
        Log(LogFailure, "Scaler: Unsupported scale factor (%u)", scale);
        return false;
    }
    if (in->bitDepth != 8) {
        Log(LogFailure, "Scaler: Unsupported bit depth (%u)", static_cast<uint32_t>(in->bitDepth));
        return false;
    }
    if (mode != 1) {
        Log(LogFailure, "Scaler: Unsupported scale mode");
        return false;
    }
    this->width = width;
    this->height = height;
    inFormat = *in;
    outFormat = *out;
    this->scale = scale;
    scaleMode = mode;
    // The Y plane is the widest, so one band of its sums serves every plane.
    const uint32_t rowSumBytes = (width - width % scale) * 2;
    platform::AlignedFree(rowSums);
    rowSums = static_cast<uint16_t*>(platform::AlignedAlloc(rowSumBytes, 32));
    if (rowSums == nullptr) {
        Log(LogFailure, "Scaler: Unable to allocate %u bytes of row sums", rowSumBytes);
        return false;
    }
    binKernel = BinKernelFor(scale, PxProcessorLevel() >= PxLevelAvx2);
    return true;
}

uint32_t Scaler::OutputSize() { return ScaledOutputSize(); }

void Scaler::BinPlane(const uint8_t* plane, uint32_t planeWidth, uint32_t planeHeight, uint8_t* out,
                      uint32_t outOffset, uint32_t outputSize) const {
    const uint32_t outWidth = planeWidth / scale;
    const uint32_t outRows = planeHeight / scale;
    if (outWidth == 0 || outRows == 0 || outOffset >= outputSize) return;
    // The chroma offsets truncate differently from OutputSize: when the height is not a multiple of twice the scale,
    // the last sample of V can fall just past the buffer, and such samples are dropped rather than written.
    const uint32_t room = outputSize - outOffset;
    const uint32_t wholeRows = outRows < room / outWidth ? outRows : room / outWidth;
    uint8_t* target = out + outOffset;
    binKernel(plane, planeWidth, planeWidth, wholeRows, rowSums, target, outWidth);
    if (wholeRows < outRows && room % outWidth != 0)
        binKernel(plane + size_t(wholeRows) * scale * planeWidth, planeWidth, room % outWidth * scale, 1, rowSums,
                  target + size_t(wholeRows) * outWidth, outWidth);
}

uint32_t Scaler::Process(const void* in, void* out, const void*) {
    const uint8_t* source = static_cast<const uint8_t*>(in);
    uint8_t* target = static_cast<uint8_t*>(out);
    const uint32_t outputSize = OutputSize();
    if (inFormat.format == PixelFormat::Mono) {
        BinPlane(source, width, height, target, 0, outputSize);
    } else if (IsPlanarYUV(inFormat.format)) {
        const ChromaDivisors divisors = ChromaDivisorsOf(inFormat.format);
        const uint32_t lumaSize = width * height;
        const uint32_t chromaSize = lumaSize / divisors.width / divisors.height;
        const uint32_t chromaWidth = width / divisors.width;
        const uint32_t chromaHeight = height / divisors.height;
        BinPlane(source, width, height, target, 0, outputSize);
        BinPlane(source + lumaSize, chromaWidth, chromaHeight, target, lumaSize / scale / scale, outputSize);
        BinPlane(source + size_t(lumaSize) + chromaSize, chromaWidth, chromaHeight, target,
                 (lumaSize + chromaSize) / scale / scale, outputSize);
    }
    return outputSize;
}
