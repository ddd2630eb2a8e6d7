#include "share_rig.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "share_test_world.h"

namespace kestrow::testing {

std::optional<std::string> shareRigMissing() {
    if (shareWorldProblem()) return *shareWorldProblem();
    if (!std::filesystem::exists("/usr/libexec/gvfsd")) return "gvfsd is not installed";
    if (!std::filesystem::exists("/usr/libexec/gvfs/gvfsd-smb") &&
        !std::filesystem::exists("/usr/libexec/gvfsd-smb"))
        return "gvfs-backends is not installed";
    return std::nullopt;
}

MountRequest smbRequest(const ShareServers& servers, const std::string& password) {
    MountRequest request;
    request.protocol = ShareProtocol::smb;
    request.url = "smb://" + servers.user() + "@127.0.0.1/data";
    request.username = servers.user();
    request.password = password;
    request.interactive = false;
    return request;
}

MountRequest webDavRequest(const ShareServers& servers, const std::string& password) {
    MountRequest request = smbRequest(servers, password);
    request.protocol = ShareProtocol::webdav;
    request.url = "http://" + servers.user() + "@127.0.0.1/dav";
    return request;
}

std::optional<MountEntry> findMount(GvfsMountTable& table, const std::string& fsType,
                                    const std::string& from) {
    const auto entries = table.current();
    if (!entries) return std::nullopt;
    for (const MountEntry& entry : *entries)
        if (entry.fsType == fsType && entry.from == from) return entry;
    return std::nullopt;
}

std::optional<std::string> readThroughFuse(const std::string& path,
                                           std::chrono::milliseconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    do {
        std::ifstream file(path);
        std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        if (file && !text.empty()) return text;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    } while (std::chrono::steady_clock::now() < until);
    return std::nullopt;
}

}  // namespace kestrow::testing
