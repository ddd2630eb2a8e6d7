#include "platform/linux/shares/gvfs_mount_record.h"

#include "support/ascii_case.h"
#include "support/url_parts.h"

namespace kestrow {
namespace {

const std::string* specItem(const GvfsMountRecord& record, std::string_view key) {
    for (const auto& [name, value] : record.specItems)
        if (name == key) return &value;
    return nullptr;
}

std::string itemOr(const GvfsMountRecord& record, std::string_view key) {
    const std::string* value = specItem(record, key);
    return value ? *value : std::string();
}

// A host that holds a colon is an IPv6 literal and needs its brackets back in a URL.
std::string authorityHost(const std::string& host) {
    if (host.find(':') != std::string::npos && !host.starts_with('[')) return "[" + host + "]";
    return host;
}

std::string userPart(const GvfsMountRecord& record) {
    const std::string user = itemOr(record, "user");
    return user.empty() ? std::string() : percentEncodeUnreserved(user) + "@";
}

// Only decimal ports survive; anything else would make the from-name unparseable.
std::string portPart(const GvfsMountRecord& record) {
    const std::string port = itemOr(record, "port");
    if (port.empty() || port.size() > 5) return {};
    for (const char c : port)
        if (c < '0' || c > '9') return {};
    return ":" + port;
}

// Path segments are encoded one by one so the folder structure stays readable by URL parsers.
std::string encodedPath(const std::string& path) {
    std::string encoded;
    std::size_t start = 0;
    while (start <= path.size()) {
        const auto slash = path.find('/', start);
        const auto end = slash == std::string::npos ? path.size() : slash;
        encoded += percentEncodeUnreserved(std::string_view(path).substr(start, end - start));
        if (slash == std::string::npos) break;
        encoded += '/';
        start = slash + 1;
    }
    return encoded;
}

// A name that could step out of the gvfs folder (or hide in it) is not a path of its.
bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::string mountPath(const GvfsMountRecord& record, const std::string& volumesRoot) {
    if (!record.fuseMountpoint.empty()) return record.fuseMountpoint;
    if (!isPlainName(record.stableName)) return {};
    return volumesRoot + record.stableName;
}

bool isWebUrl(const std::string& source) {
    const std::string lowered = asciiLowercase(source.substr(0, 8));
    return lowered.starts_with("http://") || lowered.starts_with("https://");
}

}  // namespace

std::optional<MountEntry> gvfsMountEntry(const GvfsMountRecord& record,
                                         const std::string& volumesRoot) {
    const std::string type = itemOr(record, "type");
    if (type.empty()) return std::nullopt;
    MountEntry entry;
    entry.flags = record.userVisible ? 0 : kDontBrowseFlag;
    entry.mountedOn = mountPath(record, volumesRoot);
    entry.fsid = gvfsMountIdentity(record.dbusId, record.objectPath);
    if (type == "smb-share") {
        entry.fsType = "smbfs";
        entry.from = "//" + userPart(record) + authorityHost(itemOr(record, "server")) +
                     portPart(record) + "/" + percentEncodeUnreserved(itemOr(record, "share"));
    } else if (type == "dav" || type == "davs") {
        const bool secure = type == "davs" || itemOr(record, "ssl") == "true";
        std::string prefix = record.specPrefix;
        if (!prefix.starts_with('/')) prefix.insert(prefix.begin(), '/');
        entry.fsType = "webdav";
        entry.from = std::string(secure ? "https://" : "http://") + userPart(record) +
                     authorityHost(itemOr(record, "host")) + portPart(record) + encodedPath(prefix);
    } else {
        entry.fsType = "gvfs." + type;
        entry.from = record.stableName;
    }
    return entry;
}

std::vector<MountEntry> kernelMountEntries(std::string_view mountInfo) {
    std::vector<MountEntry> entries;
    for (const MountInfoRow& row : parseMountInfo(mountInfo)) {
        if (row.type.empty() || row.type == "fuse.gvfsd-fuse") continue;
        MountEntry entry;
        entry.fsType = row.type == "fuse" && isWebUrl(row.source) ? "davfs" : row.type;
        entry.from = row.source;
        entry.mountedOn = row.mountPoint;
        entry.fsid = static_cast<std::int64_t>(row.device.value_or(0));
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::int64_t gvfsMountIdentity(std::string_view dbusId, std::string_view objectPath) {
    // FNV-1a over both texts with a separator that cannot occur in either.
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    const auto mix = [&hash](std::string_view text) {
        for (const char c : text) {
            hash ^= static_cast<unsigned char>(c);
            hash *= 0x100000001b3ULL;
        }
    };
    mix(dbusId);
    mix(std::string_view("\0", 1));
    mix(objectPath);
    const auto folded = static_cast<std::int64_t>(hash & 0x7fffffffffffffffULL);
    return folded == 0 ? 1 : folded;
}

std::int64_t bootIdentityFromId(std::string_view bootId) {
    std::uint64_t halves[2] = {0, 0};
    int digits = 0;
    for (const char c : bootId) {
        if (c == '-' || c == '\n') continue;
        int value = -1;
        if (c >= '0' && c <= '9')
            value = c - '0';
        else if (c >= 'a' && c <= 'f')
            value = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            value = c - 'A' + 10;
        if (value < 0 || digits >= 32) return 0;
        auto& half = halves[digits / 16];
        half = (half << 4) | static_cast<std::uint64_t>(value);
        ++digits;
    }
    if (digits != 32) return 0;
    const auto folded = static_cast<std::int64_t>((halves[0] ^ halves[1]) & 0x7fffffffffffffffULL);
    return folded == 0 ? 1 : folded;
}

}  // namespace kestrow
