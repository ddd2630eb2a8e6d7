#pragma once

#include <string>
#include <variant>

namespace kestrow {

// Why an operation that needs a permission or the privileged helper could not run at all. The
// texts shown for each case belong to whoever shows them.
struct BridgeUnavailable {
    enum class Kind {
        grantLost,
        needsHelper,
        needsGrant,
        needsHomeGrant,
        helperRefuses,
        helperNoAnswer,
        mountedBySystem,
    };
    Kind kind = Kind::needsHelper;
    std::string text;  // only for grantLost

    bool operator==(const BridgeUnavailable&) const = default;
};

}  // namespace kestrow
