#include "support/log_sink.h"

#include <cstdio>
#include <mutex>

namespace kestrow {

std::string_view levelName(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return "debug";
        case LogLevel::info:
            return "info";
        case LogLevel::notice:
            return "notice";
        case LogLevel::error:
            return "error";
        case LogLevel::fault:
            return "fault";
    }
    return "notice";
}

void StderrLogSink::write(LogLevel level, std::string_view message) {
    if (level < minimum_) return;
    static std::mutex lineMutex;  // keeps lines from two threads from interleaving
    std::lock_guard lock(lineMutex);
    std::fprintf(stderr, "kestrow [%.*s] %.*s\n", static_cast<int>(levelName(level).size()),
                 levelName(level).data(), static_cast<int>(message.size()), message.data());
}

}  // namespace kestrow
