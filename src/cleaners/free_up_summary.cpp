#include "cleaners/free_up_summary.h"

#include <algorithm>
#include <array>
#include <ctime>

#include <fmt/format.h>

#include "support/byte_count_format.h"

namespace kestrow {
namespace {

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string text;
    for (const std::string& part : parts) {
        if (!text.empty()) text += separator;
        text += part;
    }
    return text;
}

constexpr std::size_t kShownFailures = 3;

}  // namespace

// The pieces are joined by ". " and the last one gets no period: a caller that shows the line
// inside a sentence of its own adds the punctuation there.
std::string FreeUpSummary::line(const Wording& wording, std::int64_t freedBytes,
                                const std::vector<std::string>& skipped, bool anyBlocked,
                                const std::set<Busy>& busy,
                                const std::vector<std::string>& failures) {
    std::vector<std::string> pieces;
    if (freedBytes >= 1) {
        pieces.push_back("Moved " + formatByteCount(freedBytes) +
                         " to the Trash; empty it to reclaim the space");
    }
    // A pass whose moves failed did not find nothing: it says what stayed and why.
    if (!failures.empty()) {
        const std::size_t shown = std::min(failures.size(), kShownFailures);
        std::string piece =
            "Not moved: " +
            joined(std::vector<std::string>(failures.begin(),
                                            failures.begin() + static_cast<std::ptrdiff_t>(shown)),
                   "; ");
        if (failures.size() > shown) {
            piece += fmt::format(" (and {} more)", failures.size() - shown);
        }
        pieces.push_back(std::move(piece));
    }
    if (!skipped.empty()) pieces.push_back("Skipped while running: " + joined(skipped, ", "));
    if (anyBlocked) pieces.push_back(wording("Some folders need Full Disk Access"));
    if (busy.contains(Busy::developer)) {
        pieces.emplace_back("Developer caches are busy with a weekly pass, try again in a minute");
    }
    if (busy.contains(Busy::browsers)) {
        pieces.emplace_back("Browser caches are busy with a weekly pass, try again in a minute");
    }
    if (pieces.empty()) return "Nothing to clear";
    return joined(pieces, ". ");
}

std::optional<CleanerCaption::Text> CleanerCaption::lastPass(std::int64_t lastFreedBytes,
                                                             std::optional<WallTime> lastRun) {
    if (!lastRun) return std::nullopt;
    if (lastFreedBytes < 1) return Text{"Last: nothing to clear · " + shortDate(*lastRun), {}};
    return Text{
        "Last: moved " + formatByteCount(lastFreedBytes) + " to the Trash · " + shortDate(*lastRun),
        "Moved to the Trash; empty it to reclaim the space"};
}

// English month names whatever the process locale: every text of the product is English.
std::string CleanerCaption::shortDate(WallTime date) {
    static constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    if (::localtime_r(&seconds, &local) == nullptr || local.tm_mon < 0 || local.tm_mon > 11) {
        return {};
    }
    return fmt::format("{} {}, {}", months[static_cast<std::size_t>(local.tm_mon)], local.tm_mday,
                       local.tm_year + 1900);
}

}  // namespace kestrow
