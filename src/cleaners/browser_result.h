#pragma once

#include <variant>

#include "cleaners/cleaner_pass.h"

namespace kestrow {

// The answer to a manual request to clear the browser caches.
struct BrowserResult {
    struct Off {
        bool operator==(const Off&) const = default;
    };
    struct Busy {
        bool operator==(const Busy&) const = default;
    };
    std::variant<ReclaimReport, Off, Busy> value;  // a report when a pass ran
    bool operator==(const BrowserResult&) const = default;
};

}  // namespace kestrow
