#include "cleaners/xcode_cleaner.h"

#include <algorithm>

#include "cleaners/cleaner_path.h"
#include "cleaners/device_support.h"

namespace kestrow {

namespace {

const std::vector<std::string>& derivedDataComponents() {
    static const std::vector<std::string> components{"Library", "Developer", "Xcode",
                                                     "DerivedData"};
    return components;
}

const std::vector<std::string>& deviceSupportComponents() {
    static const std::vector<std::string> components{"Library", "Developer", "Xcode",
                                                     "iOS DeviceSupport"};
    return components;
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

CleanerOwner XcodeCleaner::owner() const {
    CleanerOwner owner;
    owner.bundleIDs = {"com.apple.dt.Xcode"};
    owner.processNames = {"xcodebuild"};
    return owner;
}

std::filesystem::path XcodeCleaner::derivedData() const {
    auto path = home_;
    for (const auto& component : derivedDataComponents()) path /= component;
    return path;
}

std::filesystem::path XcodeCleaner::deviceSupport() const {
    auto path = home_;
    for (const auto& component : deviceSupportComponents()) path /= component;
    return path;
}

XcodeCleaner::Listing XcodeCleaner::listDeviceSupport() const {
    Listing listing;
    const auto folder = deviceSupport();
    // A folder that is itself a link would lead the pass out of Xcode's own files.
    if (CleanerPath::status(folder) != PathStatus::usable ||
        !CleanerPath::isRealDirectory(folder)) {
        return listing;
    }
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        // Only real folders take part: a stray file or link named like a newer build must not
        // make the folders Xcode really uses look superseded.
        if (CleanerPath::isRealDirectory(it->path())) {
            listing.names.push_back(it->path().filename().string());
        }
    }
    if (error) {
        listing.names.clear();
        listing.error = error;
        return listing;
    }
    std::sort(listing.names.begin(), listing.names.end());
    return listing;
}

bool XcodeCleaner::isDeviceSupportLeaf(const std::filesystem::path& target) const {
    const std::string name = target.filename().string();
    if (name.empty()) return false;
    auto relative = deviceSupportComponents();
    relative.push_back(name);
    return CleanerPath::isExactLeaf(target, home_, relative);
}

CleanerDiscovery XcodeCleaner::discover() const {
    CleanerDiscovery discovery = CleanerPath::discoverLeaf(home_, derivedDataComponents());
    if (discovery.error) return discovery;

    const auto listing = listDeviceSupport();
    if (listing.error) return CleanerPath::failedDiscovery(deviceSupport(), *listing.error);
    const auto superseded = DeviceSupport::superseded(listing.names);
    for (const auto& name : superseded) {
        const auto target = deviceSupport() / name;
        if (isDeviceSupportLeaf(target) && isSupersededDeviceSupport(target)) {
            discovery.targets.push_back(target);
        }
    }
    discovery.anchors = {home_};
    if (discovery.targets.empty()) discovery.anchors.clear();
    return discovery;
}

bool XcodeCleaner::isSupersededDeviceSupport(const std::filesystem::path& target) const {
    if (!isDeviceSupportLeaf(target) || !CleanerPath::isRealDirectory(target)) return false;
    const auto listing = listDeviceSupport();
    if (listing.error) return false;
    return contains(DeviceSupport::superseded(listing.names), target.filename().string());
}

bool XcodeCleaner::isReclaimable(const std::filesystem::path& target) const {
    if (CleanerPath::isExactLeaf(target, home_, derivedDataComponents())) {
        return CleanerPath::isRealDirectory(target);
    }
    return isSupersededDeviceSupport(target);
}

}  // namespace kestrow
