// Progress of a long command on standard error: a bar redrawn in place on a terminal, one plain line per step
// otherwise (logs and pipes keep every step).
#pragma once

#include <cstddef>
#include <string>

class Progress {
public:
    explicit Progress(size_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Shows the bar with this label before the first step is done (terminal only).
    void Show(const std::string& label);
    // One step done; the label says which.
    void Step(const std::string& label);
    // A line that stays above the bar.
    void Note(const std::string& line);
    // Ends the bar's line; further output starts on a fresh one.
    void Finish();

private:
    void Draw();

    size_t total;
    size_t done = 0;
    bool terminal;
    bool drawn = false;
    std::string label;
};
