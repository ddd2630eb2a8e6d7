#include "support/logger.h"

namespace kestrow {

std::string_view areaWord(LogArea area) {
    switch (area) {
        case LogArea::general:
            return "";
        case LogArea::mounting:
            return "Mounting";
        case LogArea::caffeine:
            return "Caffeine";
        case LogArea::keepAwake:
            return "Keep awake";
        case LogArea::nightlyBackup:
            return "Nightly backup";
        case LogArea::backUpNow:
            return "Back Up Now";
        case LogArea::browserCaches:
            return "Browser caches";
        case LogArea::maintenance:
            return "Maintenance";
        case LogArea::hogWatch:
            return "Hog watch";
    }
    return "";
}

bool OnceLog::shouldLog(std::string_view note) {
    if (last_ && *last_ == note) return false;
    last_ = std::string(note);
    return true;
}

void Logger::log(LogLevel level, std::string_view text) const {
    const std::string_view word = areaWord(area_);
    if (word.empty()) {
        sink_->write(level, text);
    } else {
        sink_->write(level, fmt::format("{}: {}", word, text));
    }
}

bool Logger::once(OnceLog& memory, LogLevel level, std::string_view text) const {
    if (!memory.shouldLog(text)) return false;
    log(level, text);
    return true;
}

}  // namespace kestrow
