#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrow {

// The product's fixed texts were written for macOS. On Linux each one that names a macOS thing
// says the Linux thing instead, from the one table in wording.cpp, so a new text cannot be
// forgotten in one place and translated in another. Texts are written in code exactly as the
// product has them and passed through a Wording where they are shown.
class Wording {
public:
    // The product's texts exactly: the macOS edition, and the Time Machine source's own texts.
    static Wording exact();
    // The Linux edition. "Time Machine" becomes the active backup source's name; with none, the
    // texts speak of "a backup".
    static Wording linux(std::optional<std::string> backupSourceName);

    std::string operator()(std::string_view productText) const;
    bool isExact() const { return replacements_.empty(); }

private:
    explicit Wording(std::vector<std::pair<std::string, std::string>> replacements,
                     std::string name = {})
        : replacements_(std::move(replacements)), name_(std::move(name)) {}
    // Tried in order at each position; whole sentences first, then the nouns.
    std::vector<std::pair<std::string, std::string>> replacements_;
    // The source's name keeps its own case even at the start of a text ("restic didn't say…").
    std::string name_;
};

}  // namespace kestrow
