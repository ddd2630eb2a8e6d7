#include "platform/linux/journal_log_sink.h"

// The caller's file and line would always point here, so they are left out of each entry.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <algorithm>
#include <climits>

namespace kestrow {
namespace {

int syslogPriority(LogLevel level) {
    switch (level) {
        case LogLevel::debug:
            return 7;
        case LogLevel::info:
            return 6;
        case LogLevel::notice:
            return 5;
        case LogLevel::error:
            return 3;
        case LogLevel::fault:
            return 2;
    }
    return 5;
}

}  // namespace

void JournalLogSink::write(LogLevel level, std::string_view message) {
    const int length = static_cast<int>(std::min<std::size_t>(message.size(), INT_MAX));
    const char* text = message.empty() ? "" : message.data();
    sd_journal_send("MESSAGE=%.*s", length, text, "PRIORITY=%d", syslogPriority(level),
                    "SYSLOG_IDENTIFIER=kestrow", "KESTROW_SUBSYSTEM=bar.vemb.orvel",
                    "KESTROW_CATEGORY=app", nullptr);
}

std::unique_ptr<LogSink> makeSystemLogSink(const std::filesystem::path& journalSocket) {
    std::error_code error;
    if (std::filesystem::is_socket(journalSocket, error)) return std::make_unique<JournalLogSink>();
    return std::make_unique<StderrLogSink>();
}

}  // namespace kestrow
