#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "insights/duplicate_group.h"
#include "platform/locations.h"

namespace kestrow {

// Where the duplicate finder looks: the user's Desktop, Documents and Downloads, then the folders
// the user added.
struct DuplicateRoots {
    std::filesystem::path desktop;
    std::filesystem::path documents;
    std::filesystem::path downloads;
    std::vector<std::filesystem::path> extra;

    // The three standard folders as the desktop names them in $XDG_CONFIG_HOME/user-dirs.dirs
    // (with $HOME expanded), else ~/Desktop, ~/Documents and ~/Downloads. A folder set to the home
    // itself is how that file turns one off: it is left empty then, never widened to the home.
    static DuplicateRoots resolve(const UserLocations& locations,
                                  const std::vector<std::string>& extraFolders);

    // Every root in order, the empty ones left out.
    std::vector<std::filesystem::path> all() const;
    // "Desktop, Documents, Downloads, /srv/photos. Files of 1 MB or more; app and photo libraries
    // are skipped."
    std::string caption() const;
    // The copy to keep is the filed one: under Documents or a folder the user added, and not in
    // Downloads. The folders are given as the kernel resolves them, as the copies' paths are.
    KeepPreference keepPreference() const;
};

}  // namespace kestrow
