#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/network_probe.h"
#include "support/executor.h"

namespace kestrow {

// The demo's network: every host answers, after the moment a real probe takes, so the menu shows
// its last known answer in between as it does on a real network.
class DemoProbe final : public NetworkProbe {
public:
    static constexpr double kAnswerSeconds = 0.3;

    explicit DemoProbe(Executor& main) : main_(main) {}
    std::unique_ptr<Handle> connect(const std::string& host, std::uint16_t port,
                                    std::function<void(bool reachable)> done) override;

private:
    Executor& main_;
};

}  // namespace kestrow
