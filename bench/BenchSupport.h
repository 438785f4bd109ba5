// Support the benchmark programs share: fingerprints of outputs, memory sized past the last-level cache, the
// bookkeeping that turns Google Benchmark's runs into medians, sides timed in turns, and the summary table.
#pragma once

#include "primitives/ProcessorLevel.h"

#include <benchmark/benchmark.h>
#ifdef __unix__
#include <unistd.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace benchsupport {

// ---- Processor levels -------------------------------------------------------------------------------------

struct LevelCase {
    const char* name;
    int32_t level;
};

// Holds a processor level for the life of one benchmark run; stages read it in Init, primitives per call.
class ForcedLevel {
public:
    explicit ForcedLevel(int32_t level) { PxForceProcessorLevel(level); }
    ~ForcedLevel() { PxForceProcessorLevel(PxLevelUnset); }
    ForcedLevel(const ForcedLevel&) = delete;
    ForcedLevel& operator=(const ForcedLevel&) = delete;
};

// ---- Output fingerprints ----------------------------------------------------------------------------------

inline uint64_t Fingerprint(const uint8_t* bytes, size_t size) {
    uint64_t hash = 0xCBF29CE484222325ull;
    for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 0x100000001B3ull;
    return hash;
}

// The outcome of comparing outputs: how many pairs were compared and which of them differed.
struct Check {
    int compared = 0;
    std::vector<std::string> failed;

    // "<what>: yes", "<what>: NO: <names>" or "<what>: not compared", with no line break either side.
    void Print(const char* what) const {
        std::printf("%s: %s", what, compared == 0 ? "not compared" : failed.empty() ? "yes" : "NO:");
        for (const std::string& name : failed) std::printf(" %s", name.c_str());
    }
};

// Fingerprint of each case's output, keyed "<case>/<level>", to confirm that every processor level computes what
// the scalar form does: a wide form's speed means nothing if it gets there by computing something else.
class OutputFingerprints {
public:
    // Keeps the first output seen under a name; later runs of the same case repeat it.
    void Note(const std::string& name, const uint8_t* bytes, size_t size) {
        if (byName.count(name) == 0) byName[name] = Fingerprint(bytes, size);
    }

    // The fingerprint filed under `name`, or null when that case did not run.
    const uint64_t* Find(const std::string& name) const {
        const auto found = byName.find(name);
        return found == byName.end() ? nullptr : &found->second;
    }

    // Every other level's output against `scalarLevel`'s of the same case.
    Check AgainstLevel(const char* scalarLevel) const {
        Check check;
        for (const auto& [name, fingerprint] : byName) {
            const size_t levelStart = name.rfind('/') + 1;
            if (name.compare(levelStart, std::string::npos, scalarLevel) == 0) continue;
            const uint64_t* scalar = Find(name.substr(0, levelStart) + scalarLevel);
            if (scalar == nullptr) continue;
            ++check.compared;
            if (*scalar != fingerprint) check.failed.push_back(name);
        }
        return check;
    }

private:
    std::map<std::string, uint64_t> byName;
};

// ---- Memory larger than the cache -------------------------------------------------------------------------

inline uint64_t LastLevelCacheBytes() {
    uint64_t bytes = PxLargestCacheSize();
#ifdef _SC_LEVEL3_CACHE_SIZE
    bytes = std::max<uint64_t>(bytes, std::max(0L, sysconf(_SC_LEVEL3_CACHE_SIZE)));
#endif
    // The kernel's figure ("32768K") is the slice a core shares; the C library's may count all of a socket's.
    // Sizing by the largest reading errs towards colder frames.
    std::ifstream sysfs("/sys/devices/system/cpu/cpu0/cache/index3/size");
    uint64_t kibibytes = 0;
    if (sysfs >> kibibytes) bytes = std::max(bytes, kibibytes * 1024);
    return bytes;
}

// Buffer bytes a cold case rotates its frames through: twice the largest reading of the last-level cache, so
// nothing of a frame is left in the cache when its turn comes round again.
inline size_t ColdRotationBytes() {
    static const size_t bytes = std::max<size_t>(2 * LastLevelCacheBytes(), size_t(64) << 20);
    return bytes;
}

// Slots of a rotation for frames that take `inputBytes` and `outputBytes` of buffer.
inline size_t RotationSlots(size_t inputBytes, size_t outputBytes) {
    return (ColdRotationBytes() + inputBytes + outputBytes - 1) / (inputBytes + outputBytes);
}

// Outputs of the stages and memcpy's sources and destinations, each a rotation and the largest output frame
// larger, so no side finds another's bytes in the cache. Every page is written here, so none is first touched
// while timed.
struct OutputArenas {
    std::vector<uint8_t> outputs;
    std::vector<uint8_t> copySources;
    std::vector<uint8_t> copyDestinations;

    explicit OutputArenas(size_t largestOutputBytes) {
        const size_t bytes = ColdRotationBytes() + largestOutputBytes;
        outputs.assign(bytes, 0);
        copySources.assign(bytes, 1);
        copyDestinations.assign(bytes, 0);
    }

    // memcpy's side of a frame: `copyBytes` from the sources' slot to the destinations' of the frame's turn.
    void Copy(size_t copyBytes, size_t slot) {
        std::memcpy(copyDestinations.data() + slot * copyBytes, copySources.data() + slot * copyBytes, copyBytes);
    }
};

// `slots` copies of `frame` back to back, kept per frame for the cold runs that follow.
inline const uint8_t* ColdInputs(const std::vector<uint8_t>& frame, size_t slots) {
    static std::map<const uint8_t*, std::vector<uint8_t>> arenas;
    std::vector<uint8_t>& arena = arenas[frame.data()];
    if (arena.size() < slots * frame.size()) {
        arena.resize(slots * frame.size());
        for (size_t slot = 0; slot < slots; ++slot)
            std::memcpy(arena.data() + slot * frame.size(), frame.data(), frame.size());
    }
    return arena.data();
}

// ---- Measurements for the summary -------------------------------------------------------------------------

// Rates, or ratios of two sides' speeds, keyed by benchmark name. Google Benchmark also runs shorter trials to
// size each run; those are told apart by their smaller iteration count.
class MeasurementLog {
public:
    void File(const std::string& name, int64_t iterations, double value) {
        byName[name].push_back({iterations, value});
    }

    // Median over the reported runs of one benchmark, 0 when it did not run.
    double Median(const std::string& name) const {
        const auto found = byName.find(name);
        if (found == byName.end() || found->second.empty()) return 0;
        int64_t reportedIterations = 0;
        for (const Measurement& m : found->second) reportedIterations = std::max(reportedIterations, m.iterations);
        std::vector<double> values;
        for (const Measurement& m : found->second)
            if (m.iterations == reportedIterations) values.push_back(m.value);
        std::sort(values.begin(), values.end());
        const size_t mid = values.size() / 2;
        return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
    }

private:
    struct Measurement {
        int64_t iterations;
        double value;
    };
    std::map<std::string, std::vector<Measurement>> byName;
};

// Sets the run's MPix counter and files its rate in megapixels per second under `name`, given the seconds its
// frames took.
inline void ReportThroughput(benchmark::State& state, MeasurementLog& log, const std::string& name,
                             double megapixelsPerFrame, double seconds) {
    state.counters["MPix"] = benchmark::Counter(megapixelsPerFrame, benchmark::Counter::kIsIterationInvariantRate);
    if (seconds > 0) log.File(name, state.iterations(), double(state.iterations()) * megapixelsPerFrame / seconds);
}

// ---- Two sides in turns -----------------------------------------------------------------------------------

// One frame of one side of a comparison; the frame's index picks the buffers a side rotates through.
using FrameFunction = std::function<void(uint64_t frame)>;

// What a side of TimeTurns is called: in its counters ("<counter> MPix/s") and in the log ("<name>/<filedAs>").
struct Side {
    const char* counter;
    const char* filedAs;
};

// Frames a side would turn and bytes it would move per frame, for the rates TimeTurns reports.
struct FrameSize {
    double megapixels;
    double gigabytes;  // 0: no GB/s counters
};

// One side next to another doing the same job, taking turns frame by frame, so that load from elsewhere on the
// machine falls on both alike; the order alternates, so neither always finds the caches as the other left them.
// Each side's rate in input MPix/s is filed under the benchmark's name with the side's suffix appended, the
// first side's speed relative to the second's under the name itself. Without a second side the first runs alone.
// `setup`, when given, runs untimed before each side's turn: for jobs that work in place and need their input
// restored.
inline void TimeTurns(benchmark::State& state, MeasurementLog& log, const std::string& name, FrameSize size,
                      Side oursSide, const FrameFunction& ours, Side peerSide, const FrameFunction& peer,
                      const std::function<void(uint64_t frame, bool oursTurn)>& setup = {}) {
    using Clock = std::chrono::steady_clock;
    Clock::duration oursTime{};
    Clock::duration peerTime{};
    uint64_t frame = 0;
    for (auto _ : state) {
        for (int turn = 0; turn < 2; ++turn) {
            const bool oursTurn = (turn == 0) == (frame % 2 == 0);
            if (!oursTurn && !peer) continue;
            if (setup) setup(frame, oursTurn);
            const auto start = Clock::now();
            (oursTurn ? ours : peer)(frame);
            benchmark::ClobberMemory();
            (oursTurn ? oursTime : peerTime) += Clock::now() - start;
        }
        ++frame;
    }
    const double frames = double(state.iterations());
    const auto file = [&](Side side, Clock::duration time) {
        const double seconds = std::chrono::duration<double>(time).count();
        if (seconds <= 0) return;
        state.counters[std::string(side.counter) + " MPix/s"] = frames * size.megapixels / seconds;
        if (size.gigabytes > 0) state.counters[std::string(side.counter) + " GB/s"] = frames * size.gigabytes / seconds;
        log.File(name + "/" + side.filedAs, state.iterations(), frames * size.megapixels / seconds);
    };
    file(oursSide, oursTime);
    file(peerSide, peerTime);
    if (oursTime.count() > 0 && peerTime.count() > 0) {
        const double ratio = std::chrono::duration<double>(peerTime) / std::chrono::duration<double>(oursTime);
        state.counters["ratio"] = ratio;
        log.File(name, state.iterations(), ratio);
    }
}

// ---- Summary ----------------------------------------------------------------------------------------------

struct Comparison {
    std::string label;
    std::string oursName;
    std::string peerName;
    double target;                // the least ratio wanted; 0 for a row that only informs
    std::string pairedName = {};  // a benchmark that timed both sides in turn and filed their ratio, if any
    double bytesPerPixel = 0;     // bytes read and written per input pixel, for the GB/s columns; 0: none
};

// The table of FrameFeed's rates next to its peers', their ratios and the targets, one row per comparison that
// ran. `labelWidth` fits the longest label; `withBandwidth` adds GB/s columns.
inline void PrintComparisons(const std::vector<Comparison>& comparisons, const MeasurementLog& log, int labelWidth,
                             bool withBandwidth) {
    std::printf("\n%-*s %16s %12s", labelWidth, "case", "FrameFeed MPix/s", "peer MPix/s");
    if (withBandwidth) std::printf(" %8s %9s", "FF GB/s", "peer GB/s");
    std::printf(" %7s %7s %8s\n", "ratio", "target", "met");
    for (const Comparison& c : comparisons) {
        const double ours = log.Median(c.oursName);
        const double peer = log.Median(c.peerName);
        if (ours == 0 && peer == 0) continue;  // filtered out
        char oursText[32] = "-", peerText[32] = "-", oursBytesText[32] = "-", peerBytesText[32] = "-";
        char ratioText[32] = "-", targetText[32] = "-";
        const char* met = "-";
        if (ours > 0) std::snprintf(oursText, sizeof oursText, "%.1f", ours);
        if (peer > 0) std::snprintf(peerText, sizeof peerText, "%.1f", peer);
        if (ours > 0 && c.bytesPerPixel > 0)
            std::snprintf(oursBytesText, sizeof oursBytesText, "%.2f", ours * c.bytesPerPixel / 1e3);
        if (peer > 0 && c.bytesPerPixel > 0)
            std::snprintf(peerBytesText, sizeof peerBytesText, "%.2f", peer * c.bytesPerPixel / 1e3);
        if (c.target > 0) std::snprintf(targetText, sizeof targetText, ">=%.2f", c.target);
        // Taken in turns, the two sides' ratio in each run is steadier than the ratio of their separate medians.
        const double ratio = !c.pairedName.empty() ? log.Median(c.pairedName) : peer > 0 ? ours / peer : 0;
        if (ours > 0 && ratio > 0) {
            std::snprintf(ratioText, sizeof ratioText, "%.2f", ratio);
            if (c.target > 0) met = ratio >= c.target ? "met" : "NOT MET";
        }
        std::printf("%-*s %16s %12s", labelWidth, c.label.c_str(), oursText, peerText);
        if (withBandwidth) std::printf(" %8s %9s", oursBytesText, peerBytesText);
        std::printf(" %7s %7s %8s\n", ratioText, targetText, met);
    }
}

// ---- Registration -----------------------------------------------------------------------------------------

// Registers fn(state, name, args...): each benchmark files its measurements under its own name.
template <class Function, class... Args>
void Register(const std::string& name, Function function, Args... args) {
    benchmark::RegisterBenchmark(name.c_str(), function, name, args...)->Unit(benchmark::kMillisecond)->UseRealTime();
}

// The levels of a program's table that this processor runs, widest first, so that each table section
// leads with its targeted row.
template <size_t count>
std::vector<LevelCase> LevelsWidestFirst(const LevelCase (&cases)[count], int32_t naturalLevel) {
    std::vector<LevelCase> levels;
    for (const LevelCase& level : cases)
        if (level.level <= naturalLevel) levels.insert(levels.begin(), level);
    return levels;
}

// Targets hold for the AVX2 forms, which this hardware runs; the scalar rows only inform.
inline double TargetAt(const LevelCase& level, double target) { return level.level >= PxLevelAvx2 ? target : 0; }

// A row for a benchmark that timed FrameFeed ("/ours") and its peer ("/peer") in turns.
inline Comparison PairedRow(const std::string& label, const std::string& name, double target,
                            double bytesPerPixel = 0) {
    return {label, name + "/ours", name + "/peer", target, name, bytesPerPixel};
}

}  // namespace benchsupport
