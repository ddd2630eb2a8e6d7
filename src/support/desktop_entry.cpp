#include "support/desktop_entry.h"

#include "support/atomic_file.h"

namespace kestrow {
namespace {

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

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

// A literal percent sign is written twice in Exec=, since a single one starts a field code.
std::string undoubledPercent(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
    }
    return out;
}

}  // namespace

std::optional<DesktopEntry> DesktopEntry::parse(std::string_view text) {
    std::optional<DesktopEntry> entry;
    bool inGroup = false;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = trim(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == '[') {
            inGroup = line == "[Desktop Entry]";
            if (inGroup && !entry) entry.emplace();
            continue;
        }
        const auto equals = line.find('=');
        if (!inGroup || equals == std::string_view::npos) continue;
        entry->keys_.emplace(std::string(trim(line.substr(0, equals))),
                             std::string(trim(line.substr(equals + 1))));
    }
    return entry;
}

std::optional<DesktopEntry> DesktopEntry::read(const std::filesystem::path& file) {
    const auto text = readFile(file);
    if (!text) return std::nullopt;
    return parse(*text);
}

std::optional<std::string> DesktopEntry::value(std::string_view key) const {
    const auto found = keys_.find(key);
    if (found == keys_.end()) return std::nullopt;
    return unescapeValue(found->second);
}

std::optional<std::string> DesktopEntry::program() const {
    const auto exec = value("Exec");
    if (!exec) return std::nullopt;
    const std::string_view line = *exec;
    const auto start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos) return std::nullopt;
    const std::string_view rest = line.substr(start);
    if (rest.front() != '"') return undoubledPercent(rest.substr(0, rest.find_first_of(" \t")));
    std::string program;
    for (std::size_t i = 1; i < rest.size(); ++i) {
        if (rest[i] == '"')
            return program.empty() ? std::nullopt : std::optional(undoubledPercent(program));
        if (rest[i] == '\\' && i + 1 < rest.size()) ++i;
        program += rest[i];
    }
    return std::nullopt;  // no closing quote
}

}  // namespace kestrow
