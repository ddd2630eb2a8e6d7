#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleaners/apple_build.h"

namespace kestrow {

// The debugging symbols Xcode copies for each device and OS it has met, one folder per device
// model, version and build ("iPhone15,2 17.1 (21B80)"). Only the newest of a model is of use.
struct DeviceSupport {
    struct Entry {
        std::string name;
        std::string model;
        std::vector<int> version;
        AppleBuild build;
        bool operator==(const Entry&) const = default;
    };

    // Nothing for any name not spelled exactly as Xcode names these folders.
    static std::optional<Entry> parse(std::string_view name);
    // The names, in the order given, that an entry of the same model outranks. A name that does
    // not parse is never among them.
    static std::vector<std::string> superseded(const std::vector<std::string>& names);
};

}  // namespace kestrow
