// The row-wise pieces of LPA-ICI demosaicking around the accumulation: the directional colour differences of a
// mosaic row or of the colour columns of a row, and the reconstruction of a result row. Each has a scalar twin
// and an AVX2 form that give the same values; all arithmetic is exact integers or single-precision floats in a
// fixed order.
#pragma once

#include <cstdint>

// Rounding to the nearest integer, ties to even, by the float's own rounding: exact for |t| below 2^22, far above
// any difference of 16-bit samples, and plain arithmetic, so that it vectorises.
inline float LpaRoundHalfEven(float t) {
    const float shifter = 12582912.0f;  // 1.5 * 2^23
    return (t + shifter) - shifter;
}

struct LpaLineForms {
    // Four times the Hamilton-Adams estimate of G - C along a mosaic row, for columns 0 to width - 1 (a multiple
    // of 8): e = M(x-2) + M(x+2) + 2 (M(x) - M(x-1) - M(x+1)) at a green column and -e at a colour column, whose
    // parity is colourParity. The row has two samples of ring on each side.
    void (*rowDifferences)(const uint16_t* row, int32_t width, int32_t colourParity, float* out);
    // The same down the colour columns: out[i] = sign * e for the column of `column` + 2i, with e taken over the
    // rows `stride` samples apart; count is a multiple of 8.
    void (*columnDifferences)(const uint16_t* column, intptr_t stride, int32_t count, int32_t sign, float* out);
    // The difference of a colour at `count` sites of the other colour (a multiple of 8), from the four rows of
    // its own sites around them: 0.3125 ((upper[i] + upper[i + 1]) + (lower[i] + lower[i + 1])) minus 0.03125
    // (((above[i] + above[i + 1]) + (below[i] + below[i + 1])) + ((upper[i - 1] + upper[i + 2]) + (lower[i - 1] +
    // lower[i + 2]))).
    void (*crossRow)(const float* above, const float* upper, const float* lower, const float* below, int32_t count,
                     float* out);
    // Green of a row of `count` colour sites (a multiple of 8): the mosaic at the green columns, M + rint(diff / 4)
    // at the colour columns, of parity colourParity. Every result is limited to 0 to top. With `bytes` the row is
    // written as bytes, a value above 255 as 255.
    void (*greenRow)(const uint16_t* row, const float* diff, int32_t count, int32_t colourParity, float top,
                     bool bytes, void* out);
    // One colour of a row: at the colour columns the mosaic when cross is null, else M - rint((cross - diff) / 4);
    // at the green columns M - rint((((across[i] + across[i + 1]) + up[i]) + down[i]) / 16). Limited to 0 to top;
    // written as bytes like greenRow's.
    void (*colourRow)(const uint16_t* row, const float* cross, const float* diff, const float* across,
                      const float* up, const float* down, int32_t count, int32_t colourParity, float top, bool bytes,
                      void* out);
};

LpaLineForms LpaLinesScalar();
LpaLineForms LpaLinesAvx2();
