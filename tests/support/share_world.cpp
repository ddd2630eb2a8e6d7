#include "support/share_world.h"

#include <net/if.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <thread>

namespace kestrow::testing {
namespace {

std::string systemError(const std::string& what) {
    return what + ": " + ::strerror(errno);
}

bool bringLoopbackUp() {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    ifreq request{};
    ::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = ::ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
    up = up && ::ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    ::close(fd);
    return up;
}

void setPath(const char* name, const std::filesystem::path& path) {
    std::filesystem::create_directories(path);
    ::setenv(name, path.c_str(), 1);
}

}  // namespace

std::optional<std::string> ShareWorld::enter() {
    if (::geteuid() != 0) return "needs root for its own network and mount namespaces";
    if (::unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) return systemError("unshare");
    // Mounts made from here on stay in this namespace.
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return systemError("making mounts private");
    if (!bringLoopbackUp()) return systemError("bringing lo up");
    for (const char* folder :
         {"/run/samba", "/var/log/samba", "/var/cache/samba", "/var/lib/samba"})
        if (std::filesystem::is_directory(folder) &&
            ::mount("tmpfs", folder, "tmpfs", 0, "mode=0755") != 0)
            return systemError(std::string("tmpfs over ") + folder);

    std::string pattern =
        (std::filesystem::temp_directory_path() / "kestrow-shares.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) return systemError("mkdtemp");
    root_ = pattern;
    // Apache's children (www-data) must reach the WebDAV folder below.
    std::filesystem::permissions(
        root_, std::filesystem::perms::owner_all | std::filesystem::perms::group_read |
                   std::filesystem::perms::group_exec | std::filesystem::perms::others_read |
                   std::filesystem::perms::others_exec);
    std::filesystem::create_directories(servers());
    setPath("HOME", home());
    setPath("XDG_CONFIG_HOME", home() / ".config");
    setPath("XDG_DATA_HOME", home() / ".local/share");
    setPath("XDG_CACHE_HOME", home() / ".cache");
    setPath("XDG_RUNTIME_DIR", runtime());
    std::filesystem::permissions(runtime(), std::filesystem::perms::owner_all);
    // libsmbclient inside gvfsd-smb keeps its state where this says, not in the system folders.
    std::filesystem::create_directories(home() / ".smb");
    std::ofstream(home() / ".smb/smb.conf")
        << "[global]\n  cache directory = " << (root_ / "smbclient").string()
        << "\n  lock directory = " << (root_ / "smbclient").string()
        << "\n  state directory = " << (root_ / "smbclient").string()
        << "\n  private dir = " << (root_ / "smbclient").string() << "\n";
    std::filesystem::create_directories(root_ / "smbclient");
    ::setenv("GSETTINGS_BACKEND", "memory", 1);
    ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + (root_ / "no-system-bus").string()).c_str(),
             1);

    // The environment above is set before the bus starts: activated services inherit the bus's
    // environment, not their caller's.
    const auto addressFile = root_ / "bus-address";
    if (!bus_.start({"dbus-daemon", "--session", "--nofork", "--print-address=1"}, addressFile))
        return "dbus-daemon did not start";
    // Its warnings share the file: the address is the line that starts with "unix:".
    std::string address;
    for (int tries = 0; tries < 500 && address.empty(); ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::ifstream file(addressFile);
        for (std::string line; std::getline(file, line) && !file.eof();)
            if (line.starts_with("unix:")) address = line;
    }
    if (address.empty()) return "dbus-daemon did not print its address";
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    return std::nullopt;
}

void ShareWorld::leave() {
    bus_.stop();
    if (root_.empty()) return;
    // gvfsd-fuse leaves with the bus; its mount must be gone before the folder can go.
    const auto fuse = runtime() / "gvfs";
    for (int tries = 0; tries < 50 && ::umount2(fuse.c_str(), MNT_DETACH) != 0 && errno == EBUSY;
         ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
    root_.clear();
}

}  // namespace kestrow::testing
