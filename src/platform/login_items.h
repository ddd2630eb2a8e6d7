#pragma once

#include <optional>
#include <string>

namespace kestrow {

// Whether Kestrow starts when the user logs in (an XDG autostart entry on Linux).
class LoginItems {
public:
    virtual ~LoginItems() = default;
    virtual bool isEnabled() const = 0;
    // Registers or unregisters the app; gives the platform's error text on failure.
    virtual std::optional<std::string> setEnabled(bool enabled) = 0;
};

}  // namespace kestrow
