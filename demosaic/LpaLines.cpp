#include "demosaic/LpaLines.h"

#include <cstring>

namespace {

inline uint16_t Limit(float value, float top) {
    value = value > 0.0f ? value : 0.0f;
    value = value < top ? value : top;
    return uint16_t(int32_t(value));
}

void RowDifferences(const uint16_t* m, int32_t width, int32_t colourParity, float* out) {
    const int32_t evenSign = colourParity == 0 ? -1 : 1;  // columns 2i; the odd columns take the other sign
    for (int32_t x = 0; x < width; x += 2) {
        const int32_t e0 = int32_t(m[x - 2]) + m[x + 2] + 2 * (int32_t(m[x]) - m[x - 1] - m[x + 1]);
        const int32_t e1 = int32_t(m[x - 1]) + m[x + 3] + 2 * (int32_t(m[x + 1]) - m[x] - m[x + 2]);
        out[x] = float(evenSign * e0);
        out[x + 1] = float(-evenSign * e1);
    }
}

void ColumnDifferences(const uint16_t* m, intptr_t stride, int32_t count, int32_t sign, float* out) {
    for (int32_t i = 0; i < count; ++i) {
        const uint16_t* c = m + 2 * i;
        const int32_t e = int32_t(c[-2 * stride]) + c[2 * stride] + 2 * (int32_t(c[0]) - c[-stride] - c[stride]);
        out[i] = float(sign * e);
    }
}

void CrossRow(const float* above, const float* upper, const float* lower, const float* below, int32_t count,
              float* out) {
    for (int32_t i = 0; i < count; ++i) {
        const float inner = (upper[i] + upper[i + 1]) + (lower[i] + lower[i + 1]);
        const float outer = ((above[i] + above[i + 1]) + (below[i] + below[i + 1])) +
                            ((upper[i - 1] + upper[i + 2]) + (lower[i - 1] + lower[i + 2]));
        out[i] = 0.3125f * inner - 0.03125f * outer;
    }
}

// A finished row of 2 count results, as 16-bit samples or as bytes.
void Store(const uint16_t* values, int32_t count, bool bytes, void* out) {
    if (!bytes) {
        std::memcpy(out, values, 4 * size_t(count));
        return;
    }
    uint8_t* narrow = static_cast<uint8_t*>(out);
    for (int32_t x = 0; x < 2 * count; ++x) narrow[x] = uint8_t(values[x] > 255 ? 255 : values[x]);
}

// The rows are made in pieces of up to this many sites.
constexpr int32_t piece = 64;

void GreenRow(const uint16_t* m, const float* d, int32_t count, int32_t q, float top, bool bytes, void* out) {
    for (int32_t first = 0; first < count; first += piece) {
        uint16_t values[2 * piece];
        const int32_t n = count - first < piece ? count - first : piece;
        for (int32_t i = 0; i < n; ++i) {
            const int32_t x = 2 * (first + i);
            values[2 * i + q] = Limit(float(m[x + q]) + LpaRoundHalfEven(0.25f * d[first + i]), top);
            values[2 * i + 1 - q] = m[x + 1 - q];
        }
        Store(values, n, bytes, static_cast<uint8_t*>(out) + (bytes ? 2 : 4) * size_t(first));
    }
}

void ColourRow(const uint16_t* m, const float* cross, const float* d, const float* across, const float* up,
               const float* down, int32_t count, int32_t q, float top, bool bytes, void* out) {
    const int32_t g = 1 - q;
    for (int32_t first = 0; first < count; first += piece) {
        uint16_t values[2 * piece];
        const int32_t n = count - first < piece ? count - first : piece;
        for (int32_t i = 0; i < n; ++i) {
            const int32_t s = first + i, x = 2 * s;
            values[2 * i + q] = cross == nullptr
                                    ? m[x + q]
                                    : Limit(float(m[x + q]) - LpaRoundHalfEven(0.25f * (cross[s] - d[s])), top);
            const float sum = ((across[s] + across[s + 1]) + up[s]) + down[s];
            values[2 * i + g] = Limit(float(m[x + g]) - LpaRoundHalfEven(0.0625f * sum), top);
        }
        Store(values, n, bytes, static_cast<uint8_t*>(out) + (bytes ? 2 : 4) * size_t(first));
    }
}

}  // namespace

LpaLineForms LpaLinesScalar() { return {RowDifferences, ColumnDifferences, CrossRow, GreenRow, ColourRow}; }
