#include "support/share_servers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <random>

namespace kestrow::testing {
namespace {

namespace fs = std::filesystem;

constexpr int kStartLimitMs = 10'000;
const char* const kApacheModules = "/usr/lib/apache2/modules";

std::string randomPassword() {
    static const char letters[] = "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
    std::random_device device;
    std::string password = "Kw";
    for (int i = 0; i < 18; ++i) password += letters[device() % (sizeof letters - 1)];
    return password;
}

// The end of a server's log, so a failed start says why.
std::string logTail(const fs::path& log) {
    std::ifstream file(log);
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    return text.size() > 1500 ? text.substr(text.size() - 1500) : text;
}

void openFolder(const fs::path& path) {
    fs::create_directories(path);
    fs::permissions(path, fs::perms::all);
}

}  // namespace

ShareServers::ShareServers(fs::path folder)
    : folder_(std::move(folder)), password_(randomPassword()) {
    fs::create_directories(logFolder());
}

ShareServers::~ShareServers() {
    stopSilentListener();
    smbd_.stop();
    apache_.stop();
}

bool ShareServers::smbInstalled() {
    return fs::exists("/usr/sbin/smbd") && fs::exists("/usr/bin/smbpasswd");
}

bool ShareServers::webDavInstalled() {
    return fs::exists("/usr/sbin/apache2") && fs::exists("/usr/bin/htpasswd") &&
           fs::exists(fs::path(kApacheModules) / "mod_dav_fs.so");
}

std::optional<std::string> ShareServers::startSmb() {
    if (!smbInstalled()) return "smbd or smbpasswd is not installed";
    const fs::path state = folder_ / "samba";
    const fs::path config = state / "smb.conf";
    if (!smbReady_) {
        for (const char* sub : {"private", "lock", "state", "cache", "pid", "ncalrpc"})
            fs::create_directories(state / sub);
        openFolder(smbFolder());
        std::ofstream(smbFolder() / "hello.txt") << "hello over smb\n";
        std::ofstream(config) << "[global]\n"
                              << "  server role = standalone server\n"
                              << "  interfaces = lo\n  bind interfaces only = yes\n"
                              << "  smb ports = 445\n  disable netbios = yes\n"
                              << "  private dir = " << (state / "private").string() << "\n"
                              << "  lock directory = " << (state / "lock").string() << "\n"
                              << "  state directory = " << (state / "state").string() << "\n"
                              << "  cache directory = " << (state / "cache").string() << "\n"
                              << "  pid directory = " << (state / "pid").string() << "\n"
                              << "  ncalrpc dir = " << (state / "ncalrpc").string() << "\n"
                              << "  log file = " << (logFolder() / "smbd.log").string() << "\n"
                              << "  passdb backend = tdbsam:"
                              << (state / "private/passdb.tdb").string() << "\n"
                              << "  load printers = no\n  printcap name = /dev/null\n"
                              << "  disable spoolss = yes\n"
                              // On-demand RPC helpers daemonize and outlive smbd.
                              << "  rpc start on demand helpers = no\n"
                              << "[data]\n  path = " << smbFolder().string()
                              << "\n  read only = no\n  valid users = " << user_ << "\n";
        // smbpasswd reads the new password twice on its standard input.
        const int added =
            OwnedProcess::run({"smbpasswd", "-c", config.string(), "-s", "-a", user_},
                              logFolder() / "smbpasswd.log", password_ + "\n" + password_ + "\n");
        if (added != 0) return "smbpasswd could not add the test user";
        smbReady_ = true;
    }
    if (!smbd_.start({"smbd", "-s", config.string(), "--foreground", "--debug-stdout"},
                     logFolder() / "smbd.stdout", {}, false))
        return "smbd did not start";
    if (!waitForListener(445, kStartLimitMs)) {
        smbd_.stop();
        return "smbd did not listen on 127.0.0.1:445: " + logTail(logFolder() / "smbd.stdout");
    }
    return std::nullopt;
}

void ShareServers::stopSmb() {
    smbd_.stop();
}

std::optional<std::string> ShareServers::startWebDav() {
    if (!webDavInstalled()) return "apache2, htpasswd or mod_dav_fs is not installed";
    const fs::path root = folder_ / "htdocs";
    const fs::path config = folder_ / "apache/httpd.conf";
    if (!webDavReady_) {
        // Apache's children run as www-data and must reach everything below.
        openFolder(folder_);
        openFolder(folder_ / "apache");
        openFolder(root);
        openFolder(webDavFolder());
        openFolder(folder_ / "apache/lock");
        fs::permissions(logFolder(), fs::perms::all);
        std::ofstream(webDavFolder() / "hello.txt") << "hello over webdav\n";
        fs::permissions(webDavFolder() / "hello.txt", fs::perms::all);
        const fs::path users = folder_ / "apache/htpasswd";
        if (OwnedProcess::run({"htpasswd", "-i", "-c", "-B", users.string(), user_},
                              logFolder() / "htpasswd.log", password_ + "\n") != 0)
            return "htpasswd could not add the test user";
        fs::permissions(users, fs::perms::owner_read | fs::perms::owner_write |
                                   fs::perms::group_read | fs::perms::others_read);
        std::ofstream file(config);
        file << "ServerRoot \"" << (folder_ / "apache").string() << "\"\n"
             << "ServerName 127.0.0.1\nPidFile \"" << (folder_ / "apache/httpd.pid").string()
             << "\"\nListen 127.0.0.1:80\n";
        for (const char* module : {"mpm_event", "authz_core", "authz_user", "authn_core",
                                   "authn_file", "auth_basic", "dav", "dav_fs"})
            file << "LoadModule " << module << "_module " << kApacheModules << "/mod_" << module
                 << ".so\n";
        file << "User www-data\nGroup www-data\n"
             << "ErrorLog \"" << (logFolder() / "apache-error.log").string() << "\"\n"
             << "DAVLockDB \"" << (folder_ / "apache/lock/DAVLock").string() << "\"\n"
             << "DocumentRoot \"" << root.string() << "\"\n"
             << "<Directory \"" << webDavFolder().string() << "\">\n"
             << "  Dav On\n  AuthType Basic\n  AuthName \"kestrow\"\n"
             << "  AuthUserFile \"" << users.string() << "\"\n  Require valid-user\n"
             << "</Directory>\n";
        webDavReady_ = true;
    }
    if (!apache_.start({"/usr/sbin/apache2", "-f", config.string(), "-DFOREGROUND"},
                       logFolder() / "apache.stdout"))
        return "apache2 did not start";
    if (!waitForListener(80, kStartLimitMs)) {
        apache_.stop();
        return "apache2 did not listen on 127.0.0.1:80: " + logTail(logFolder() / "apache.stdout") +
               logTail(logFolder() / "apache-error.log");
    }
    return std::nullopt;
}

void ShareServers::stopWebDav() {
    apache_.stop();
}

bool ShareServers::startSilentListener(int port) {
    stopSilentListener();
    silent_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    ::setsockopt(silent_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // Never accept()ed: the kernel completes the handshakes and nobody ever answers.
    if (::bind(silent_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(silent_, 64) != 0) {
        stopSilentListener();
        return false;
    }
    return true;
}

void ShareServers::stopSilentListener() {
    if (silent_ >= 0) ::close(silent_);
    silent_ = -1;
}

}  // namespace kestrow::testing
