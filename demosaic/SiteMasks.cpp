#include "demosaic/SiteMasks.h"

namespace {

// Whether the pattern selects the site of row parity `row` and column parity `column`.
bool Selects(uint32_t pattern, uint32_t row, uint32_t column) {
    return ((pattern >> (8 * (2 * (row & 1) + column))) & 0xFF) != 0;
}

bool BlocksFit(uint32_t width, uint32_t height) { return width % 8 == 0 && height % 2 == 0; }

// Adds (sign +1) or subtracts (sign -1) other's selected elements of row y; unselected elements are not touched,
// so a -0.0 there stays -0.0.
template <int sign>
void CombineRowBySites(float* __restrict row, const float* __restrict source, uint32_t pattern, uint32_t y,
                       uint32_t width) {
    const bool even = Selects(pattern, y, 0), odd = Selects(pattern, y, 1);
    if (!even && !odd) return;
    for (uint32_t x = 0; x < width; x += 8) {
        for (uint32_t k = 0; k < 8; ++k) {
            const float sum = sign > 0 ? row[x + k] + source[x + k] : row[x + k] - source[x + k];
            row[x + k] = ((k & 1) ? odd : even) ? sum : row[x + k];
        }
    }
}

template <int sign>
void CombineBySites(ImageBuffer32& image, const ImageBuffer32& other, uint32_t pattern) {
    if (image.data == nullptr || other.data == nullptr || image.Size() != other.Size()) throw false;
    const uint32_t width = image.width, height = image.height;
    if (!BlocksFit(width, height) || height < 2) return;
    for (uint32_t y = 0; y < height; ++y)
        CombineRowBySites<sign>(image.data + size_t(y) * width, other.data + size_t(y) * width, pattern, y, width);
}

}  // namespace

void MaskRowBySites(float* dst, const float* src, uint32_t pattern, uint32_t y, uint32_t width) {
    const bool even = Selects(pattern, y, 0), odd = Selects(pattern, y, 1);
    // A selected element is moved, not computed, so its bits pass unchanged (NaN payloads and -0.0 too).
    for (uint32_t x = 0; x < width; x += 8) {
        for (uint32_t k = 0; k < 8; ++k) dst[x + k] = ((k & 1) ? odd : even) ? src[x + k] : 0.0f;
    }
}

PxStatus MaskBySites(float* dst, const float* src, uint32_t pattern, uint32_t width, uint32_t height) {
    if (dst == nullptr || src == nullptr) return PxStatusNullPointer;
    if (!BlocksFit(width, height)) return PxStatusBadSize;
    for (uint32_t y = 0; y < height; ++y)
        MaskRowBySites(dst + size_t(y) * width, src + size_t(y) * width, pattern, y, width);
    return PxStatusOk;
}

void SubtractRowBySites(float* row, const float* other, uint32_t pattern, uint32_t y, uint32_t width) {
    CombineRowBySites<-1>(row, other, pattern, y, width);
}

void FillSitePatternRow(double* row, uint32_t pattern, uint32_t y, uint32_t width) {
    const uint32_t shift = 16 * (y & 1);
    const double first = double((pattern >> shift) & 0xFF), second = double((pattern >> (shift + 8)) & 0xFF);
    for (uint32_t x = 0; x < width; x += 2) {
        row[x] = first;
        row[x + 1] = second;
    }
}

PxStatus ProductToDouble(double* dst, const float* a, const float* b, uint32_t count) {
    if (count == 0) return PxStatusOk;
    if (dst == nullptr || a == nullptr || b == nullptr) return PxStatusNullPointer;
    if (count % 8 != 0) return PxStatusBadSize;
    for (size_t i = 0; i < count; i += 8) {
        for (size_t k = 0; k < 8; ++k) {
            const float product = a[i + k] * b[i + k];
            dst[i + k] = double(product);
        }
    }
    return PxStatusOk;
}

PxStatus SquareToDouble(double* dst, const float* a, uint32_t count) {
    if (count == 0) return PxStatusOk;
    if (dst == nullptr || a == nullptr) return PxStatusNullPointer;
    if (count % 8 != 0) return PxStatusBadSize;
    for (size_t i = 0; i < count; i += 8) {
        for (size_t k = 0; k < 8; ++k) {
            const float square = a[i + k] * a[i + k];
            dst[i + k] = double(square);
        }
    }
    return PxStatusOk;
}

void AddBySites(ImageBuffer32& image, const ImageBuffer32& other, uint32_t pattern) {
    CombineBySites<1>(image, other, pattern);
}

void SubtractBySites(ImageBuffer32& image, const ImageBuffer32& other, uint32_t pattern) {
    CombineBySites<-1>(image, other, pattern);
}
