#include "stream/Log.h"

#include <atomic>

namespace {
// Written by CreateStreamer while streams of other threads may be logging.
std::atomic<LogSink> logSink{nullptr};
}  // namespace

void SetLogSink(LogSink sink) { logSink.store(sink, std::memory_order_release); }

LogSink CurrentLogSink() { return logSink.load(std::memory_order_acquire); }
