#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "backup/deja_dup_settings.h"

namespace kestrow {

// Déjà Dup's own settings, read and watched, never written. Main executor only.
class DejaDupSettingsReader {
public:
    // Stops the watch when destroyed; no call to `changed` starts after that.
    class Watch {
    public:
        virtual ~Watch() = default;
    };

    virtual ~DejaDupSettingsReader() = default;

    // Nothing when Déjà Dup's settings are not installed on this machine.
    virtual std::optional<DejaDupSettings> read() = 0;
    // `changed` runs on the main executor after a setting changed, once per key or once for
    // several. Nothing (and no calls) when the settings are not installed.
    virtual std::unique_ptr<Watch> watch(std::function<void()> changed) = 0;
};

}  // namespace kestrow
