#include "cleaners/cleaner_owner_script.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "support/ascii_case.h"

namespace kestrow {
namespace {

std::string_view baseName(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// `stem`, or `stem` followed by a version: "python3.11", "pip3".
bool isNameOrVersioned(std::string_view name, std::string_view stem) {
    if (stem.empty() || !name.starts_with(stem)) return false;
    const std::string_view version = name.substr(stem.size());
    return std::all_of(version.begin(), version.end(),
                       [](char c) { return (c >= '0' && c <= '9') || c == '.'; });
}

bool anyMatches(std::string_view name, const std::vector<std::string>& stems) {
    const std::string lower = asciiLowercase(name);
    return std::any_of(stems.begin(), stems.end(), [&](const std::string& stem) {
        return isNameOrVersioned(lower, asciiLowercase(stem));
    });
}

std::string_view withoutScriptExtension(std::string_view name) {
    static constexpr std::array<std::string_view, 8> kExtensions = {".py",  ".pyw", ".pyz", ".js",
                                                                    ".cjs", ".mjs", ".rb",  ".sh"};
    for (const std::string_view extension : kExtensions) {
        if (name.size() > extension.size() && name.ends_with(extension))
            return name.substr(0, name.size() - extension.size());
    }
    return name;
}

// Options after which the interpreter reads no script: it runs the text given, or its input.
bool runsCommandText(std::string_view option) {
    static constexpr std::array<std::string_view, 6> kCommands = {"-c", "-e",      "--eval",
                                                                  "-p", "--print", "-"};
    return std::find(kCommands.begin(), kCommands.end(), option) != kCommands.end();
}

// Options whose value is the next argument, which is not the script.
bool takesValue(std::string_view option) {
    static constexpr std::array<std::string_view, 9> kWithValue = {
        "-W", "-X",          "-r", "--require", "--import", "--loader", "--experimental-loader",
        "-C", "--conditions"};
    return std::find(kWithValue.begin(), kWithValue.end(), option) != kWithValue.end();
}

}  // namespace

std::string programName(const RunningProcess& process) {
    if (process.path && !process.path->empty()) return std::string(baseName(*process.path));
    if (!process.arguments.empty() && !process.arguments.front().empty())
        return std::string(baseName(process.arguments.front()));
    return process.name;
}

std::optional<InterpretedScript> InterpretedScript::of(const std::vector<std::string>& arguments) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--") {
            if (i + 1 >= arguments.size()) return std::nullopt;
            return InterpretedScript{std::string(baseName(arguments[i + 1])), {}};
        }
        if (runsCommandText(argument)) return std::nullopt;
        if (argument.starts_with("-m") && !argument.starts_with("--")) {
            if (argument.size() > 2) return InterpretedScript{{}, std::string(argument.substr(2))};
            if (i + 1 >= arguments.size()) return std::nullopt;
            return InterpretedScript{{}, arguments[i + 1]};
        }
        if (argument.starts_with('-')) {
            if (takesValue(argument)) ++i;
            continue;
        }
        // A package folder run whole (`python3 …/pip/__main__.py`) is that package.
        if (baseName(argument) == "__main__.py") {
            const std::string_view path = argument.substr(0, argument.rfind('/') + 1);
            return InterpretedScript{{}, std::string(baseName(path))};
        }
        return InterpretedScript{std::string(baseName(argument)), {}};
    }
    return std::nullopt;
}

bool CleanerOwnerScript::matches(const RunningProcess& process) const {
    if (!anyMatches(programName(process), interpreters)) return false;
    const auto run = InterpretedScript::of(process.arguments);
    if (!run) return false;
    if (!run->script.empty()) return anyMatches(withoutScriptExtension(run->script), scripts);
    const std::string module = asciiLowercase(run->module);
    return std::any_of(modules.begin(), modules.end(), [&](const std::string& candidate) {
        const std::string wanted = asciiLowercase(candidate);
        return module == wanted || module.starts_with(wanted + ".");
    });
}

}  // namespace kestrow
