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
    std::vector<std::pair<std::string, std::string>> table = {
        // Sentences whose macOS form does not survive a word-for-word swap.
        {"Time Machine is not configured",
         named ? source + " is not configured" : "No backup is set up"},
        {"Kestrow can't read the Time Machine settings.",
         named ? "Kestrow can't read the " + source + " settings."
               : "Kestrow can't read the backup settings."},
        {"Check System Settings ▸ General ▸ Time Machine.",
         "Check the backup's settings in Kestrow."},
        {"Mac slept on battery with the lid closed",
         "the computer slept on battery with the lid closed"},
        {"macOS automatic backups", "Automatic backups"},
        {"Open System Settings", "Open Settings"},
        {"Kestrow needs Full Disk Access to read your Time Machine status.",
         "Kestrow needs to be able to read your backup's records."},
        {"Some folders need Full Disk Access", "Some folders cannot be read"},
        {"Needs Full Disk Access to clear", "Needs read access to clear"},
        {"Full Disk Access", "Access to your backup"},
        {"for a Mac menu bar app", "for a Linux desktop tray app"},
        // The platform's nouns.
        {"macOS Keychain", "keyring"},
        {"System Settings", "Settings"},
        {"Login Items", "autostart"},
        {"Notification Center", "your panel"},
        {"menu bar", "tray"},
        {"Finder", "Files"},
        {"macOS", "Linux"},
        {"Time Machine", named ? source : "the backup"},
        {"Mac's", "computer's"},
        {"Mac", "computer"},
    };
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
