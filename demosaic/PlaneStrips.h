// Element-wise steps over a few rows at a time: a sequence of steps over whole planes, run strip by strip, fetches
// each plane from memory once rather than once per step, and every element still gets the same operations in the
// same order. Strips have an even number of rows, so that site patterns keep their rows.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

// Calls steps(offset, count, firstRow, rows) for consecutive strips of about 4096 elements (at least two rows) of a
// plane of width by height elements: offset and count in elements, firstRow and rows in rows.
template <class Steps>
void InStrips(uint32_t width, uint32_t height, Steps steps) {
    constexpr uint32_t stripElements = 4096;
    const uint32_t rows = std::max(2u, (stripElements / std::max(width, 1u)) & ~1u);
    for (uint32_t y = 0; y < height; y += rows) {
        const uint32_t stripRows = std::min(rows, height - y);
        steps(size_t(y) * width, int32_t(size_t(stripRows) * width), y, stripRows);
    }
}
