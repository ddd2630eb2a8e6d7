#include "support/unprivileged_child.h"

#include <grp.h>
#include <unistd.h>

#include <filesystem>

#include "support/bounded_child.h"

namespace kestrow::testing {

std::optional<std::string> unprivileged(const TempFolder& temp,
                                        const std::function<std::string()>& body) {
    namespace fs = std::filesystem;
    fs::permissions(temp.path(),
                    fs::perms::all & ~fs::perms::others_write & ~fs::perms::group_write);
    // Well inside the test run's own time limit: a child that hangs fails its test alone.
    return withinTime(std::chrono::minutes(4), [&body] {
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            ::_exit(3);
        }
        return body();
    });
}

}  // namespace kestrow::testing
