#include "shares/share_editor_rules.h"

#include <algorithm>

#include "shares/share_url.h"
#include "shares/vpn_presentation.h"

namespace kestrow {

ShareForm ShareForm::forShare(const SMBShare& share) {
    ShareForm form;
    form.id = share.id;
    form.name = share.name;
    form.protocol = share.connectionProtocol;
    form.scheme = share.webDAVScheme;
    form.host = share.host;
    // A stored 0 (or any value below 1) is the default, which the field shows as empty.
    form.portText = share.port >= 1 ? std::to_string(share.port) : std::string();
    form.shareName = share.shareName;
    form.username = share.username;
    form.autoMount = share.autoMount;
    form.vpnServiceID = share.vpnServiceID;
    form.vpnName = share.vpnName;
    form.mountPoint = share.mountPoint;
    return form;
}

std::optional<std::int64_t> portFromField(const std::string& text) {
    const std::string field = trimmed(text);
    if (field.empty()) return 0;
    std::size_t at = 0;
    bool negative = false;
    if (field[0] == '+' || field[0] == '-') {
        negative = field[0] == '-';
        at = 1;
    }
    if (at == field.size()) return std::nullopt;
    std::int64_t value = 0;
    for (; at < field.size(); ++at) {
        const char c = field[at];
        if (c < '0' || c > '9') return std::nullopt;
        // Anything past the range is refused anyway; stopping here keeps it from overflowing.
        if (value > 65535) return std::nullopt;
        value = value * 10 + (c - '0');
    }
    if (negative) value = -value;
    if (value < 1 || value > 65535) return std::nullopt;
    return value;
}

std::optional<ShareFormProblem> shareFormProblem(const ShareForm& form) {
    if (trimmed(form.host).empty()) return ShareFormProblem::noHost;
    if (trimmed(form.shareName).empty()) return ShareFormProblem::noShareName;
    if (!portFromField(form.portText)) return ShareFormProblem::badPort;
    return std::nullopt;
}

std::string problemSentence(ShareFormProblem problem) {
    switch (problem) {
        case ShareFormProblem::noHost:
            return "A server is needed.";
        case ShareFormProblem::noShareName:
            return "A share name is needed.";
        case ShareFormProblem::badPort:
            return "The port must be a whole number from 1 to 65535, or empty for the default.";
    }
    return "The share cannot be saved.";
}

SMBShare shareRecord(const ShareForm& form) {
    SMBShare share;
    share.id = form.id ? *form.id : newShareId();
    share.connectionProtocol = form.protocol;
    share.webDAVScheme = form.scheme;
    share.host = trimmed(form.host);
    share.port = portFromField(form.portText).value_or(0);
    share.shareName = trimmed(form.shareName);
    share.username = trimmed(form.username);
    share.name = trimmed(form.name).empty() ? share.shareName : trimmed(form.name);
    share.mountPoint = form.mountPoint;
    share.autoMount = form.autoMount;
    share.vpnServiceID = form.vpnServiceID;
    share.vpnName = form.vpnServiceID ? form.vpnName : std::nullopt;
    return share;
}

std::string formPreview(const ShareForm& form) {
    SMBShare share;
    share.connectionProtocol = form.protocol;
    share.webDAVScheme = form.scheme;
    share.host = trimmed(form.host);
    share.shareName = trimmed(form.shareName);
    share.username = trimmed(form.username);
    return previewLine(share, form.portText);
}

std::vector<VPNChoice> vpnChoices(const std::optional<std::vector<VPNService>>& services,
                                  const ShareForm& form) {
    std::vector<VPNLink> links;
    if (form.vpnServiceID) links.push_back({*form.vpnServiceID, form.vpnName});
    std::vector<VPNChoice> choices;
    for (const VPNService& service : VPNPresentation::visible(services, links)) {
        std::string label = service.name;
        if (service.state == VPNConnectionState::notConfigured)
            label += std::string(" ") + ShareEditorText::kNotConfigured;
        choices.push_back({service.id, service.name, std::move(label)});
    }
    if (form.vpnServiceID && std::none_of(choices.begin(), choices.end(), [&](const VPNChoice& c) {
            return c.id == *form.vpnServiceID;
        })) {
        // Unreadable services say nothing about whether it is still configured.
        const std::string name = form.vpnName.value_or(*form.vpnServiceID);
        choices.push_back({*form.vpnServiceID, name, name});
    }
    return choices;
}

}  // namespace kestrow
