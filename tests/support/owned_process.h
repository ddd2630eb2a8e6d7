#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kestrow::testing {

// A program a test starts and stops again by its process id: standard output and error go to
// `log`, standard input gets `input` (then end of file), so secrets can be fed the way a user
// would type them instead of on the command line. The input stays open (some daemons stop when
// it ends) until `closeInput` or `stop`.
class OwnedProcess {
public:
    OwnedProcess() = default;
    ~OwnedProcess() { stop(); }
    OwnedProcess(const OwnedProcess&) = delete;
    OwnedProcess& operator=(const OwnedProcess&) = delete;

    // `ownGroup` false for a program that makes its own session (it could not as a group
    // leader): its group then carries its id all the same.
    bool start(const std::vector<std::string>& argv, const std::filesystem::path& log,
               const std::string& input = {}, bool ownGroup = true);
    // SIGTERM to its process group (the id it was started with), then SIGKILL after `graceMs`;
    // waits for the exit. Safe to call twice.
    void stop(int graceMs = 3000);
    bool running();
    void closeInput();
    pid_t pid() const { return pid_; }

    // Runs a program to its end (within `limitMs`); its exit status, or -1.
    static int run(const std::vector<std::string>& argv, const std::filesystem::path& log,
                   const std::string& input = {}, int limitMs = 10'000);

private:
    pid_t pid_ = -1;
    int inputWrite_ = -1;
};

// Whether something accepts TCP connections at 127.0.0.1:`port`, asked until `limitMs` passes.
bool waitForListener(int port, int limitMs);

}  // namespace kestrow::testing
