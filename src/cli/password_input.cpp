#include "cli/password_input.h"

#include <termios.h>
#include <unistd.h>

#include <iostream>

namespace kestrow {

std::optional<std::string> readSecretLine(const std::string& prompt) {
    termios saved{};
    const bool terminal = isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        std::cerr << prompt << std::flush;
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::string line;
    const bool read = static_cast<bool>(std::getline(std::cin, line));
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::cerr << "\n";
    }
    if (!read) return std::nullopt;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

}  // namespace kestrow
