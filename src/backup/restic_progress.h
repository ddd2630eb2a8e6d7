#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backup/backup_source.h"
#include "support/clock.h"

namespace kestrow {

// What restic said at the end of a backup.
struct ResticBackupSummary {
    std::optional<std::string> snapshotId;
    std::uint64_t filesNew = 0;
    std::uint64_t filesChanged = 0;
    std::uint64_t filesUnmodified = 0;
    std::uint64_t dataAdded = 0;  // bytes added to the repository
    std::uint64_t totalFilesProcessed = 0;
    std::uint64_t totalBytesProcessed = 0;
    std::optional<WallTime> backupStart;  // newer restic only
    std::optional<WallTime> backupEnd;
    bool operator==(const ResticBackupSummary&) const = default;
};

// Follows one `restic backup --json` run, a line of its standard output at a time, and says what
// the menu should show. Any line may be garbage (restic mixes in plain text when a terminal
// setting leaks through, and a killed run ends mid-line): such lines are passed over.
class ResticProgress {
public:
    // restic's longest real lines list the files in flight; far longer ones are not read.
    static constexpr std::size_t kLongestLine = 256 * 1024;
    static constexpr std::size_t kErrorsKept = 20;
    static constexpr std::size_t kLongestError = 300;

    void read(std::string_view line);

    // Running, with the phase key ("Starting", "FindingChanges", "Copying", "Finishing") whose
    // words the menu shows, the share done (0 to 1) and restic's estimate of the time left.
    LiveBackupReading reading() const;

    const std::optional<ResticBackupSummary>& summary() const { return summary_; }
    std::optional<std::string> snapshotId() const;
    // The first kErrorsKept errors restic reported, each shortened; errorCount() counts all.
    const std::vector<std::string>& errors() const { return errors_; }
    std::size_t errorCount() const { return errorCount_; }
    // Newer restic's last word before it exits with a failure.
    const std::optional<int>& exitCode() const { return exitCode_; }
    const std::optional<std::string>& exitMessage() const { return exitMessage_; }
    // The files restic is reading now.
    const std::vector<std::string>& currentFiles() const { return currentFiles_; }

private:
    void keepError(std::string_view text);

    bool statusSeen_ = false;
    bool somethingDone_ = false;
    std::optional<double> percent_;
    std::optional<double> secondsRemaining_;
    std::vector<std::string> currentFiles_;
    std::optional<ResticBackupSummary> summary_;
    std::vector<std::string> errors_;
    std::size_t errorCount_ = 0;
    std::optional<int> exitCode_;
    std::optional<std::string> exitMessage_;
};

}  // namespace kestrow
