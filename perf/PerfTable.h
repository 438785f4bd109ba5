// The process-wide table of measured rates, in pixels per second; 0 means not measured. Its 7104 bytes are
// also the body of the cache file, little-endian, so its layout is fixed cell by cell.
#pragma once

#include <cstddef>
#include <cstdint>

struct PerfTable {
    static constexpr size_t cellCount = 888;
    static constexpr size_t bytes = cellCount * 8;

    uint64_t cells[cellCount];

    // Row starts, in cells. The packing row's index 16 is index 0 of the mono scaling row.
    static constexpr size_t packRow = 0;           // by bitDepth: 10, 12, 16
    static constexpr size_t monoScaleRow = 16;     // by scale: 2, 4, 8, 16
    static constexpr size_t yuvRow = 33;           // by scale: 1, 2, 4
    static constexpr size_t fastDemosaicRow = 186;  // by scale: 1, 2, 4, 8, 16
    static constexpr size_t qualityDemosaicRow = 322;  // by bitDepth * 17 + scale
    static constexpr size_t jpegRow = 866;             // by PixelFormat, 22 cells, the table's end
    static constexpr size_t jpegCells = 22;

    uint64_t& packRate(uint32_t bitDepth) { return cells[packRow + bitDepth]; }
    uint64_t& monoScaleRate(uint32_t scale) { return cells[monoScaleRow + scale]; }
    uint64_t& yuvRate(uint32_t scale) { return cells[yuvRow + scale]; }
    uint64_t& fastDemosaicRate(uint32_t scale) { return cells[fastDemosaicRow + scale]; }
    uint64_t& qualityDemosaicRate(uint32_t bitDepth, uint32_t scale) {
        return cells[qualityDemosaicRow + bitDepth * 17 + scale];
    }
    uint64_t& jpegRate(uint32_t format) { return cells[jpegRow + format]; }
};

static_assert(sizeof(PerfTable) == 7104, "the cache file's table");
static_assert(PerfTable::monoScaleRow * 8 == 128 && PerfTable::yuvRow * 8 == 264 &&
                  PerfTable::fastDemosaicRow * 8 == 1488 && PerfTable::qualityDemosaicRow * 8 == 2576 &&
                  PerfTable::jpegRow * 8 == 6928 && PerfTable::jpegRow + PerfTable::jpegCells == PerfTable::cellCount,
              "row offsets of the cache file");

// The one table of the process: zero until loaded or measured.
PerfTable& ThePerfTable();
