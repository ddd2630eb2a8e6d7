#include "platform/locations.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

namespace kestrow {
namespace {

std::filesystem::path homeFolder(const EnvironmentLookup& environment) {
    if (auto home = environment("HOME"); home && !home->empty()) return *home;
    // No HOME (a bare service environment): the account database still knows.
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_dir != nullptr) {
        return found->pw_dir;
    }
    return "/";
}

std::filesystem::path xdgFolder(const EnvironmentLookup& environment, std::string_view name,
                                const std::filesystem::path& fallback) {
    if (auto value = environment(name); value && !value->empty()) {
        std::filesystem::path path(*value);
        if (path.is_absolute()) return path;
    }
    return fallback;
}

}  // namespace

UserLocations UserLocations::resolve(const EnvironmentLookup& environment) {
    UserLocations l;
    l.home = homeFolder(environment);
    l.configHome = xdgFolder(environment, "XDG_CONFIG_HOME", l.home / ".config");
    l.dataHome = xdgFolder(environment, "XDG_DATA_HOME", l.home / ".local" / "share");
    l.cacheHome = xdgFolder(environment, "XDG_CACHE_HOME", l.home / ".cache");
    l.runtimeDir = xdgFolder(environment, "XDG_RUNTIME_DIR", {});
    return l;
}

}  // namespace kestrow
