#include "insights/duplicate_group.h"

#include <algorithm>
#include <tuple>

#include "support/byte_count_format.h"

namespace kestrow {

bool DuplicateGroup::contains(const std::string& path) const {
    return std::any_of(files.begin(), files.end(),
                       [&](const DuplicateFile& f) { return f.path == path; });
}

std::optional<std::int64_t> reclaimable(const DuplicateGroup& group) {
    if (group.files.empty()) return std::nullopt;
    std::int64_t sum = 0;
    std::int64_t smallest = 0;
    bool first = true;
    for (const auto& file : group.files) {
        if (!file.privateSize) return std::nullopt;
        sum += *file.privateSize;
        smallest = first ? *file.privateSize : std::min(smallest, *file.privateSize);
        first = false;
    }
    return sum - smallest;
}

bool isUnder(const std::filesystem::path& path, const std::filesystem::path& folder) {
    if (folder.empty()) return false;
    const auto p = path.lexically_normal();
    const auto f = folder.lexically_normal();
    auto pi = p.begin();
    for (auto fi = f.begin(); fi != f.end(); ++fi) {
        if (fi->empty()) continue;  // the trailing separator of "/a/b/"
        if (pi == p.end() || *pi != *fi) return false;
        ++pi;
    }
    return true;
}

std::vector<DuplicateFile> keepOrder(const DuplicateGroup& group,
                                     const KeepPreference& preference) {
    const auto rank = [&](const DuplicateFile& file) {
        const bool preferred =
            std::any_of(preference.preferred.begin(), preference.preferred.end(),
                        [&](const auto& folder) { return isUnder(file.path, folder); });
        const bool downloaded = isUnder(file.path, preference.downloads);
        return std::make_tuple(!preferred, downloaded, file.modified, file.path.size(),
                               std::cref(file.path));
    };
    std::vector<DuplicateFile> files = group.files;
    std::stable_sort(files.begin(), files.end(),
                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    return files;
}

std::optional<std::string> gainText(const DuplicateGroup& group,
                                    std::optional<bool> snapshotPresent, const Wording& wording) {
    const auto gain = reclaimable(group);
    if (!gain) return std::nullopt;
    if (*gain > 0) return formatByteCount(*gain) + " to gain";
    std::string text = duplicate_text::kShared;
    if (snapshotPresent == true) text += std::string(".") + duplicate_text::kSnapshotsThin;
    return wording(text);
}

}  // namespace kestrow
