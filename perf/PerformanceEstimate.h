// Estimated processor seconds per frame of a proposed stream.
#pragma once

#include <framefeed/framefeed.h>

float EstimateSecondsPerFrame(const StreamConfig* config, const StreamParameters* parameters);
