#include "support/owned_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace kestrow::testing {
namespace {

using Clock = std::chrono::steady_clock;

// Reaps `pid` within `limitMs`; true when it exited.
bool reap(pid_t pid, int limitMs) {
    const auto until = Clock::now() + std::chrono::milliseconds(limitMs);
    while (true) {
        int status = 0;
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid || (done < 0 && errno != EINTR)) return true;
        if (Clock::now() >= until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace

bool OwnedProcess::start(const std::vector<std::string>& argv, const std::filesystem::path& log,
                         const std::string& input, bool ownGroup) {
    stop();
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    int in[2];
    if (::pipe2(in, O_CLOEXEC) != 0) return false;
    const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (out < 0) {
        ::close(in[0]);
        ::close(in[1]);
        return false;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        // A group of its own: what it starts (smbd's helpers, the services a bus activates)
        // is stopped with it.
        if (ownGroup) ::setpgid(0, 0);
        ::dup2(in[0], 0);
        ::dup2(out, 1);
        ::dup2(out, 2);
        ::execvp(args[0], args.data());
        ::_exit(127);
    }
    // Set from both sides, so a stop that comes at once still reaches the group.
    if (pid > 0 && ownGroup) ::setpgid(pid, pid);
    ::close(in[0]);
    ::close(out);
    if (pid > 0 && !input.empty()) {
        // Small inputs only (a password or two): they fit in the pipe at once.
        [[maybe_unused]] const auto written = ::write(in[1], input.data(), input.size());
    }
    // The input stays open until stop: smbd in the foreground ends when its input ends.
    if (pid > 0)
        inputWrite_ = in[1];
    else
        ::close(in[1]);
    pid_ = pid;
    return pid > 0;
}

void OwnedProcess::closeInput() {
    if (inputWrite_ >= 0) ::close(inputWrite_);
    inputWrite_ = -1;
}

void OwnedProcess::stop(int graceMs) {
    closeInput();
    if (pid_ <= 0) return;
    // A program that makes its own session (smbd) has no group under its id for a moment.
    if (::kill(-pid_, SIGTERM) != 0) ::kill(pid_, SIGTERM);
    if (!reap(pid_, graceMs) && ::kill(-pid_, SIGKILL) != 0) ::kill(pid_, SIGKILL);
    reap(pid_, 5000);
    // Whatever of the group outlived its leader gets a moment, then no more.
    const auto until = Clock::now() + std::chrono::milliseconds(graceMs);
    while (::kill(-pid_, 0) == 0 && Clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ::kill(-pid_, SIGKILL);
    pid_ = -1;
}

bool OwnedProcess::running() {
    if (pid_ <= 0) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == 0) return true;
    pid_ = -1;
    return false;
}

int OwnedProcess::run(const std::vector<std::string>& argv, const std::filesystem::path& log,
                      const std::string& input, int limitMs) {
    OwnedProcess process;
    if (!process.start(argv, log, input)) return -1;
    process.closeInput();
    const auto until = Clock::now() + std::chrono::milliseconds(limitMs);
    while (Clock::now() < until) {
        int status = 0;
        const pid_t done = ::waitpid(process.pid_, &status, WNOHANG);
        if (done == process.pid_) {
            process.pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return -1;  // the destructor stops it
}

bool waitForListener(int port, int limitMs) {
    const auto until = Clock::now() + std::chrono::milliseconds(limitMs);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    while (Clock::now() < until) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool up = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        ::close(fd);
        if (up) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

}  // namespace kestrow::testing
