#include "support/time_machine_fakes.h"

#include <algorithm>

namespace kestrow::testing {

std::string statusOutput(bool running, std::optional<std::string> phase,
                         std::optional<double> percent) {
    std::string body =
        "<key>Running</key><integer>" + std::string(running ? "1" : "0") + "</integer>";
    if (phase) body += "<key>BackupPhase</key><string>" + *phase + "</string>";
    if (percent) body += "<key>Percent</key><real>" + std::to_string(*percent) + "</real>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\"><dict>" +
           body + "</dict></plist>\n";
}

void FakeTimeMachineTools::status(std::function<void(std::optional<std::string>)> done) {
    statusCalls.push_back(clock_.monotonic());
    executor_.postAfter(answerDelay,
                        [done = std::move(done), output = statusAnswer] { done(output); });
}

void FakeTimeMachineTools::startBackup(std::function<void(StartBackupOutcome)> done) {
    ++startCalls;
    executor_.postAfter(answerDelay,
                        [done = std::move(done), outcome = startAnswer] { done(outcome); });
}

class FakeNetworkProbe::FakeHandle final : public NetworkProbe::Handle {
public:
    FakeHandle(std::weak_ptr<std::vector<Probe>> probes, std::size_t index)
        : probes_(std::move(probes)), index_(index) {}
    ~FakeHandle() override {
        if (auto probes = probes_.lock()) (*probes)[index_].cancelled = true;
    }

private:
    std::weak_ptr<std::vector<Probe>> probes_;
    std::size_t index_;
};

std::unique_ptr<NetworkProbe::Handle> FakeNetworkProbe::connect(const std::string& host,
                                                                std::uint16_t port,
                                                                std::function<void(bool)> done) {
    probes_->push_back({host, port, std::move(done), false, false});
    return std::make_unique<FakeHandle>(probes_, probes_->size() - 1);
}

bool FakeNetworkProbe::answer(std::size_t index, bool reachable) {
    Probe& probe = probes_->at(index);
    if (probe.cancelled || probe.answered) return false;
    probe.answered = true;
    // A copy: the answer may start a new probe, which moves the list.
    auto done = probe.done;
    done(reachable);
    return true;
}

BackupStatusRig::BackupStatusRig()
    : standardStore(folder / "standard.plist", Logger(sink, LogArea::general)),
      sharedStore(folder / "shared.plist", Logger(sink, LogArea::general)),
      shared(sharedStore, widgets, Logger(sink, LogArea::general)),
      tools(scheduler.mainExecutor(), scheduler),
      source({tools, failureReasons, {}, {}}),
      notifier(standardStore, notifications, Logger(sink, LogArea::general)),
      model(BackupStatusModel::Dependencies{
          .clock = scheduler,
          .mainExecutor = scheduler.mainExecutor(),
          .shared = shared,
          .standardStore = standardStore,
          .source = source,
          .probe = probe,
          .volumes = volumes,
          .notifier = &notifier,
          .log = Logger(sink, LogArea::general),
          .ringGeometry = BackupStatusModel::kMenuRingGeometry,
          .connectedShare =
              [this](const std::string& url) { return connectedShares.contains(url); },
      }) {}

void BackupStatusRig::seed(std::vector<Destination> destinations,
                           std::optional<Destination> lastUsed) {
    Preferences preferences;
    preferences.destinations = std::move(destinations);
    preferences.lastDestination = std::move(lastUsed);
    shared.store(std::move(preferences));
}

bool BackupStatusRig::hasReason(std::string_view reason) const {
    return std::find(reasons().begin(), reasons().end(), reason) != reasons().end();
}

}  // namespace kestrow::testing
