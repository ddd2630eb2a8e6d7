#include "cleaners/cleaner_pass.h"

#include <sys/stat.h>

#include <exception>

#include <fmt/ranges.h>

#include "cleaners/cleaner_path.h"
#include "support/byte_count_format.h"

namespace kestrow {
namespace {

// A cleaner or a Trash that throws must not take the other cleaners' passes down with it.
CleanerDiscovery discoverGuarded(const Cleaner& cleaner) {
    try {
        return cleaner.discover();
    } catch (const std::exception& error) {
        return CleanerDiscovery{{}, CleanerDiscovery::Error{PathStatus::failed, error.what()}, {}};
    } catch (...) {
        return CleanerDiscovery{
            {}, CleanerDiscovery::Error{PathStatus::failed, "discovery failed"}, {}};
    }
}

// When it cannot be told whether the owner runs, it is taken to run.
bool runningGuarded(const CleanerPass::IsRunning& isRunning, const Cleaner& cleaner) {
    try {
        return !isRunning || isRunning(cleaner.owner());
    } catch (...) {
        return true;
    }
}

bool reclaimableGuarded(const Cleaner& cleaner, const std::filesystem::path& target) {
    try {
        return cleaner.isReclaimable(target);
    } catch (...) {
        return false;
    }
}

std::optional<std::string> trashGuarded(const CleanerPass::Trash& trash,
                                        const TrashRequest& request) {
    try {
        return trash(request);
    } catch (const std::exception& error) {
        return std::string(error.what());
    } catch (...) {
        return std::string("could not move ") + request.item.string() + " to the Trash";
    }
}

// The cleaner's own check, and the one every cleaner shares: the target lies below one of the
// discovery's anchors through real folders only, so no link on the way can point it elsewhere.
std::optional<std::filesystem::path> checkedAnchor(const Cleaner& cleaner,
                                                   const CleanerDiscovery& discovery,
                                                   const std::filesystem::path& target) {
    if (!reclaimableGuarded(cleaner, target)) return std::nullopt;
    const auto anchor = CleanerPath::anchorOf(discovery.anchors, target);
    if (!anchor || !CleanerPath::isRealFolderPath(*anchor, target)) return std::nullopt;
    return anchor;
}

// What the target is now, for the Trash to compare with what it is about to move.
std::optional<TrashItemIdentity> identityOf(const std::filesystem::path& target) {
    struct stat info {};
    if (::lstat(target.c_str(), &info) != 0) return std::nullopt;
    TrashItemIdentity identity;
    if (S_ISDIR(info.st_mode)) {
        identity.kind = TrashItemIdentity::Kind::directory;
    } else if (S_ISREG(info.st_mode)) {
        identity.size = static_cast<std::int64_t>(info.st_size);
    } else {
        return std::nullopt;
    }
    identity.device = static_cast<std::uint64_t>(info.st_dev);
    identity.inode = static_cast<std::uint64_t>(info.st_ino);
    return identity;
}

}  // namespace

CleanerOutcome CleanerPass::run(const Cleaner& cleaner, const IsRunning& isRunning,
                                const Trash& trash) {
    CleanerOutcome outcome;
    if (runningGuarded(isRunning, cleaner)) {
        outcome.skippedRunning = true;
        return outcome;
    }
    const std::string name = cleaner.name();
    const CleanerDiscovery discovery = discoverGuarded(cleaner);
    std::vector<std::filesystem::path> targets = discovery.targets;
    if (discovery.error) {
        if (discovery.error->status == PathStatus::notPermitted) {
            outcome.blockedReason = discovery.error->text;
            return outcome;
        }
        outcome.failures.push_back(name + ": " + discovery.error->text);
        targets.clear();
    }
    for (const std::filesystem::path& target : targets) {
        const std::string refused = name + ": refused " + target.string();
        const auto anchor = checkedAnchor(cleaner, discovery, target);
        const auto identity = anchor ? identityOf(target) : std::nullopt;
        if (!identity) {
            outcome.failures.push_back(refused);
            continue;
        }
        const std::int64_t bytes = CleanerPath::byteSizeCounting(target).bytes;
        // Measuring takes time; the move goes ahead only for the object checked and measured.
        if (!checkedAnchor(cleaner, discovery, target)) {
            outcome.failures.push_back(refused);
            continue;
        }
        if (const std::optional<std::string> error =
                trashGuarded(trash, TrashRequest{*anchor, target, *identity})) {
            outcome.failures.push_back(name + ": " + *error);
            continue;
        }
        outcome.freedBytes += bytes;
        outcome.trashedCount += 1;
    }
    outcome.completed = true;
    return outcome;
}

ReclaimReport CleanerPass::runAll(const std::vector<const Cleaner*>& cleaners,
                                  const IsRunning& isRunning, const Trash& trash) {
    ReclaimReport report;
    for (const Cleaner* cleaner : cleaners) {
        if (cleaner == nullptr) continue;
        const CleanerOutcome outcome = run(*cleaner, isRunning, trash);
        const std::string name = cleaner->name();
        report.freedBytes += outcome.freedBytes;
        report.trashedCount += outcome.trashedCount;
        if (outcome.skippedRunning) report.skippedRunning.push_back(name);
        if (outcome.trashedCount >= 1) report.reclaimedNames.push_back(name);
        if (outcome.blockedReason) {
            report.blocked.push_back(name);
            report.blockedReasons.push_back(*outcome.blockedReason);
        }
        report.failures.insert(report.failures.end(), outcome.failures.begin(),
                               outcome.failures.end());
        if (outcome.completed) report.completed[cleaner->id()] = outcome.freedBytes;
    }
    return report;
}

ReclaimReport CleanerPass::runAllOn(const std::vector<const Cleaner*>& cleaners,
                                    RunningProcesses& processes, kestrow::Trash& trash) {
    try {
        return runAll(
            cleaners,
            [&processes](const CleanerOwner& owner) {
                return owner.isRunningNow(
                    [&processes](const std::string& id) {
                        return processes.applicationRunning(id);
                    },
                    [&processes] { return processes.current(); });
            },
            [&trash](const TrashRequest& request) -> std::optional<std::string> {
                TrashMove move = trash.moveToTrash(request);
                if (move.ok()) return std::nullopt;
                return move.failure;
            });
    } catch (const std::exception& error) {
        ReclaimReport report;
        report.failures.push_back(fmt::format("the pass stopped: {}", error.what()));
        return report;
    } catch (...) {
        ReclaimReport report;
        report.failures.emplace_back("the pass stopped");
        return report;
    }
}

void CleanerPass::log(const Logger& log, const ReclaimReport& report,
                      const std::vector<std::string>& doneNames) {
    if (!report.failures.empty()) log.error("{}", fmt::join(report.failures, "; "));
    log.info("moved {} to Trash ({}) from [{}]; done [{}]; running [{}]; blocked [{}]",
             report.trashedCount, formatByteCount(report.freedBytes),
             fmt::join(report.reclaimedNames, ", "), fmt::join(doneNames, ", "),
             fmt::join(report.skippedRunning, ", "), fmt::join(report.blocked, ", "));
}

}  // namespace kestrow
