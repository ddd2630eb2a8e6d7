#include "app/start_at_launch.h"

#include <array>

namespace kestrow {
namespace {

namespace fs = std::filesystem;

// `path` is `folder` or lies below it, compared component by component so that "/usr" does not
// take in "/usrlocal".
bool isWithin(const fs::path& path, const fs::path& folder) {
    if (folder.empty() || !folder.is_absolute()) return false;
    auto p = path.begin();
    for (auto f = folder.begin(); f != folder.end(); ++f, ++p) {
        if (f->empty()) continue;  // the trailing "" of "/usr/"
        if (p == path.end() || *p != *f) return false;
    }
    return true;
}

bool insideBuildTree(const fs::path& executable) {
    std::error_code error;
    for (fs::path folder = executable.parent_path(); !folder.empty();
         folder = folder.parent_path()) {
        if (fs::exists(folder / "CMakeCache.txt", error)) return true;
        if (folder == folder.root_path()) break;
    }
    return false;
}

}  // namespace

StartAtLaunch::StartAtLaunch(LoginItems& loginItems, Logger log)
    : loginItems_(loginItems), log_(log), enabled_(loginItems.isEnabled()) {}

void StartAtLaunch::setEnabled(bool enabled) {
    if (const auto error = loginItems_.setEnabled(enabled)) {
        log_.error("Failed to {} start at launch: {}", enabled ? "enable" : "disable", *error);
    }
    enabled_ = loginItems_.isEnabled();
}

bool StartAtLaunch::isInstalledAgent(const fs::path& executable, const fs::path& home) {
    if (executable.empty() || !executable.is_absolute()) return false;
    std::error_code error;
    fs::path real = fs::weakly_canonical(executable, error);
    if (error) real = executable.lexically_normal();
    fs::path realHome;
    if (!home.empty()) {
        realHome = fs::weakly_canonical(home, error);
        if (error) realHome = home.lexically_normal();
    }
    const std::array<fs::path, 4> programFolders{
        fs::path("/usr"),
        fs::path("/opt"),
        realHome.empty() ? fs::path() : realHome / ".local" / "bin",
        realHome.empty() ? fs::path() : realHome / "bin",
    };
    bool inProgramFolder = false;
    for (const fs::path& folder : programFolders) inProgramFolder |= isWithin(real, folder);
    return inProgramFolder && !insideBuildTree(real);
}

}  // namespace kestrow
