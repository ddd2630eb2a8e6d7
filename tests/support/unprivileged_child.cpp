#include "support/unprivileged_child.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

namespace kestrow::testing {

std::optional<std::string> unprivileged(const TempFolder& temp,
                                        const std::function<std::string()>& body) {
    namespace fs = std::filesystem;
    fs::permissions(temp.path(),
                    fs::perms::all & ~fs::perms::others_write & ~fs::perms::group_write);
    int channel[2];
    if (::pipe(channel) != 0) return std::nullopt;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            ::_exit(3);
        }
        const std::string result = body();
        const bool written = ::write(channel[1], result.data(), result.size()) ==
                             static_cast<ssize_t>(result.size());
        ::_exit(written ? 0 : 4);
    }
    ::close(channel[1]);
    std::string result;
    char buffer[256];
    for (ssize_t n; (n = ::read(channel[0], buffer, sizeof buffer)) > 0;) {
        result.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(channel[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return result;
}

}  // namespace kestrow::testing
