// Selection of Bayer sites on float planes, and products that widen to double: the small plane operations of the
// residual algorithms. A site pattern is a word of four bytes, one per site of the 2 by 2 cell: byte 0 (even row,
// even column), byte 1 (even row, odd column), byte 2 (odd row, even column), byte 3 (odd row, odd column); a
// non-zero byte selects its site. Patterns combine with bitwise or.
#pragma once

#include "demosaic/ImageBuffer.h"
#include "primitives/PxTypes.h"

#include <cstddef>
#include <cstdint>

// The four sites of the residual algorithms, from bit 1 of the Bayer phase (set: row 0 begins with green).
struct SitePatterns {
    uint32_t siteGreenEven;   // the green site of the even rows
    uint32_t siteColourEven;  // the colour site of the even rows
    uint32_t siteGreenOdd;    // the green site of the odd rows
    uint32_t siteColourOdd;   // the colour site of the odd rows
};

constexpr SitePatterns MakeSitePatterns(int32_t bayerPhase) {
    const uint32_t s = uint32_t(bayerPhase >> 1) & 1;
    return {1u << (8 * (1 - s)), 1u << (8 * s), 1u << (16 + 8 * s), 1u << (16 + 8 * (1 - s))};
}

// Byte 0 + byte 1 - byte 2 - byte 3, the bytes taken as signed: above 0 the pattern selects even rows only,
// below 0 odd rows only, 0 both or none.
constexpr int32_t RowParity(uint32_t pattern) {
    return int32_t(int8_t(pattern & 0xFF)) + int32_t(int8_t((pattern >> 8) & 0xFF)) -
           int32_t(int8_t((pattern >> 16) & 0xFF)) - int32_t(int8_t(pattern >> 24));
}

// dst keeps src on the selected sites and gets +0.0 elsewhere; dst may be src. PxStatusNullPointer, then
// PxStatusBadSize (width not a multiple of 8 or height odd), with nothing written; height 0 does nothing.
PxStatus MaskBySites(float* dst, const float* src, uint32_t pattern, uint32_t width, uint32_t height);

// Row y of the plane operations, for computations that make a plane's rows one by one: dst keeps src on the
// sites of row y's parity that the pattern selects and gets +0.0 elsewhere; row -= other on those sites; row
// gets the pattern's bytes of row y's parity as doubles, alternately. width is a multiple of 8; nothing is
// checked.
void MaskRowBySites(float* dst, const float* src, uint32_t pattern, uint32_t y, uint32_t width);
void SubtractRowBySites(float* row, const float* other, uint32_t pattern, uint32_t y, uint32_t width);
void FillSitePatternRow(double* row, uint32_t pattern, uint32_t y, uint32_t width);

// dst[i] = a[i] * b[i] rounded to single precision, then widened: the single-precision rounding is part of the
// result. count 0 does nothing; then PxStatusNullPointer, then PxStatusBadSize for a count that is no multiple of
// 8, with nothing written.
PxStatus ProductToDouble(double* dst, const float* a, const float* b, uint32_t count);
// The same with a[i] * a[i].
PxStatus SquareToDouble(double* dst, const float* a, uint32_t count);

// image += other (image -= other) on the sites the pattern selects; the other elements stay untouched. Throws
// false on null data or different sizes; does nothing when the width is not a multiple of 8 or the height is odd
// or below 2.
void AddBySites(ImageBuffer32& image, const ImageBuffer32& other, uint32_t pattern);
void SubtractBySites(ImageBuffer32& image, const ImageBuffer32& other, uint32_t pattern);
