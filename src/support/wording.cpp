#include "support/wording.h"

#include <cctype>

namespace kestrow {
namespace {

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// A match counts only as a whole word: "Mac" must not bite into "Machine" or "MacBook".
bool wholeWordAt(std::string_view text, std::size_t at, std::size_t length) {
    const bool startsWord = at == 0 || !isWordCharacter(text[at - 1]) || !isWordCharacter(text[at]);
    const std::size_t end = at + length;
    const bool endsWord =
        end >= text.size() || !isWordCharacter(text[end]) || !isWordCharacter(text[end - 1]);
    return startsWord && endsWord;
}

}  // namespace

Wording Wording::exact() {
    return Wording({});
}

Wording Wording::linux(std::optional<std::string> backupSourceName) {
    const bool named = backupSourceName && !backupSourceName->empty();
    const std::string source = named ? *backupSourceName : std::string("the backup");
    // Time Machine's sentences about what Time Machine does stay while it is the source; for any
    // other source they would describe something that source does not do.
    const bool timeMachine = named && *backupSourceName == "Time Machine";
    std::vector<std::pair<std::string, std::string>> table = {
        // Sentences whose macOS form does not survive a word-for-word swap.
        {"Time Machine is not configured",
         named ? source + " is not configured" : "No backup is set up"},
        {"Time Machine refused to start a backup",
         named ? source + " refused to start a backup" : "The backup would not start"},
        {"Time Machine accepted the request but no backup started.",
         named ? source + " accepted the request but no backup started."
               : "The request was taken but no backup started."},
        {"Check System Settings ▸ General ▸ Time Machine.",
         "Check the backup's settings in Kestrow."},
        {"Mac slept on battery with the lid closed",
         "the computer slept on battery with the lid closed"},
        {"macOS automatic backups", "Automatic backups"},
        {"Open System Settings", "Open Settings"},
        {"Kestrow needs Full Disk Access to read your Time Machine status.",
         named ? "Kestrow needs to be able to read the " + source + " settings."
               : "Kestrow needs to be able to read your backup settings."},
        {"Some folders need Full Disk Access", "Some folders cannot be read"},
        {"Needs Full Disk Access to clear", "Needs permission to clear"},
        {"Full Disk Access", "Access to your backup"},
        {"for a Mac menu bar app", "for a Linux desktop tray app"},
        {"rewrite Mac backup status lines", "rewrite backup status lines"},
        {"your menu bar", "your system tray"},
        {"in Notification Center", "in the notification area"},
        // Clones and snapshots that share a file's blocks are the file system's here.
        {"a Time Machine snapshot", "a file system snapshot"},
        {"when Time Machine thins its snapshots", "when those snapshots are removed"},
    };
    if (!timeMachine) {
        table.insert(table.end(),
                     {
                         {"Time Machine could not free enough by deleting old backups.",
                          "Free some space on the backup disk, then back up again."},
                         {"The backup disk is full, so Time Machine is deleting history faster "
                          "than you may want.",
                          "The backup disk is nearly full, so new backups may not fit."},
                     });
    }
    table.insert(table.end(),
                 {
                     // The source's name where an article or a possessive stands before it.
                     {"the Time Machine", named ? "the " + source : "the backup"},
                     {"your Time Machine", named ? "your " + source : "your backup"},
                     // The platform's nouns.
                     {"macOS Keychain", "keyring"},
                     {"Keychain", "keyring"},
                     {"System Settings", "Settings"},
                     {"Login Items", "autostart"},
                     {"Finder", "Files"},
                     {"macOS", "Linux"},
                     {"Time Machine", source},
                     {"Mac's", "computer's"},
                     {"Mac", "computer"},
                 });
    return Wording(std::move(table), named ? source : std::string());
}

std::string Wording::operator()(std::string_view productText) const {
    if (replacements_.empty()) return std::string(productText);
    std::string out;
    out.reserve(productText.size());
    std::size_t at = 0;
    while (at < productText.size()) {
        bool replaced = false;
        for (const auto& [from, to] : replacements_) {
            if (productText.compare(at, from.size(), from) != 0) continue;
            if (!wholeWordAt(productText, at, from.size())) continue;
            std::string word = to;
            // A noun that opens the text opens it capitalised ("Mac's disk" → "Computer's disk").
            if (at == 0 && !word.empty() && word != name_)
                word[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(word[0])));
            out += word;
            at += from.size();
            replaced = true;
            break;
        }
        if (!replaced) out += productText[at++];
    }
    return out;
}

}  // namespace kestrow
