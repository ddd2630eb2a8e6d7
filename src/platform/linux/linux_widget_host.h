#pragma once

#include <QDBusConnection>

#include <filesystem>

#include "platform/widgets.h"

namespace kestrow {

// Linux has no widget extension processes; whatever shows Kestrow's status outside the app (a
// panel applet, a status bar script) reads the shared store and listens on the session bus for
// `bar.vemb.orvel.Widgets.TimelinesChanged(kind)` at /bar/vemb/orvel/Widgets to read it again.
class LinuxWidgetHost final : public WidgetHost {
public:
    // `executableLink` is the running program's /proc link; tests point it at another process.
    explicit LinuxWidgetHost(QDBusConnection connection,
                             std::filesystem::path executableLink = "/proc/self/exe");

    std::vector<Process> runningWidgetProcesses() const override { return {}; }
    void terminate(int /*pid*/) override {}
    std::optional<WallTime> appBinaryReplaced() const override;
    void reloadTimelines(std::string_view kind) override;

private:
    QDBusConnection connection_;
    std::filesystem::path executableLink_;
};

}  // namespace kestrow
