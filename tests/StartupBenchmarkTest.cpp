// Start-up: the cache file decides between loading the table and measuring the machine; a measurement logs
// its rows, derives the JPEG cells and writes the file. Runs real 2048 x 2048 streams, so it is a program of
// its own, kept out of the emulated-processor runs.
#include "TestSupport.h"
#include "perf/PerfTable.h"
#include "perf/StartupBenchmark.h"
#include "perf/VersionStamp.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

std::vector<uint8_t> ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteFile(const std::filesystem::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// Each test starts from the tests' cache file and leaves it as it found it. CTest runs these tests side by side
// with each other and with the other programs, so each process keeps its cache file in a folder of its own.
class StartupBenchmark : public ::testing::Test {
protected:
#ifndef _WIN32
    static std::string Folder() { return testing::TempDir() + "framefeed-startup-" + std::to_string(getpid()); }
    static void SetUpTestSuite() { setenv("PROGRAMDATA", Folder().c_str(), 1); }
    static void TearDownTestSuite() { std::filesystem::remove_all(Folder()); }
#endif
    void SetUp() override {
        LogCapture::Install();
        path = std::filesystem::u8path(PerfCachePath());
        saved = ReadFile(path);
        stamp = HostVersionStamp();
    }
    void TearDown() override {
        WriteFile(path, saved);
        platform::FailAllocationAfter(0);
        ThePerfTable() = MadeUpRates();
    }

    std::filesystem::path path;
    std::vector<uint8_t> saved;
    uint32_t stamp = 0;
};

TEST_F(StartupBenchmark, ACacheOfThisHostLoadsWithoutMeasuring) {
    PerfTable rates{};
    for (size_t i = 0; i < PerfTable::cellCount; ++i) rates.cells[i] = 0x0102030405060708ull + i;
    std::vector<uint8_t> bytes = BenchmarkCacheBytes(stamp, rates);
    bytes.push_back(0xEE);  // only the first 7108 bytes are read
    WriteFile(path, bytes);
    EXPECT_TRUE(LoadOrMeasurePerformance());
    EXPECT_TRUE(LogCapture::Take().empty());
    for (size_t i = 0; i < PerfTable::cellCount; ++i) ASSERT_EQ(ThePerfTable().cells[i], rates.cells[i]) << i;
}

// A short file or another host's stamp makes the plug-in measure, log each row and replace the file.
TEST_F(StartupBenchmark, AShortOrForeignCacheIsMeasuredAgainAndReplaced) {
    for (const bool foreign : {false, true}) {
        std::vector<uint8_t> bytes = BenchmarkCacheBytes(foreign ? stamp + 1 : stamp, MadeUpRates());
        if (!foreign) bytes.pop_back();  // 7107 bytes
        WriteFile(path, bytes);
        ASSERT_TRUE(LoadOrMeasurePerformance());
        const auto messages = LogCapture::Take();
        ASSERT_EQ(messages.size(), 27u);
        EXPECT_EQ(messages[0], (LoggedMessage{1, "Benchmarking system..."}));
        PerfTable& table = ThePerfTable();
        EXPECT_EQ(messages[1].level, 0x7FFFFFFFu);
        EXPECT_EQ(messages[1].text, "Benchmark: 10-bit -> 8-bit packing = " + std::to_string(table.packRate(10) >> 20) +
                                        " MPix/S");
        EXPECT_EQ(messages[21].text, "Benchmark: Fine DeBayer = " + std::to_string(table.qualityDemosaicRate(8, 1) >> 20) +
                                         " MPix/S");
        EXPECT_EQ(messages[26].text, "Benchmark: JPEG(YUV420P) = " + std::to_string(table.jpegRate(14) >> 20) + " MPix/S");
        for (const uint32_t d : {10u, 12u, 16u}) EXPECT_GT(table.packRate(d), 0u);
        for (const uint32_t s : {1u, 2u, 4u, 8u, 16u}) {
            EXPECT_GT(table.fastDemosaicRate(s), 0u);
            EXPECT_GT(table.qualityDemosaicRate(8, s), 0u);
            EXPECT_EQ(table.qualityDemosaicRate(10, s), table.qualityDemosaicRate(8, s));
            EXPECT_EQ(table.qualityDemosaicRate(12, s), table.qualityDemosaicRate(8, s));
        }
        for (const uint32_t bayer : {2u, 3u, 4u, 5u}) EXPECT_EQ(table.jpegRate(bayer), table.jpegRate(19));
        EXPECT_EQ(table.jpegRate(11), table.jpegRate(18));
        EXPECT_EQ(table.jpegRate(12), table.jpegRate(18));
        EXPECT_EQ(table.jpegRate(6), table.jpegRate(7));
        EXPECT_GT(table.jpegRate(19), 0u);
        EXPECT_EQ(table.yuvRate(8), 0u);
        EXPECT_EQ(ReadFile(path), BenchmarkCacheBytes(stamp, table));
    }
}

// A measurement stream that cannot be built ends the start-up with false, after the assembly's own message, and
// writes no file.
TEST_F(StartupBenchmark, ARefusedMeasurementStreamFailsWithoutAFile) {
    std::filesystem::remove(path);
    platform::FailAllocationAfter(2);  // the frame block passes; the first stream's stage buffer does not
    EXPECT_FALSE(LoadOrMeasurePerformance());
    platform::FailAllocationAfter(0);
    EXPECT_EQ(LogCapture::TakeTexts(),
              (std::vector<std::string>{"Benchmarking system...", "FrameFeed: Unable to allocate a stage buffer of 4194304 bytes",
                                        "Benchmark: Bit packer failed"}));
    EXPECT_FALSE(std::filesystem::exists(path));
}

#ifndef _WIN32
// A folder that does not exist cannot take the file: the figures stay in memory and the start-up succeeds.
TEST_F(StartupBenchmark, AnUnwritableFolderKeepsTheFiguresInMemory) {
    const std::string kept = std::getenv("PROGRAMDATA");
    setenv("PROGRAMDATA", (testing::TempDir() + "framefeed-no-such-folder/inside").c_str(), 1);
    EXPECT_TRUE(LoadOrMeasurePerformance());
    setenv("PROGRAMDATA", kept.c_str(), 1);
    EXPECT_GT(ThePerfTable().fastDemosaicRate(1), 0u);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::u8path(testing::TempDir() + "framefeed-no-such-folder")));
    LogCapture::Take();
}
#endif

// Without its frame block nothing can be measured: the table stays empty, no file is written, and the
// plug-in still starts.
TEST_F(StartupBenchmark, AMissingFrameBlockLeavesTheTableEmpty) {
    std::filesystem::remove(path);
    platform::FailAllocationAfter(1);
    EXPECT_TRUE(LoadOrMeasurePerformance());
    platform::FailAllocationAfter(0);
    EXPECT_EQ(LogCapture::TakeTexts(), (std::vector<std::string>{"Benchmarking system...",
                                                                 "Benchmark: Unable to allocate the benchmark frame"}));
    EXPECT_FALSE(std::filesystem::exists(path));
    for (const uint64_t cell : ThePerfTable().cells) ASSERT_EQ(cell, 0u);
}

}  // namespace
