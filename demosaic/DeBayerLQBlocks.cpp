#include "demosaic/DeBayerLQBlocks.h"

#include <framefeed/framefeed.h>

namespace {

// Which samples of a block make a site's sum: rows a + {0, rowGap, ...} (rowsPerSite of them) and columns
// b + {0, 2, ...} (columnsPerSite of them). At 16 the rows step by 4, so half of the block's rows are skipped.
template <uint32_t Scale>
struct BlockRule;
template <>
struct BlockRule<2> {
    static constexpr uint32_t rowGap = 2, rowsPerSite = 1, columnsPerSite = 1, shift = 0;
};
template <>
struct BlockRule<4> {
    static constexpr uint32_t rowGap = 2, rowsPerSite = 2, columnsPerSite = 2, shift = 2;
};
template <>
struct BlockRule<8> {
    static constexpr uint32_t rowGap = 2, rowsPerSite = 4, columnsPerSite = 4, shift = 4;
};
template <>
struct BlockRule<16> {
    static constexpr uint32_t rowGap = 4, rowsPerSite = 4, columnsPerSite = 8, shift = 5;
};

template <uint32_t Scale>
void DeBayerBlocks(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                   const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    using Rule = BlockRule<Scale>;
    for (uint32_t band = 0; band < blockRows; ++band) {
        const uint8_t* bandTop = mosaic + size_t(band) * Scale * mosaicStep;
        uint8_t* pixel = rgbx + size_t(band) * rgbxStep;
        for (uint32_t x = 0; x + Scale <= columns; x += Scale, pixel += 4) {
            uint32_t siteSum[4] = {0, 0, 0, 0};
            for (uint32_t r = 0; r < Rule::rowsPerSite; ++r) {
                for (uint32_t rowParity = 0; rowParity < 2; ++rowParity) {
                    const uint8_t* row = bandTop + (r * Rule::rowGap + rowParity) * mosaicStep + x;
                    for (uint32_t c = 0; c < Rule::columnsPerSite; ++c) {
                        siteSum[2 * rowParity] += row[2 * c];
                        siteSum[2 * rowParity + 1] += row[2 * c + 1];
                    }
                }
            }
            // Site means truncate; the green mean of the two sites rounds up.
            const uint32_t greenA = siteSum[sites.greenA] >> Rule::shift;
            const uint32_t greenB = siteSum[sites.greenB] >> Rule::shift;
            pixel[0] = static_cast<uint8_t>(siteSum[sites.red] >> Rule::shift);
            pixel[1] = static_cast<uint8_t>((greenA + greenB + 1) >> 1);
            pixel[2] = static_cast<uint8_t>(siteSum[sites.blue] >> Rule::shift);
            pixel[3] = 0;
        }
    }
}

}  // namespace

BayerSites SitesOfBayerFormat(uint32_t pixelFormat) {
    switch (pixelFormat) {
        case PixelFormat::BayerGRBG: return BayerSites{1, 2, 0, 3};
        case PixelFormat::BayerBGGR: return BayerSites{3, 0, 1, 2};
        case PixelFormat::BayerGBRG: return BayerSites{2, 1, 0, 3};
        default: return BayerSites{0, 3, 1, 2};
    }
}

void DeBayerBlocks2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                    const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    DeBayerBlocks<2>(mosaic, mosaicStep, columns, blockRows, sites, rgbx, rgbxStep);
}

void DeBayerBlocks4(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                    const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    DeBayerBlocks<4>(mosaic, mosaicStep, columns, blockRows, sites, rgbx, rgbxStep);
}

void DeBayerBlocks8(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                    const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    DeBayerBlocks<8>(mosaic, mosaicStep, columns, blockRows, sites, rgbx, rgbxStep);
}

void DeBayerBlocks16(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                     const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep) {
    DeBayerBlocks<16>(mosaic, mosaicStep, columns, blockRows, sites, rgbx, rgbxStep);
}
