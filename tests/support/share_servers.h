#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "support/owned_process.h"

namespace kestrow::testing {

// Real file servers for share tests, run inside a ShareWorld: smbd on 127.0.0.1:445 (share
// "data") and Apache WebDAV with basic auth on 127.0.0.1:80 (folder "/dav/"), each from a
// private configuration under `folder`, with one user whose random password is set through
// standard input only. Each can be stopped and started again to drop a server and bring it back.
class ShareServers {
public:
    explicit ShareServers(std::filesystem::path folder);
    ~ShareServers();
    ShareServers(const ShareServers&) = delete;
    ShareServers& operator=(const ShareServers&) = delete;

    // Why a server could not start, when it did not (the tools not installed, a port taken).
    std::optional<std::string> startSmb();
    void stopSmb();
    std::optional<std::string> startWebDav();
    void stopWebDav();

    // Takes 127.0.0.1:`port` with a listener that accepts connections and never says a word.
    bool startSilentListener(int port);
    void stopSilentListener();

    const std::string& user() const { return user_; }
    const std::string& password() const { return password_; }
    // Files the servers serve, as seen on the server side.
    std::filesystem::path smbFolder() const { return folder_ / "smb-data"; }
    std::filesystem::path webDavFolder() const { return folder_ / "htdocs/dav"; }
    // Every log the servers wrote.
    std::filesystem::path logFolder() const { return folder_ / "logs"; }

    static bool smbInstalled();
    static bool webDavInstalled();

private:
    std::filesystem::path folder_;
    // smbd maps its users to accounts of the machine: root is the one every test machine has.
    std::string user_ = "root";
    std::string password_;
    bool smbReady_ = false;
    bool webDavReady_ = false;
    OwnedProcess smbd_;
    OwnedProcess apache_;
    int silent_ = -1;
};

}  // namespace kestrow::testing
