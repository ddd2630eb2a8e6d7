// Stands in for the Time Machine tool in tests, answering from files in $FAKE_TMUTIL_DIR:
//   <command>.out    written to standard output as it is (read again on every call)
//   <command>.err    written to standard error
//   <command>.delay  seconds to wait after writing, before exiting
//   <command>.exit   the exit code (0 when missing)
// where <command> is "status" (for "status -X") or "startbackup". Every call appends its
// arguments, joined by spaces, as one line to calls.log. Without the folder the known commands
// print nothing and succeed.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write(std::FILE* stream, const std::string& bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    std::fflush(stream);
}

void logCall(const std::string& folder, const std::vector<std::string>& arguments) {
    std::string line;
    for (const auto& argument : arguments) line += (line.empty() ? "" : " ") + argument;
    line += '\n';
    // One write, so that calls running side by side do not mix their lines.
    if (std::FILE* log = std::fopen((folder + "/calls.log").c_str(), "a")) {
        std::fwrite(line.data(), 1, line.size(), log);
        std::fclose(log);
    }
}

int answer(const std::string& folder, const std::string& command) {
    const std::string base = folder + "/" + command;
    if (const auto out = readFile(base + ".out")) write(stdout, *out);
    if (const auto err = readFile(base + ".err")) write(stderr, *err);
    if (const auto delay = readFile(base + ".delay")) {
        const double seconds = std::strtod(delay->c_str(), nullptr);
        if (std::isfinite(seconds) && seconds > 0.0)
            std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    if (const auto code = readFile(base + ".exit"))
        return static_cast<int>(std::strtol(code->c_str(), nullptr, 10));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const char* folderVariable = std::getenv("FAKE_TMUTIL_DIR");
    const std::string folder = folderVariable != nullptr ? folderVariable : "";
    if (!folder.empty()) logCall(folder, arguments);

    std::string command;
    if (arguments == std::vector<std::string>{"status", "-X"}) {
        command = "status";
    } else if (arguments == std::vector<std::string>{"startbackup"}) {
        command = "startbackup";
    } else {
        write(stderr, "usage: fake_tmutil status -X | startbackup\n");
        return 64;
    }
    if (folder.empty()) return 0;
    return answer(folder, command);
}
