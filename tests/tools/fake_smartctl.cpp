// Stands in for smartctl in tests, answering from files in $FAKE_SMARTCTL_DIR:
//   output.json  written to standard output as it is (read again on every call)
//   delay        seconds to wait after writing, before exiting
//   exit         the exit code (0 when missing); smartctl's is a bit mask, so a disk that
//                answered may still give a code other than 0
// Every call appends its arguments, joined by spaces, as one line to calls.log. Without the
// folder it prints nothing and succeeds.
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

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const char* folderVariable = std::getenv("FAKE_SMARTCTL_DIR");
    const std::string folder = folderVariable != nullptr ? folderVariable : "";
    if (folder.empty()) return 0;
    logCall(folder, arguments);
    if (const auto out = readFile(folder + "/output.json")) {
        std::fwrite(out->data(), 1, out->size(), stdout);
        std::fflush(stdout);
    }
    if (const auto delay = readFile(folder + "/delay")) {
        const double seconds = std::strtod(delay->c_str(), nullptr);
        if (std::isfinite(seconds) && seconds > 0.0)
            std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    if (const auto code = readFile(folder + "/exit"))
        return static_cast<int>(std::strtol(code->c_str(), nullptr, 10));
    return 0;
}
