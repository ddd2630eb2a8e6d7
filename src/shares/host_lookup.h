#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "platform/share_network.h"
#include "support/clock.h"
#include "support/executor.h"

namespace kestrow {

// Name look-ups for the probes, remembered for a minute (a failed one too, so a dead name is not
// asked again on every retry) and shared: callers asking for a name already being looked up wait
// for that one look-up instead of starting their own.
class HostLookup {
public:
    static constexpr double ttl = 60.0;

    // The look-ups run on `background`; `clock` dates the answers (monotonic, so a clock set back
    // cannot keep an answer forever). `resolver` and `clock` must outlive the look-ups posted to
    // `background`.
    HostLookup(HostResolver& resolver, Clock& clock, Executor& background);

    // The addresses of `host`; none when it does not resolve or no answer came within
    // `timeoutSeconds` (real time: the look-up itself blocks in the system's resolver).
    std::optional<std::set<std::string>> resolve(const std::string& host, double timeoutSeconds);

private:
    using Answer = std::optional<std::set<std::string>>;
    struct Cached {
        Answer answer;
        double at = 0.0;
    };
    struct Flight {
        double started = 0.0;
        bool done = false;
    };
    // Shared with the look-ups still running, so that a late answer never lands in freed memory.
    struct State {
        std::mutex lock;
        std::condition_variable finished;
        std::map<std::string, Cached> cache;
        std::map<std::string, std::shared_ptr<Flight>> inFlight;
    };

    HostResolver& resolver_;
    Clock& clock_;
    Executor& background_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace kestrow
