#include "platform/linux/proc_running_processes.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

// The kernel keeps this many characters of a process's name.
constexpr std::size_t kCommLength = 15;
constexpr std::string_view kDeletedSuffix = " (deleted)";

bool isProcessID(const std::string& name) {
    return !name.empty() &&
           std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view baseName(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The full name behind a cut `comm`, from the first element of `cmdline`. A program that rewrote
// its title has its arguments in that element too, separated by spaces, so the element is tried
// up to each space in turn before whole: the first executable name that `comm` begins is taken.
std::optional<std::string> fullName(const std::string& comm, const std::string& cmdline) {
    if (comm.size() != kCommLength) return std::nullopt;
    const std::string_view first(cmdline.data(), std::min(cmdline.find('\0'), cmdline.size()));
    std::size_t cut = 0;
    while (cut != std::string_view::npos) {
        cut = first.find(' ', cut + 1);
        const std::string_view name = baseName(first.substr(0, cut));
        if (name.size() > kCommLength && name.starts_with(comm)) return std::string(name);
    }
    return std::nullopt;
}

// The NUL-separated arguments. A program that rewrote its title may have left a single element
// or trailing padding; empty elements at the end are that padding.
std::vector<std::string> argumentsOf(const std::string& cmdline) {
    std::vector<std::string> arguments;
    std::size_t start = 0;
    while (start < cmdline.size()) {
        const std::size_t end = std::min(cmdline.find('\0', start), cmdline.size());
        arguments.emplace_back(cmdline, start, end - start);
        start = end + 1;
    }
    while (!arguments.empty() && arguments.back().empty()) arguments.pop_back();
    return arguments;
}

std::optional<std::string> executablePath(const std::filesystem::path& exeLink) {
    std::error_code ec;
    std::string target = std::filesystem::read_symlink(exeLink, ec).string();
    if (ec || target.empty()) return std::nullopt;
    if (target.ends_with(kDeletedSuffix)) target.resize(target.size() - kDeletedSuffix.size());
    return target;
}

}  // namespace

ProcRunningProcesses::ProcRunningProcesses(std::filesystem::path procRoot)
    : procRoot_(std::move(procRoot)) {}

ProcessListing ProcRunningProcesses::current() {
    std::error_code listError;
    std::filesystem::directory_iterator entries(procRoot_, listError);
    std::vector<RunningProcess> processes;
    for (const std::filesystem::directory_iterator end; !listError && entries != end;
         entries.increment(listError)) {
        const std::filesystem::path folder = entries->path();
        if (!isProcessID(folder.filename().string())) continue;
        // A process that has ended leaves no `comm` to read.
        std::optional<std::string> comm = readFile(folder / "comm");
        if (!comm) continue;
        if (comm->ends_with('\n')) comm->pop_back();
        const std::string cmdline = readFile(folder / "cmdline").value_or("");
        RunningProcess process;
        process.name = fullName(*comm, cmdline).value_or(std::move(*comm));
        process.path = executablePath(folder / "exe");
        process.arguments = argumentsOf(cmdline);
        std::error_code gone;
        if (!std::filesystem::exists(folder, gone)) continue;
        processes.push_back(std::move(process));
    }
    // A table read only in part could hide the very process asked about.
    if (listError) return std::nullopt;
    return processes;
}

bool ProcRunningProcesses::applicationRunning(const std::string& /*bundleID*/) {
    return false;
}

}  // namespace kestrow
