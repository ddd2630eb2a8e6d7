#include "shares/stored_share_control.h"

#include <algorithm>

#include "shares/mount_matching.h"

namespace kestrow {
namespace {

// The ownership reason for a mount whose maker cannot be told.
constexpr const char* kCouldNotTell = "Could not tell who connected it — left alone";

}  // namespace

StoredShareControl::StoredShareControl(ShareStore& store, SharePasswords& passwords,
                                       MountTable& table)
    : store_(store), passwords_(passwords), table_(table), shares_(store_.load()) {}

std::function<void()> StoredShareControl::track() {
    ++*pending_;
    return [pending = pending_] { --*pending; };
}

void StoredShareControl::save(std::vector<SMBShare> shares) {
    store_.save(shares);
    shares_.set(std::move(shares));
}

void StoredShareControl::add(SMBShare share, const std::string& password) {
    auto shares = shares_.get();
    const std::string id = share.id;
    shares.push_back(std::move(share));
    save(std::move(shares));
    passwords_.savePassword(password, id, track());
}

void StoredShareControl::update(SMBShare share, const std::string& password) {
    auto shares = shares_.get();
    const auto it = std::find_if(shares.begin(), shares.end(),
                                 [&](const SMBShare& s) { return s.id == share.id; });
    if (it == shares.end()) return;
    // The live state is the list's, not the edited record's.
    share.status = it->status;
    share.lastError = it->lastError;
    share.lastConnected = it->lastConnected;
    *it = share;
    save(std::move(shares));
    passwords_.savePassword(password, share.id, track());
}

void StoredShareControl::remove(const SMBShare& share) {
    auto shares = shares_.get();
    std::erase_if(shares, [&](const SMBShare& s) { return s.id == share.id; });
    save(std::move(shares));
    passwords_.deletePassword(share.id, track());
}

void StoredShareControl::setLive(const std::string& id, MountStatus status,
                                 std::optional<std::string> error) {
    auto shares = shares_.get();
    for (SMBShare& s : shares) {
        if (s.id != id) continue;
        s.status = status;
        s.lastError = std::move(error);
    }
    shares_.set(std::move(shares));
}

void StoredShareControl::mount(const SMBShare& share) {
    setLive(share.id, MountStatus::disconnected, std::string(kCannotConnect));
}

void StoredShareControl::unmount(const SMBShare& share) {
    const auto table = table_.current();
    if (table && !MountMatching::isMounted(share, *table)) {
        setLive(share.id, MountStatus::disconnected, std::nullopt);
        return;
    }
    const auto current = std::find_if(shares_.get().begin(), shares_.get().end(),
                                      [&](const SMBShare& s) { return s.id == share.id; });
    if (current == shares_.get().end()) return;
    setLive(share.id, table ? MountStatus::mounted : current->status, std::string(kCouldNotTell));
}

}  // namespace kestrow
