#include "shares/host_lookup.h"

#include <chrono>

#include "support/ascii_case.h"

namespace kestrow {

HostLookup::HostLookup(HostResolver& resolver, Clock& clock, Executor& background)
    : resolver_(resolver), clock_(clock), background_(background) {}

std::optional<std::set<std::string>> HostLookup::resolve(const std::string& host,
                                                         double timeoutSeconds) {
    const std::string key = asciiLowercase(host);
    const auto state = state_;
    std::unique_lock lock(state->lock);
    const double now = clock_.monotonic();
    if (const auto hit = state->cache.find(key);
        hit != state->cache.end() && now - hit->second.at < ttl)
        return hit->second.answer;

    std::shared_ptr<Flight> flight;
    if (const auto running = state->inFlight.find(key);
        running != state->inFlight.end() && now - running->second->started < ttl) {
        flight = running->second;
    } else {
        flight = std::make_shared<Flight>();
        flight->started = now;
        state->inFlight[key] = flight;
        background_.post([state, flight, key, host, &resolver = resolver_, &clock = clock_] {
            Answer answer = resolver.resolve(host);
            const double at = clock.monotonic();
            std::lock_guard done(state->lock);
            state->cache[key] = Cached{std::move(answer), at};
            if (const auto entry = state->inFlight.find(key);
                entry != state->inFlight.end() && entry->second == flight)
                state->inFlight.erase(entry);
            flight->done = true;
            state->finished.notify_all();
        });
    }
    const auto limit = std::chrono::duration<double>(std::max(0.0, timeoutSeconds));
    if (!state->finished.wait_for(lock, limit, [&] { return flight->done; })) return std::nullopt;
    const auto answer = state->cache.find(key);
    return answer == state->cache.end() ? std::nullopt : answer->second.answer;
}

}  // namespace kestrow
