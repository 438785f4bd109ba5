// Fills the rate table at start-up: from the cache file when it belongs to the installed host, otherwise by
// timing real streams on 2048 x 2048 frames and writing the file.
#pragma once

#include <string>

// "<common application data>/Kolvane/Config/Server/FrameFeedPerf.bin".
std::string PerfCachePath();

// False only when a measurement stream cannot be built; then no file is written.
bool LoadOrMeasurePerformance();
