#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

// The [Desktop Entry] group of an application's or an autostart entry's file.
class DesktopEntry {
public:
    // Nothing when the text has no [Desktop Entry] group. The first of duplicated keys wins.
    static std::optional<DesktopEntry> parse(std::string_view text);
    // Nothing when the file cannot be read or is no desktop entry.
    static std::optional<DesktopEntry> read(const std::filesystem::path& file);

    // The value with its escapes (\s \n \t \r \\) undone.
    std::optional<std::string> value(std::string_view key) const;
    bool isTrue(std::string_view key) const { return value(key) == "true"; }
    // The program Exec= starts: its first argument, unquoted, with "%%" read as "%". Nothing when
    // Exec= is missing, empty or malformed.
    std::optional<std::string> program() const;

private:
    std::map<std::string, std::string, std::less<>> keys_;
};

}  // namespace kestrow
