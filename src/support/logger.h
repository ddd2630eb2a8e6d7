#pragma once

#include <fmt/format.h>

#include <optional>
#include <string>
#include <string_view>

#include "support/log_sink.h"

namespace kestrow {

// One logger per area. Every line of an area starts with its word and a colon ("Mounting: …"),
// so a search of the log for one subsystem finds all of it.
enum class LogArea {
    general,
    mounting,
    caffeine,
    keepAwake,
    nightlyBackup,
    backUpNow,
    browserCaches,
    maintenance,
    hogWatch,
};

std::string_view areaWord(LogArea area);

// Remembers the last note logged through it, so a condition seen on every tick is logged once
// and again only when it changes.
class OnceLog {
public:
    bool shouldLog(std::string_view note);
    void reset() { last_.reset(); }
    const std::optional<std::string>& last() const { return last_; }

private:
    std::optional<std::string> last_;
};

class Logger {
public:
    Logger(LogSink& sink, LogArea area) : sink_(&sink), area_(area) {}

    void log(LogLevel level, std::string_view text) const;
    // Logs `text` only when it differs from the last note remembered by `memory`.
    bool once(OnceLog& memory, LogLevel level, std::string_view text) const;

    template <typename... A>
    void debug(fmt::format_string<A...> format, A&&... args) const {
        log(LogLevel::debug, fmt::format(format, std::forward<A>(args)...));
    }
    template <typename... A>
    void info(fmt::format_string<A...> format, A&&... args) const {
        log(LogLevel::info, fmt::format(format, std::forward<A>(args)...));
    }
    template <typename... A>
    void notice(fmt::format_string<A...> format, A&&... args) const {
        log(LogLevel::notice, fmt::format(format, std::forward<A>(args)...));
    }
    template <typename... A>
    void error(fmt::format_string<A...> format, A&&... args) const {
        log(LogLevel::error, fmt::format(format, std::forward<A>(args)...));
    }
    template <typename... A>
    void fault(fmt::format_string<A...> format, A&&... args) const {
        log(LogLevel::fault, fmt::format(format, std::forward<A>(args)...));
    }

    LogArea area() const { return area_; }
    LogSink& sink() const { return *sink_; }

private:
    LogSink* sink_;
    LogArea area_;
};

}  // namespace kestrow
