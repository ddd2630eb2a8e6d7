#pragma once

#include <string_view>

namespace kestrow {

enum class LogLevel { debug, info, notice, error, fault };

std::string_view levelName(LogLevel level);

// Where log lines go: journald in the app, standard error without it, a recorder in tests.
// Sinks are called from any thread.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(LogLevel level, std::string_view message) = 0;
};

// The fallback sink, and the one the command-line tools use.
class StderrLogSink final : public LogSink {
public:
    void write(LogLevel level, std::string_view message) override;
};

}  // namespace kestrow
