// The four functions the host finds in the shared library.
#include "perf/PerformanceEstimate.h"
#include "perf/StartupBenchmark.h"
#include "stream/FrameFeed.h"
#include "stream/Log.h"

extern "C" {

FRAMEFEED_API bool FRAMEFEED_CALL CreateStreamer(LogSink logSink) {
    SetLogSink(logSink);
    return LoadOrMeasurePerformance();
}

FRAMEFEED_API void FRAMEFEED_CALL DestroyStreamer() {}

FRAMEFEED_API float FRAMEFEED_CALL GetStreamerPerformance(const StreamConfig* config,
                                                          const StreamParameters* parameters) {
    return EstimateSecondsPerFrame(config, parameters);
}

FRAMEFEED_API Stream* FRAMEFEED_CALL NewStream(OutputCallback outputCallback) {
    return new FrameFeed(outputCallback);
}
}
