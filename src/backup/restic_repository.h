#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrow {

// Where a restic repository lives, told from the string restic is given.
struct ResticRepositoryPlace {
    bool local = false;
    // Safe to show and log: any password in it removed.
    std::string display;
    // The string holds a password, so whatever runs restic keeps it out of logs and argv.
    bool carriesCredentials = false;

    // A local repository: its folder, and the mount point of the drive it lives on when that is
    // not the root file system (a drive that may be unplugged; expected from /media/USER/LABEL,
    // /run/media/USER/LABEL or /mnt/NAME even while it is not mounted).
    std::filesystem::path folder;
    std::optional<std::filesystem::path> mountPoint;
    bool mounted = false;  // whether `mountPoint` is in the mount table now
    // Folders whose changes mean a backup ran or is running here.
    std::vector<std::filesystem::path> watch;

    // A remote repository: the scheme ("sftp", "rest", "s3"...) and where to probe it, when
    // that can be told from the string.
    std::string scheme;
    std::optional<std::string> host;
    std::optional<int> port;
};

class ResticRepository {
public:
    // `mountInfo` is the text of /proc/self/mountinfo.
    static ResticRepositoryPlace classify(std::string_view repository, std::string_view mountInfo);
    // The same against this process's mount table now.
    static ResticRepositoryPlace classify(std::string_view repository);
};

}  // namespace kestrow
