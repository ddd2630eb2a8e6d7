#include "insights/unused_apps.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "support/desktop_entry.h"
#include "platform/locations.h"
#include "support/atomic_file.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// &amp; &lt; &gt; &quot; &apos; and numeric references; anything else is left as written.
std::string decodeEntities(std::string_view text) {
    static const std::pair<std::string_view, char> kNamed[] = {
        {"amp;", '&'}, {"lt;", '<'}, {"gt;", '>'}, {"quot;", '"'}, {"apos;", '\''}};
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '&') {
            out += text[i];
            continue;
        }
        const std::string_view rest = text.substr(i + 1);
        bool decoded = false;
        for (const auto& [name, c] : kNamed) {
            if (rest.starts_with(name)) {
                out += c;
                i += name.size();
                decoded = true;
                break;
            }
        }
        const auto semicolon = rest.find(';');
        if (!decoded && rest.starts_with('#') && semicolon != std::string_view::npos &&
            semicolon <= 9) {
            const bool hex = rest.size() > 1 && (rest[1] == 'x' || rest[1] == 'X');
            const std::string digits(rest.substr(hex ? 2 : 1, semicolon - (hex ? 2 : 1)));
            char* end = nullptr;
            const unsigned long code = std::strtoul(digits.c_str(), &end, hex ? 16 : 10);
            // Only plain ASCII matters in a command's program name.
            if (!digits.empty() && end != nullptr && *end == '\0' && code > 0 && code < 128) {
                out += static_cast<char>(code);
                i += semicolon + 1;
                decoded = true;
            }
        }
        if (!decoded) out += '&';
    }
    return out;
}

// The attributes of one start tag, from just after its name to its closing '>'.
std::map<std::string, std::string, std::less<>> attributes(std::string_view tag) {
    std::map<std::string, std::string, std::less<>> found;
    std::size_t i = 0;
    while (i < tag.size()) {
        while (i < tag.size() && (isBlank(tag[i]) || tag[i] == '/')) ++i;
        const std::size_t nameStart = i;
        while (i < tag.size() && !isBlank(tag[i]) && tag[i] != '=' && tag[i] != '/') ++i;
        const std::string_view name = tag.substr(nameStart, i - nameStart);
        while (i < tag.size() && isBlank(tag[i])) ++i;
        if (name.empty() || i >= tag.size() || tag[i] != '=') {
            if (i == nameStart) ++i;
            continue;
        }
        ++i;
        while (i < tag.size() && isBlank(tag[i])) ++i;
        if (i >= tag.size() || (tag[i] != '"' && tag[i] != '\'')) continue;
        const char quote = tag[i++];
        const auto close = tag.find(quote, i);
        if (close == std::string_view::npos) break;
        found.emplace(std::string(name), decodeEntities(tag.substr(i, close - i)));
        i = close + 1;
    }
    return found;
}

// The program a recorded command line starts, without its folder. GTK writes the command
// quoted as a whole ("'gedit %u'"), so quotes are dropped before the words are split, and the
// field codes that stand for the file are not words of their own.
std::optional<std::string> commandProgram(std::string_view command) {
    std::string unquoted;
    for (const char c : command) {
        if (c != '\'' && c != '"') unquoted += c;
    }
    std::size_t i = 0;
    while (i < unquoted.size()) {
        while (i < unquoted.size() && isBlank(unquoted[i])) ++i;
        const std::size_t start = i;
        while (i < unquoted.size() && !isBlank(unquoted[i])) ++i;
        const std::string word = unquoted.substr(start, i - start);
        if (word.empty() || (word.size() == 2 && word[0] == '%')) continue;
        std::string name = fs::path(word).filename().string();
        if (name.empty()) return std::nullopt;
        return name;
    }
    return std::nullopt;
}

std::optional<WallTime> recordedTime(const std::map<std::string, std::string, std::less<>>& tag) {
    if (const auto modified = tag.find("modified"); modified != tag.end())
        return parseIsoDate(modified->second);
    // Older GTK wrote seconds since 1970 instead.
    if (const auto stamp = tag.find("timestamp"); stamp != tag.end()) {
        const std::string& digits = stamp->second;
        if (digits.empty() || digits.size() > 12 ||
            !std::all_of(digits.begin(), digits.end(),
                         [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
            return std::nullopt;
        return WallTime(std::chrono::seconds(std::stoll(digits)));
    }
    return std::nullopt;
}

// The desktop entries under one folder, sorted, each with its desktop file ID: the path below
// the folder with '/' turned into '-'.
std::vector<std::pair<std::string, fs::path>> desktopFiles(const fs::path& folder) {
    std::vector<std::pair<std::string, fs::path>> files;
    std::error_code error;
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied,
                                        error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        const fs::path& path = it->path();
        std::error_code typeError;
        if (path.extension() != ".desktop" || !it->is_regular_file(typeError)) continue;
        std::string id = path.lexically_relative(folder).generic_string();
        std::replace(id.begin(), id.end(), '/', '-');
        files.emplace_back(std::move(id), path);
    }
    std::sort(files.begin(), files.end(),
              [](const auto& a, const auto& b) { return a.second < b.second; });
    return files;
}

}  // namespace

UnusedApps::Sources UnusedApps::Sources::standard(const EnvironmentLookup& environment) {
    const UserLocations locations = UserLocations::resolve(environment);
    Sources sources;
    sources.applicationFolders.push_back(locations.dataHome / "applications");
    std::string dirs = environment ? environment("XDG_DATA_DIRS").value_or("") : "";
    if (dirs.empty()) dirs = "/usr/local/share:/usr/share";
    std::size_t start = 0;
    while (start <= dirs.size()) {
        const auto end = std::min(dirs.find(':', start), dirs.size());
        const fs::path dir = dirs.substr(start, end - start);
        if (dir.is_absolute()) sources.applicationFolders.push_back(dir / "applications");
        start = end + 1;
    }
    sources.recentlyUsed = locations.dataHome / "recently-used.xbel";
    return sources;
}

std::vector<AppUsage> UnusedApps::applications(const Sources& sources) {
    std::vector<std::pair<AppUsage, std::optional<std::string>>> found;
    std::set<std::string, std::less<>> seenIDs;
    std::map<std::string, int, std::less<>> programCount;
    for (const fs::path& folder : sources.applicationFolders) {
        for (const auto& [id, path] : desktopFiles(folder)) {
            // Hidden or not, the first entry of a name is the one that counts.
            if (!seenIDs.insert(id).second) continue;
            const auto entry = DesktopEntry::read(path);
            if (!entry || entry->value("Type") != "Application" || entry->isTrue("NoDisplay") ||
                entry->isTrue("Hidden"))
                continue;
            std::optional<std::string> program;
            if (const auto exec = entry->program()) program = fs::path(*exec).filename().string();
            if (program && program->empty()) program.reset();
            if (program) ++programCount[*program];
            found.emplace_back(AppUsage{path.string(), std::nullopt}, std::move(program));
        }
    }
    const auto uses = lastUses(readFile(sources.recentlyUsed).value_or(""));
    std::vector<AppUsage> apps;
    for (auto& [app, program] : found) {
        // A program several entries start (a launcher such as flatpak or env) cannot tell which
        // of them was used, and guessing could call one of them unused.
        if (program && programCount[*program] == 1) {
            if (const auto use = uses.find(*program); use != uses.end()) app.lastUsed = use->second;
        }
        apps.push_back(std::move(app));
    }
    return apps;
}

std::vector<AppUsage> UnusedApps::unused(std::vector<AppUsage> apps, WallTime now) {
    const WallTime cutOff = addSeconds(now, -kUnusedSeconds);
    std::erase_if(
        apps, [cutOff](const AppUsage& app) { return !app.lastUsed || *app.lastUsed > cutOff; });
    std::sort(apps.begin(), apps.end(), [](const AppUsage& a, const AppUsage& b) {
        if (*a.lastUsed != *b.lastUsed) return *a.lastUsed < *b.lastUsed;
        return a.path < b.path;
    });
    return apps;
}

std::map<std::string, WallTime, std::less<>> UnusedApps::lastUses(std::string_view xbel) {
    constexpr std::string_view kTag = "<bookmark:application";
    std::map<std::string, WallTime, std::less<>> uses;
    for (auto at = xbel.find(kTag); at != std::string_view::npos; at = xbel.find(kTag, at)) {
        at += kTag.size();
        if (at < xbel.size() && !isBlank(xbel[at]) && xbel[at] != '/' && xbel[at] != '>')
            continue;  // another element whose name starts the same, such as "applications"
        const auto end = xbel.find('>', at);
        if (end == std::string_view::npos) break;
        const auto tag = attributes(xbel.substr(at, end - at));
        at = end;
        const auto exec = tag.find("exec");
        if (exec == tag.end()) continue;
        const auto program = commandProgram(exec->second);
        const auto when = recordedTime(tag);
        if (!program || !when) continue;
        auto [use, inserted] = uses.emplace(*program, *when);
        if (!inserted && use->second < *when) use->second = *when;
    }
    return uses;
}

}  // namespace kestrow
