#include "backup/restic_failure.h"

#include <array>
#include <string_view>

#include "support/ascii_case.h"
#include "support/short_text.h"

namespace kestrow {
namespace {

constexpr std::size_t kLongestError = 300;

// restic's exit codes from 0.17 on.
constexpr int kSomeFilesUnreadable = 3;
constexpr int kNoRepository = 10;
constexpr int kLockFailed = 11;
constexpr int kWrongPassword = 12;
constexpr int kInterrupted = 130;

bool mentions(std::string_view text, std::initializer_list<std::string_view> phrases) {
    for (const auto phrase : phrases) {
        if (text.find(phrase) != std::string_view::npos) return true;
    }
    return false;
}

// The line that says why: restic's "Fatal: …" when there is one, else its last words.
std::optional<std::string> errorWords(const ResticRunFacts& facts) {
    const std::string& text = facts.ending.errorText;
    std::string_view chosen;
    std::string_view last;
    std::size_t start = 0;
    while (start < text.size()) {
        auto end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string_view line(text.data() + start, end - start);
        if (line.find_first_not_of(" \t\r") != std::string_view::npos) last = line;
        if (chosen.empty() && mentions(line, {"Fatal: ", "unable to create lock"})) chosen = line;
        start = end + 1;
    }
    if (chosen.empty()) chosen = last;
    if (!chosen.empty()) return shortText(chosen, kLongestError);
    if (!facts.jsonErrors.empty()) return shortText(facts.jsonErrors.back(), kLongestError);
    return std::nullopt;
}

}  // namespace

ResticVerdict ResticFailure::classify(const ResticRunFacts& facts) {
    ResticVerdict verdict;
    verdict.error = errorWords(facts);
    const ResticEnding& ending = facts.ending;
    switch (ending.kind) {
        case ResticEnding::Kind::failedToStart:
            verdict.failure =
                mentions(asciiLowercase(ending.errorText), {"no such file", "not found"}) ||
                        ending.errorText.empty()
                    ? BackupFailureKind::toolMissing
                    : BackupFailureKind::other;
            return verdict;
        case ResticEnding::Kind::stopped:
        case ResticEnding::Kind::killed:
            verdict.failure = BackupFailureKind::interrupted;
            return verdict;
        case ResticEnding::Kind::timedOut:
            verdict.failure = BackupFailureKind::other;
            return verdict;
        case ResticEnding::Kind::exited:
            break;
    }
    if (ending.exitCode == 0 || ending.exitCode == kSomeFilesUnreadable) {
        verdict.someFilesUnreadable = ending.exitCode == kSomeFilesUnreadable;
        if (ending.exitCode == 0) verdict.error.reset();
        return verdict;
    }
    // restic says "no repository" of a drive that is simply not plugged in.
    if (facts.mountPresent == false) {
        verdict.failure = BackupFailureKind::diskNotConnected;
        return verdict;
    }
    std::string text = asciiLowercase(ending.errorText);
    for (const auto& message : facts.jsonErrors) text += "\n" + asciiLowercase(message);

    auto kind = BackupFailureKind::other;
    if (ending.exitCode == kInterrupted ||
        mentions(text, {"signal interrupt received", "context canceled"})) {
        kind = BackupFailureKind::interrupted;
    } else if (mentions(text, {"no space left on device", "disk quota exceeded"})) {
        kind = BackupFailureKind::outOfSpace;
    } else if (ending.exitCode == kWrongPassword ||
               mentions(text, {"wrong password or no key found"})) {
        kind = BackupFailureKind::wrongPassword;
    } else if (ending.exitCode == kLockFailed ||
               mentions(text, {"repository is already locked", "unable to create lock"})) {
        kind = BackupFailureKind::repositoryLocked;
    } else if (mentions(text, {"network is unreachable", "no such host", "connection refused",
                               "no route to host", "i/o timeout", "connection timed out",
                               "temporary failure in name resolution", "connection reset",
                               "server misbehaving"})) {
        // Before the missing repository: restic adds "Is there a repository…?" to these too.
        kind = BackupFailureKind::networkUnreachable;
    } else if (ending.exitCode == kNoRepository || facts.repositoryFolderExists == false ||
               mentions(text, {"is there a repository at the following location",
                               "unable to open config file", "repository does not exist"})) {
        kind = BackupFailureKind::repositoryNotFound;
    }
    verdict.failure = kind;
    return verdict;
}

std::optional<BackupFailureKind> ResticFailure::fromKeyring(SecretAnswer::Status status) {
    switch (status) {
        case SecretAnswer::Status::done:
            return std::nullopt;
        case SecretAnswer::Status::notFound:
            return BackupFailureKind::missingPassword;
        case SecretAnswer::Status::locked:
            return BackupFailureKind::keyringLocked;
        case SecretAnswer::Status::unavailable:
        case SecretAnswer::Status::timedOut:
            return BackupFailureKind::keyringUnavailable;
    }
    return BackupFailureKind::keyringUnavailable;
}

std::optional<std::string> ResticFailure::sentence(BackupFailureKind kind) {
    switch (kind) {
        case BackupFailureKind::diskNotConnected:
            return "The backup disk is not connected";
        case BackupFailureKind::repositoryNotFound:
            return "No backup repository was found at the backup location";
        case BackupFailureKind::wrongPassword:
            return "The repository password is wrong";
        case BackupFailureKind::missingPassword:
            return "No password is stored for this backup";
        case BackupFailureKind::keyringLocked:
            return "The keyring is locked, so the backup password could not be read";
        case BackupFailureKind::keyringUnavailable:
            return "The keyring did not answer";
        case BackupFailureKind::repositoryLocked:
            return "Another backup is using the repository";
        case BackupFailureKind::networkUnreachable:
            return "The backup location cannot be reached over the network";
        case BackupFailureKind::outOfSpace:
            return "The backup disk is full";
        case BackupFailureKind::interrupted:
            return "The backup was interrupted";
        case BackupFailureKind::toolMissing:
            return "restic is not installed";
        case BackupFailureKind::other:
            return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace kestrow
