#include "backup/deja_dup_source.h"

#include <algorithm>
#include <utility>

namespace kestrow {
namespace {

std::string_view baseName(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// By what it calls itself, its executable, or its first or second argument: a tool written in
// Python runs as the interpreter with the script second.
bool runs(const RunningProcess& process, std::string_view program) {
    if (program.empty()) return false;
    if (process.name == program) return true;
    if (process.path && baseName(*process.path) == program) return true;
    const auto& arguments = process.arguments;
    if (!arguments.empty() && baseName(arguments[0]) == program) return true;
    return arguments.size() > 1 && baseName(arguments[1]) == program;
}

bool hasArgument(const RunningProcess& process, std::string_view argument) {
    return std::find(process.arguments.begin(), process.arguments.end(), argument) !=
           process.arguments.end();
}

bool namesDejaDupFolder(const RunningProcess& process) {
    return std::any_of(process.arguments.begin() + (process.arguments.empty() ? 0 : 1),
                       process.arguments.end(), [](const std::string& argument) {
                           return argument.find("/deja-dup") != std::string::npos;
                       });
}

}  // namespace

void DejaDupSource::NoFailureRecords::lookup(WallTime /*attempt*/, std::int64_t /*lastResult*/,
                                             std::function<void(FailureReasonAnswer)> done) {
    main_.post([done = std::move(done)] { done(FailureReasonAnswer{std::nullopt, true}); });
}

DejaDupSource::DejaDupSource(Dependencies dependencies)
    : d_(std::move(dependencies)), failures_(d_.mainExecutor) {}

DejaDupSource::~DejaDupSource() {
    stop();
}

BackupSourceName DejaDupSource::name() const {
    return {BackupSourceKind::dejaDup, "Déjà Dup"};
}

void DejaDupSource::start() {
    stored_.reset();  // the first read always says what it found
    read();
    if (!watch_) {
        watch_ = d_.settings.watch([this, alive = std::weak_ptr<bool>(alive_)] {
            if (!alive.expired()) settingsChanged();
        });
    }
}

bool DejaDupSource::configured() {
    // While it is not watched, nothing keeps the answer current: read it now.
    if (!watch_) {
        const auto settings = d_.settings.read();
        return settings && settings->configured();
    }
    return configured_;
}

void DejaDupSource::stop() {
    watch_.reset();
    if (pendingRead_) d_.mainExecutor.cancel(*pendingRead_);
    pendingRead_.reset();
}

void DejaDupSource::settingsChanged() {
    if (pendingRead_) return;
    pendingRead_ = d_.mainExecutor.postAfter(kSettleSeconds, [this] {
        pendingRead_.reset();
        read();
    });
}

void DejaDupSource::read() {
    const auto settings = d_.settings.read();
    configured_ = settings && settings->configured();
    if (settings) tool_ = settings->tool;
    std::optional<Preferences> snapshot;
    if (configured_) snapshot = settings->preferences();
    if (stored_ && *stored_ == snapshot) return;

    if (snapshot) {
        d_.shared.store(*snapshot);
    } else {
        d_.shared.remove();
        d_.log.info("Déjà Dup {}", settings ? "is not set up to back up" : "is not installed");
    }
    stored_ = std::move(snapshot);
    changed.emit();
}

std::optional<bool> DejaDupSource::backingUp(const ProcessListing& processes,
                                             std::string_view tool) {
    if (!processes) return std::nullopt;
    return std::any_of(processes->begin(), processes->end(), [tool](const RunningProcess& p) {
        if (runs(p, kProgram)) return hasArgument(p, "--backup");
        return runs(p, tool) && namesDejaDupFolder(p) && !hasArgument(p, "restore");
    });
}

void DejaDupSource::liveStatus(std::function<void(LiveBackupReading)> done) {
    const auto running = backingUp(d_.processes.current(), tool_);
    LiveBackupReading reading;
    reading.status.running = running.value_or(false);
    reading.running = running;
    d_.mainExecutor.post([done = std::move(done), reading] { done(reading); });
}

void DejaDupSource::startBackup(std::function<void(StartBackupOutcome)> done) {
    StartBackupOutcome outcome{StartBackupOutcome::Accepted{}};
    if (auto error = d_.launcher.startDetached(kProgram, {"--backup"})) {
        d_.log.error("Déjà Dup could not be started: {}", *error);
        outcome.value = StartBackupOutcome::LaunchFailed{std::move(*error)};
    }
    d_.mainExecutor.post([done = std::move(done), outcome] { done(outcome); });
}

}  // namespace kestrow
