#include "support/mount_info_field.h"

#include <sys/sysmacros.h>

#include <charconv>

namespace kestrow {
namespace {

std::vector<std::string_view> fieldsOf(std::string_view line) {
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    while (start < line.size()) {
        const std::size_t end = line.find(' ', start);
        const std::size_t stop = end == std::string_view::npos ? line.size() : end;
        if (stop > start) fields.push_back(line.substr(start, stop - start));
        start = stop + 1;
    }
    return fields;
}

std::optional<std::uint64_t> deviceOf(std::string_view majorMinor) {
    const auto colon = majorMinor.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    unsigned major = 0;
    unsigned minor = 0;
    const auto m = majorMinor.substr(0, colon);
    const auto n = majorMinor.substr(colon + 1);
    if (m.empty() || n.empty()) return std::nullopt;
    if (std::from_chars(m.data(), m.data() + m.size(), major).ptr != m.data() + m.size() ||
        std::from_chars(n.data(), n.data() + n.size(), minor).ptr != n.data() + n.size()) {
        return std::nullopt;
    }
    return makedev(major, minor);
}

}  // namespace

std::string unescapeMountInfoField(const std::string& field) {
    const auto octal = [](char c) { return c >= '0' && c <= '7'; };
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && octal(field[i + 1]) &&
            octal(field[i + 2]) && octal(field[i + 3])) {
            out.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                            (field[i + 3] - '0')));
            i += 3;
        } else {
            out.push_back(field[i]);
        }
    }
    return out;
}

std::vector<MountInfoRow> parseMountInfo(std::string_view text) {
    std::vector<MountInfoRow> rows;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        const auto fields = fieldsOf(text.substr(start, end - start));
        start = end + 1;
        if (fields.size() < 5) continue;
        MountInfoRow row{
            deviceOf(fields[2]), unescapeMountInfoField(std::string(fields[4])), {}, {}};
        std::size_t dash = 6;
        while (dash < fields.size() && fields[dash] != "-") ++dash;
        if (dash + 2 < fields.size()) {
            row.type = fields[dash + 1];
            row.source = fields[dash + 2];
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace kestrow
