#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/smart_status.h"
#include "timemachine/destination.h"

namespace kestrow {

// How healthy the boot disk and the backup disk say they are.
struct DriveHealth {
    struct Failing {
        std::string text;  // the system's own words
        bool operator==(const Failing&) const = default;
    };
    struct Unavailable {
        std::string reason;
        bool operator==(const Unavailable&) const = default;
    };
    struct Verified {
        bool operator==(const Verified&) const = default;
    };
    // No verdict; `reason` says why when it is known (no SMART on this disk, no permission, no
    // tool to ask).
    struct Unknown {
        std::string reason = {};
        bool operator==(const Unknown&) const = default;
    };
    // A network destination: its disks belong to the server, which checks them itself.
    struct NotApplicable {
        bool operator==(const NotApplicable&) const = default;
    };

    struct Status {
        std::variant<Failing, Unavailable, Verified, Unknown, NotApplicable> value = Unknown{};
        bool operator==(const Status&) const = default;

        // "failing", "unavailable", "verified", "unknown" or "notApplicable".
        std::string_view name() const;
        // The failing words, or why it is unavailable or unknown; nothing for the others.
        std::optional<std::string> text() const;
        // For the log and the terminal: "verified", "failing (…)", "not applicable" and so on.
        std::string description() const;
    };

    // The boot disk's health, and the backup disk's when a destination is set up.
    using Reading = std::pair<Status, std::optional<Status>>;

    // What a backup disk that is not mounted is.
    static constexpr std::string_view kNotConnected = "not connected";

    static Status status(const std::optional<std::string>& smartText, bool isNetwork);
    // The same for a local disk, carrying the reason there is no verdict into `unknown`.
    static Status status(const SmartStatus::Verdict& verdict);

    // Asks `smart` about the boot disk and, for a local destination, its disk. A network
    // destination is never asked about. Blocks: call on a worker.
    static Reading read(const std::optional<Destination>& destination, SmartStatus& smart);

    // "Drive health: boot verified, backup none".
    static std::string logLine(const Reading& reading);
};

}  // namespace kestrow
