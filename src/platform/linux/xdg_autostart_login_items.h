#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/login_items.h"

namespace kestrow {

// Start at login through the XDG autostart entry `$XDG_CONFIG_HOME/autostart/kestrow.desktop`.
// Turning it off rewrites the entry with Hidden=true instead of removing the file, which also
// overrides an entry of the same name installed system-wide.
class XdgAutostartLoginItems final : public LoginItems {
public:
    XdgAutostartLoginItems(std::filesystem::path entryFile, std::filesystem::path executable);

    // True only when the entry starts this executable and nothing in it switches it off.
    bool isEnabled() const override;
    std::optional<std::string> setEnabled(bool enabled) override;

private:
    std::string entryText(bool enabled) const;

    std::filesystem::path entryFile_;
    std::filesystem::path executable_;
};

}  // namespace kestrow
