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

// The fallback sink, and the one the command-line tools use. Debug lines stay out of a terminal
// unless asked for; the journal keeps them and filters by level itself.
class StderrLogSink final : public LogSink {
public:
    explicit StderrLogSink(LogLevel minimum = LogLevel::info) : minimum_(minimum) {}
    void write(LogLevel level, std::string_view message) override;

private:
    LogLevel minimum_;
};

}  // namespace kestrow
