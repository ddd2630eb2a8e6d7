#pragma once

#include <optional>
#include <vector>

#include "platform/widgets.h"
#include "support/logger.h"

namespace kestrow {

// After an update, widget processes that started before the app's binary was replaced still run
// the old code and read the shared store with old rules: end them and have the widgets reload.
class StaleWidgetCheck {
public:
    StaleWidgetCheck(WidgetHost& host, Logger log) : host_(host), log_(log) {}

    // The processes to end: those started before the binary was replaced. A replacement time in
    // the future (a clock set back) says nothing, so nothing is stale then.
    static std::vector<int> staleProcesses(const std::vector<WidgetHost::Process>& processes,
                                           std::optional<WallTime> binaryReplaced, WallTime now);

    // Returns how many processes were ended.
    std::size_t run(WallTime now);

private:
    WidgetHost& host_;
    Logger log_;
};

}  // namespace kestrow
