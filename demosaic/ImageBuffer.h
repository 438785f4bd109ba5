// A growable two-dimensional pixel buffer: rows contiguous, element (x, y) at y * width + x, data 64-byte
// aligned. Failed preconditions and failed allocations throw the boolean false; the residual algorithms catch
// it around a frame.
#pragma once

#include <cstdint>
#include <utility>

// Blocks that image buffers gave back, kept for the next request of the same size. Algorithms that create and drop
// whole images on every step of a frame hold one and name it with an ImageBlockPool::Scope around the frame: inside
// the scope, on that thread, image buffers take their blocks from the pool and give them back to it, so that the
// steady state neither asks the system for memory nor touches fresh pages. The destructor frees what is kept.
class ImageBlockPool {
public:
    ImageBlockPool() = default;
    ~ImageBlockPool();
    ImageBlockPool(const ImageBlockPool&) = delete;
    ImageBlockPool& operator=(const ImageBlockPool&) = delete;

    // The pool of the innermost scope on this thread, or null.
    static ImageBlockPool* Current();

    class Scope {
    public:
        explicit Scope(ImageBlockPool& pool);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        ImageBlockPool* const outer;
    };

    // A kept block of exactly `bytes`, or null.
    void* Take(uint32_t bytes);
    // Keeps a block of `bytes`; when full, frees the oldest kept block instead.
    void Keep(void* block, uint32_t bytes);
    uint32_t KeptBlocks() const { return count; }

private:
    static constexpr uint32_t capacity = 32;
    struct Kept {
        void* block;
        uint32_t bytes;
    };
    Kept kept[capacity] = {};
    uint32_t count = 0;
};

template <class Element>
class ImageBuffer {
public:
    ImageBuffer() = default;
    ~ImageBuffer();
    ImageBuffer(const ImageBuffer&) = delete;
    ImageBuffer& operator=(const ImageBuffer&) = delete;

    // Sets the size; grows the block to exactly w * h elements when it holds fewer bytes, never shrinks it.
    // Content is not cleared. A failed reallocation throws false and leaves the buffer as it was.
    void Resize(uint32_t w, uint32_t h);
    // Frees the block and zeroes every field.
    void Release();
    std::pair<uint32_t, uint32_t> Size() const { return {width, height}; }

    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t capacity = 0;  // bytes allocated
    Element* data = nullptr;

protected:
    // Throws false unless both have data and the same size.
    static void RequireSameSize(const ImageBuffer& a, const ImageBuffer& b);
};

class ImageBuffer32 : public ImageBuffer<float> {
public:
    // Each element becomes a's where patternA selects the site, b's where patternB does, else 0. A pattern has
    // one byte per site: (even row, even column), (even row, odd column), (odd row, even column), (odd row,
    // odd column). Throws false on null data, different sizes or patterns with a common bit; does nothing
    // after resizing when width is not a multiple of 8 or height is odd or below 2.
    void MergeBySites(const ImageBuffer32& a, uint32_t patternA, const ImageBuffer32& b, uint32_t patternB);
};

// Rows firstRow to firstRow + rows - 1 of MergeBySites, each pointer at row firstRow of its plane; width a multiple
// of 8. Nothing is checked.
void MergeRowsBySites(float* out, const float* a, uint32_t patternA, const float* b, uint32_t patternB,
                      uint32_t width, uint32_t firstRow, uint32_t rows);

class ImageBuffer64 : public ImageBuffer<double> {
public:
    // this = a * b and this = a - b elementwise, after resizing to their size; throws false on null data or
    // different sizes.
    void Multiply(const ImageBuffer64& a, const ImageBuffer64& b);
    void Subtract(const ImageBuffer64& a, const ImageBuffer64& b);
    // The four bytes of pattern as doubles: even rows alternate bytes 0 and 1, odd rows bytes 2 and 3. Throws
    // false on null data; does nothing when width is not a multiple of 4 or height is odd or below 2.
    void FillSitePattern(uint32_t pattern);
};
