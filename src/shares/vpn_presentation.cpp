#include "shares/vpn_presentation.h"

#include <algorithm>

namespace kestrow::VPNPresentation {
namespace {

const VPNService* find(const std::optional<std::vector<VPNService>>& services,
                       const std::string& id) {
    if (!services) return nullptr;
    const auto it = std::find_if(services->begin(), services->end(),
                                 [&](const VPNService& service) { return service.id == id; });
    return it == services->end() ? nullptr : &*it;
}

}  // namespace

std::vector<VPNService> visible(const std::optional<std::vector<VPNService>>& all,
                                const std::vector<VPNLink>& linked) {
    if (!all) return {};
    std::vector<VPNService> shown = *all;
    for (const VPNLink& link : linked) {
        const bool present = std::any_of(shown.begin(), shown.end(),
                                         [&](const VPNService& s) { return s.id == link.id; });
        if (!present)
            shown.push_back(
                {link.id, link.savedName.value_or(link.id), VPNConnectionState::notConfigured});
    }
    return shown;
}

std::optional<std::string> displayName(const std::string& linkedID,
                                       const std::optional<std::string>& savedName,
                                       const std::optional<std::vector<VPNService>>& services) {
    if (const VPNService* live = find(services, linkedID)) return live->name;
    return savedName;
}

std::optional<std::string> hint(bool shareMounted, const std::optional<std::string>& linkedID,
                                const std::optional<std::string>& savedName,
                                const std::optional<std::vector<VPNService>>& services) {
    if (!linkedID || shareMounted) return std::nullopt;
    const VPNService* live = find(services, *linkedID);
    const VPNConnectionState state = live ? live->state : VPNConnectionState::notConfigured;
    const std::string name = displayName(*linkedID, savedName, services).value_or(*linkedID);
    switch (state) {
        case VPNConnectionState::connected:
            return std::nullopt;
        case VPNConnectionState::off:
            return name + " is off";
        case VPNConnectionState::unavailable:
        case VPNConnectionState::notConfigured:
            return name + " is unavailable";
        case VPNConnectionState::connecting:
            return name + " is connecting…";
        case VPNConnectionState::disconnecting:
            // Not one of the named endings: while it goes down it is as good as off.
            return name + " is off";
    }
    return std::nullopt;
}

std::vector<VPNService> connectedTransitions(const std::optional<std::vector<VPNService>>& previous,
                                             const std::optional<std::vector<VPNService>>& current,
                                             const std::vector<std::string>& linkedIDs) {
    std::vector<VPNService> transitions;
    if (!current) return transitions;
    for (const VPNService& service : *current) {
        if (service.state != VPNConnectionState::connected) continue;
        if (std::find(linkedIDs.begin(), linkedIDs.end(), service.id) == linkedIDs.end()) continue;
        const VPNService* before = find(previous, service.id);
        if (before && before->state == VPNConnectionState::connected) continue;
        transitions.push_back(service);
    }
    return transitions;
}

}  // namespace kestrow::VPNPresentation
