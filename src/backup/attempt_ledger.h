#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backup/backup_attempt.h"

namespace kestrow {

// Kestrow's own record of every restic attempt, one JSON line each in "attempts.jsonl".
// Lines are only ever appended (a rewrite happens only to compact), so a crash loses at most the
// line being written: an attempt is written when it begins (without an end) and again when it
// ends, and the newest line for the same job and start wins. A torn or foreign line is skipped on
// reading and the file is left as it is. Safe between Kestrow's processes (the agent and the
// command line append to the same file): every write holds a lock on the file's folder.
class AttemptLedger {
public:
    struct Limits {
        std::size_t keepPerJob = 500;             // attempts kept per job by a compaction
        std::uintmax_t compactAbove = 2'000'000;  // bytes; a compaction follows a finish
        std::uintmax_t readAtMost = 8'000'000;    // bytes, from the end of the file
        std::size_t longestLine = 16 * 1024;      // bytes; a longer line is not one of ours
    };

    explicit AttemptLedger(std::filesystem::path file);
    AttemptLedger(std::filesystem::path file, Limits limits);

    // Records an attempt that has begun. This process is noted as its runner, so that
    // closeAbandoned() in another process leaves it alone while this one lives.
    bool begin(const BackupAttempt& attempt, std::string* error = nullptr);
    // Records how it ended; compacts the file when it has grown past the bound.
    bool finish(const BackupAttempt& attempt, std::string* error = nullptr);

    // Every job's attempts, oldest first.
    std::map<std::string, std::vector<BackupAttempt>> load() const;

    // Attempts left open by a Kestrow process that is gone (it crashed, or the machine went
    // down) end now as interrupted. Returns the attempts it closed.
    std::vector<BackupAttempt> closeAbandoned(WallTime now);

    // The line format, for the fuzzer and the tests.
    static std::optional<BackupAttempt> parseLine(std::string_view line);
    static std::string lineFor(const BackupAttempt& attempt);

    // One line: the attempt and, while it is open, who runs it.
    struct Entry;

private:
    std::vector<Entry> readEntries() const;
    bool append(const BackupAttempt& attempt, bool open, std::string* error);
    bool compact(std::string* error);

    std::filesystem::path file_;
    Limits limits_;
};

}  // namespace kestrow
