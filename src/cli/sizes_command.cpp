#include "cli/sizes_command.h"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <unordered_set>

#include "insights/tree_walk.h"

namespace kestrow {

const char* const kSizesUsage = "usage: kestrow sizes [--min-size BYTES] [--json] DIR...\n";

namespace {

constexpr std::int64_t kDefaultMinimum = 500'000'000;

struct Arguments {
    std::int64_t minimum = kDefaultMinimum;
    bool json = false;
    std::vector<std::string> folders;
};

std::optional<std::int64_t> byteCount(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
    return value;
}

std::optional<Arguments> parse(const CommandContext& context) {
    const auto usage = [&](const std::string& message) -> std::optional<Arguments> {
        context.err << "kestrow sizes: " << message << "\n" << kSizesUsage;
        return std::nullopt;
    };
    Arguments parsed;
    const auto& args = context.arguments;
    bool options = true;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (!options || arg.empty() || arg[0] != '-' || arg == "-") {
            parsed.folders.push_back(arg);
        } else if (arg == "--") {
            options = false;
        } else if (arg == "--json") {
            parsed.json = true;
        } else if (arg == "--min-size" || arg.starts_with("--min-size=")) {
            std::string_view value;
            if (arg == "--min-size") {
                if (i + 1 == args.size()) return usage("--min-size needs a number of bytes");
                value = args[++i];
            } else {
                value = std::string_view(arg).substr(std::strlen("--min-size="));
            }
            const auto bytes = byteCount(value);
            if (!bytes)
                return usage("--min-size needs a number of bytes, not '" + std::string(value) +
                             "'");
            parsed.minimum = *bytes;
        } else {
            return usage("unknown option '" + arg + "'");
        }
    }
    if (parsed.folders.empty()) return usage("no folder given");
    return parsed;
}

// The line for a folder that cannot be walked at all, or nothing.
std::optional<std::string> refusal(const std::string& folder) {
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return folder + ": no such folder";
        return folder + ": " + std::strerror(errno);
    }
    if (!S_ISDIR(info.st_mode)) return folder + ": not a folder";
    return std::nullopt;
}

// Whether the folder `a` is printed before `b` (both below one root, spelled relative to it):
// name by name in byte order, and anything inside a folder before the folder itself.
bool postOrder(std::string_view a, std::string_view b) {
    while (true) {
        if (a.empty() || b.empty()) return b.empty() && !a.empty();
        const std::size_t aEnd = std::min(a.find('/'), a.size());
        const std::size_t bEnd = std::min(b.find('/'), b.size());
        const std::string_view aName = a.substr(0, aEnd);
        const std::string_view bName = b.substr(0, bEnd);
        if (aName != bName) return aName < bName;
        a.remove_prefix(std::min(aEnd + 1, a.size()));
        b.remove_prefix(std::min(bEnd + 1, b.size()));
    }
}

using Folder = std::map<std::string, std::int64_t>::value_type;

// The folders in du's order: root by root as given, each root's subtree in post-order.
std::vector<const Folder*> ordered(const std::vector<std::string>& roots,
                                   const std::map<std::string, std::int64_t>& sizes) {
    std::vector<const Folder*> result;
    std::unordered_set<const Folder*> listed;                       // roots may overlap
    std::vector<std::pair<std::string_view, const Folder*>> below;  // relative path, folder
    for (const std::string& root : roots) {
        const std::string prefix = root.ends_with('/') ? root : root + "/";
        below.clear();
        for (auto it = sizes.lower_bound(prefix); it != sizes.end(); ++it) {
            if (!it->first.starts_with(prefix)) break;
            below.emplace_back(std::string_view(it->first).substr(prefix.size()), &*it);
        }
        std::sort(below.begin(), below.end(),
                  [](const auto& a, const auto& b) { return postOrder(a.first, b.first); });
        for (const auto& entry : below) {
            if (listed.insert(entry.second).second) result.push_back(entry.second);
        }
        const auto self = sizes.find(root);
        if (self != sizes.end() && listed.insert(&*self).second) result.push_back(&*self);
    }
    return result;
}

}  // namespace

int runSizesCommand(const CommandContext& context) {
    const auto arguments = parse(context);
    if (!arguments) return kExitUsage;
    for (const std::string& folder : arguments->folders) {
        if (const auto line = refusal(folder)) {
            context.err << "kestrow sizes: " << *line << "\n";
            return kExitFailed;
        }
    }
    const std::vector<std::filesystem::path> roots(arguments->folders.begin(),
                                                   arguments->folders.end());
    const TreeWalk::FolderSizes walked = TreeWalk::folderSizes(roots, arguments->minimum);
    const auto folders = ordered(arguments->folders, walked.sizes);

    if (arguments->json) {
        nlohmann::ordered_json sizes = nlohmann::ordered_json::object();
        for (const Folder* folder : folders) sizes[folder->first] = folder->second;
        const nlohmann::ordered_json document = {{"sizes", std::move(sizes)},
                                                 {"skipped", walked.skipped}};
        // A name that is not UTF-8 cannot be said exactly in JSON; it keeps its readable part.
        context.out << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
                    << "\n";
    } else {
        std::string text;
        for (const Folder* folder : folders) {
            text += std::to_string(folder->second);
            text += '\t';
            text += folder->first;
            text += '\n';
        }
        context.out << text;
    }
    if (walked.skipped > 0) {
        context.err << "kestrow sizes: " << walked.skipped
                    << (walked.skipped == 1 ? " folder" : " folders")
                    << " could not be read; what is inside is not counted\n";
    }
    context.out.flush();
    return kExitDone;
}

}  // namespace kestrow
