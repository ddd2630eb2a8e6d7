#pragma once

#include <filesystem>
#include <memory>

#include "support/log_sink.h"

namespace kestrow {

// Log lines into the systemd journal, with Kestrow's identifier, subsystem and category as
// fields so that `journalctl SYSLOG_IDENTIFIER=kestrow` or `KESTROW_CATEGORY=app` finds them.
class JournalLogSink final : public LogSink {
public:
    void write(LogLevel level, std::string_view message) override;
};

// The system's log: the journal when its socket is there, standard error otherwise (the journal
// client drops messages silently, and reports success, when nothing listens).
std::unique_ptr<LogSink> makeSystemLogSink(
    const std::filesystem::path& journalSocket = "/run/systemd/journal/socket");

}  // namespace kestrow
