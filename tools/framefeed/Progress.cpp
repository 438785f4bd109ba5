#include "Progress.h"

#include <algorithm>
#include <cstdio>
#if defined(_WIN32)
#include <io.h>
#define FRAMEFEED_ISATTY _isatty
#else
#include <unistd.h>
#define FRAMEFEED_ISATTY isatty
#endif

namespace {
constexpr size_t barWidth = 30;
constexpr size_t labelWidth = 60;
}  // namespace

Progress::Progress(size_t total) : total(std::max<size_t>(total, 1)), terminal(FRAMEFEED_ISATTY(2) != 0) {}

Progress::~Progress() { Finish(); }

void Progress::Step(const std::string& text) {
    done = std::min(done + 1, total);
    label = text;
    if (terminal) {
        Draw();
    } else {
        std::fprintf(stderr, "[%zu/%zu] %s\n", done, total, text.c_str());
    }
}

void Progress::Show(const std::string& text) {
    label = text;
    if (terminal) Draw();
}

void Progress::Note(const std::string& line) {
    if (terminal && drawn) std::fprintf(stderr, "\r\033[K");
    std::fprintf(stderr, "%s\n", line.c_str());
    if (terminal && drawn) Draw();
}

void Progress::Finish() {
    if (terminal && drawn) std::fprintf(stderr, "\n");
    drawn = false;
}

void Progress::Draw() {
    const size_t filled = done * barWidth / total;
    std::string bar(filled, '#');
    bar.append(barWidth - filled, '.');
    std::string shown = label.size() > labelWidth ? label.substr(0, labelWidth - 3) + "..." : label;
    std::fprintf(stderr, "\r\033[K[%s] %3zu%% %s", bar.c_str(), done * 100 / total, shown.c_str());
    std::fflush(stderr);
    drawn = true;
}
