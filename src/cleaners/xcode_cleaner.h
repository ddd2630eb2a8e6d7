#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "cleaners/cleaner.h"

namespace kestrow {

// Xcode's build products (DerivedData, rebuilt on the next build) and the device-support folders
// a newer one of the same device model has replaced.
class XcodeCleaner final : public Cleaner {
public:
    explicit XcodeCleaner(std::filesystem::path home) : home_(std::move(home)) {}

    std::string id() const override { return "xcode"; }
    std::string name() const override { return "Xcode"; }
    CleanerOwner owner() const override;
    CleanerDiscovery discover() const override;
    bool isReclaimable(const std::filesystem::path& target) const override;

    std::filesystem::path derivedData() const;
    std::filesystem::path deviceSupport() const;
    // Judged on what the device-support folder holds now, not on what discovery saw.
    bool isSupersededDeviceSupport(const std::filesystem::path& target) const;

private:
    struct Listing {
        std::vector<std::string> names;  // of the real folders in it, sorted
        std::optional<std::error_code> error;
    };
    Listing listDeviceSupport() const;
    bool isDeviceSupportLeaf(const std::filesystem::path& target) const;

    std::filesystem::path home_;
};

}  // namespace kestrow
