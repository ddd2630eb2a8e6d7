#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/share_network.h"
#include "shares/connection_availability.h"
#include "support/clock.h"
#include "support/logger.h"

namespace kestrow {

// Decides, before a mount, whether the share's server answers now and which host goes into the
// mount URL. Every wait is on the handed-in clock, so the rules run in virtual time in tests.
// Called on the share manager's mount queue; the probes block that queue, never the main thread.
class Reachability final : public ConnectionAvailability {
public:
    static constexpr double connectionReachabilityTimeout = 2.0;
    static constexpr double bonjourQueryTimeout = 2.0;
    static constexpr double shortRetryInterval = 0.35;
    static constexpr int requiredStableSuccesses = 2;
    // A Bonjour-named share gets at most this many host-choice rounds per attempt: a name that
    // the network stopped announcing is not worth browsing for until the whole deadline is gone.
    static constexpr int bonjourCheckCycles = 4;
    static constexpr double retrySlice = 0.05;
    // Total time one attempt may wait for its server. A Bonjour-named SMB share may spend two
    // browses per round on top of its probes, so it gets the longer budget.
    static constexpr double availabilityBudget = 18.1;
    static constexpr double bonjourAvailabilityBudget = 28.1;
    static constexpr std::uint16_t smbPort = 445;

    Reachability(TcpProber& prober, ServiceBrowser& browser, Clock& clock, LogSink& log);

    std::optional<std::string> waitForConnectionAvailability(
        const SMBShare& share, const std::function<bool()>& shouldKeepRetrying) override;
    bool localNetworkDenied() const override;

    // One probe with the refusal bookkeeping; `timeout` none → connectionReachabilityTimeout.
    TcpProbeResult tcpProbe(const std::string& host, std::uint16_t port,
                            std::optional<double> timeout = std::nullopt);
    // The deadline one attempt for this share works to, in seconds of budget.
    static double budgetFor(const SMBShare& share);

private:
    // One attempt's state: when to stop, and whether a probe saw the refusal.
    struct Attempt {
        const SMBShare& share;
        const std::function<bool()>& keepRetrying;
        double deadline;
        bool denied = false;
        std::optional<std::string> bonjourAddress;  // the last address the browser answered
    };

    bool probeOnce(Attempt& attempt, const std::string& host, std::uint16_t port);
    bool isBonjourAvailable(Attempt& attempt, const std::string& baseName);
    bool isBonjourStable(Attempt& attempt, const std::string& baseName);
    // Consecutive successes reached per candidate (lower-cased), at most `rounds` probes each.
    std::vector<int> stableReachability(Attempt& attempt, const std::vector<std::string>& hosts,
                                        std::uint16_t port, int rounds);
    std::optional<std::string> chooseMountHost(Attempt& attempt);
    bool finalPreflight(Attempt& attempt, const std::string& selectedHost);
    bool waitRetry(Attempt& attempt, double interval);
    bool expired(const Attempt& attempt) const;

    TcpProber& prober_;
    ServiceBrowser& browser_;
    Clock& clock_;
    Logger log_;
    mutable std::mutex refusalLock_;
    bool refusal_ = false;
};

}  // namespace kestrow
