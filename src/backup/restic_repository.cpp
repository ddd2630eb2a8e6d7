#include "backup/restic_repository.h"

#include <array>
#include <charconv>

#include "support/atomic_file.h"
#include "support/mount_info_field.h"
#include "support/url_credentials.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 8> kRemoteSchemes{"sftp",  "rest", "s3",    "b2",
                                                         "azure", "gs",   "swift", "rclone"};

bool within(const fs::path& path, const fs::path& folder) {
    auto p = path.begin();
    for (auto f = folder.begin(); f != folder.end(); ++f, ++p) {
        if (f->empty()) continue;  // the trailing "" of "/mnt/"
        if (p == path.end() || *p != *f) return false;
    }
    return true;
}

// /media/USER/LABEL, /run/media/USER/LABEL, /mnt/NAME: where removable drives are mounted, so
// the drive is known even while it is unplugged.
std::optional<fs::path> drivePlace(const fs::path& folder) {
    std::vector<fs::path> parts(folder.begin(), folder.end());
    auto take = [&](std::size_t count) {
        fs::path place;
        for (std::size_t i = 0; i < count; ++i) place /= parts[i];
        return place;
    };
    if (parts.size() >= 4 && parts[1] == "media") return take(4);
    if (parts.size() >= 5 && parts[1] == "run" && parts[2] == "media") return take(5);
    if (parts.size() >= 3 && parts[1] == "mnt") return take(3);
    return std::nullopt;
}

std::optional<int> portNumber(std::string_view text) {
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port <= 0 || port > 65535) {
        return std::nullopt;
    }
    return port;
}

// "user@host:port" or "[v6]:port" → host and port. Whether a port was written at all (one that
// is not a port number leaves the port unknown rather than the scheme's default).
bool readAuthority(std::string_view authority, ResticRepositoryPlace& place) {
    if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
        authority.remove_prefix(at + 1);
    }
    std::string_view host = authority;
    std::string_view port;
    if (authority.starts_with('[')) {
        const auto close = authority.find(']');
        if (close == std::string_view::npos) return false;
        host = authority.substr(1, close - 1);
        if (close + 1 < authority.size() && authority[close + 1] == ':') {
            port = authority.substr(close + 2);
        }
    } else if (const auto colon = authority.rfind(':'); colon != std::string_view::npos) {
        host = authority.substr(0, colon);
        port = authority.substr(colon + 1);
    }
    if (host.empty()) return false;
    place.host = std::string(host);
    if (!port.empty()) place.port = portNumber(port);
    return !port.empty();
}

void readUrl(std::string_view url, int defaultPort, ResticRepositoryPlace& place) {
    if (url.starts_with("https://")) {
        defaultPort = 443;
    } else if (url.starts_with("http://")) {
        defaultPort = 80;
    }
    if (const auto slashes = url.find("://"); slashes != std::string_view::npos) {
        url.remove_prefix(slashes + 3);
    } else if (url.starts_with("//")) {
        url.remove_prefix(2);
    }
    const bool portWritten = readAuthority(url.substr(0, url.find_first_of("/?#")), place);
    if (place.host && !portWritten) place.port = defaultPort;
}

void readRemote(std::string_view rest, ResticRepositoryPlace& place) {
    if (place.scheme == "sftp") {
        if (rest.starts_with("//")) {
            readUrl(rest, 22, place);  // sftp://user@host:2222//path
        } else {
            // sftp:user@host:/path: the colon before the path is not a port.
            readAuthority(rest.substr(0, rest.find(':')), place);
            place.port = 22;
        }
    } else if (place.scheme == "rest") {
        readUrl(rest, 80, place);
    } else if (place.scheme == "s3") {
        // s3:https://host/bucket, or s3:host/bucket (https).
        readUrl(rest, 443, place);
    }
    // b2, azure, gs and swift name a provider's service; rclone names a remote of its own.
}

}  // namespace

ResticRepositoryPlace ResticRepository::classify(std::string_view repository,
                                                 std::string_view mountInfo) {
    ResticRepositoryPlace place;
    place.display = withoutPassword(repository);
    const auto colon = repository.find(':');
    const std::string_view scheme =
        colon == std::string_view::npos ? std::string_view() : repository.substr(0, colon);
    for (const auto known : kRemoteSchemes) {
        if (scheme == known) {
            place.scheme = std::string(scheme);
            place.carriesCredentials = place.display != repository;
            readRemote(repository.substr(colon + 1), place);
            return place;
        }
    }
    if (scheme == "local") repository.remove_prefix(colon + 1);
    place.local = true;
    place.display = std::string(repository);
    place.folder = fs::path(repository).lexically_normal();
    place.watch = {place.folder / "snapshots", place.folder / "locks"};
    if (!place.folder.is_absolute()) return place;

    fs::path deepest;
    for (const auto& row : parseMountInfo(mountInfo)) {
        const fs::path point(row.mountPoint);
        if (within(place.folder, point) && std::distance(point.begin(), point.end()) >
                                               std::distance(deepest.begin(), deepest.end())) {
            deepest = point;
        }
    }
    const auto expected = drivePlace(place.folder);
    if (expected && (deepest.empty() || !within(deepest, *expected) || deepest == "/")) {
        // A drive's usual place with nothing of its own mounted there: it is unplugged.
        place.mountPoint = *expected;
        place.mounted = false;
    } else if (!deepest.empty() && deepest != "/") {
        place.mountPoint = deepest;
        place.mounted = true;
    }
    return place;
}

ResticRepositoryPlace ResticRepository::classify(std::string_view repository) {
    return classify(repository, readFile("/proc/self/mountinfo").value_or(""));
}

}  // namespace kestrow
