#include "platform/demo/demo_shares.h"

#include <algorithm>

#include "support/ascii_case.h"
#include "support/url_parts.h"

namespace kestrow {
namespace {

constexpr const char* kOfficeHost = "files.example.com";

// Where the desktop's own mounts appear, named the way it names them.
std::string gvfsName(const UrlParts& url) {
    const std::string share = asciiLowercase(url.path.empty() ? "" : url.path.substr(1));
    if (url.scheme == "smb") return "smb-share:server=" + url.host + ",share=" + share;
    return "dav:host=" + url.host + ",ssl=" + (url.scheme == "https" ? "true" : "false") +
           ",prefix=%2F" + share;
}

MountEntry entryFor(const UrlParts& url, const std::string& root, std::int64_t fsid) {
    const std::string user = url.user.empty() ? "" : url.user + "@";
    if (url.scheme == "smb")
        return {"smbfs", "//" + user + url.host + url.path, 0, root + gvfsName(url), fsid};
    return {"webdav", url.scheme + "://" + user + url.host + url.path, 0, root + gvfsName(url),
            fsid};
}

}  // namespace

DemoShares::DemoShares(std::string runtimeDir) : runtimeDir_(std::move(runtimeDir)) {
    // The NAS was connected when the demo starts.
    entries_.push_back(entryFor(*parseUrl("smb://nas.local/Projects"), volumesRoot(), 1000));
}

std::vector<SMBShare> DemoShares::records() const {
    SMBShare studio;
    studio.id = kStudioId;
    studio.name = "Studio NAS";
    studio.host = "nas.local";
    studio.shareName = "Projects";
    studio.mountPoint = volumesRoot() + gvfsName(*parseUrl("smb://nas.local/Projects"));

    SMBShare office;
    office.id = kOfficeId;
    office.name = "Office Files";
    office.connectionProtocol = ShareProtocol::webdav;
    office.webDAVScheme = WebDAVScheme::https;
    office.host = kOfficeHost;
    office.shareName = "team";
    office.username = "demo";
    office.vpnServiceID = kOfficeVpnId;
    office.vpnName = "Office VPN";
    return {studio, office};
}

std::optional<std::vector<MountEntry>> DemoShares::current() {
    const std::lock_guard lock(mutex_);
    return entries_;
}

MountCallResult DemoShares::mount(const MountRequest& request,
                                  const std::function<bool()>& /*isMounted*/,
                                  std::stop_token stop) {
    const auto url = parseUrl(request.url);
    // The office server answers only through the VPN, and the demo's VPN stays off.
    if (!url || stop.stop_requested() || asciiLowercase(url->host) == kOfficeHost) return {};
    const std::lock_guard lock(mutex_);
    MountEntry entry = entryFor(*url, volumesRoot(), nextFsid_++);
    const bool present = std::any_of(entries_.begin(), entries_.end(), [&](const MountEntry& e) {
        return e.mountedOn == entry.mountedOn;
    });
    if (!present) entries_.push_back(std::move(entry));
    return {};
}

bool DemoShares::unmount(const std::string& mountedOn, std::string* error) {
    const std::lock_guard lock(mutex_);
    const auto before = entries_.size();
    std::erase_if(entries_, [&](const MountEntry& e) { return e.mountedOn == mountedOn; });
    if (entries_.size() == before && error) *error = "Nothing is mounted at " + mountedOn;
    return entries_.size() != before;
}

std::optional<std::vector<VPNService>> DemoShares::read() {
    return std::vector<VPNService>{{kOfficeVpnId, "Office VPN", VPNConnectionState::off}};
}

}  // namespace kestrow
