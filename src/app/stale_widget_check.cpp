#include "app/stale_widget_check.h"

namespace kestrow {

std::vector<int> StaleWidgetCheck::staleProcesses(const std::vector<WidgetHost::Process>& processes,
                                                  std::optional<WallTime> binaryReplaced,
                                                  WallTime now) {
    std::vector<int> stale;
    if (!binaryReplaced || *binaryReplaced > now) return stale;
    for (const auto& process : processes) {
        if (process.started < *binaryReplaced) stale.push_back(process.pid);
    }
    return stale;
}

std::size_t StaleWidgetCheck::run(WallTime now) {
    const auto stale =
        staleProcesses(host_.runningWidgetProcesses(), host_.appBinaryReplaced(), now);
    if (stale.empty()) return 0;
    for (const int pid : stale) host_.terminate(pid);
    host_.reloadTimelines("OrvelWidget");
    log_.info("Reaped {} stale widget process(es) running a replaced binary; timelines reloaded",
              stale.size());
    return stale.size();
}

}  // namespace kestrow
