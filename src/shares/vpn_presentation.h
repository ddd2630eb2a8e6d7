#pragma once

#include <optional>
#include <string>
#include <vector>

#include "shares/vpn_service.h"

namespace kestrow {

// How VPN services are shown beside shares: in the editor's picker and as the hint in a share's
// row that explains why it is not connected.
namespace VPNPresentation {

// The services as read, then one "not configured" entry per linked id the system no longer has.
std::vector<VPNService> visible(const std::optional<std::vector<VPNService>>& all,
                                const std::vector<VPNLink>& linked);
std::optional<std::string> displayName(const std::string& linkedID,
                                       const std::optional<std::string>& savedName,
                                       const std::optional<std::vector<VPNService>>& services);
// None for a share without a VPN link, a mounted share, or a connected VPN.
std::optional<std::string> hint(bool shareMounted, const std::optional<std::string>& linkedID,
                                const std::optional<std::string>& savedName,
                                const std::optional<std::vector<VPNService>>& services);
// The linked services that are connected now and were not in the previous reading.
std::vector<VPNService> connectedTransitions(const std::optional<std::vector<VPNService>>& previous,
                                             const std::optional<std::vector<VPNService>>& current,
                                             const std::vector<std::string>& linkedIDs);

}  // namespace VPNPresentation
}  // namespace kestrow
