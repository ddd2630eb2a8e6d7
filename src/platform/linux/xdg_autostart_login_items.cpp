#include "platform/linux/xdg_autostart_login_items.h"


#include "support/atomic_file.h"
#include "support/desktop_entry.h"

namespace kestrow {
namespace {

constexpr std::string_view kGroup = "[Desktop Entry]";

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

}  // namespace

XdgAutostartLoginItems::XdgAutostartLoginItems(std::filesystem::path entryFile,
                                               std::filesystem::path executable)
    : entryFile_(std::move(entryFile)), executable_(std::move(executable)) {}

bool XdgAutostartLoginItems::isEnabled() const {
    const auto entry = DesktopEntry::read(entryFile_);
    if (!entry) return false;
    if (entry->isTrue("Hidden") || entry->value("X-GNOME-Autostart-enabled") == "false")
        return false;
    const auto program = entry->program();
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
