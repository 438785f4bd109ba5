// The rows of a plane as a streaming computation holds them: row y at data + (y % rows) * width, so that a ring of
// a few rows can stand in for a whole image whose rows are made, used and dropped in order from the top. With
// rows equal to the image height it is the whole image.
#pragma once

#include <cstddef>
#include <cstdint>

template <class Element>
struct RowRing {
    Element* data = nullptr;
    uint32_t width = 0;
    uint32_t rows = 0;  // rows held; at least 1

    Element* Row(uint32_t y) const { return data + size_t(y % rows) * width; }
};
