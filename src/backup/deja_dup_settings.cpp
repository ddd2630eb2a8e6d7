#include "backup/deja_dup_settings.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "support/iso_date.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {
namespace {

// Déjà Dup writes "last-run" as it finishes an operation and "last-backup" a moment before or
// after for the same backup: a run this close to the backup is that backup, not another attempt.
constexpr double kSameRunSeconds = 60.0;

// Locations reached over the network: the server and cloud accounts, and the retired cloud
// kinds an old configuration may still name.
constexpr std::array<std::string_view, 9> kNetworkBackends = {
    "remote", "google", "microsoft", "gcs", "goa", "openstack", "rackspace", "s3", "u1"};

// Schemes whose host the reachability probe can ask.
constexpr std::array<std::string_view, 5> kProbedSchemes = {"smb", "sftp", "ssh", "dav", "davs"};

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

std::string schemeOf(std::string_view uri) {
    const auto colon = uri.find("://");
    return colon == std::string_view::npos ? std::string() : lowercase(uri.substr(0, colon));
}

template <std::size_t N>
bool among(const std::array<std::string_view, N>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string expandHostName(std::string folder, const std::string& hostName) {
    static constexpr std::string_view token = "$HOSTNAME";
    if (hostName.empty()) return folder;
    for (auto at = folder.find(token); at != std::string::npos;
         at = folder.find(token, at + hostName.size())) {
        folder.replace(at, token.size(), hostName);
    }
    return folder;
}

std::string trimSlashes(std::string text) {
    const auto first = text.find_first_not_of('/');
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of('/');
    return text.substr(first, last - first + 1);
}

std::string onPlace(const std::string& folder, const std::string& place) {
    return folder.empty() ? place : folder + " on " + place;
}

struct Location {
    std::string id;
    std::string words;
};

Location locationOf(const DejaDupSettings& s) {
    const auto folderOf = [&s](const std::string& raw) {
        return trimSlashes(expandHostName(raw, s.hostName));
    };
    if (s.backend == "local") {
        std::string path = expandHostName(s.localFolder, s.hostName);
        // A relative folder is relative to the home folder.
        if (!path.empty() && path.front() != '/') path = "~/" + path;
        return {path, path};
    }
    if (s.backend == "drive") {
        const std::string folder = folderOf(s.driveFolder);
        return {s.driveUuid + "/" + folder, s.driveName.empty() ? folder : s.driveName};
    }
    if (s.backend == "remote") {
        const std::string folder = folderOf(s.remoteFolder);
        std::string uri = s.remoteUri;
        while (!uri.empty() && uri.back() == '/') uri.pop_back();
        const auto host = BackupStatusModel::hostOf(s.remoteUri);
        return {uri + "/" + folder,
                host ? onPlace(folder, *host) : (folder.empty() ? uri : uri + "/" + folder)};
    }
    if (s.backend == "google") {
        const std::string folder = folderOf(s.googleFolder);
        return {folder, onPlace(folder, "Google Drive")};
    }
    if (s.backend == "microsoft") {
        const std::string folder = folderOf(s.microsoftFolder);
        return {folder, onPlace(folder, "Microsoft OneDrive")};
    }
    return {{}, s.backend};
}

bool locationChosen(const DejaDupSettings& s) {
    if (s.backend == "drive") return !s.driveUuid.empty();
    if (s.backend == "remote") return !s.remoteUri.empty();
    return !s.backend.empty() && s.backend != "auto";
}

}  // namespace

bool DejaDupSettings::configured() const {
    return lastBackupTime().has_value() || (periodic && locationChosen(*this));
}

Preferences DejaDupSettings::preferences() const {
    const Location location = locationOf(*this);
    Destination destination;
    destination.id = backend + ":" + location.id;
    destination.volumeName = location.words;
    // A "remote" location may also be a file: URI, a folder of this machine.
    destination.isNetwork =
        among(kNetworkBackends, backend) && !(backend == "remote" && schemeOf(remoteUri) == "file");
    if (backend == "remote" && among(kProbedSchemes, schemeOf(remoteUri)))
        destination.networkURL = remoteUri;
    destination.lastResult = 0;

    const auto backup = lastBackupTime();
    const auto run = lastRunTime();
    if (backup) {
        destination.snapshots.push_back(*backup);
        destination.attempts.push_back(*backup);
    }
    if (run && (!backup || secondsBetween(*backup, *run) > kSameRunSeconds))
        destination.attempts.push_back(*run);

    Preferences preferences;
    preferences.destinations = std::vector<Destination>{destination};
    preferences.lastDestination = std::move(destination);
    preferences.automaticBackups = periodic;
    return preferences;
}

std::optional<WallTime> DejaDupSettings::parseDate(std::string_view text) {
    // GLib writes the offset with only as many digits as it needs ("+05:30", "+01"); the shared
    // reader takes the full "+HH:MM" form, so the short ones are completed first.
    const auto time = text.find('T');
    if (time == std::string_view::npos) return parseIsoDate(text);
    const auto sign = text.find_last_of("+-");
    if (sign == std::string_view::npos || sign < time) return parseIsoDate(text);
    const std::string_view offset = text.substr(sign + 1);
    const bool digitsOnly = std::all_of(offset.begin(), offset.end(),
                                        [](unsigned char c) { return std::isdigit(c) != 0; });
    std::string completed(text.substr(0, sign + 1));
    if (digitsOnly && offset.size() == 2) {
        completed.append(offset).append(":00");
    } else if (digitsOnly && offset.size() == 4) {
        completed.append(offset.substr(0, 2)).append(":").append(offset.substr(2));
    } else {
        completed.append(offset);
    }
    return parseIsoDate(completed);
}

}  // namespace kestrow
