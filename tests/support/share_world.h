#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "support/owned_process.h"

namespace kestrow::testing {

// The world a share test runs in: this process in its own network namespace (only loopback, up)
// and mount namespace (tmpfs over Samba's system folders, so the servers and libsmbclient touch
// nothing of the machine's), with HOME and the XDG folders in a fresh folder, and a session bus
// of its own with the machine's activatable services (so the gvfsd that answers is ours and
// inherits that environment). Entered at the start of main, before any thread exists.
class ShareWorld {
public:
    ShareWorld() = default;
    ~ShareWorld() { leave(); }
    ShareWorld(const ShareWorld&) = delete;
    ShareWorld& operator=(const ShareWorld&) = delete;

    // Why the world could not be made (not root, no namespaces, no dbus-daemon); none when it
    // was.
    std::optional<std::string> enter();
    // Stops the session bus (gvfsd and everything it started go with it) and removes the folder.
    void leave();

    const std::filesystem::path& root() const { return root_; }
    std::filesystem::path home() const { return root_ / "home"; }
    std::filesystem::path runtime() const { return root_ / "runtime"; }
    // Where servers keep their state and logs: outside HOME and the XDG folders.
    std::filesystem::path servers() const { return root_ / "servers"; }

private:
    std::filesystem::path root_;
    OwnedProcess bus_;
};

}  // namespace kestrow::testing
