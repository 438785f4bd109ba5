#include "demosaic/ImageBuffer.h"

#include "demosaic/SiteMasks.h"
#include "platform/Platform.h"
#include "primitives/Px.h"

#include <cstring>

namespace {

constexpr size_t dataAlignment = 64;

// Byte `index` of a site pattern word.
uint8_t PatternByte(uint32_t pattern, int index) { return uint8_t(pattern >> (8 * index)); }

thread_local ImageBlockPool* currentPool = nullptr;

// Gives a block back to the current pool, or to the system outside a pool's scope.
void ReturnBlock(void* block, uint32_t bytes) {
    if (block == nullptr) return;
    if (ImageBlockPool* pool = ImageBlockPool::Current())
        pool->Keep(block, bytes);
    else
        platform::AlignedFree(block);
}

}  // namespace

ImageBlockPool::~ImageBlockPool() {
    for (uint32_t i = 0; i < count; ++i) platform::AlignedFree(kept[i].block);
}

ImageBlockPool* ImageBlockPool::Current() { return currentPool; }

ImageBlockPool::Scope::Scope(ImageBlockPool& pool) : outer(currentPool) { currentPool = &pool; }

ImageBlockPool::Scope::~Scope() { currentPool = outer; }

void* ImageBlockPool::Take(uint32_t bytes) {
    // The newest first: its pages are the likeliest to be in the cache.
    for (uint32_t i = count; i-- > 0;) {
        if (kept[i].bytes != bytes) continue;
        void* block = kept[i].block;
        for (uint32_t k = i + 1; k < count; ++k) kept[k - 1] = kept[k];
        --count;
        return block;
    }
    return nullptr;
}

void ImageBlockPool::Keep(void* block, uint32_t bytes) {
    if (count == capacity) {
        platform::AlignedFree(kept[0].block);
        for (uint32_t k = 1; k < count; ++k) kept[k - 1] = kept[k];
        --count;
    }
    kept[count++] = {block, bytes};
}

template <class Element>
ImageBuffer<Element>::~ImageBuffer() {
    ReturnBlock(data, capacity);
}

template <class Element>
void ImageBuffer<Element>::Resize(uint32_t w, uint32_t h) {
    // The byte count is formed in 32 bits, as the capacity field holds it.
    const uint32_t bytes = w * h * uint32_t(sizeof(Element));
    if (bytes > capacity) {
        ImageBlockPool* pool = ImageBlockPool::Current();
        void* grown;
        if (pool == nullptr) {
            grown = platform::AlignedRealloc(data, bytes, dataAlignment);
            if (grown == nullptr) throw false;
        } else {
            grown = pool->Take(bytes);
            // A kept block counts as an allocation for the failures that tests inject.
            if (grown != nullptr && platform::AllocationFaultDue()) {
                pool->Keep(grown, bytes);
                throw false;
            }
            if (grown == nullptr) grown = platform::AlignedAlloc(bytes, dataAlignment);
            if (grown == nullptr) throw false;
            if (data != nullptr) std::memcpy(grown, data, capacity);
            ReturnBlock(data, capacity);
        }
        data = static_cast<Element*>(grown);
        capacity = bytes;
    }
    width = w;
    height = h;
}

template <class Element>
void ImageBuffer<Element>::Release() {
    ReturnBlock(data, capacity);
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
    MergeRowsBySites(data, a.data, patternA, b.data, patternB, width, 0, height);
}

void MergeRowsBySites(float* out, const float* a, uint32_t patternA, const float* b, uint32_t patternB,
                      uint32_t width, uint32_t firstRow, uint32_t rows) {
    for (uint32_t y = firstRow; y < firstRow + rows; ++y) {
        // Which source each column parity of this row takes: the choice is made per row, so the loop over the
        // row moves whole blocks.
        const int firstSite = int(y & 1) * 2;
        const bool evenA = PatternByte(patternA, firstSite) != 0, oddA = PatternByte(patternA, firstSite + 1) != 0;
        const bool evenB = PatternByte(patternB, firstSite) != 0, oddB = PatternByte(patternB, firstSite + 1) != 0;
        const size_t row = size_t(y - firstRow) * width;
        float* to = out + row;
        const float* fromA = a + row;
        const float* fromB = b + row;
        for (uint32_t x = 0; x < width; x += 8) {
            for (uint32_t k = 0; k < 8; ++k) {
                const bool takeA = (k & 1) ? oddA : evenA, takeB = (k & 1) ? oddB : evenB;
                const float fromEitherA = fromA[x + k], fromEitherB = fromB[x + k];
                to[x + k] = takeA ? fromEitherA : takeB ? fromEitherB : 0.0f;
            }
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
    for (uint32_t y = 0; y < height; ++y) FillSitePatternRow(data + size_t(y) * width, pattern, y, width);
}
