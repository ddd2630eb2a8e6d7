#include "cleaners/device_support.h"

#include <algorithm>
#include <limits>
#include <map>

namespace kestrow {

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Every blank splits, so doubled blanks leave an empty part and the name is refused.
std::vector<std::string_view> split(std::string_view text, bool (*separator)(char)) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || separator(text[i])) {
            parts.push_back(text.substr(start, i - start));
            start = i + 1;
        }
    }
    return parts;
}

std::optional<int> wholeNumber(std::string_view text) {
    if (text.empty()) return std::nullopt;
    int value = 0;
    for (const char c : text) {
        if (!isDigit(c)) return std::nullopt;
        const int digit = c - '0';
        if (value > (std::numeric_limits<int>::max() - digit) / 10) return std::nullopt;
        value = value * 10 + digit;
    }
    return value;
}

// Negative, zero or positive as `a` is older, the same as or newer than `b`; a missing version
// part counts as 0, so 17.1 and 17.1.0 are the same release.
int compareVersions(const std::vector<int>& a, const std::vector<int>& b) {
    const std::size_t count = std::max(a.size(), b.size());
    for (std::size_t i = 0; i < count; ++i) {
        const int left = i < a.size() ? a[i] : 0;
        const int right = i < b.size() ? b[i] : 0;
        if (left != right) return left < right ? -1 : 1;
    }
    return 0;
}

bool older(const DeviceSupport::Entry& a, const DeviceSupport::Entry& b) {
    const int versions = compareVersions(a.version, b.version);
    if (versions != 0) return versions < 0;
    return a.build < b.build;
}

}  // namespace

std::optional<DeviceSupport::Entry> DeviceSupport::parse(std::string_view name) {
    const auto parts = split(name, isBlank);
    if (parts.size() != 3) return std::nullopt;
    const std::string_view model = parts[0];
    const std::string_view version = parts[1];
    std::string_view build = parts[2];

    if (model.empty() || !std::all_of(model.begin(), model.end(), [](char c) {
            return isLetter(c) || isDigit(c) || c == ',';
        })) {
        return std::nullopt;
    }

    Entry entry;
    for (const auto part : split(version, [](char c) { return c == '.'; })) {
        const auto number = wholeNumber(part);
        if (!number) return std::nullopt;
        entry.version.push_back(*number);
    }
    if (entry.version.size() < 2) return std::nullopt;

    if (build.size() < 2 || build.front() != '(' || build.back() != ')') return std::nullopt;
    build = build.substr(1, build.size() - 2);
    auto parsed = AppleBuild::parse(build);
    if (!parsed) return std::nullopt;

    entry.name = std::string(name);
    entry.model = std::string(model);
    entry.build = std::move(*parsed);
    return entry;
}

std::vector<std::string> DeviceSupport::superseded(const std::vector<std::string>& names) {
    std::vector<Entry> entries;
    std::map<std::string, const Entry*> newest;  // model → its newest entry
    entries.reserve(names.size());
    for (const auto& name : names) {
        if (auto entry = parse(name)) entries.push_back(std::move(*entry));
    }
    for (const auto& entry : entries) {
        auto& best = newest[entry.model];
        if (best == nullptr || older(*best, entry)) best = &entry;
    }
    std::vector<std::string> out;
    for (const auto& entry : entries) {
        if (older(entry, *newest.at(entry.model))) out.push_back(entry.name);
    }
    return out;
}

}  // namespace kestrow
