#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace kestrow {

// Moves a file we could not read out of the way, beside itself, as
// "<name>.unreadable-<its modification time>" ("-2", "-3"... when that is taken), so that the
// next write starts afresh without destroying what a hand-edit gone wrong left there. The name
// says which version of the file it was. Never replaces another file. Returns where it went, or
// nothing with the reason in `error`. Callers that share the folder with other processes of
// ours hold their own lock around it.
std::optional<std::filesystem::path> setFileAside(const std::filesystem::path& file,
                                                  std::string* error = nullptr);

}  // namespace kestrow
