#include "backup/restic_progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "backup/restic_json.h"
#include "support/short_text.h"

namespace kestrow {
namespace {

using nlohmann::json;
namespace rj = restic_json;

// Only the first few files in flight are kept; restic lists one per reader.
constexpr std::size_t kCurrentFilesKept = 8;
constexpr std::size_t kLongestPath = 4096;

// restic's error member: {"message": "..."} in newer restic, a bare string in some, and in
// restic 0.14 Go's path error itself, {"Op": "open", "Path": "/x", "Err": 13}.
std::string errorWords(const json& error) {
    if (error.is_string()) return error.get<std::string>();
    if (!error.is_object()) return {};
    if (auto message = rj::text(error, "message")) return *message;
    const auto op = rj::text(error, "Op");
    const auto path = rj::text(error, "Path");
    const auto number = rj::count(error, "Err");
    std::string words =
        fmt::format("{}{}{}", op.value_or(""), op && path ? " " : "", path.value_or(""));
    if (number && *number > 0 && *number < 4096) {
        words += fmt::format("{}{}", words.empty() ? "" : ": ",
                             std::strerror(static_cast<int>(*number)));
    }
    return words;
}

}  // namespace

void ResticProgress::keepError(std::string_view text) {
    ++errorCount_;
    if (errors_.size() < kErrorsKept) errors_.push_back(shortText(text, kLongestError));
}

void ResticProgress::read(std::string_view line) {
    if (line.size() > kLongestLine) return;
    const json document = rj::parse(line, kLongestLine);
    if (!document.is_object()) return;
    const auto type = rj::text(document, "message_type");
    if (!type) return;

    if (*type == "verbose_status") {
        // One line per file under --verbose, without totals: a file has been dealt with.
        if (rj::text(document, "item")) statusSeen_ = somethingDone_ = true;
    } else if (*type == "status") {
        statusSeen_ = true;
        if (const auto percent = rj::number(document, "percent_done")) {
            percent_ = std::clamp(*percent, 0.0, 1.0);
        }
        const auto remaining = rj::number(document, "seconds_remaining");
        secondsRemaining_ = remaining && *remaining > 0 ? remaining : std::nullopt;
        const auto bytesDone = rj::count(document, "bytes_done").value_or(0);
        const auto filesDone = rj::count(document, "files_done").value_or(0);
        if (bytesDone > 0 || filesDone > 0 || percent_.value_or(0) > 0) somethingDone_ = true;
        currentFiles_.clear();
        if (const auto files = document.find("current_files");
            files != document.end() && files->is_array()) {
            for (const auto& file : *files) {
                if (currentFiles_.size() == kCurrentFilesKept) break;
                if (file.is_string() && file.get_ref<const std::string&>().size() <= kLongestPath) {
                    currentFiles_.push_back(file.get<std::string>());
                }
            }
        }
    } else if (*type == "summary") {
        ResticBackupSummary summary;
        summary.snapshotId = rj::text(document, "snapshot_id");
        if (summary.snapshotId && summary.snapshotId->size() > 128) summary.snapshotId.reset();
        summary.filesNew = rj::count(document, "files_new").value_or(0);
        summary.filesChanged = rj::count(document, "files_changed").value_or(0);
        summary.filesUnmodified = rj::count(document, "files_unmodified").value_or(0);
        summary.dataAdded = rj::count(document, "data_added").value_or(0);
        summary.totalFilesProcessed = rj::count(document, "total_files_processed").value_or(0);
        summary.totalBytesProcessed = rj::count(document, "total_bytes_processed").value_or(0);
        summary.backupStart = rj::time(document, "backup_start");
        summary.backupEnd = rj::time(document, "backup_end");
        summary_ = std::move(summary);
        secondsRemaining_.reset();
    } else if (*type == "error") {
        const auto error = document.find("error");
        std::string words = error == document.end() ? std::string() : errorWords(*error);
        const auto item = rj::text(document, "item");
        if (item && !item->empty() && words.find(*item) == std::string::npos) {
            words = words.empty() ? *item : fmt::format("{}: {}", *item, words);
        }
        if (!words.empty()) keepError(words);
    } else if (*type == "exit_error") {
        if (const auto code = rj::number(document, "code"); code && *code >= 0 && *code < 256) {
            exitCode_ = static_cast<int>(*code);
        }
        if (const auto message = rj::text(document, "message")) {
            exitMessage_ = shortText(*message, kLongestError);
        }
    }
}

LiveBackupReading ResticProgress::reading() const {
    LiveBackupReading live;
    live.running = true;
    live.status.running = true;
    if (summary_ || percent_.value_or(0) >= 1.0) {
        live.status.phase = "Finishing";
    } else if (!statusSeen_) {
        live.status.phase = "Starting";
    } else if (!somethingDone_) {
        live.status.phase = "FindingChanges";
    } else {
        live.status.phase = "Copying";
    }
    live.status.percent = summary_ ? std::optional(1.0) : percent_;
    live.timeRemaining = secondsRemaining_;
    return live;
}

std::optional<std::string> ResticProgress::snapshotId() const {
    return summary_ ? summary_->snapshotId : std::nullopt;
}

}  // namespace kestrow
