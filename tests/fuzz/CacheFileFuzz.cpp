// Random bytes and lengths as the benchmark cache file, then the start-up that reads it and estimates for
// random configurations. A file that does not carry this host's stamp and a whole table makes the plug-in
// measure, so most inputs are made to start with the stamp.
#include "FuzzInput.h"
#include "perf/StartupBenchmark.h"
#include "perf/VersionStamp.h"

#include <framefeed/framefeed.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

void QuietSink(uint32_t, const char*, ...) {}

// The fuzzer's own common application data folder, with the cache's folders made.
const std::string& CachePath() {
    static const std::string path = [] {
        const std::string folder = std::filesystem::temp_directory_path().string() + "/framefeed-fuzz-programdata";
        setenv("PROGRAMDATA", folder.c_str(), 1);
        std::filesystem::create_directories(folder + "/Kolvane/Config/Server");
        return PerfCachePath();
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& path = CachePath();
    static const uint32_t stamp = HostVersionStamp();
    FuzzInput in(data, size);
    const bool stamped = (in.Take<uint8_t>() & 7) != 0;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return 0;
    if (stamped) {
        // This host's stamp and at least a whole table, so the file loads and the estimates read its figures.
        std::fwrite(&stamp, 1, 4, file);
        const size_t bytes = size > 1 ? size - 1 : 0;
        std::fwrite(data + 1, 1, bytes, file);
        static const uint8_t zeros[7104] = {};
        if (bytes < sizeof(zeros)) std::fwrite(zeros, 1, sizeof(zeros) - bytes, file);
    } else {
        // Anything else: a short or foreign file, which would make the plug-in measure the machine; only the
        // load is tried here, through a file the measurement can never match.
        std::fwrite(data, 1, size < 3 ? size : 3, file);
    }
    std::fclose(file);
    if (!stamped) return 0;
    if (!CreateStreamer(&QuietSink)) __builtin_trap();

    for (int i = 0; i < 16 && !in.Empty(); ++i) {
        StreamConfig config{};
        config.format = in.Take<uint32_t>();
        config.bitDepth = in.Take<int32_t>();
        config.inputCompression = in.Take<uint8_t>() & 1 ? 1 : in.Take<uint32_t>();
        config.width = in.Take<uint32_t>();
        config.height = in.Take<uint32_t>();
        StreamParameters parameters{};
        parameters.scale = in.Take<uint8_t>() & 1 ? in.Take<uint8_t>() % 20 : in.Take<uint32_t>();
        parameters.demosaic = in.Take<uint32_t>();
        parameters.compression = in.Take<uint8_t>() & 1 ? 3 : in.Take<uint32_t>();
        parameters.keepHighBpp = in.Take<uint8_t>();
        const float seconds = GetStreamerPerformance(&config, &parameters);
        if (!(seconds >= 0.0f)) __builtin_trap();  // never negative, never NaN
    }
    return 0;
}
