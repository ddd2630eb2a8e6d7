#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "support/log_sink.h"

namespace kestrow::testing {

// Keeps every log line, so tests can assert what was logged (and what never was).
class RecordingLogSink final : public LogSink {
public:
    struct Line {
        LogLevel level;
        std::string message;
    };
    void write(LogLevel level, std::string_view message) override;
    std::vector<Line> lines() const;
    std::vector<std::string> messages() const;
    bool contains(std::string_view fragment) const;

private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
};

}  // namespace kestrow::testing
