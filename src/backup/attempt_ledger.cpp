#include "backup/attempt_ledger.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <system_error>

#include "backup/backup_failure_kind.h"
#include "support/atomic_file.h"
#include "support/iso_date.h"
#include "support/nesting_depth.h"
#include "support/short_text.h"

namespace kestrow {

struct AttemptLedger::Entry {
    BackupAttempt attempt;
    long pid = 0;                  // the process that ran it, for an open attempt
    std::uint64_t pidStarted = 0;  // that process's start, so a reused pid is not mistaken
};

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// restic's words are kept for the log and --json, not as a transcript.
constexpr std::size_t kLongestError = 400;

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// The folder, not the file, is locked: a compaction replaces the file, and a lock on the old
// one would not keep out a process that opens the new one.
class FolderLock {
public:
    explicit FolderLock(const fs::path& folder)
        : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (fd_.get() < 0) return;
        int result = 0;
        while ((result = ::flock(fd_.get(), LOCK_EX)) != 0 && errno == EINTR) {
        }
        held_ = result == 0;
    }
    bool held() const { return held_; }

private:
    Descriptor fd_;
    bool held_ = false;
};

void fail(std::string* error, std::string text) {
    if (error != nullptr) *error = std::move(text);
}

// Times keep their nanoseconds, so that the line that ends an attempt names exactly the start
// of the line that began it.
std::string preciseDate(WallTime time) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const auto nanos = std::chrono::duration_cast<std::chrono::nanoseconds>(time - whole).count();
    std::string text = formatIsoDate(time);
    text.pop_back();  // the "Z"
    return fmt::format("{}.{:09}Z", text, nanos);
}

std::optional<WallTime> dateAt(const json& line, const char* key) {
    const auto found = line.find(key);
    if (found == line.end() || !found->is_string()) return std::nullopt;
    return parseIsoDate(found->get_ref<const std::string&>());
}

std::optional<std::string> textAt(const json& line, const char* key) {
    const auto found = line.find(key);
    if (found == line.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

// The kernel's start time of a process, in clock ticks since boot; nothing when it is gone.
std::optional<std::uint64_t> processStarted(long pid) {
    const auto stat = readFile(fmt::format("/proc/{}/stat", pid), nullptr, 4096);
    if (!stat) return std::nullopt;
    // The command name may hold blanks and parentheses; the fields after the last ")" do not.
    const auto close = stat->rfind(')');
    if (close == std::string::npos) return std::nullopt;
    std::size_t pos = close + 1;
    // Field 22 (starttime) is the 20th after the command name.
    for (int field = 0; field < 20; ++field) {
        pos = stat->find_first_not_of(' ', pos);
        if (pos == std::string::npos) return std::nullopt;
        if (field == 19) return std::strtoull(stat->c_str() + pos, nullptr, 10);
        pos = stat->find(' ', pos);
        if (pos == std::string::npos) return std::nullopt;
    }
    return std::nullopt;
}

std::optional<AttemptLedger::Entry> parseEntryLine(std::string_view text) {
    // Our lines are flat; a deeply nested one is not ours and is not parsed.
    if (!jsonNestingWithin(text, 4)) return std::nullopt;
    const json line = json::parse(text, nullptr, false);
    if (!line.is_object()) return std::nullopt;
    AttemptLedger::Entry entry;
    auto& attempt = entry.attempt;
    const auto job = textAt(line, "job");
    const auto start = dateAt(line, "start");
    if (!job || job->empty() || !start) return std::nullopt;
    attempt.jobId = *job;
    attempt.start = *start;
    attempt.end = dateAt(line, "end");
    if (const auto exit = line.find("exit"); exit != line.end() && exit->is_number_integer()) {
        const auto value = exit->get<std::int64_t>();
        if (value >= -1024 && value <= 1024) attempt.exitStatus = static_cast<int>(value);
    }
    if (const auto failure = textAt(line, "failure")) {
        // A kind a newer Kestrow wrote still reads as a failure.
        attempt.failure = backupFailureKindNamed(*failure).value_or(BackupFailureKind::other);
    }
    if (auto error = textAt(line, "error")) attempt.error = shortText(*error, kLongestError);
    if (auto snapshot = textAt(line, "snapshot")) attempt.snapshot = std::move(*snapshot);
    if (const auto pid = line.find("pid"); pid != line.end() && pid->is_number_unsigned()) {
        entry.pid = static_cast<long>(std::min<std::uint64_t>(pid->get<std::uint64_t>(), 1u << 30));
    }
    if (const auto since = line.find("pidStarted");
        since != line.end() && since->is_number_unsigned()) {
        entry.pidStarted = since->get<std::uint64_t>();
    }
    return entry;
}

std::string entryLine(const AttemptLedger::Entry& entry) {
    const auto& attempt = entry.attempt;
    json line = {{"job", attempt.jobId}, {"start", preciseDate(attempt.start)}};
    if (attempt.end) line["end"] = preciseDate(*attempt.end);
    if (attempt.exitStatus) line["exit"] = *attempt.exitStatus;
    if (attempt.failure) line["failure"] = backupFailureKindName(*attempt.failure);
    if (attempt.error) line["error"] = shortText(*attempt.error, kLongestError);
    if (attempt.snapshot) line["snapshot"] = *attempt.snapshot;
    if (!attempt.end && entry.pid > 0) {
        line["pid"] = entry.pid;
        line["pidStarted"] = entry.pidStarted;
    }
    // Invalid UTF-8 from restic's stderr is replaced rather than refused.
    return line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

// The newest line per job and start, each job's attempts oldest first, at most `keep` each.
std::vector<AttemptLedger::Entry> merged(std::vector<AttemptLedger::Entry> lines,
                                         std::size_t keep) {
    std::map<std::pair<std::string, WallTime>, std::size_t> where;
    std::vector<AttemptLedger::Entry> entries;
    for (auto& line : lines) {
        const auto key = std::make_pair(line.attempt.jobId, line.attempt.start);
        const auto found = where.find(key);
        if (found == where.end()) {
            where.emplace(key, entries.size());
            entries.push_back(std::move(line));
        } else {
            entries[found->second] = std::move(line);
        }
    }
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.attempt.start < b.attempt.start;
    });
    std::map<std::string, std::size_t> remaining;
    for (const auto& entry : entries) ++remaining[entry.attempt.jobId];
    std::vector<AttemptLedger::Entry> kept;
    for (auto& entry : entries) {
        auto& left = remaining[entry.attempt.jobId];
        if (left-- <= keep) kept.push_back(std::move(entry));
    }
    return kept;
}

}  // namespace

AttemptLedger::AttemptLedger(fs::path file) : AttemptLedger(std::move(file), Limits{}) {}

AttemptLedger::AttemptLedger(fs::path file, Limits limits)
    : file_(std::move(file)), limits_(limits) {}

std::optional<BackupAttempt> AttemptLedger::parseLine(std::string_view line) {
    auto entry = parseEntryLine(line);
    if (!entry) return std::nullopt;
    return std::move(entry->attempt);
}

std::string AttemptLedger::lineFor(const BackupAttempt& attempt) {
    return entryLine(Entry{attempt});
}

// Flood-safe: only the last `readAtMost` bytes are read (the newest lines are at the end), in
// fixed chunks, and a line is kept only up to `longestLine` bytes (a longer one is dropped whole
// as it streams past), so neither a huge file nor one endless line is ever held in memory.
std::vector<AttemptLedger::Entry> AttemptLedger::readEntries() const {
    std::vector<Entry> lines;
    const Descriptor fd(::open(file_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (fd.get() < 0 || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return lines;
    const auto size = static_cast<std::uintmax_t>(info.st_size);
    off_t offset = size > limits_.readAtMost ? static_cast<off_t>(size - limits_.readAtMost) : 0;
    bool skipping = offset > 0;  // the first line read from the middle is a piece of one
    std::string line;
    std::string chunk(64 * 1024, '\0');
    for (;;) {
        const ssize_t got = ::pread(fd.get(), chunk.data(), chunk.size(), offset);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        offset += got;
        std::string_view rest(chunk.data(), static_cast<std::size_t>(got));
        while (!rest.empty()) {
            const auto newline = rest.find('\n');
            const auto piece = rest.substr(0, newline);
            if (!skipping) {
                if (line.size() + piece.size() > limits_.longestLine) {
                    skipping = true;
                    line.clear();
                } else {
                    line.append(piece);
                }
            }
            if (newline == std::string_view::npos) break;
            if (!skipping) {
                if (auto entry = parseEntryLine(line)) lines.push_back(std::move(*entry));
            }
            line.clear();
            skipping = false;
            rest.remove_prefix(newline + 1);
        }
    }
    // The last line has no newline only when a write was cut short; it is read if it is whole.
    if (!skipping && !line.empty()) {
        if (auto entry = parseEntryLine(line)) lines.push_back(std::move(*entry));
    }
    return lines;
}

std::map<std::string, std::vector<BackupAttempt>> AttemptLedger::load() const {
    std::map<std::string, std::vector<BackupAttempt>> jobs;
    for (auto& entry : merged(readEntries(), limits_.keepPerJob)) {
        jobs[entry.attempt.jobId].push_back(std::move(entry.attempt));
    }
    return jobs;
}

bool AttemptLedger::append(const BackupAttempt& attempt, bool open, std::string* error) {
    Entry entry{attempt};
    if (open) {
        entry.pid = static_cast<long>(::getpid());
        entry.pidStarted = processStarted(entry.pid).value_or(0);
    }
    std::error_code ignored;
    fs::create_directories(file_.parent_path(), ignored);
    const FolderLock lock(file_.parent_path());
    if (!lock.held()) {
        fail(error,
             fmt::format("cannot lock {}: {}", file_.parent_path().string(), std::strerror(errno)));
        return false;
    }
    const Descriptor fd(::open(file_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
    struct stat info {};
    if (fd.get() < 0 || ::fstat(fd.get(), &info) != 0) {
        fail(error, fmt::format("cannot open {}: {}", file_.string(), std::strerror(errno)));
        return false;
    }
    // A write cut short by a crash left a line without its end; this line starts on its own.
    // (Opened for reading too, so that the last byte can be looked at.)
    char last = '\n';
    if (info.st_size > 0 && ::pread(fd.get(), &last, 1, info.st_size - 1) != 1) last = '\n';
    std::string text = last == '\n' ? std::string() : std::string("\n");
    text += entryLine(entry);
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t wrote = ::write(fd.get(), rest.data(), rest.size());
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) {
            fail(error, fmt::format("cannot write {}: {}", file_.string(), std::strerror(errno)));
            return false;
        }
        rest.remove_prefix(static_cast<std::size_t>(wrote));
    }
    ::fdatasync(fd.get());
    return true;
}

bool AttemptLedger::begin(const BackupAttempt& attempt, std::string* error) {
    return append(attempt, true, error);
}

bool AttemptLedger::finish(const BackupAttempt& attempt, std::string* error) {
    if (!append(attempt, false, error)) return false;
    std::error_code failed;
    const auto size = fs::file_size(file_, failed);
    if (!failed && size > limits_.compactAbove) return compact(error);
    return true;
}

bool AttemptLedger::compact(std::string* error) {
    const FolderLock lock(file_.parent_path());
    if (!lock.held()) {
        fail(error, fmt::format("cannot lock {}", file_.parent_path().string()));
        return false;
    }
    std::string text;
    for (const auto& entry : merged(readEntries(), limits_.keepPerJob)) text += entryLine(entry);
    return writeFileAtomically(file_, text, error);
}

std::vector<BackupAttempt> AttemptLedger::closeAbandoned(WallTime now) {
    std::vector<BackupAttempt> closed;
    for (auto& entry : merged(readEntries(), limits_.keepPerJob)) {
        if (entry.attempt.end) continue;
        if (entry.pid > 0 && entry.pidStarted != 0 &&
            processStarted(entry.pid) == entry.pidStarted) {
            continue;  // its runner is still at it
        }
        BackupAttempt attempt = std::move(entry.attempt);
        attempt.end = std::max(now, attempt.start);
        attempt.failure = BackupFailureKind::interrupted;
        if (append(attempt, false, nullptr)) closed.push_back(std::move(attempt));
    }
    return closed;
}

}  // namespace kestrow
