// The host's log sink, kept process-wide.
#pragma once

#include <framefeed/framefeed.h>

#include <cstdint>

enum LogLevel : uint32_t {
    LogProgress = 1,
    LogFailure = 3,
    LogFigures = 0x7FFFFFFF,
};

void SetLogSink(LogSink sink);
LogSink CurrentLogSink();

template <class... Args>
void Log(uint32_t level, const char* format, Args... args) {
    // A null sink is outside the host contract; it silences the plug-in rather than crash it.
    if (LogSink sink = CurrentLogSink()) sink(level, format, args...);
}
