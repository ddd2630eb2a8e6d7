#include "support/recording_log_sink.h"

namespace kestrow::testing {

void RecordingLogSink::write(LogLevel level, std::string_view message) {
    std::lock_guard lock(mutex_);
    lines_.push_back(Line{level, std::string(message)});
}

std::vector<RecordingLogSink::Line> RecordingLogSink::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

std::vector<std::string> RecordingLogSink::messages() const {
    std::vector<std::string> out;
    for (const auto& line : lines()) out.push_back(line.message);
    return out;
}

bool RecordingLogSink::contains(std::string_view fragment) const {
    for (const auto& line : lines()) {
        if (line.message.find(fragment) != std::string::npos) return true;
    }
    return false;
}

}  // namespace kestrow::testing
