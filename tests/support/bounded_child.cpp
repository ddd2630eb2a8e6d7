#include "support/bounded_child.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kestrow::testing {

std::optional<std::string> withinTime(std::chrono::milliseconds limit,
                                      const std::function<std::string()>& body) {
    int channel[2];
    if (::pipe(channel) != 0) return std::nullopt;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(channel[0]);
        ::close(channel[1]);
        return std::nullopt;
    }
    if (child == 0) {
        ::close(channel[0]);
        const std::string result = body();
        const bool written = ::write(channel[1], result.data(), result.size()) ==
                             static_cast<ssize_t>(result.size());
        ::_exit(written ? 0 : 4);
    }
    ::close(channel[1]);
    std::string result;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    bool ended = false;
    while (!ended) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        pollfd ready{channel[0], POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
        char buffer[256];
        const ssize_t n = ::read(channel[0], buffer, sizeof buffer);
        if (n > 0) {
            result.append(buffer, static_cast<std::size_t>(n));
        } else {
            ended = true;  // the child closed its end: it has finished
        }
    }
    ::close(channel[0]);
    if (!ended) ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!ended || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return result;
}

}  // namespace kestrow::testing
