#include "timemachine/preferences_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "timemachine/time_machine_live_status.h"

namespace kestrow {
namespace {

// Opened without waiting and checked to be a regular file: a FIFO put in the settings file's
// place would otherwise hold the main thread until something writes into it.
bool canRead(const std::filesystem::path& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return false;
    struct stat info {};
    const bool regular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    ::close(fd);
    return regular;
}

}  // namespace

std::filesystem::path PreferencesFile::location(const EnvironmentLookup& environment) {
    if (auto overridden = environment("KESTROW_TM_PLIST"); overridden && !overridden->empty())
        return *overridden;
    return "/Library/Preferences/com.apple.TimeMachine.plist";
}

PreferencesFile::PreferencesFile(Dependencies dependencies) : d_(std::move(dependencies)) {
    if (d_.demo) return;
    applyAccess();
}

PreferencesFile::~PreferencesFile() {
    watch_.reset();
}

void PreferencesFile::applyAccess() {
    if (canRead(d_.file)) {
        hasAccess_.set(true);
        accessProblem_.set(std::nullopt);
        process();
        startObservingForChanges();
    } else {
        hasAccess_.set(false);
        stopReading(std::nullopt);
    }
}

void PreferencesFile::timeMachineAccessChanged() {
    if (d_.demo) return;
    applyAccess();
}

void PreferencesFile::process() {
    if (d_.demo) return;
    if (auto preferences = Preferences::read(d_.file, d_.log)) {
        d_.shared.store(std::move(*preferences));
    } else {
        d_.shared.remove();
    }
    processed.emit();
}

void PreferencesFile::processWithLiveRunningState() {
    // The running state is worth recording even if this reader has gone away meanwhile; the
    // shared store outlives it.
    d_.tools.status([this, shared = &d_.shared,
                     alive = std::weak_ptr<bool>(alive_)](std::optional<std::string> output) {
        shared->setBackupRunning(TimeMachineLiveStatus::statusDetails(output).running);
        if (alive.expired()) return;
        process();
    });
}

void PreferencesFile::stopReading(std::optional<std::string> problem) {
    accessProblem_.set(std::move(problem));
    d_.shared.remove();
    watch_.reset();
    processed.emit();
}

void PreferencesFile::startObservingForChanges() {
    watch_.reset();
    watch_ = d_.watcher.watch(d_.file, [this] { fileChanged(); });
}

void PreferencesFile::fileChanged() {
    // Monotonic time, so a clock set back cannot hold reads off until it catches up.
    const double now = d_.clock.monotonic();
    if (lastChange_ && now - *lastChange_ <= kBurstSeconds) return;
    lastChange_ = now;
    processWithLiveRunningState();
}

}  // namespace kestrow
