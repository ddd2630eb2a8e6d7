#include "cleaners/developer_cleaners.h"

#include <algorithm>

#include "app/settings/settings_keys.h"
#include "cleaners/cleaner_path.h"
#include "cleaners/package_cache_cleaner.h"
#include "cleaners/xcode_cleaner.h"

namespace kestrow {

namespace {

struct Row {
    std::string_view id;
    std::string_view name;
    std::string_view title;
};

constexpr Row kRows[] = {
    {"xcode", "Xcode", "Clear Xcode leftovers"},
    {"npm", "npm", "Clear npm cache"},
    {"pip", "pip", "Clear pip cache"},
    {"homebrew", "Homebrew", "Clear Homebrew cache"},
};

const Row* row(const std::string& id) {
    for (const auto& r : kRows) {
        if (r.id == id) return &r;
    }
    return nullptr;
}

std::unique_ptr<PackageCacheCleaner> packageCache(const std::string& id,
                                                  const UserLocations& folders) {
    const Row* r = row(id);
    if (r == nullptr) return nullptr;
    CleanerOwner owner;
    if (id == "npm") {
        // npm and npx are scripts that node runs, and name themselves after the command
        // (`npm run build`): the node executable is what shows that they run.
        owner.processNames = {"node", "nodejs", "npm", "npx"};
        return std::make_unique<PackageCacheCleaner>(id, std::string(r->name), folders.home,
                                                     std::vector<std::string>{".npm", "_cacache"},
                                                     owner);
    }
    if (id == "pip") {
        // pip is a Python program: python running the pip, pip3 or pip3.11 entry script, or
        // `python -m pip`. Any other Python program leaves its cache alone, and so does a native
        // program whose name only begins like it (pipewire).
        owner.scripts = {CleanerOwnerScript{{"python", "pypy"}, {"pip"}, {"pip"}}};
        return std::make_unique<PackageCacheCleaner>(id, std::string(r->name), folders.cacheHome,
                                                     std::vector<std::string>{"pip"}, owner);
    }
    if (id == "homebrew") {
        // brew does its work in a Ruby kept inside its own Library/Homebrew folder, wherever it is
        // installed.
        // The brew command itself is a shell script.
        owner.processNames = {"brew"};
        owner.pathFragments = {"/Library/Homebrew/"};
        owner.scripts = {CleanerOwnerScript{{"bash", "sh", "dash", "zsh"}, {"brew"}}};
        return std::make_unique<PackageCacheCleaner>(id, std::string(r->name), folders.cacheHome,
                                                     std::vector<std::string>{"Homebrew"}, owner);
    }
    return nullptr;
}

}  // namespace

const std::vector<std::string>& DeveloperCleaners::ids() {
    static const std::vector<std::string> all(keys::developerCleanerIDs.begin(),
                                              keys::developerCleanerIDs.end());
    return all;
}

std::string DeveloperCleaners::title(const std::string& id) {
    const Row* r = row(id);
    return r != nullptr ? std::string(r->title) : std::string();
}

std::string DeveloperCleaners::name(const std::string& id) {
    const Row* r = row(id);
    return r != nullptr ? std::string(r->name) : std::string();
}

std::unique_ptr<Cleaner> DeveloperCleaners::make(const std::string& id,
                                                 const UserLocations& folders) {
    if (id == "xcode") return std::make_unique<XcodeCleaner>(folders.home);
    return packageCache(id, folders);
}

std::set<std::string> DeveloperCleaners::availableIDs(bool xcodeInstalled,
                                                      const UserLocations& folders) {
    std::set<std::string> out;
    for (const auto& id : ids()) {
        if (id == "xcode") {
            if (xcodeInstalled) out.insert(id);
        } else if (const auto cleaner = packageCache(id, folders)) {
            if (CleanerPath::isRealDirectory(cleaner->folder())) out.insert(id);
        }
    }
    return out;
}

}  // namespace kestrow
