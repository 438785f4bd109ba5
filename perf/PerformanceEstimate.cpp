#include "perf/PerformanceEstimate.h"

// This machine has not been measured yet, so no stream has a known cost.
float EstimateSecondsPerFrame(const StreamConfig*, const StreamParameters*) { return 0.0f; }
