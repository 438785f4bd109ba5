// Errors of the command-line tool: the message names what was wrong and, where there is a list, the valid
// choices. A usage error is a bad argument (exit status 2); any other is a file or a stream that failed (1).
#pragma once

#include <stdexcept>
#include <string>

class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& message, int exitStatus = 1)
        : std::runtime_error(message), exitStatus(exitStatus) {}
    int ExitStatus() const { return exitStatus; }

private:
    int exitStatus;
};

inline ToolError UsageError(const std::string& message) { return ToolError(message, 2); }
