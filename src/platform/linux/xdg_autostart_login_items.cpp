#include "platform/linux/xdg_autostart_login_items.h"

#include <map>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

constexpr std::string_view kGroup = "[Desktop Entry]";

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

// The keys of the [Desktop Entry] group; the first of duplicated keys wins. Nothing when the
// text has no such group.
std::optional<std::map<std::string, std::string, std::less<>>> desktopEntryKeys(
    std::string_view text) {
    std::optional<std::map<std::string, std::string, std::less<>>> keys;
    bool inGroup = false;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = trim(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == '[') {
            inGroup = line == kGroup;
            if (inGroup && !keys) keys.emplace();
            continue;
        }
        const auto equals = line.find('=');
        if (!inGroup || equals == std::string_view::npos) continue;
        keys->emplace(std::string(trim(line.substr(0, equals))),
                      std::string(trim(line.substr(equals + 1))));
    }
    return keys;
}

// Undoes the escapes every string value may carry (\s \n \t \r \\).
std::string unescapeValue(std::string_view value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        switch (value[++i]) {
            case 's':
                out += ' ';
                break;
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            default:
                out += value[i];
                break;
        }
    }
    return out;
}

std::string escapeValue(std::string_view value) {
    std::string out;
    for (const char c : value) {
        switch (c) {
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                out += c;
                break;
        }
    }
    return out;
}

std::string undoubledPercent(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
    }
    return out;
}

bool samePath(const std::string& program, const std::filesystem::path& executable) {
    if (program == executable.string()) return true;
    std::error_code error;
    return std::filesystem::equivalent(program, executable, error) && !error;
}

// The Exec= value that starts `executable` as a login item, quoted and escaped.
std::string execLine(const std::filesystem::path& executable) {
    std::string quoted = "\"";
    for (const char c : executable.string()) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        quoted += c;
        if (c == '%') quoted += '%';  // a single % would start a field code
    }
    quoted += "\" --login-item";
    // The value's own escapes apply on top of the quoting, so a backslash ends up as four.
    return escapeValue(quoted);
}

// The program an Exec= value, as written in the file, starts: its first argument, unquoted.
// Nothing when the value is malformed.
std::optional<std::string> programOf(std::string_view rawValue) {
    const std::string unescaped = unescapeValue(rawValue);
    const std::string_view execValue = unescaped;
    const auto start = execValue.find_first_not_of(" \t");
    if (start == std::string_view::npos) return std::nullopt;
    const std::string_view rest = execValue.substr(start);
    if (rest.front() != '"') return undoubledPercent(rest.substr(0, rest.find_first_of(" \t")));
    std::string program;
    for (std::size_t i = 1; i < rest.size(); ++i) {
        if (rest[i] == '"') return undoubledPercent(program);
        if (rest[i] == '\\' && i + 1 < rest.size()) ++i;
        program += rest[i];
    }
    return std::nullopt;  // no closing quote
}

}  // namespace

XdgAutostartLoginItems::XdgAutostartLoginItems(std::filesystem::path entryFile,
                                               std::filesystem::path executable)
    : entryFile_(std::move(entryFile)), executable_(std::move(executable)) {}

bool XdgAutostartLoginItems::isEnabled() const {
    const auto text = readFile(entryFile_);
    if (!text) return false;
    const auto keys = desktopEntryKeys(*text);
    if (!keys) return false;
    const auto value = [&keys](std::string_view key) -> std::optional<std::string> {
        const auto found = keys->find(key);
        if (found == keys->end()) return std::nullopt;
        return found->second;
    };
    if (value("Hidden") == "true" || value("X-GNOME-Autostart-enabled") == "false") return false;
    const auto exec = value("Exec");
    if (!exec) return false;
    const auto program = programOf(*exec);
    return program && samePath(*program, executable_);
}

std::optional<std::string> XdgAutostartLoginItems::setEnabled(bool enabled) {
    std::string error;
    if (writeFileAtomically(entryFile_, entryText(enabled), &error)) return std::nullopt;
    return (enabled ? "Could not turn on start at login: "
                    : "Could not turn off start at login: ") +
           error;
}

std::string XdgAutostartLoginItems::entryText(bool enabled) const {
    std::string text;
    text += kGroup;
    text += "\nType=Application\nName=Kestrow\n";
    text += "Comment=Keeps an eye on backups, network shares, sleep and disk space\n";
    text += "Exec=" + execLine(executable_) + "\n";
    text += enabled ? "X-GNOME-Autostart-enabled=true\n" : "X-GNOME-Autostart-enabled=false\n";
    text += "NoDisplay=false\n";
    if (!enabled) text += "Hidden=true\n";
    return text;
}

}  // namespace kestrow
