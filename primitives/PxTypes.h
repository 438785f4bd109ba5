// The argument and status types every primitive shares.
#pragma once

#include <cstdint>

struct PxSize {
    int32_t width;
    int32_t height;
};

struct PxRect {
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
};

// Zero: done. Negative: refused before anything was written. Positive: a warning after complete work.
typedef int32_t PxStatus;
enum : PxStatus {
    PxStatusOk = 0,
    PxStatusDivideByZero = 2,
    PxStatusSingularity = 18,
    PxStatusDomain = 19,
    PxStatusBadArgument = -5,
    PxStatusBadSize = -6,
    PxStatusNullPointer = -8,
    PxStatusBadStep = -16,
    PxStatusBadMaskSize = -33,
    PxStatusBadChannelCount = -47,
    PxStatusBadChannels = -53,
    PxStatusBadDataType = -59,
    PxStatusBadRoundMode = -213,
    PxStatusBadBorder = -225,
    PxStatusSizeOverflow = -232,
};

// Bayer phase: the colours of the top-left 2x2 cell.
enum : int32_t {
    PxGridBGGR = 0,
    PxGridRGGB = 1,
    PxGridGBRG = 2,
    PxGridGRBG = 3,
};
