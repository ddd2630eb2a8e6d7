#include "insights/startup_items.h"

#include <algorithm>
#include <set>

#include "support/desktop_entry.h"
#include "support/atomic_file.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

// The first word of a command line, with the quotes systemd allows around it taken off.
std::optional<std::string> firstWord(std::string_view line) {
    line = trim(line);
    if (line.empty()) return std::nullopt;
    if (line.front() == '"' || line.front() == '\'') {
        const auto close = line.find(line.front(), 1);
        if (close == std::string_view::npos || close == 1) return std::nullopt;
        return std::string(line.substr(1, close - 1));
    }
    return std::string(line.substr(0, line.find_first_of(" \t")));
}

struct UnitFile {
    std::optional<std::string> program;
};

// Nothing when the text has no section at all: an empty file masks a unit, and anything else
// without one is no unit file.
std::optional<UnitFile> parseUnit(std::string_view text) {
    std::optional<UnitFile> unit;
    std::vector<std::string> starts;
    bool inService = false;
    std::string line;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view raw = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        const std::string_view piece = trim(raw);
        if (line.empty() && (piece.empty() || piece.front() == '#' || piece.front() == ';'))
            continue;
        // A backslash at the end carries the line on to the next.
        if (!piece.empty() && piece.back() == '\\') {
            line += piece.substr(0, piece.size() - 1);
            line += ' ';
            continue;
        }
        line += piece;
        const std::string_view whole = trim(line);
        if (!whole.empty() && whole.front() == '[') {
            if (whole.back() == ']') {
                if (!unit) unit.emplace();
                inService = whole == "[Service]";
            }
        } else if (const auto equals = whole.find('='); inService && equals != whole.npos) {
            if (trim(whole.substr(0, equals)) == "ExecStart") {
                const std::string_view value = trim(whole.substr(equals + 1));
                // An empty assignment clears the commands given before it.
                if (value.empty()) {
                    starts.clear();
                } else {
                    starts.emplace_back(value);
                }
            }
        }
        line.clear();
    }
    if (unit && !starts.empty()) {
        const std::string_view command = starts.front();
        const auto program = command.find_first_not_of("-@+!:");
        if (program != std::string_view::npos) unit->program = firstWord(command.substr(program));
    }
    return unit;
}

// A unit linked to /dev/null, or left empty, in `folder` is masked: it never starts.
bool masked(const fs::path& folder, const std::string& name) {
    std::error_code error;
    const fs::path unit = folder / name;
    if (!fs::exists(fs::symlink_status(unit, error))) return false;
    if (fs::canonical(unit, error) == "/dev/null") return true;
    return fs::is_regular_file(unit, error) && fs::file_size(unit, error) == 0 && !error;
}

std::vector<fs::path> filesIn(const fs::path& folder, std::string_view extension) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator it(folder, error); !error && it != fs::directory_iterator();
         it.increment(error)) {
        if (it->path().extension() == extension) files.push_back(it->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The services enabled under `root`, through its *.target.wants folders.
std::vector<fs::path> enabledServices(const fs::path& root) {
    std::vector<fs::path> services;
    std::error_code error;
    for (fs::directory_iterator it(root, error); !error && it != fs::directory_iterator();
         it.increment(error)) {
        const std::string name = it->path().filename().string();
        std::error_code typeError;
        if (!name.ends_with(".target.wants") || !it->is_directory(typeError)) continue;
        for (fs::path& service : filesIn(it->path(), ".service"))
            services.push_back(std::move(service));
    }
    std::sort(services.begin(), services.end());
    return services;
}

void addAutostart(std::vector<StartupItem>& items, const fs::path& folder, StartupItem::Scope scope,
                  const fs::path& overridingFolder) {
    for (const fs::path& file : filesIn(folder, ".desktop")) {
        std::error_code error;
        // The user's entry of the same name replaces the system's, switched off or not.
        if (!overridingFolder.empty() &&
            fs::exists(fs::symlink_status(overridingFolder / file.filename(), error)))
            continue;
        const auto entry = DesktopEntry::read(file);
        if (!entry || entry->isTrue("Hidden") ||
            entry->value("X-GNOME-Autostart-enabled") == "false")
            continue;
        std::string label = entry->value("Name").value_or("");
        if (label.empty()) label = file.filename().string();
        items.push_back({std::move(label), entry->program(), file.string(), scope});
    }
}

void addServices(std::vector<StartupItem>& items, const fs::path& root, StartupItem::Scope scope,
                 const fs::path& userRoot) {
    std::set<std::string, std::less<>> listed;
    for (const fs::path& link : enabledServices(root)) {
        const std::string name = link.filename().string();
        // Enabled for several targets, a unit still starts once.
        if (listed.contains(name) || masked(root, name)) continue;
        if (!userRoot.empty() && masked(userRoot, name)) continue;
        const auto text = readFile(link);
        if (!text) continue;
        const auto unit = parseUnit(*text);
        if (!unit) continue;
        listed.insert(name);
        items.push_back({name, unit->program, link.string(), scope});
    }
}

}  // namespace

std::string_view StartupItem::scopeName(Scope scope) {
    switch (scope) {
        case Scope::userAgent:
            return "userAgent";
        case Scope::systemAgent:
            return "systemAgent";
        case Scope::systemDaemon:
            return "systemDaemon";
    }
    return "userAgent";
}

StartupItems::Roots StartupItems::Roots::standard(const UserLocations& locations,
                                                  const fs::path& systemRoot) {
    return {locations.configHome / "autostart", locations.configHome / "systemd/user",
            systemRoot / "etc/xdg/autostart", systemRoot / "etc/systemd/user",
            systemRoot / "etc/systemd/system"};
}

std::vector<StartupItem> StartupItems::list(const Roots& roots) {
    using Scope = StartupItem::Scope;
    std::vector<StartupItem> items;
    std::vector<StartupItem> user;
    addAutostart(user, roots.userAutostart, Scope::userAgent, {});
    addServices(user, roots.userUnits, Scope::userAgent, {});
    std::vector<StartupItem> systemAgents;
    addAutostart(systemAgents, roots.systemAutostart, Scope::systemAgent, roots.userAutostart);
    addServices(systemAgents, roots.systemUserUnits, Scope::systemAgent, roots.userUnits);
    std::vector<StartupItem> daemons;
    addServices(daemons, roots.systemUnits, Scope::systemDaemon, {});
    for (auto* group : {&user, &systemAgents, &daemons}) {
        std::stable_sort(
            group->begin(), group->end(),
            [](const StartupItem& a, const StartupItem& b) { return a.file < b.file; });
        items.insert(items.end(), std::make_move_iterator(group->begin()),
                     std::make_move_iterator(group->end()));
    }
    return items;
}

}  // namespace kestrow
