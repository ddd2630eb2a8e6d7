#include "cli/duplicates_command.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <set>

#include "app/settings/settings_store.h"
#include "app/settings/standard_settings.h"
#include "insights/duplicate_finder.h"
#include "insights/duplicate_roots.h"
#include "insights/duplicate_trash.h"
#include "insights/duplicates_model.h"
#include "platform/linux/freedesktop_trash.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

const char* const kUsage =
    "usage: kestrow duplicates [--json] [DIR...]\n"
    "       kestrow duplicates --trash [--json] PATH...\n";

struct Arguments {
    bool json = false;
    bool trash = false;
    std::vector<fs::path> paths;
};

// A path as the kernel means it: `link/..` is the folder above the link's target, not the folder
// the link sits in. A file to move keeps its own last name (a link named there is that link,
// as a rename sees it); a folder to scan is resolved whole. A path that does not resolve stays as
// written, made absolute, so that it still fails as the kernel would fail it.
fs::path kernelPath(const std::string& arg, bool lastNameKept) {
    std::error_code error;
    const fs::path path(arg);
    const std::string name = path.filename().string();
    if (lastNameKept && !name.empty() && name != "." && name != "..") {
        const fs::path parent =
            fs::canonical(path.has_parent_path() ? path.parent_path() : ".", error);
        if (!error) return parent / name;
    } else {
        const fs::path whole = fs::canonical(path, error);
        if (!error) return whole;
    }
    const fs::path absolute = fs::absolute(path, error);
    return error ? path : absolute;
}

std::optional<Arguments> parse(const CommandContext& context) {
    Arguments a;
    std::vector<std::string> named;
    bool onlyPaths = false;
    for (const auto& arg : context.arguments) {
        if (!onlyPaths && arg == "--") {
            onlyPaths = true;
        } else if (!onlyPaths && arg == "--json") {
            a.json = true;
        } else if (!onlyPaths && arg == "--trash") {
            a.trash = true;
        } else if (!onlyPaths && arg.starts_with("-")) {
            context.err << "kestrow duplicates: unknown option '" << arg << "'\n" << kUsage;
            return std::nullopt;
        } else {
            named.push_back(arg);
        }
    }
    for (const auto& arg : named) a.paths.push_back(kernelPath(arg, a.trash));
    if (a.trash && a.paths.empty()) {
        context.err << "kestrow duplicates: --trash needs the paths to move\n" << kUsage;
        return std::nullopt;
    }
    return a;
}

// Every standard root, where the named paths' twins may be, and the folder of each path that lies
// under none of them.
std::vector<fs::path> rootsFor(const std::vector<fs::path>& paths,
                               const std::vector<fs::path>& standard) {
    std::vector<fs::path> roots;
    const auto add = [&](const fs::path& root) {
        if (std::find(roots.begin(), roots.end(), root) == roots.end()) roots.push_back(root);
    };
    for (const auto& root : standard) add(kernelPath(root.string(), false));
    const std::vector<fs::path> standardRoots = roots;
    for (const auto& path : paths) {
        const bool held = std::any_of(standardRoots.begin(), standardRoots.end(),
                                      [&](const fs::path& root) { return isUnder(path, root); });
        if (!held) add(path.parent_path());
    }
    return roots;
}

template <typename T>
Json orNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json groupsJson(const std::vector<DuplicateGroup>& groups) {
    Json list = Json::array();
    for (const auto& group : groups) {
        Json files = Json::array();
        for (const auto& file : group.files) {
            files.push_back({{"path", file.path},
                             {"size", file.size},
                             {"privateSize", orNull(file.privateSize)},
                             {"modified", formatIsoDate(file.modified)}});
        }
        list.push_back({{"size", group.size()},
                        {"reclaimable", orNull(reclaimable(group))},
                        {"files", std::move(files)}});
    }
    return list;
}

int trash(const CommandContext& context, const Arguments& a, const std::vector<fs::path>& standard,
          const KeepPreference& preference, const DuplicateFinder& finder) {
    const auto result = finder.scan(rootsFor(a.paths, standard));
    std::set<std::string> selected;
    std::vector<std::string> unknown;
    for (const auto& path : a.paths) {
        const bool grouped = std::any_of(result.groups.begin(), result.groups.end(),
                                         [&](const auto& g) { return g.contains(path.string()); });
        if (grouped) {
            selected.insert(path.string());
        } else {
            unknown.push_back(path.string() + ": no copy of it was found");
        }
    }
    FreedesktopTrash desktopTrash(context.locations().dataHome);
    DuplicateTrashReport report =
        trashDuplicates(selected, result.groups, preference, desktopTrash);
    report.failures.insert(report.failures.begin(), unknown.begin(), unknown.end());
    if (a.json) {
        context.out << Json({{"summary", report.statusLine()},
                             {"moved", report.moved},
                             {"movedBytes", report.movedBytes},
                             {"skipped", report.skipped},
                             {"failures", report.failures}})
                           .dump(2, ' ', false, Json::error_handler_t::replace)
                    << "\n";
    } else {
        context.out << report.statusLine() << "\n";
        for (const auto& failure : report.failures) context.out << "  " << failure << "\n";
    }
    return kExitDone;
}

}  // namespace

int runDuplicatesCommand(const CommandContext& context) {
    const auto a = parse(context);
    if (!a) return kExitUsage;
    StderrLogSink sink(LogLevel::info);
    const Logger log(sink, LogArea::general);
    const UserLocations locations = context.locations();
    SettingsStore standardStore(locations.standardStoreFile(), log);
    const DuplicateRoots standard = DuplicateRoots::resolve(
        locations, StandardSettings(standardStore).duplicateFinderFolders());
    const KeepPreference preference = standard.keepPreference();

    DuplicateFinder::Options options;
    options.skipFolders.push_back(locations.dataHome / "Trash");
    const DuplicateFinder finder(log, options);
    if (a->trash) return trash(context, *a, standard.all(), preference, finder);

    for (const auto& dir : a->paths) {
        std::error_code error;
        if (!fs::is_directory(dir, error)) {
            context.err << "kestrow duplicates: not a folder: " << dir.string() << "\n";
            return kExitFailed;
        }
    }
    const std::vector<fs::path> roots = a->paths.empty() ? standard.all() : a->paths;
    const auto result = finder.scan(roots);
    if (a->json) {
        std::int64_t gain = 0;
        for (const auto& group : result.groups) gain += reclaimable(group).value_or(0);
        Json rootList = Json::array();
        for (const auto& root : roots) rootList.push_back(root.string());
        context.out << Json({{"roots", std::move(rootList)},
                             {"groups", groupsJson(result.groups)},
                             {"totalGain", gain},
                             {"skippedFolders", result.skipped}})
                           .dump(2, ' ', false, Json::error_handler_t::replace)
                    << "\n";
        return kExitDone;
    }
    std::string text;
    for (const auto& group : result.groups) {
        for (const auto& file : group.files) text += file.path + "\n";
        text += "\n";
    }
    context.out << text << std::flush;
    context.err << DuplicatesModel::summaryLine(result.groups) << "\n";
    return kExitDone;
}

}  // namespace kestrow
