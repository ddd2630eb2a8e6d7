#include "shares/reachability.h"

#include <algorithm>

#include "shares/share_url.h"
#include "support/ascii_case.h"

namespace kestrow {
namespace {

bool isBonjourSmb(const SMBShare& share) {
    return share.connectionProtocol == ShareProtocol::smb &&
           classifyHost(share.host) == HostKind::bonjour;
}

}  // namespace

Reachability::Reachability(TcpProber& prober, ServiceBrowser& browser, Clock& clock, LogSink& log)
    : prober_(prober), browser_(browser), clock_(clock), log_(log, LogArea::mounting) {}

double Reachability::budgetFor(const SMBShare& share) {
    return isBonjourSmb(share) ? bonjourAvailabilityBudget : availabilityBudget;
}

bool Reachability::localNetworkDenied() const {
    std::lock_guard lock(refusalLock_);
    return refusal_;
}

TcpProbeResult Reachability::tcpProbe(const std::string& host, std::uint16_t port,
                                      std::optional<double> timeout) {
    if (port == 0) return {};
    const TcpProbeResult result =
        prober_.probe(host, port, timeout.value_or(connectionReachabilityTimeout));
    // A plain failure says nothing about the permission, so only an answer or a refusal moves it.
    if (result.reachable || result.denied) {
        std::lock_guard lock(refusalLock_);
        refusal_ = result.denied;
    }
    return result;
}

bool Reachability::expired(const Attempt& attempt) const {
    return clock_.monotonic() >= attempt.deadline;
}

bool Reachability::probeOnce(Attempt& attempt, const std::string& host, std::uint16_t port) {
    // A probe never runs past the attempt's deadline.
    const double left = attempt.deadline - clock_.monotonic();
    if (left <= 0) return false;
    const TcpProbeResult result =
        tcpProbe(host, port, std::min(connectionReachabilityTimeout, left));
    if (result.denied) attempt.denied = true;
    return result.reachable;
}

bool Reachability::waitRetry(Attempt& attempt, double interval) {
    const double end = clock_.monotonic() + interval;
    for (;;) {
        if (!attempt.keepRetrying() || expired(attempt)) return false;
        const double left = end - clock_.monotonic();
        if (left <= 0) return true;
        clock_.sleep(std::min({retrySlice, left, attempt.deadline - clock_.monotonic()}));
    }
}

bool Reachability::isBonjourAvailable(Attempt& attempt, const std::string& baseName) {
    const double left = attempt.deadline - clock_.monotonic();
    if (left <= 0) return false;
    attempt.bonjourAddress = browser_.find(baseName, std::min(bonjourQueryTimeout, left));
    return attempt.bonjourAddress.has_value();
}

bool Reachability::isBonjourStable(Attempt& attempt, const std::string& baseName) {
    int successes = 0;
    for (;;) {
        if (!attempt.keepRetrying() || expired(attempt)) return false;
        if (!isBonjourAvailable(attempt, baseName)) return false;
        if (++successes >= requiredStableSuccesses) return true;
        if (!waitRetry(attempt, shortRetryInterval)) return false;
    }
}

std::vector<int> Reachability::stableReachability(Attempt& attempt,
                                                  const std::vector<std::string>& hosts,
                                                  std::uint16_t port, int rounds) {
    std::vector<int> counts(hosts.size(), 0);
    std::vector<std::string> seen;
    for (std::size_t i = 0; i < hosts.size(); ++i) {
        const std::string key = asciiLowercase(hosts[i]);
        if (const auto same = std::find(seen.begin(), seen.end(), key); same != seen.end()) {
            counts[i] = counts[static_cast<std::size_t>(same - seen.begin())];
            seen.push_back(key);
            continue;
        }
        seen.push_back(key);
        int consecutive = 0;
        for (int round = 1;; ++round) {
            if (!attempt.keepRetrying() || expired(attempt)) break;
            consecutive = probeOnce(attempt, hosts[i], port) ? consecutive + 1 : 0;
            if (attempt.denied) return counts;
            if (consecutive >= requiredStableSuccesses) break;
            if (rounds > 0 && round >= rounds) break;
            if (!waitRetry(attempt, shortRetryInterval)) break;
        }
        counts[i] = consecutive;
    }
    return counts;
}

std::optional<std::string> Reachability::chooseMountHost(Attempt& attempt) {
    const SMBShare& share = attempt.share;
    if (share.connectionProtocol == ShareProtocol::webdav) {
        const auto target = webDAVProbeTarget(share);
        if (!target) return std::nullopt;
        // The host as typed goes into the URL, so a port written in a typed URL survives.
        if (stableReachability(attempt, {target->host}, target->port, 0).front() >=
            requiredStableSuccesses)
            return trimmed(share.host);
        return std::nullopt;
    }
    const std::string host = trimmed(share.host);
    if (!isBonjourSmb(share)) {
        if (stableReachability(attempt, {host}, smbPort, 0).front() >= requiredStableSuccesses)
            return host;
        return std::nullopt;
    }
    const std::string base = bonjourBaseName(host);
    const std::string local = base + ".local";
    if (stableReachability(attempt, {local}, smbPort, requiredStableSuccesses).front() >=
        requiredStableSuccesses)
        return local;
    if (attempt.denied) return std::nullopt;
    // Linux mounts cannot name the service itself; the address it was resolved to stands in.
    if (isBonjourStable(attempt, base)) return attempt.bonjourAddress;
    return std::nullopt;
}

bool Reachability::finalPreflight(Attempt& attempt, const std::string& selectedHost) {
    const SMBShare& share = attempt.share;
    for (;;) {
        if (!attempt.keepRetrying() || expired(attempt)) return false;
        bool answered = false;
        if (share.connectionProtocol == ShareProtocol::webdav) {
            const auto target = webDAVProbeTarget(share);
            if (!target) return false;
            answered = probeOnce(attempt, target->host, target->port);
        } else if (isBonjourSmb(share)) {
            answered = isBonjourAvailable(attempt, bonjourBaseName(trimmed(share.host))) &&
                       probeOnce(attempt, selectedHost, smbPort);
        } else {
            answered = probeOnce(attempt, selectedHost, smbPort);
        }
        if (answered) return true;
        if (attempt.denied) return false;
        if (!waitRetry(attempt, shortRetryInterval)) return false;
    }
}

std::optional<std::string> Reachability::waitForConnectionAvailability(
    const SMBShare& share, const std::function<bool()>& shouldKeepRetrying) {
    Attempt attempt{share, shouldKeepRetrying, clock_.monotonic() + budgetFor(share), false,
                    std::nullopt};
    const bool bonjour = isBonjourSmb(share);
    if (share.connectionProtocol == ShareProtocol::webdav && !webDAVProbeTarget(share))
        return std::nullopt;
    for (int round = 1;; ++round) {
        if (!shouldKeepRetrying() || expired(attempt)) return std::nullopt;
        const auto host = chooseMountHost(attempt);
        const bool ready = host && !attempt.denied && finalPreflight(attempt, *host);
        if (attempt.denied) {
            log_.notice("Local Network access is denied; not retrying {}", share.name);
            return std::nullopt;
        }
        if (ready) return host;
        if (bonjour && round >= bonjourCheckCycles) return std::nullopt;
        if (!waitRetry(attempt, shortRetryInterval)) return std::nullopt;
    }
}

}  // namespace kestrow
