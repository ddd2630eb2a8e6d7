#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/locations.h"

namespace kestrow {

// Something that starts by itself: when the user logs in (an agent) or when the system starts
// (a daemon).
struct StartupItem {
    enum class Scope { userAgent, systemAgent, systemDaemon };

    std::string label;
    std::optional<std::string> program;
    std::string file;
    Scope scope = Scope::userAgent;
    bool operator==(const StartupItem&) const = default;

    // "userAgent", "systemAgent" or "systemDaemon".
    static std::string_view scopeName(Scope scope);
};

// Lists what starts by itself from the XDG autostart entries and the systemd units enabled for
// the user's session or for the system. Entries switched off are left out, as are files that
// cannot be read or make no sense: the list shows what runs, not what is wrong.
class StartupItems {
public:
    struct Roots {
        std::filesystem::path userAutostart;    // $XDG_CONFIG_HOME/autostart
        std::filesystem::path userUnits;        // $XDG_CONFIG_HOME/systemd/user
        std::filesystem::path systemAutostart;  // /etc/xdg/autostart
        std::filesystem::path systemUserUnits;  // /etc/systemd/user
        std::filesystem::path systemUnits;      // /etc/systemd/system

        // The system's folders, placed under `systemRoot` ("/" on a real machine).
        static Roots standard(const UserLocations& locations,
                              const std::filesystem::path& systemRoot = "/");
    };

    // The user's agents, then the system's agents, then the system's daemons; each group in the
    // order of its files' paths.
    static std::vector<StartupItem> list(const Roots& roots);
};

}  // namespace kestrow
