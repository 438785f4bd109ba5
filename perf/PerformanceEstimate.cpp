#include "perf/PerformanceEstimate.h"

#include "perf/PerfTable.h"
#include "stream/FormatFamilies.h"

#include <limits>

namespace {

// P / rate; a rate of 0 (not measured, or outside the table) gives positive infinity.
double Cost(double pixels, uint64_t rate) {
    return rate == 0 ? std::numeric_limits<double>::infinity() : pixels / double(rate);
}

}  // namespace

// Adds up, stage by stage, the time of the chain the assembly would build for this stream. Indices that fall
// outside the table count as unmeasured rates.
float EstimateSecondsPerFrame(const StreamConfig* config, const StreamParameters* parameters) {
    if (config == nullptr || parameters == nullptr) return 0.0f;
    PerfTable& table = ThePerfTable();
    const uint32_t format = config->format;
    const int32_t bitDepth = config->bitDepth;
    const uint32_t s = parameters->scale;
    const double pixels = double(config->width) * double(config->height);
    if (s > 16 || config->inputCompression != CompressionCode::Raw) return 0.0f;
    const bool depthInTable = bitDepth >= 0 && bitDepth <= 16;

    double total = 0.0;
    if (format >= 8 && format <= 13) {
        total += Cost(pixels, table.yuvRate(s));
    } else {
        const bool bayer = IsBayer(format);
        const uint32_t demosaic = parameters->demosaic;
        if (bitDepth > 8) {
            if (parameters->keepHighBpp == 0 || MustReduceDeepData(format, demosaic, s)) total += Cost(pixels, depthInTable ? table.packRate(uint32_t(bitDepth)) : 0);
        }
        if (bayer) {
            if (demosaic == 1)
                total += Cost(pixels, depthInTable ? table.qualityDemosaicRate(uint32_t(bitDepth), s) : 0);
            else
                total += Cost(pixels, table.fastDemosaicRate(s));
        } else if (s > 1) {
            const bool planar = IsPlanarYuv(format) || format > 255;
            total += Cost(pixels, planar ? table.yuvRate(s) : table.monoScaleRate(s));
        }
    }
    if (parameters->compression == CompressionCode::Jpeg) {
        const uint32_t jpegIndex = format > 255 ? PixelFormat::YUV422P : format;
        const uint64_t rate = jpegIndex < PerfTable::jpegCells ? table.jpegRate(jpegIndex) : 0;
        // A scale of 0 is not a measured scale: costed as an unmeasured rate, also for an empty frame, where
        // the division by the scale would give not a number.
        total += s == 0 ? std::numeric_limits<double>::infinity() : Cost(pixels / s / s, rate);
    }
    return float(total);
}
