// The scalar twins of the Hamilton-Adams kernels: the definition the wide forms are tested against.
#include "demosaic/HAKernels.h"

#include <cstdlib>
#include <initializer_list>

namespace {

int32_t ColourParity(const HAPlanes& p, int32_t y) { return ((p.phase >> 1) & 1) ^ (y & 1); }

uint16_t ClampAtZero(int32_t t) { return uint16_t(t > 0 ? t : 0); }

// The estimate of the smaller gradient, or the mean of both on a tie.
int32_t Choose(int32_t gradientA, int32_t gradientB, int32_t estimateA, int32_t estimateB) {
    if (gradientA > gradientB) return estimateB;
    if (gradientB > gradientA) return estimateA;
    return (estimateA + estimateB) >> 1;
}

// X(t) from its neighbours t - d and t + d, which are real samples of X, and the green at all three.
void ColourAtGreenRow(const uint16_t* g, uint16_t* x, intptr_t d, int32_t firstColumn, int32_t width) {
    for (int32_t c = firstColumn; c < width; c += 2) {
        const int32_t t = 2 * g[c] - g[c - d] - g[c + d] + x[c - d] + x[c + d];
        x[c] = ClampAtZero(t >> 1);
    }
}

uint16_t Saturate8(uint16_t v) { return v < 255 ? v : 255; }

uint16_t Min(uint16_t a, uint16_t b) { return a < b ? a : b; }

}  // namespace

void HALoadScalar(const HAPlanes& p, const void* src, intptr_t srcStride, bool deep, int32_t firstRow,
                  int32_t endRow) {
    for (int32_t y = firstRow; y < endRow; ++y) {
        const uint8_t* s = static_cast<const uint8_t*>(src) + y * srcStride;
        uint16_t* g = p.g + y * p.stride;
        uint16_t* even = p.even + y * p.stride;
        uint16_t* odd = p.odd + y * p.stride;
        for (int32_t x = 0; x < p.width; ++x) {
            const uint16_t sample = deep ? uint16_t(s[2 * x] | s[2 * x + 1] << 8) : s[x];
            g[x] = even[x] = odd[x] = uint16_t(sample << 3);
        }
        for (uint16_t* row : {even, odd}) {
            row[-2] = row[2], row[-1] = row[1];
            row[p.width] = row[p.width - 2], row[p.width + 1] = row[p.width - 3];
        }
    }
}

void HAGreenScalar(const HAPlanes& p, int32_t firstRow, int32_t endRow) {
    const intptr_t s = p.stride;
    for (int32_t k = 0; k < 2; ++k) {
        // The mosaic is read from a colour plane that this step does not write.
        const uint16_t* mosaic = k == 0 ? p.odd : p.even;
        for (int32_t y = firstRow + ((firstRow ^ k) & 1); y < endRow; y += 2) {
            const uint16_t* m = mosaic + y * s;
            uint16_t* g = p.g + y * s;
            for (int32_t x = ColourParity(p, y); x < p.width; x += 2) {
                const int32_t c = m[x];
                const int32_t gl = m[x - 1], gr = m[x + 1], cl = m[x - 2], cr = m[x + 2];
                const int32_t gu = m[x - s], gd = m[x + s], cu = m[x - 2 * s], cd = m[x + 2 * s];
                const int32_t ch = c - ((cl + cr) >> 1), cv = c - ((cu + cd) >> 1);
                const int32_t hSum = gl + gr + ch, vSum = gu + gd + cv;
                const int32_t h = std::abs(gl - gr) + 2 * std::abs(ch), v = std::abs(gu - gd) + 2 * std::abs(cv);
                g[x] = ClampAtZero(Choose(h, v, hSum, vSum) >> 1);
            }
        }
    }
}

void HAColourAtGreenScalar(const HAPlanes& p, int32_t firstRow, int32_t endRow) {
    const intptr_t s = p.stride;
    // Horizontal pass: the green sites of each row lie between samples of the row's own colour.
    for (int32_t y = firstRow; y < endRow; ++y) {
        uint16_t* x = ((y & 1) == 0 ? p.even : p.odd) + y * s;
        ColourAtGreenRow(p.g + y * s, x, 1, ColourParity(p, y) ^ 1, p.width);
    }
    // Vertical pass: the green sites of each row lie between samples of the other rows' colour.
    for (int32_t y = firstRow; y < endRow; ++y) {
        uint16_t* x = ((y & 1) == 0 ? p.odd : p.even) + y * s;
        ColourAtGreenRow(p.g + y * s, x, s, ColourParity(p, y) ^ 1, p.width);
    }
}

void HAColourAtColourScalar(const HAPlanes& p, int32_t firstRow, int32_t endRow) {
    const intptr_t s = p.stride;
    for (int32_t k = 0; k < 2; ++k) {
        // The odd rows' colour at the even rows' colour sites, then the reverse.
        uint16_t* plane = k == 0 ? p.odd : p.even;
        for (int32_t y = firstRow + ((firstRow ^ k) & 1); y < endRow; y += 2) {
            const uint16_t* g = p.g + y * s;
            uint16_t* x = plane + y * s;
            for (int32_t c = ColourParity(p, y); c < p.width; c += 2) {
                const intptr_t ul = c - s - 1, ur = c - s + 1, dl = c + s - 1, dr = c + s + 1;
                const int32_t a = 2 * g[c] - g[ul] - g[dr], b = 2 * g[c] - g[ur] - g[dl];
                const int32_t sum1 = x[ul] + x[dr] + a, sum2 = x[ur] + x[dl] + b;
                const int32_t d1 = std::abs(x[ul] - x[dr]) + std::abs(a);
                const int32_t d2 = std::abs(x[ur] - x[dl]) + std::abs(b);
                x[c] = ClampAtZero(Choose(d1, d2, sum1, sum2) >> 1);
            }
        }
    }
}

void HAColourScalar(const HAPlanes& p, int32_t firstRow, int32_t endRow) {
    HAColourAtGreenScalar(p, firstRow, endRow);
    HAColourAtColourScalar(p, firstRow, endRow);
}

// Everything here is unsigned 16-bit arithmetic with wrap-around, and results are packed in place from the
// start of the plane: an output row never reaches the input rows still to be read.
void HAReduceScalar(uint16_t* plane, intptr_t stride, int32_t width, int32_t /*height*/, int32_t scale,
                    int32_t inDepth, int32_t outDepth, uint8_t*, int32_t firstOut, int32_t endOut) {
    const uint16_t maxValue = uint16_t((outDepth >= 16 ? 0u : 1u << outDepth) - 1u);
    uint8_t* bytes = reinterpret_cast<uint8_t*>(plane);
    const auto v = [&](int32_t row, int32_t column) { return plane[row * stride + column]; };
    if (scale == 1 && outDepth == 8) {
        // A shift count outside the range of 16-bit shifts clears the sample.
        const int32_t shift = inDepth - 5;
        for (int32_t j = firstOut; j < endOut; ++j)
            for (int32_t i = 0; i < width; ++i) {
                const uint16_t rounded = uint16_t(v(j, i) + 4);
                const uint16_t shifted = shift >= 0 && shift < 16 ? uint16_t(rounded >> shift) : 0;
                bytes[j * width + i] = uint8_t(Saturate8(Min(shifted, maxValue)));
            }
        return;
    }
    if (scale == 1) {
        for (int32_t j = firstOut; j < endOut; ++j)
            for (int32_t i = 0; i < width; ++i)
                plane[j * stride + i] = Min(uint16_t(uint16_t(v(j, i) + 4) >> 3), maxValue);
        return;
    }
    const int32_t outWidth = width / scale;
    for (int32_t j = firstOut; j < endOut; ++j) {
        for (int32_t i = 0; i < outWidth; ++i) {
            uint16_t result = 0;
            if (scale == 2) {
                const uint16_t a = uint16_t(v(2 * j, 2 * i) + v(2 * j + 1, 2 * i) + 1) >> 1;
                const uint16_t b = uint16_t(v(2 * j, 2 * i + 1) + v(2 * j + 1, 2 * i + 1) + 1) >> 1;
                result = Min(uint16_t(uint16_t(a + b + 8) >> 4), maxValue);
            } else if (scale == 4) {
                uint16_t total = 64;
                for (int32_t n = 0; n < 4; ++n)
                    for (int32_t m = 0; m < 4; ++m) total = uint16_t(total + v(4 * j + n, 4 * i + m));
                result = uint16_t(total >> 7);
            } else if (scale == 8) {
                uint16_t total = 32;
                for (int32_t n = 0; n < 8; ++n) {
                    uint16_t q = 4;
                    for (int32_t m = 0; m < 8; ++m) q = uint16_t(q + v(8 * j + n, 8 * i + m));
                    total = uint16_t(total + (q >> 3));
                }
                result = uint16_t(total >> 6);
            } else if (scale == 16) {
                uint16_t total = 32;
                for (int32_t n = 0; n < 16; ++n) {
                    uint16_t q = 2;
                    for (int32_t t = 4 * i; t < 4 * i + 4; ++t) {
                        uint16_t p = 4;
                        for (int32_t m = 0; m < 4; ++m) p = uint16_t(p + v(16 * j + n, 4 * t + m));
                        q = uint16_t(q + (p >> 3));
                    }
                    total = uint16_t(total + (q >> 2));
                }
                result = uint16_t(total >> 6);
            } else {
                return;  // no reduction is defined for other scales; HA refuses them
            }
            bytes[j * outWidth + i] = uint8_t(Saturate8(result));
        }
    }
}

const HAKernelSet& HAKernelsFor(bool avx2) {
    static const HAKernelSet scalar{HALoadScalar, HAGreenScalar, HAColourScalar, HAReduceScalar};
    static const HAKernelSet wide{HALoadAvx2, HAGreenAvx2, HAColourAvx2, HAReduceAvx2};
    return avx2 ? wide : scalar;
}
