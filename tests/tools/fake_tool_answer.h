#pragma once

// What the stand-in tools share: they log each call and answer from files a test wrote, so the
// code under test launches, reads and times out a real process.
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

namespace fake_tool {

inline std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void write(std::FILE* stream, const std::string& bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    std::fflush(stream);
}

// Appends the arguments, joined by spaces, as one line to `folder`/calls.log.
inline void logCall(const std::string& folder, const std::vector<std::string>& arguments) {
    std::string line;
    for (const auto& argument : arguments) line += (line.empty() ? "" : " ") + argument;
    line += '\n';
    // One write, so that calls running side by side do not mix their lines.
    if (std::FILE* log = std::fopen((folder + "/calls.log").c_str(), "a")) {
        std::fwrite(line.data(), 1, line.size(), log);
        std::fclose(log);
    }
}

// The files of one answer; a file that is missing adds nothing (and exit code 0).
struct AnswerFiles {
    std::string out;
    std::string err;  // empty: the tool never writes to standard error
    std::string delay;
    std::string exit;
};

// Writes the output, waits the delay, and gives the exit code.
inline int answer(const AnswerFiles& files) {
    if (const auto out = readFile(files.out)) write(stdout, *out);
    if (!files.err.empty()) {
        if (const auto err = readFile(files.err)) write(stderr, *err);
    }
    if (const auto delay = readFile(files.delay)) {
        const double seconds = std::strtod(delay->c_str(), nullptr);
        if (std::isfinite(seconds) && seconds > 0.0)
            std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    if (const auto code = readFile(files.exit))
        return static_cast<int>(std::strtol(code->c_str(), nullptr, 10));
    return 0;
}

}  // namespace fake_tool
