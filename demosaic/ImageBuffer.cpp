#include "demosaic/ImageBuffer.h"

#include "platform/Platform.h"
#include "primitives/Px.h"

namespace {

constexpr size_t dataAlignment = 64;

// Byte `index` of a site pattern word.
uint8_t PatternByte(uint32_t pattern, int index) { return uint8_t(pattern >> (8 * index)); }

}  // namespace

template <class Element>
ImageBuffer<Element>::~ImageBuffer() {
    platform::AlignedFree(data);
}

template <class Element>
void ImageBuffer<Element>::Resize(uint32_t w, uint32_t h) {
    // The byte count is formed in 32 bits, as the capacity field holds it.
    const uint32_t bytes = w * h * uint32_t(sizeof(Element));
    if (bytes > capacity) {
        void* grown = platform::AlignedRealloc(data, bytes, dataAlignment);
        if (grown == nullptr) throw false;
        data = static_cast<Element*>(grown);
        capacity = bytes;
    }
    width = w;
    height = h;
}

template <class Element>
void ImageBuffer<Element>::Release() {
    platform::AlignedFree(data);
    data = nullptr;
    width = height = capacity = 0;
}

template <class Element>
void ImageBuffer<Element>::RequireSameSize(const ImageBuffer& a, const ImageBuffer& b) {
    if (a.data == nullptr || b.data == nullptr || a.Size() != b.Size()) throw false;
}

template class ImageBuffer<float>;
template class ImageBuffer<double>;

void ImageBuffer32::MergeBySites(const ImageBuffer32& a, uint32_t patternA, const ImageBuffer32& b,
                                 uint32_t patternB) {
    RequireSameSize(a, b);
    if ((patternA & patternB) != 0) throw false;
    Resize(a.width, a.height);
    if (width % 8 != 0 || height % 2 != 0 || height < 2) return;
    for (uint32_t y = 0; y < height; ++y) {
        const size_t row = size_t(y) * width;
        for (uint32_t x = 0; x < width; ++x) {
            const int site = int(y & 1) * 2 + int(x & 1);
            const size_t i = row + x;
            data[i] = PatternByte(patternA, site) ? a.data[i] : PatternByte(patternB, site) ? b.data[i] : 0.0f;
        }
    }
}

void ImageBuffer64::Multiply(const ImageBuffer64& a, const ImageBuffer64& b) {
    RequireSameSize(a, b);
    Resize(a.width, a.height);
    PxMul_64f(a.data, b.data, data, int32_t(size_t(width) * height));
}

void ImageBuffer64::Subtract(const ImageBuffer64& a, const ImageBuffer64& b) {
    RequireSameSize(a, b);
    Resize(a.width, a.height);
    // The first source is the one subtracted: PxSub_64f(b, a) gives a - b.
    PxSub_64f(b.data, a.data, data, int32_t(size_t(width) * height));
}

void ImageBuffer64::FillSitePattern(uint32_t pattern) {
    if (data == nullptr) throw false;
    if (width % 4 != 0 || height % 2 != 0 || height < 2) return;
    for (uint32_t y = 0; y < height; ++y) {
        const double first = PatternByte(pattern, int(y & 1) * 2), second = PatternByte(pattern, int(y & 1) * 2 + 1);
        double* row = data + size_t(y) * width;
        for (uint32_t x = 0; x < width; x += 2) {
            row[x] = first;
            row[x + 1] = second;
        }
    }
}
