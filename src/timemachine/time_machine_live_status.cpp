#include "timemachine/time_machine_live_status.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

#include "support/plist_value.h"

namespace kestrow {
namespace {

// The top-level dictionary of the tool's answer; nothing when the answer is not one.
std::optional<PlistValue> statusDictionary(const std::optional<std::string>& statusOutput) {
    if (!statusOutput) return std::nullopt;
    auto parsed = PlistValue::parse(*statusOutput);
    if (!parsed || parsed->asDict() == nullptr) return std::nullopt;
    return parsed;
}

std::optional<double> numberAt(const PlistValue* value) {
    if (value == nullptr) return std::nullopt;
    return value->asNumber();
}

// The numbers under `key` at the top level and then in "Progress", in that order. A "Progress"
// that is missing or not a dictionary adds nothing.
std::vector<double> numberCandidates(const PlistValue& status, std::string_view key) {
    std::vector<double> found;
    if (const auto top = numberAt(status.find(key))) found.push_back(*top);
    if (const auto* progress = status.find("Progress")) {
        if (const auto inner = numberAt(progress->find(key))) found.push_back(*inner);
    }
    return found;
}

constexpr std::array<std::pair<std::string_view, std::string_view>, 16> kPhaseWords{{
    {"Starting", "starting"},
    {"MountingBackupVol", "mounting destination"},
    {"MountingBackupVolForHealthCheck", "checking destination"},
    {"MountingDiskImage", "opening the backup disk image"},
    {"HealthCheckCopyHFSMeta", "verifying backup"},
    {"SizingChanges", "sizing changes"},
    {"LazyThinning", "tidying up"},
    {"PreparingSourceVolumes", "preparing"},
    {"FindingChanges", "finding changes"},
    {"Copying", "copying files"},
    {"Finishing", "finishing"},
    {"ThinningPreBackup", "making space"},
    {"ThinningPostBackup", "tidying up"},
    {"HealthCheckFsck", "verifying backup"},
    {"DeletingOldBackups", "deleting old backups"},
    {"Stopping", "stopping"},
}};

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
// Bytes of non-ASCII characters belong to words but carry no case, so UTF-8 stays whole.
bool isWordByte(char c) {
    return isUpper(c) || isLower(c) || isDigit(c) || static_cast<unsigned char>(c) >= 0x80;
}
char toLower(char c) {
    return isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blank = " \t\r\n\v\f";
    const auto first = text.find_first_not_of(blank);
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(blank);
    return text.substr(first, last - first + 1);
}

// Phases the table does not know yet still read as words: "VerifyingSnapshots" becomes
// "verifying snapshots". A run of capitals is one word (an acronym) whose last capital starts
// the next word when a lower-case letter follows it, so "CopyHFSMeta" reads "copy hfs meta"
// and "CheckAPFS" reads "check apfs". Anything that is not a letter, digit or non-ASCII byte
// separates words and is dropped.
std::string splitAtCaseChanges(std::string_view key) {
    std::string words;
    bool wordOpen = false;
    for (std::size_t i = 0; i < key.size(); ++i) {
        const char c = key[i];
        if (!isWordByte(c)) {
            wordOpen = false;
            continue;
        }
        bool startsWord = !wordOpen;
        if (wordOpen && isUpper(c) && i > 0) {
            const char before = key[i - 1];
            const bool afterLowerOrDigit = isLower(before) || isDigit(before);
            const bool endsAcronym = isUpper(before) && i + 1 < key.size() && isLower(key[i + 1]);
            startsWord = afterLowerOrDigit || endsAcronym;
        }
        if (startsWord && !words.empty()) words += ' ';
        words += toLower(c);
        wordOpen = true;
    }
    return words;
}

}  // namespace

TimeMachineLiveStatus TimeMachineLiveStatus::from(const std::optional<std::string>& statusOutput) {
    TimeMachineLiveStatus live;
    const auto status = statusDictionary(statusOutput);
    if (!status) return live;
    if (const auto* running = status->find("Running")) {
        const auto* value = running->asInteger();
        live.running = value != nullptr && *value == 1;
    }
    if (const auto* phase = status->find("BackupPhase")) {
        if (const auto* text = phase->asString()) live.phase = *text;
    }
    // A top-level "Percent" that is not a number counts as missing.
    live.percent = numberAt(status->find("Percent"));
    if (!live.percent) {
        if (const auto* progress = status->find("Progress"))
            live.percent = numberAt(progress->find("Percent"));
    }
    return live;
}

TimeMachineLiveStatus::Details TimeMachineLiveStatus::statusDetails(
    const std::optional<std::string>& statusOutput) {
    Details details;
    const auto status = statusDictionary(statusOutput);
    if (!status) return details;
    if (const auto* running = status->find("Running")) {
        if (const auto* value = running->asInteger()) details.running = *value == 1;
    }
    for (const double candidate : numberCandidates(*status, "Percent")) {
        if (candidate >= 0.0 && candidate <= 1.0) {
            details.percent = candidate;
            break;
        }
    }
    // An endless estimate tells the reader nothing, so only finite ones count.
    for (const double candidate : numberCandidates(*status, "TimeRemaining")) {
        if (std::isfinite(candidate) && candidate > 0.0) {
            details.timeRemaining = candidate;
            break;
        }
    }
    return details;
}

std::optional<std::string> TimeMachineLiveStatus::phaseWords(
    const std::optional<std::string>& phase) {
    if (!phase) return std::nullopt;
    const std::string_view key = trimmed(*phase);
    if (key.empty() || key == "BackupNotRunning") return std::nullopt;
    for (const auto& [known, words] : kPhaseWords) {
        if (known == key) return std::string(words);
    }
    std::string words = splitAtCaseChanges(key);
    if (words.empty()) return std::nullopt;
    return words;
}

std::string TimeMachineLiveStatus::progressLine() const {
    std::string line = "Backing up";
    if (const auto words = phaseWords(phase)) line += " — " + *words;
    if (percent && std::isfinite(*percent)) {
        // Shown within 0–100 whatever the tool claims. The tiny nudge keeps values such as 0.57,
        // whose product with 100 lands just below 57 in binary, from losing a whole percent.
        const double shown = std::floor(std::clamp(*percent, 0.0, 1.0) * 100.0 + 1e-9);
        line += " · " + std::to_string(static_cast<int>(shown)) + "%";
    }
    return line;
}

}  // namespace kestrow
