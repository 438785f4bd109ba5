// Block kernels of DeBayerLQ: one RGBX pixel per s by s block of an 8-bit mosaic, built from the mean of each
// of the block's four sites. Each scale has a scalar twin, the definition the wide forms are tested against,
// and an AVX2 form with the same signature.
//
// A kernel reads `blockRows` bands of s mosaic rows, `columns` columns each (a multiple of s; the AVX2 forms
// also need a multiple of 16), and writes columns / s pixels per band. Rows left below the last band are not
// read.
#pragma once

#include <cstddef>
#include <cstdint>

// The colour of each site of the 2x2 cell; a site is numbered 2 * row parity + column parity.
struct BayerSites {
    uint32_t red;
    uint32_t blue;
    uint32_t greenA;  // the green whose byte the mean is written over in the wide forms
    uint32_t greenB;
};

// Sites of the Bayer formats 2 to 5; any other format is read as BayerRGGB.
BayerSites SitesOfBayerFormat(uint32_t pixelFormat);

using DeBayerBlockKernel = void (*)(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                                    const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);

void DeBayerBlocks2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                    const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);
void DeBayerBlocks4(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                    const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);
void DeBayerBlocks8(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                    const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);
void DeBayerBlocks16(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                     const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);

void DeBayerBlocks2Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                        const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);
void DeBayerBlocks4Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                        const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);
void DeBayerBlocks8Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                        const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);
void DeBayerBlocks16Avx2(const uint8_t* mosaic, size_t mosaicStep, uint32_t columns, uint32_t blockRows,
                         const BayerSites& sites, uint8_t* rgbx, size_t rgbxStep);
